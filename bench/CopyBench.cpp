// Offloads a folder to several destinations through the copy engine, file by file as a card
// transfer does, and prints the time, the peak memory and any digest mismatch.
//
//   cardsweep-copybench [--md5|--sha1|--none] SOURCE DEST...

#include <sys/resource.h>

#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <cstdio>

#include "CopyDelegate.h"
#include "FileLayer.h"
#include "QVFileManager.h"

namespace {

class CountingDelegate : public CopyDelegate {
  public:
    void fileCopyVerificationFailed(const std::shared_ptr<CopyInfo>&,
                                    const QString& file) override {
        std::fprintf(stderr, "digest mismatch: %s\n", qPrintable(file));
        ++mismatches;
    }
    int mismatches = 0;
};

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QStringList arguments = app.arguments().mid(1);
    VerificationType type = VerificationType::MD5;
    if (!arguments.isEmpty() && arguments.first().startsWith("--")) {
        const QString flag = arguments.takeFirst();
        type = flag == "--sha1"   ? VerificationType::SHA1
               : flag == "--none" ? VerificationType::None
                                  : VerificationType::MD5;
    }
    if (arguments.size() < 2) {
        std::fprintf(stderr, "usage: cardsweep-copybench [--md5|--sha1|--none] SOURCE DEST...\n");
        return 2;
    }
    const QDir source(arguments.takeFirst());
    const QStringList destinations = arguments;

    QElapsedTimer timer;
    timer.start();
    CountingDelegate delegate;
    int failures = 0;
    qint64 files = 0;
    QDirIterator it(source.path(), QDir::Files | QDir::Hidden | QDir::NoSymLinks,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString file = it.next();
        const QString relative = source.relativeFilePath(file);
        QStringList targets;
        for (const QString& destination : destinations)
            targets << destination + u'/' + relative;
        if (!QVFileManager(FileLayer::posix()).copyFileWithProgress(file, targets, type, &delegate))
            ++failures;
        ++files;
    }
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    std::printf("files %lld seconds %.3f peak_rss_kib %ld failures %d mismatches %d\n",
                static_cast<long long>(files), double(timer.nsecsElapsed()) / 1e9, usage.ru_maxrss,
                failures, delegate.mismatches);
    return failures == 0 && delegate.mismatches == 0 ? 0 : 1;
}
