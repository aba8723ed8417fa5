// QTTimecodeTool MOVIE -timing: prints "TIMEBASE NTSC DROPFRAME" (e.g. "30 1 1") for the
// movie's timecode. A movie it cannot read prints nothing and exits with status 1; wrong
// arguments print the usage and exit with status 2.

#include <QString>
#include <cstdio>
#include <cstring>

#include "QTMovie.h"

int main(int argc, char** argv) {
    if (argc != 3 || std::strcmp(argv[2], "-timing") != 0) {
        std::fprintf(stderr, "usage: QTTimecodeTool MOVIE -timing\n");
        return 2;
    }
    // The caller reads the errors when there is no output, so the library stays quiet.
    QTMovie::quietLibraryMessages();
    // Only the timing is printed, so no frames are counted.
    const auto timing = QTMovie::timingOfMovie(QString::fromLocal8Bit(argv[1]));
    if (!timing)
        return 1;
    std::printf("%d %d %d\n", timing->timebase, timing->ntsc ? 1 : 0, timing->dropFrame ? 1 : 0);
    return 0;
}
