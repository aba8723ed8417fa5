#pragma once
// Writes the volume's metadata into every movie of every destination through the QTMetaTool
// helper, one run per movie with a time-out, for the fields that name a movie key. Runs on
// the volume's post-action thread.

#include <vector>

#include "MetadataField.h"
#include "PostAction.h"

class ProcessRunner;

class EmbedMetadataAction : public PostAction {
  public:
    /// `toolPath`: the QTMetaTool to run.
    EmbedMetadataAction(ProcessRunner& processes, QString toolPath)
        : processes_(processes), toolPath_(std::move(toolPath)) {}
    QString name() const override { return QStringLiteral("embedQTMetadata"); }
    bool needsFirstDestination() const override { return true; }
    void perform(PostActionRun& run) override;

    /// The tool's second argument: "KEY"="VALUE"; for each field with a movie key, in field
    /// order, nothing between the pairs; a field without a value gives (null).
    static QString metadataPairs(const std::vector<MetadataField>& fields,
                                 const MetadataValues& values);

  private:
    ProcessRunner& processes_;
    const QString toolPath_;
};
