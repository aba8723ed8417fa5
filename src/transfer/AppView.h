#pragma once
// Everything the transfer logic shows a person goes through this interface: the GUI implements
// it with widgets, the command line for a terminal, tests with a recording fake.
// Every call is made on the main thread.

#include <QString>
#include <memory>
#include <utility>
#include <vector>

class QVVolume;
struct VolumeSnapshot;

/// A sheet on the main window: message, up to three buttons and a line of explanation.
struct SheetRequest {
    /// A sheet that reports a success carries the information icon, others the warning one.
    enum class Icon { Warning, Information };
    QString message;
    QString defaultButton = QStringLiteral("OK");
    QString alternateButton;
    QString otherButton;
    QString informativeText;
    Icon icon = Icon::Warning;
    /// The answer Return gives, and a terminal that can't ask: 1, 0 or -1 as below. Where
    /// the first button destroys something, the safe one is the default.
    int defaultAnswer = 1;
};

/// What the toolbar offers for the selected volumes.
struct ToolbarState {
    /// The Transfer item is the cancel command now (the label says so; nothing reads it back).
    bool transferCancels = false;
    QString transferLabel;
    QString transferImage;
    bool transferEnabled = false;
    bool eraseEnabled = false;
    bool infoEnabled = false;
    bool ejectEnabled = false;
    bool ignoreEnabled = false;
    bool revealTransferredEnabled = false;
};

class AppView {
  public:
    virtual ~AppView() = default;

    virtual void reloadVolumeList() = 0;
    /// 1 for the default button, 0 for the alternate, -1 for the other.
    virtual int showSheet(const SheetRequest& sheet) = 0;
    /// Rows of the volume list that are selected, in order.
    virtual std::vector<int> selectedRows() const = 0;
    virtual void setToolbarState(const ToolbarState& state) = 0;
    virtual void setBadge(const QString& badge) = 0;
    virtual void setWindowTitle(const QString& title) = 0;
    virtual void setRemainingSpaceText(const QString& text) = 0;
    /// Shows the information panel: a title and label/value rows.
    virtual void showInfo(const QString& title,
                          const std::vector<std::pair<QString, QString>>& rows) = 0;
    /// Opens the review of the files that failed verification; returns once it is shown.
    virtual void showVerificationFailureForVolume(const std::shared_ptr<QVVolume>& volume) = 0;
    /// These volumes changed; each snapshot is how its volume stands now. Throttled: a busy
    /// volume comes at most a few times a second.
    virtual void volumesChanged(const std::vector<std::shared_ptr<const VolumeSnapshot>>& volumes) {
        static_cast<void>(volumes);
    }
    /// Where copies will go, in a line (the ticked destinations, or that none is ticked);
    /// `warning` when that needs the user's attention (a destination on the system disk).
    virtual void setDestinationSummary(const QString& text, bool warning) {
        static_cast<void>(text);
        static_cast<void>(warning);
    }
    /// Shows the automatic-mode item as selected (on) or not.
    virtual void setAutomaticModeSelected(bool selected) { static_cast<void>(selected); }
    /// A step after a verified transfer did something; `what` says it in a line ("Archive:
    /// PATH").
    virtual void postActionDone(const VolumeSnapshot& volume, const QString& what) {
        static_cast<void>(volume);
        static_cast<void>(what);
    }
    /// Called once when a volume's transfer has ended for good: verified with its post actions
    /// done, failed, or stopped. Called on the thread that ended it.
    virtual void transferDidEnd(const std::shared_ptr<QVVolume>& volume) {
        static_cast<void>(volume);
    }
};
