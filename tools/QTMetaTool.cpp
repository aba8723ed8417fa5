// QTMetaTool MOVIE '"key"="value";...': writes each pair into the movie's QuickTime metadata in
// place. Exit status 0 when written (or nothing to write), 1 when the movie can't take it (it
// is then unchanged), 2 for wrong arguments.

#include <QByteArray>
#include <QString>
#include <cstdio>

#include "QTMetadataWriter.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: QTMetaTool MOVIE '\"key\"=\"value\";...'\n");
        return 2;
    }
    const QString movie = QString::fromLocal8Bit(argv[1]);
    const auto pairs = QTMetadataWriter::parsePairs(QByteArray(argv[2]));
    if (!pairs) {
        std::fprintf(stderr, "QTMetaTool: %s\n", qPrintable(pairs.status().message()));
        return 2;
    }
    if (pairs->empty())
        return 0;
    if (const Status written = QTMetadataWriter::write(movie, *pairs); !written.ok()) {
        std::fprintf(stderr, "QTMetaTool: %s: %s\n", argv[1], qPrintable(written.message()));
        return 1;
    }
    return 0;
}
