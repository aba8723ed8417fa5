#include "QTMetadataWriter.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QFile>
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <optional>

#include "UniqueFd.h"

namespace {

constexpr std::uint64_t kHeader = 8;
constexpr std::uint64_t kLargeHeader = 16;
constexpr quint32 kUtf8 = 1;

quint32 fourcc(const char* text) {
    return quint32(quint8(text[0])) << 24 | quint32(quint8(text[1])) << 16 |
           quint32(quint8(text[2])) << 8 | quint32(quint8(text[3]));
}

quint32 be32(const char* bytes) {
    return quint32(quint8(bytes[0])) << 24 | quint32(quint8(bytes[1])) << 16 |
           quint32(quint8(bytes[2])) << 8 | quint32(quint8(bytes[3]));
}

std::uint64_t be64(const char* bytes) {
    return std::uint64_t(be32(bytes)) << 32 | be32(bytes + 4);
}

void append32(QByteArray& out, quint32 value) {
    const char bytes[4] = {char(value >> 24), char(value >> 16), char(value >> 8), char(value)};
    out.append(bytes, 4);
}

// A box's place: where it starts, its header and whole size, its type.
struct Box {
    quint32 type = 0;
    std::uint64_t offset = 0;
    std::uint64_t header = kHeader;
    std::uint64_t size = 0;
    bool toEnd = false;  // size 0: the box runs to the end of its container
};

// The boxes of data[begin, end), each checked to lie inside it; nullopt when any doesn't.
std::optional<std::vector<Box>> boxesIn(const QByteArray& data, std::uint64_t begin,
                                        std::uint64_t end) {
    std::vector<Box> boxes;
    std::uint64_t at = begin;
    while (at < end) {
        if (end - at < kHeader)
            return std::nullopt;
        Box box;
        box.offset = at;
        box.size = be32(data.constData() + at);
        box.type = be32(data.constData() + at + 4);
        if (box.size == 1) {
            if (end - at < kLargeHeader)
                return std::nullopt;
            box.size = be64(data.constData() + at + 8);
            box.header = kLargeHeader;
        } else if (box.size == 0) {
            box.size = end - at;
            box.toEnd = true;
        }
        if (box.size < box.header || box.size > end - at)
            return std::nullopt;
        boxes.push_back(box);
        at += box.size;
    }
    return boxes;
}

QByteArray box(const char* type, const QByteArray& body) {
    QByteArray out;
    append32(out, quint32(kHeader + std::uint64_t(body.size())));
    out.append(type, 4);
    return out + body;
}

QByteArray metaBox(const QTMetadataWriter::Pairs& pairs) {
    QByteArray handler(8, '\0');  // version, flags, pre-defined
    handler.append("mdta", 4);
    handler.append(QByteArray(13, '\0'));  // reserved, empty name
    QByteArray keys(4, '\0');
    append32(keys, quint32(pairs.size()));
    QByteArray items;
    quint32 index = 0;
    for (const auto& [key, value] : pairs) {
        append32(keys, quint32(kHeader + std::uint64_t(key.size())));
        keys.append("mdta", 4);
        keys.append(key);
        QByteArray data;
        append32(data, kUtf8);
        append32(data, 0);  // locale
        data.append(value);
        QByteArray item;
        append32(item, quint32(kHeader + 8 + std::uint64_t(value.size()) + kHeader));
        append32(item, ++index);
        items.append(item + box("data", data));
    }
    return box("meta", box("hdlr", handler) + box("keys", keys) + box("ilst", items));
}

// The mdta pairs of a meta box's body; empty when it holds none it can read.
QTMetadataWriter::Pairs pairsIn(const QByteArray& data, const Box& meta) {
    QTMetadataWriter::Pairs pairs;
    std::uint64_t begin = meta.offset + meta.header;
    // A meta box may start with version and flags (ISO) or not (QuickTime).
    if (meta.size - meta.header >= 12 && be32(data.constData() + begin + 4) != fourcc("hdlr"))
        begin += 4;
    const auto children = boxesIn(data, begin, meta.offset + meta.size);
    if (!children)
        return pairs;
    std::vector<QByteArray> keys;
    const Box* ilst = nullptr;
    for (const Box& child : *children) {
        if (child.type == fourcc("ilst"))
            ilst = &child;
        if (child.type != fourcc("keys") || child.size - child.header < 8)
            continue;
        std::uint64_t at = child.offset + child.header + 8;
        const std::uint64_t end = child.offset + child.size;
        while (end - at >= kHeader) {
            const std::uint64_t size = be32(data.constData() + at);
            if (size < kHeader || size > end - at)
                break;
            keys.push_back(data.mid(qsizetype(at + kHeader), qsizetype(size - kHeader)));
            at += size;
        }
    }
    if (!ilst)
        return pairs;
    const auto items = boxesIn(data, ilst->offset + ilst->header, ilst->offset + ilst->size);
    for (const Box& item : items.value_or(std::vector<Box>())) {
        if (item.type == 0 || item.type > keys.size())
            continue;
        const auto inner = boxesIn(data, item.offset + item.header, item.offset + item.size);
        for (const Box& value : inner.value_or(std::vector<Box>())) {
            if (value.type != fourcc("data") || value.size - value.header < 8)
                continue;
            const std::uint64_t start = value.offset + value.header + 8;
            pairs.emplace_back(
                keys[item.type - 1],
                data.mid(qsizetype(start), qsizetype(value.offset + value.size - start)));
            break;
        }
    }
    return pairs;
}

// The meta box's handler is "mdta" (keys and values), not another kind of metadata.
bool isMdtaMeta(const QByteArray& data, const Box& meta) {
    std::uint64_t begin = meta.offset + meta.header;
    if (meta.size - meta.header >= 12 && be32(data.constData() + begin + 4) != fourcc("hdlr"))
        begin += 4;
    const auto children = boxesIn(data, begin, meta.offset + meta.size);
    for (const Box& child : children.value_or(std::vector<Box>())) {
        if (child.type == fourcc("hdlr") && child.size - child.header >= 12)
            return be32(data.constData() + child.offset + child.header + 8) == fourcc("mdta");
    }
    return false;
}

// The top-level boxes of the file, read header by header (the media is never read).
std::optional<std::vector<Box>> topBoxes(int fd, std::uint64_t fileSize) {
    std::vector<Box> boxes;
    std::uint64_t at = 0;
    while (at < fileSize) {
        char header[kLargeHeader] = {};
        const std::uint64_t want = std::min<std::uint64_t>(kLargeHeader, fileSize - at);
        if (want < kHeader || ::pread(fd, header, size_t(want), off_t(at)) != ssize_t(want))
            return std::nullopt;
        Box box;
        box.offset = at;
        box.size = be32(header);
        box.type = be32(header + 4);
        if (box.size == 1) {
            if (want < kLargeHeader)
                return std::nullopt;
            box.size = be64(header + 8);
            box.header = kLargeHeader;
        } else if (box.size == 0) {
            box.size = fileSize - at;
            box.toEnd = true;
        }
        if (box.size < box.header || box.size > fileSize - at)
            return std::nullopt;
        boxes.push_back(box);
        at += box.size;
    }
    return boxes;
}

// The one movie header of a whole movie, read into memory with its place in the file.
struct Movie {
    std::vector<Box> top;
    std::size_t moov = 0;
    QByteArray header;          // the moov box, whole
    std::vector<Box> children;  // its boxes, offsets within header
};

constexpr std::uint64_t kLargestHeader = std::uint64_t(256) << 20;

Result<Movie> movieIn(int fd) {
    struct stat status {};
    if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        return Status::failure(QStringLiteral("not a regular file"));
    }
    Movie movie;
    const auto top = topBoxes(fd, std::uint64_t(status.st_size));
    if (!top) {
        return Status::failure(
            QStringLiteral("not a whole QuickTime movie (a box runs past the end)"));
    }
    movie.top = *top;
    std::size_t found = 0;
    for (std::size_t i = 0; i < top->size(); ++i) {
        if ((*top)[i].type == fourcc("moov")) {
            movie.moov = i;
            ++found;
        }
    }
    if (found != 1) {
        return Status::failure(found == 0
                                   ? QStringLiteral("not a QuickTime movie (no movie header)")
                                   : QStringLiteral("more than one movie header"));
    }
    const Box& moov = movie.top[movie.moov];
    if (moov.size > kLargestHeader) {
        return Status::failure(QStringLiteral("the movie header is implausibly large"));
    }
    movie.header.resize(qsizetype(moov.size));
    if (::pread(fd, movie.header.data(), size_t(moov.size), off_t(moov.offset)) !=
        ssize_t(moov.size)) {
        return Status::failure(QStringLiteral("the movie header can't be read"));
    }
    const auto children = boxesIn(movie.header, moov.header, moov.size);
    if (!children) {
        return Status::failure(QStringLiteral("the movie header is damaged"));
    }
    movie.children = *children;
    return movie;
}

bool writeAll(int fd, const QByteArray& bytes, std::uint64_t offset) {
    qsizetype done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::pwrite(fd, bytes.constData() + done, size_t(bytes.size() - done),
                                   off_t(offset + std::uint64_t(done)));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        done += n;
    }
    return true;
}

QByteArray freeBox(std::uint64_t size) {
    QByteArray out;
    append32(out, quint32(size));
    out.append("free", 4);
    return out + QByteArray(qsizetype(size - kHeader), '\0');
}

}  // namespace

Result<QTMetadataWriter::Pairs> QTMetadataWriter::parsePairs(const QByteArray& text) {
    Pairs pairs;
    qsizetype at = 0;
    while (at < text.size()) {
        const qsizetype keyEnd = text.indexOf("\"=\"", at + 1);
        const qsizetype valueEnd = keyEnd < 0 ? -1 : text.indexOf("\";", keyEnd + 3);
        if (text[at] != '"' || keyEnd < 0 || valueEnd < 0) {
            return Status::failure(
                QStringLiteral("expected \"key\"=\"value\"; at character %1").arg(at + 1));
        }
        pairs.emplace_back(text.mid(at + 1, keyEnd - at - 1),
                           text.mid(keyEnd + 3, valueEnd - keyEnd - 3));
        at = valueEnd + 2;
    }
    return pairs;
}

namespace {

// Existing pairs with the new values, new keys after them.
QTMetadataWriter::Pairs merged(QTMetadataWriter::Pairs pairs,
                               const QTMetadataWriter::Pairs& changes) {
    for (const auto& [key, value] : changes) {
        const auto found = std::find_if(pairs.begin(), pairs.end(),
                                        [&](const auto& pair) { return pair.first == key; });
        if (found != pairs.end())
            found->second = value;
        else
            pairs.emplace_back(key, value);
    }
    return pairs;
}

// The movie header's boxes without their mdta metadata (at the top or in the user data, where
// some writers put it), and the pairs that metadata held.
std::pair<QByteArray, QTMetadataWriter::Pairs> withoutMetadata(const Movie& movie) {
    QByteArray body;
    QTMetadataWriter::Pairs pairs;
    const QByteArray& data = movie.header;
    for (const Box& child : movie.children) {
        const QByteArray whole = data.mid(qsizetype(child.offset), qsizetype(child.size));
        if (child.type == fourcc("meta") && isMdtaMeta(data, child)) {
            pairs = pairsIn(data, child);
            continue;
        }
        const auto inner = child.type == fourcc("udta") ? boxesIn(data, child.offset + child.header,
                                                                  child.offset + child.size)
                                                        : std::nullopt;
        if (!inner) {
            body.append(whole);
            continue;
        }
        QByteArray kept;
        for (const Box& entry : *inner) {
            if (entry.type == fourcc("meta") && isMdtaMeta(data, entry))
                pairs = pairsIn(data, entry);
            else
                kept.append(data.mid(qsizetype(entry.offset), qsizetype(entry.size)));
        }
        body.append(box("udta", kept));
    }
    return {body, pairs};
}

// The bytes the header may take where it stands: itself and the free space right after it.
std::uint64_t roomInPlace(const Movie& movie) {
    std::uint64_t room = movie.top[movie.moov].size;
    for (std::size_t i = movie.moov + 1; i < movie.top.size(); ++i) {
        const quint32 type = movie.top[i].type;
        if (type != fourcc("free") && type != fourcc("skip"))
            break;
        room += movie.top[i].size;
    }
    return room;
}

// The movie's path is left out: whoever asked for the write names the movie.
Status failed(const char* what) {
    return Status::fromErrno(QLatin1String(what), QString(), errno);
}

}  // namespace

Status QTMetadataWriter::write(const QString& moviePath, const Pairs& pairs) {
    const UniqueFd fd(::open(QFile::encodeName(moviePath).constData(), O_RDWR | O_CLOEXEC));
    if (!fd.valid())
        return failed("open");
    const auto movie = movieIn(fd.get());
    if (!movie)
        return movie.status();
    const auto [body, existing] = withoutMetadata(*movie);
    const QByteArray header = box("moov", body + metaBox(merged(existing, pairs)));
    const std::uint64_t size = std::uint64_t(header.size());
    const Box& old = movie->top[movie->moov];
    const std::uint64_t room = roomInPlace(*movie);
    if (size == room || (size < room && room - size >= kHeader)) {
        const QByteArray rest = size == room ? QByteArray() : freeBox(room - size);
        if (!writeAll(fd.get(), header + rest, old.offset))
            return failed("write");
        return ::fdatasync(fd.get()) == 0 ? Status() : failed("flush");
    }
    // At the end: a last box that runs to the end of the file is given its size first, so
    // the new header doesn't become part of it.
    const Box& last = movie->top.back();
    if (last.toEnd) {
        if (last.header != kHeader || last.size > 0xFFFFFFFFu)
            return Status::failure(QStringLiteral("the last box's size can't be written"));
        QByteArray sized;
        append32(sized, quint32(last.size));
        if (!writeAll(fd.get(), sized, last.offset))
            return failed("write");
    }
    const std::uint64_t end = last.offset + last.size;
    if (!writeAll(fd.get(), header, end) || ::fdatasync(fd.get()) != 0)
        return failed("write");
    // Only once the new header is on the medium does the old one become free space.
    if (!writeAll(fd.get(), QByteArray("free", 4), old.offset + 4) || ::fdatasync(fd.get()) != 0)
        return failed("write");
    return {};
}

QTMetadataWriter::Pairs QTMetadataWriter::read(const QString& moviePath) {
    const UniqueFd fd(::open(QFile::encodeName(moviePath).constData(), O_RDONLY | O_CLOEXEC));
    if (!fd.valid())
        return {};
    const auto movie = movieIn(fd.get());
    if (!movie)
        return {};
    return withoutMetadata(*movie).second;
}
