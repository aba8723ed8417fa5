#pragma once
// A transfer's report for people: one self-contained HTML page (no scripts, nothing fetched)
// that a producer opens or prints, with the card, each destination's verdict, the digest, the
// times and speed, every file with its size and digest, the failures and the metadata. Built
// from a plain value, which a copy's folder can also give back (its history and manifest).
// Pure functions.

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QStringList>
#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

#include "FileLayer.h"
#include "Result.h"

class TransferReport {
  public:
    struct Destination {
        QString path;
        QString verdict;
        bool complete = false;
    };
    struct File {
        QString path;
        std::uint64_t size = 0;
        QByteArray digest;
    };
    using FileSink = std::function<void(const File&)>;
    /// Hands every file to the sink, in order; may be called more than once.
    using FileSource = std::function<void(const FileSink&)>;
    struct Card {
        QString name;
        QString format;
        std::uint64_t bytes = 0;
        QString device;      // major:minor, or empty for a folder
        QString fileSystem;  // its UUID, when known
    };
    struct Content {
        Card card;
        QString digest;  // md5, sha1, xxh64, ...
        QString checkedHow;
        QDateTime start;
        QDateTime end;
        std::vector<Destination> destinations;
        FileSource files;  // handed over one at a time: a card of any size in little memory
        QStringList failures;
        std::vector<std::pair<QString, QString>> metadata;
        Status unreadable;  // rebuilt from a folder: what of its history could not be read
    };

    using Output = std::function<void(const QByteArray&)>;
    /// The page, piece by piece.
    static void write(const Content& content, const Output& out);
    static QByteArray html(const Content& content);

    /// The card as one line of text a history's generation can keep, and back.
    static QString cardRecord(const Card& card, const QDateTime& start, const QDateTime& end);
    static void readCardRecord(const QString& record, Content* content);

    /// The report of an earlier transfer from its copy's folder: files and digests from its
    /// history's transfer generation, the card from that generation's record, failures from
    /// its manifest's marks. The reason when there is no history of a transfer.
    static Result<Content> fromFolder(FileLayer& layer, const QByteArray& folder);
};
