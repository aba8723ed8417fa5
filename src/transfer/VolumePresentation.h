#pragma once
// What the volume list shows around it: list reloads, the toolbar for the selection (decided
// from the volumes' state), the free space and the summary of the destinations, and the edits
// the list and the preferences make. Main thread only.

#include <QString>
#include <QStringList>
#include <vector>

#include "AppView.h"
#include "DestinationEntry.h"

struct ControllerContext;

class VolumePresentation {
  public:
    explicit VolumePresentation(ControllerContext& context) : c_(context) {}

    void reloadVolumeList();
    void updateToolbarForTableSelection();
    void refreshTotalRemainingSpace();
    /// The line over the list saying where copies go, warning of one on the system disk.
    void showDestinationSummary();
    /// The toolbar for the selected volumes.
    ToolbarState toolbarForSelection() const;
    /// Some selected volume is running or waiting for its turn (so Transfer cancels).
    bool selectionIsBusy() const;
    /// The toolbar with its Transfer item as the cancel command or as "Transfer".
    static ToolbarState transferItem(bool asCancel);
    /// The destination list as the preferences edit it: kept, stored at once, and the free
    /// space shown again.
    void changeDestinationList(const std::vector<DestinationEntry>& list);
    /// Appends each folder not already listed (exactly that path), ticked.
    void addDestinations(const QStringList& folders);
    /// An edit in the volume list: "colDestination" takes one destination path (empty: every
    /// ticked one); a metadata column stores the value in the volume and as the field's new
    /// default, so the next card starts from it.
    void setVolumeListValue(int row, const QString& column, const QString& value);

  private:
    ControllerContext& c_;
};
