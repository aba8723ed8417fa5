#pragma once
// Writes the checksum manifest into every destination again after a verified transfer, so it
// holds what verification read back.

#include <functional>

#include "PostAction.h"

class ManifestAction : public PostAction {
  public:
    using Writer = std::function<void(QVVolume& volume)>;
    explicit ManifestAction(Writer write) : write_(std::move(write)) {}
    QString name() const override { return QStringLiteral("writeChecksumFileForVolume:"); }
    void perform(const std::shared_ptr<QVVolume>& volume) override { write_(*volume); }

  private:
    const Writer write_;
};
