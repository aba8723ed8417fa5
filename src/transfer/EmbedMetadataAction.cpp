#include "EmbedMetadataAction.h"

#include "ClipList.h"
#include "PostActionRun.h"
#include "Preferences.h"
#include "ProcessRunner.h"
#include "QVVolume.h"
#include "TransferOptions.h"

namespace {

constexpr double kToolTimeoutSeconds = 10;

}  // namespace

QString EmbedMetadataAction::metadataPairs(const std::vector<MetadataField>& fields,
                                           const MetadataValues& values) {
    QString pairs;
    for (const MetadataField& field : fields) {
        if (!field.qtMetadataKey)
            continue;
        const auto value = values.find(field.identifier());
        pairs += QStringLiteral("\"%1\"=\"%2\";")
                     .arg(*field.qtMetadataKey,
                          value == values.end() ? QStringLiteral("(null)") : value->second);
    }
    return pairs;
}

void EmbedMetadataAction::perform(PostActionRun& run) {
    if (!run.options().isOn(SettingsKey::actionEmbedQTMetadata))
        return;
    const QString pairs = metadataPairs(run.options().fields, run.volume().metadata());
    int tagged = 0;
    for (const QString& destination : run.volume().destinations()) {
        for (const QString& movie : ClipList::qtMoviesInFolder(destination)) {
            // The tool's verdict isn't acted on: a movie it can't tag is left as it was.
            const ProcessResult result =
                processes_.run(toolPath_, {movie, pairs}, kToolTimeoutSeconds);
            if (result.started && !result.timedOut && result.exitCode == 0)
                ++tagged;
        }
    }
    if (tagged > 0)
        run.report(QStringLiteral("Metadata written into %1 movie%2")
                       .arg(tagged)
                       .arg(tagged == 1 ? QString() : QStringLiteral("s")));
}
