#include "PostActionRun.h"

#include "ClipList.h"
#include "QVVolume.h"

namespace {

QString firstOf(const QStringList& list) {
    return list.isEmpty() ? QString() : list.first();
}

}  // namespace

PostActionRun::PostActionRun(std::shared_ptr<QVVolume> volume,
                             std::shared_ptr<const TransferOptions> options, Reporter report)
    : volume_(std::move(volume)),
      options_(std::move(options)),
      first_(firstOf(volume_->destinations())),
      report_(std::move(report)) {}

const QStringList& PostActionRun::movies() {
    if (!movies_) {
        const auto onCard = volume_->qtMoviePaths();
        movies_ = volume_->hasQTMovies() && onCard ? *onCard : ClipList::qtMoviesInFolder(first_);
    }
    return *movies_;
}

void PostActionRun::report(const QString& line) const {
    if (report_)
        report_(line);
}
