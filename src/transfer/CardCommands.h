#pragma once
// The card commands outside a transfer: Eject (cards unmounted and powered off, folder rows
// dropped) and Erase (only a card with a verified copy, asked with Cancel as the default, each
// card reformatted on a thread of its own). The commands run on the main thread.

#include <QString>
#include <memory>
#include <optional>

struct ControllerContext;
class QVVolume;

class CardCommands {
  public:
    explicit CardCommands(ControllerContext& context) : c_(context) {}

    /// Eject command: cards are unmounted and powered off, folder rows dropped.
    void eject();
    /// Unmounts the card and powers it off; false (logged) when it stays.
    bool ejectVolume(QVVolume& volume);
    /// Erase command: refuses, naming each, cards without a verified copy; otherwise asks
    /// (Cancel being the default), then reformats each selected card in its own format on a
    /// thread of its own.
    void erase();
    /// Why the card must not be erased (e.g. "it has not been transferred since it was
    /// listed"); nothing when its transfer in this run ended complete and verified everywhere.
    std::optional<QString> eraseRefusal(const QVVolume& volume) const;
    void eraseVolume(const std::shared_ptr<QVVolume>& volume);
    /// Refuses folders and any card sharing a device with "/" or a destination.
    void eraseVolumeOnThread(const std::shared_ptr<QVVolume>& volume);

  private:
    /// The erase sheet's line for the card: name, format, size, and its verified copies.
    QString eraseDetails(const QVVolume& volume) const;

    ControllerContext& c_;
};
