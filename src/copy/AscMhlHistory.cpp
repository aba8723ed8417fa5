#include "AscMhlHistory.h"

#include <unistd.h>

#include <QRegularExpression>
#include <algorithm>
#include <pugixml.hpp>
#include <sstream>

#include "C4Id.h"
#include "CardFiles.h"
#include "ChecksumManifest.h"
#include "PathText.h"
#include "StreamedFile.h"

namespace {

constexpr const char* kNamespace = "urn:ASC:MHL:v2.0";
constexpr const char* kFooter = "  </hashes>\n</hashlist>\n";
constexpr const char* kChainNamespace = "urn:ASC:MHL:DIRECTORY:v2.0";
// What every history leaves out of its folder, as the reference tool writes it.
constexpr const char* kIgnored[] = {".DS_Store", "ascmhl", "ascmhl/"};

QString hostName() {
    char name[256] = {};
    ::gethostname(name, sizeof name - 1);
    return QString::fromLocal8Bit(name);
}

QByteArray utf8(const QString& text) {
    return text.toUtf8();
}

QByteArray serialise(const pugi::xml_document& document) {
    std::ostringstream out;
    document.save(out, "  ", pugi::format_default, pugi::encoding_utf8);
    return QByteArray::fromStdString(out.str());
}

QDateTime parseDate(const char* text) {
    return QDateTime::fromString(QString::fromUtf8(text), Qt::ISODate);
}

// The element's name without a namespace prefix, so prefixed files read like plain ones.
QByteArray localName(const pugi::xml_node& node) {
    const QByteArray name(node.name());
    const qsizetype colon = name.indexOf(':');
    return colon < 0 ? name : name.mid(colon + 1);
}

pugi::xml_node child(const pugi::xml_node& parent, const char* name) {
    for (pugi::xml_node node : parent.children()) {
        if (localName(node) == name)
            return node;
    }
    return {};
}

AscMhlHistory::Entry readEntry(const pugi::xml_node& hash) {
    AscMhlHistory::Entry entry;
    for (pugi::xml_node node : hash.children()) {
        const QByteArray name = localName(node);
        if (name == "path") {
            entry.path = QByteArray(node.text().get());
            entry.size = node.attribute("size").as_ullong();
            entry.modified = parseDate(node.attribute("lastmodificationdate").value());
            continue;
        }
        const auto kind = DigestContext::fromName(QString::fromLatin1(name));
        if (!kind)
            continue;  // c4 and kinds we don't compute
        entry.hashes.push_back({*kind, QString::fromLatin1(node.text().get()).toLower(),
                                QString::fromUtf8(node.attribute("action").value()),
                                parseDate(node.attribute("hashdate").value())});
    }
    return entry;
}

int schemaOrder(DigestContext::Kind kind) {
    switch (kind) {
        case DigestContext::Kind::MD5:
            return 0;
        case DigestContext::Kind::SHA1:
            return 1;
        case DigestContext::Kind::XXH128:
            return 2;
        case DigestContext::Kind::XXH3:
            return 3;
        case DigestContext::Kind::XXH64:
            return 4;
    }
    return 5;
}

QByteArray generationName(int number, const QByteArray& folder, const QDateTime& date) {
    const qsizetype slash = folder.lastIndexOf('/');
    const QByteArray base = folder.mid(slash + 1);
    return QByteArray::number(number).rightJustified(4, '0') + '_' + base + '_' +
           date.toUTC().toString(QStringLiteral("yyyy-MM-dd_HHmmss")).toLatin1() + "Z.mhl";
}

// A gitignore-style pattern as a regular expression over '/'-separated levels.
QRegularExpression patternExpression(const QString& pattern) {
    QString expression;
    for (qsizetype i = 0; i < pattern.size(); ++i) {
        const QChar c = pattern[i];
        if (pattern.mid(i, 3) == QLatin1String("**/")) {
            expression += QStringLiteral("(?:.*/)?");
            i += 2;
        } else if (pattern.mid(i, 2) == QLatin1String("**")) {
            expression += QStringLiteral(".*");
            ++i;
        } else if (c == u'*') {
            expression += QStringLiteral("[^/]*");
        } else if (c == u'?') {
            expression += QStringLiteral("[^/]");
        } else if (c == u'[' && pattern.indexOf(u']', i + 2) > i) {
            const qsizetype end = pattern.indexOf(u']', i + 2);
            QString set = pattern.mid(i + 1, end - i - 1);
            if (set.startsWith(u'!'))
                set[0] = u'^';
            expression += u'[' + set.replace(QStringLiteral("\\"), QStringLiteral("\\\\")) + u']';
            i = end;
        } else if (c == u'\\' && i + 1 < pattern.size()) {
            expression += QRegularExpression::escape(pattern.mid(++i, 1));
        } else {
            expression += QRegularExpression::escape(QString(c));
        }
    }
    return QRegularExpression(QRegularExpression::anchoredPattern(expression),
                              QRegularExpression::DotMatchesEverythingOption);
}

bool patternMatches(QString pattern, const QStringList& levels) {
    const bool folderOnly = pattern.endsWith(u'/');
    if (folderOnly)
        pattern.chop(1);
    const bool fromTop = pattern.contains(u'/');
    if (pattern.startsWith(u'/'))
        pattern.remove(0, 1);
    const QRegularExpression expression = patternExpression(pattern);
    // A folder pattern never matches the last level, which is the file itself.
    const qsizetype last = folderOnly ? levels.size() - 1 : levels.size();
    for (qsizetype i = 0; i < last; ++i) {
        const QString subject = fromTop ? levels.mid(0, i + 1).join(u'/') : levels[i];
        if (expression.match(subject).hasMatch())
            return true;
    }
    return false;
}

Status generationProblem(const QByteArray& file, const char* what) {
    return Status::failure(
        QStringLiteral("the history's generation %1 %2").arg(QString::fromUtf8(file), what));
}

}  // namespace

QStringList AscMhlHistory::defaultIgnorePatterns() {
    QStringList patterns;
    for (const char* pattern : kIgnored)
        patterns << QString::fromLatin1(pattern);
    return patterns;
}

QStringList AscMhlHistory::ignorePatterns() const {
    if (generations_.empty() || generations_.back().ignore.isEmpty())
        return defaultIgnorePatterns();
    return generations_.back().ignore;
}

bool AscMhlHistory::isIgnored(const QStringList& patterns, const QByteArray& path) {
    const QStringList levels = QString::fromUtf8(path).split(u'/', Qt::SkipEmptyParts);
    for (const QString& pattern : patterns) {
        // Comments and re-inclusions ("!") leave nothing out.
        if (pattern.isEmpty() || pattern.startsWith(u'#') || pattern.startsWith(u'!'))
            continue;
        if (patternMatches(pattern, levels))
            return true;
    }
    return false;
}

QDateTime AscMhlHistory::modificationTime(const struct stat& status) {
    return QDateTime::fromMSecsSinceEpoch(
        qint64(status.st_mtim.tv_sec) * 1000 + status.st_mtim.tv_nsec / 1000000, Qt::UTC);
}

QString AscMhlHistory::dateText(const QDateTime& date) {
    return date.toUTC().toString(QStringLiteral("yyyy-MM-ddTHH:mm:ss")) + QStringLiteral("+00:00");
}

// Text and attribute values as XML holds them; a carriage return is kept as a reference, since
// a parser would turn a bare one into a line feed.
QByteArray AscMhlHistory::escaped(const QByteArray& text) {
    QByteArray out;
    out.reserve(text.size());
    for (const char c : text) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            case '\r':
                out += "&#13;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

bool AscMhlHistory::canHold(const QByteArray& path) {
    for (const char c : path) {
        if (static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n' && c != '\r')
            return false;  // XML 1.0 has no way to write these
    }
    return PathText::isValidUtf8(path);
}

QByteArray AscMhlHistory::headerXml(const Generation& generation) {
    QByteArray xml =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<hashlist version=\"2.0\" xmlns=\"";
    xml += kNamespace;
    xml += "\">\n  <creatorinfo>\n    <creationdate>" + utf8(dateText(generation.created)) +
           "</creationdate>\n    <hostname>" + escaped(utf8(hostName())) +
           "</hostname>\n    <tool version=\"" CARDSWEEP_VERSION "\">Cardsweep</tool>\n";
    if (!generation.comment.isEmpty())
        xml += "    <comment>" + escaped(utf8(generation.comment)) + "</comment>\n";
    xml += "  </creatorinfo>\n  <processinfo>\n    <process>" + escaped(utf8(generation.process)) +
           "</process>\n    <ignore>\n";
    const QStringList patterns =
        generation.ignore.isEmpty() ? defaultIgnorePatterns() : generation.ignore;
    for (const QString& pattern : patterns)
        xml += "      <pattern>" + escaped(utf8(pattern)) + "</pattern>\n";
    xml += "    </ignore>\n  </processinfo>\n  <hashes>\n";
    return xml;
}

QByteArray AscMhlHistory::entryXml(const Entry& entry) {
    QByteArray xml = "    <hash>\n      <path size=\"" + QByteArray::number(entry.size) + '"';
    if (entry.modified.isValid())
        xml += " lastmodificationdate=\"" + utf8(dateText(entry.modified)) + '"';
    xml += '>' + escaped(entry.path) + "</path>\n";
    // The schema takes the kinds in one order: md5, sha1, xxh128, xxh3, xxh64.
    std::vector<const Hash*> ordered;
    for (const Hash& digest : entry.hashes)
        ordered.push_back(&digest);
    std::stable_sort(ordered.begin(), ordered.end(), [](const Hash* a, const Hash* b) {
        return schemaOrder(a->kind) < schemaOrder(b->kind);
    });
    for (const Hash* hash : ordered) {
        const Hash& digest = *hash;
        const QByteArray name = utf8(DigestContext::name(digest.kind));
        xml += "      <" + name + " action=\"" + escaped(utf8(digest.action)) + "\" hashdate=\"" +
               utf8(dateText(digest.date)) + "\">" + utf8(digest.hex) + "</" + name + ">\n";
    }
    return xml + "    </hash>\n";
}

QByteArray AscMhlHistory::toXml(const Generation& generation) {
    QByteArray xml = headerXml(generation);
    for (const Entry& entry : generation.entries)
        xml += entryXml(entry);
    return xml + kFooter;
}

std::optional<AscMhlHistory::Generation> AscMhlHistory::fromXml(const QByteArray& xml) {
    pugi::xml_document document;
    if (!document.load_buffer(xml.constData(), std::size_t(xml.size())))
        return std::nullopt;
    const pugi::xml_node root = child(document, "hashlist");
    if (!root)
        return std::nullopt;
    Generation generation;
    const pugi::xml_node creator = child(root, "creatorinfo");
    generation.created = parseDate(child(creator, "creationdate").text().get());
    generation.comment = QString::fromUtf8(child(creator, "comment").text().get());
    const pugi::xml_node process = child(root, "processinfo");
    generation.process = QString::fromUtf8(child(process, "process").text().get());
    for (pugi::xml_node pattern : child(process, "ignore").children()) {
        if (localName(pattern) == "pattern")
            generation.ignore << QString::fromUtf8(pattern.text().get());
    }
    for (pugi::xml_node node : child(root, "hashes").children()) {
        if (localName(node) == "hash")
            generation.entries.push_back(readEntry(node));
    }
    return generation;
}

QByteArray AscMhlHistory::chainXml(const std::vector<std::pair<QByteArray, QString>>& links) {
    pugi::xml_document document;
    pugi::xml_node declaration = document.append_child(pugi::node_declaration);
    declaration.append_attribute("version") = "1.0";
    declaration.append_attribute("encoding") = "UTF-8";
    pugi::xml_node root = document.append_child("ascmhldirectory");
    root.append_attribute("xmlns") = kChainNamespace;
    int number = 0;
    for (const auto& [file, c4] : links) {
        pugi::xml_node list = root.append_child("hashlist");
        list.append_attribute("sequencenr") = ++number;
        list.append_child("path").text().set(file.constData());
        list.append_child("c4").text().set(utf8(c4).constData());
    }
    return serialise(document);
}

bool AscMhlHistory::exists(FileLayer& layer, const QByteArray& folder) {
    struct stat status {};
    return layer.linkStatus(folder + '/' + CardFiles::kHistoryFolder, &status) == 0 &&
           S_ISDIR(status.st_mode);
}

AscMhlHistory AscMhlHistory::load(FileLayer& layer, const QByteArray& folder) {
    AscMhlHistory history;
    if (!exists(layer, folder))
        return history;
    const QByteArray base = folder + '/' + CardFiles::kHistoryFolder + '/';
    const auto chain = layer.readWhole(base + CardFiles::kHistoryChain);
    pugi::xml_document document;
    if (!chain || !document.load_buffer(chain->constData(), std::size_t(chain->size()))) {
        history.problem_ =
            Status::failure(QStringLiteral("the history's chain file can't be read"));
        return history;
    }
    for (pugi::xml_node list : child(document, "ascmhldirectory").children()) {
        if (localName(list) != "hashlist")
            continue;
        const QByteArray file(child(list, "path").text().get());
        const QString c4 = QString::fromLatin1(child(list, "c4").text().get());
        history.chain_.emplace_back(file, c4);
        const auto xml = layer.readWhole(base + file);
        if (!xml) {
            history.problem_ = generationProblem(file, "is missing");
            continue;
        }
        if (C4Id::of(*xml) != c4) {
            history.problem_ = generationProblem(file, "was changed after it was written");
            continue;
        }
        std::optional<Generation> generation = fromXml(*xml);
        if (!generation) {
            history.problem_ = generationProblem(file, "can't be read");
            continue;
        }
        generation->number = list.attribute("sequencenr").as_int();
        generation->fileName = file;
        history.generations_.push_back(std::move(*generation));
    }
    return history;
}

std::map<QByteArray, AscMhlHistory::Entry> AscMhlHistory::latest() const {
    std::map<QByteArray, Entry> newest;
    for (const Generation& generation : generations_) {
        for (const Entry& entry : generation.entries) {
            if (!entry.hashes.empty())
                newest[entry.path] = entry;
        }
    }
    return newest;
}

Status AscMhlHistory::append(FileLayer& layer, const QByteArray& folder, Generation generation) {
    std::vector<Entry> entries = std::move(generation.entries);
    generation.entries.clear();
    const Status written = append(layer, folder, generation, [&](const EntrySink& sink) {
        for (const Entry& entry : entries)
            sink(entry);
    });
    if (written.ok())
        generations_.back().entries = std::move(entries);
    return written;
}

Status AscMhlHistory::append(FileLayer& layer, const QByteArray& folder, Generation header,
                             const EntrySource& entries) {
    const QByteArray base = folder + '/' + CardFiles::kHistoryFolder;
    if (layer.makeFolder(base) != 0 && errno != EEXIST) {
        return Status::fromErrno(QStringLiteral("the history folder can't be made"), QString(),
                                 errno);
    }
    int number = 1;
    for (const auto& link : chain_)
        number = std::max(number, link.first.left(4).toInt() + 1);
    number = std::max(number, int(chain_.size()) + 1);
    header.number = number;
    header.fileName = generationName(number, folder, header.created);
    StreamedFile file(layer, base + '/' + header.fileName);
    file.append(headerXml(header));
    entries([&](const Entry& entry) { file.append(entryXml(entry)); });
    file.append(kFooter);
    if (Status written = file.commit(); !written.ok())
        return written;
    chain_.emplace_back(header.fileName, C4Id::fromSha512(file.sha512()));
    const Status chained =
        ChecksumManifest::write(layer, base + '/' + CardFiles::kHistoryChain, chainXml(chain_));
    if (!chained.ok()) {
        chain_.pop_back();
        return chained;
    }
    generations_.push_back(std::move(header));
    return {};
}
