#pragma once
// A folder's ASC MHL history: the "ascmhl" folder at its top, holding one generation file per
// transfer or check ("NNNN_<folder>_<date>.mhl", hashes by relative path) and the chain file
// naming each generation by its C4 identifier. Loads (checking the chain) and appends. Plain
// value; the caller owns the folder while it appends.

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QStringList>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <vector>

#include "DigestContext.h"
#include "FileLayer.h"
#include "Status.h"

class AscMhlHistory {
  public:
    struct Hash {
        DigestContext::Kind kind = DigestContext::Kind::MD5;
        QString hex;
        QString action = QStringLiteral("original");  // original, verified or failed
        QDateTime date;
    };
    struct Entry {
        QByteArray path;  // relative, '/'-separated, UTF-8
        std::uint64_t size = 0;
        QDateTime modified;
        std::vector<Hash> hashes;
    };
    struct Generation {
        int number = 0;
        QByteArray fileName;
        QString process = QStringLiteral("transfer");  // or in-place
        QDateTime created;
        QString comment;  // free text for people (and our own record of the card)
        /// Patterns of what the generation leaves out (gitignore style); empty: the defaults.
        QStringList ignore;
        std::vector<Entry> entries;
    };

    /// The folder's history; an absent one is empty. A generation that is missing, unreadable
    /// or not what the chain names (its C4 identifier differs) is left out and named by problem().
    static AscMhlHistory load(FileLayer& layer, const QByteArray& folder);
    /// What load could not read (the last such thing); ok when the whole history was read.
    const Status& problem() const { return problem_; }
    /// True when the folder has a history folder at all.
    static bool exists(FileLayer& layer, const QByteArray& folder);

    bool isEmpty() const { return generations_.empty(); }
    const std::vector<Generation>& generations() const { return generations_; }
    /// Each recorded path's newest entry that carries a hash.
    std::map<QByteArray, Entry> latest() const;
    /// What the newest generation leaves out, which is what a check of the folder leaves out;
    /// the defaults when the history names nothing.
    QStringList ignorePatterns() const;
    /// The default patterns every generation names: the history itself and ".DS_Store".
    static QStringList defaultIgnorePatterns();
    /// True when a pattern leaves out the relative path: a pattern without a "/" matches any
    /// one level of it, one with a "/" the levels from the top ("**" any number of levels);
    /// a pattern ending in "/" matches folders only.
    static bool isIgnored(const QStringList& patterns, const QByteArray& path);

    /// Writes the next generation (number and file name are chosen here) into the folder's
    /// history, then the chain naming it. Each file is whole or absent.
    Status append(FileLayer& layer, const QByteArray& folder, Generation generation);
    using EntrySink = std::function<void(const Entry&)>;
    using EntrySource = std::function<void(const EntrySink&)>;
    /// As append, the entries handed over one at a time and written as they come, so a card
    /// of any size costs little memory; the history keeps the generation without them.
    Status append(FileLayer& layer, const QByteArray& folder, Generation header,
                  const EntrySource& entries);

    /// A path every XML reader gives back byte for byte: UTF-8 without control characters
    /// other than tab, line feed and carriage return.
    static bool canHold(const QByteArray& path);

    /// The generation as its file holds it.
    static QByteArray toXml(const Generation& generation);
    static std::optional<Generation> fromXml(const QByteArray& xml);
    static QByteArray chainXml(const std::vector<std::pair<QByteArray, QString>>& links);
    /// A file's modification time as a history records it (UTC, to the millisecond).
    static QDateTime modificationTime(const struct stat& status);
    /// ISO 8601 with the offset, as the files hold dates.
    static QString dateText(const QDateTime& date);

  private:
    static QByteArray escaped(const QByteArray& text);
    static QByteArray headerXml(const Generation& generation);
    static QByteArray entryXml(const Entry& entry);

    std::vector<Generation> generations_;
    std::vector<std::pair<QByteArray, QString>> chain_;  // file name, C4 identifier
    Status problem_;
};
