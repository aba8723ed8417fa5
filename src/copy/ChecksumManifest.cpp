#include "ChecksumManifest.h"

#include <sys/stat.h>

#include <QRegularExpression>
#include <cerrno>
#include <vector>

#include "CardFiles.h"
#include "PathText.h"
#include "StreamedFile.h"

namespace {

bool needsEscape(const QByteArray& name) {
    return name.contains('\\') || name.contains('\n') || name.contains('\r') ||
           !PathText::isValidUtf8(name);
}

// Escapes byte by byte; a valid multi-byte character passes whole.
QByteArray escape(const QByteArray& name) {
    static constexpr char digits[] = "0123456789abcdef";
    QByteArray out;
    out.reserve(name.size() + 8);
    for (qsizetype i = 0; i < name.size();) {
        const char c = name[i];
        if (c == '\\' || c == '\n' || c == '\r') {
            out += c == '\\' ? "\\\\" : c == '\n' ? "\\n" : "\\r";
            ++i;
            continue;
        }
        if (const int length = PathText::utf8SequenceLength(name, i); length > 0) {
            out += name.mid(i, length);
            i += length;
            continue;
        }
        const auto byte = static_cast<unsigned char>(c);
        out += "\\x";
        out += digits[byte >> 4];
        out += digits[byte & 15];
        ++i;
    }
    return out;
}

int hexValue(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

std::optional<QByteArray> unescape(const QByteArray& text) {
    QByteArray out;
    out.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            out += text[i];
            continue;
        }
        if (++i >= text.size())
            return std::nullopt;
        switch (text[i]) {
            case '\\':
                out += '\\';
                break;
            case 'n':
                out += '\n';
                break;
            case 'r':
                out += '\r';
                break;
            case 'x': {
                const int high = i + 1 < text.size() ? hexValue(text[i + 1]) : -1;
                const int low = i + 2 < text.size() ? hexValue(text[i + 2]) : -1;
                if (high < 0 || low < 0)
                    return std::nullopt;
                out += char(high * 16 + low);
                i += 2;
                break;
            }
            default:
                return std::nullopt;
        }
    }
    return out;
}

bool isDigestField(const QByteArray& field) {
    if (field == ChecksumManifest::kFailed || field == ChecksumManifest::kIncomplete)
        return true;
    if (field.isEmpty())
        return false;
    for (const char c : field) {
        if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f')))
            return false;
    }
    return true;
}

QByteArray candidate(int index) {
    if (index == 0)
        return CardFiles::kManifest;
    if (index == 1)
        return CardFiles::kAlternateManifest;
    return QByteArrayLiteral("checksums (Cardsweep) ") + QByteArray::number(index) + ".txt";
}

bool exists(FileLayer& layer, const QByteArray& path) {
    struct stat status {};
    return layer.linkStatus(path, &status) == 0;
}

}  // namespace

QByteArray ChecksumManifest::encode(const Line& line) {
    if (!needsEscape(line.name))
        return line.digest + '\t' + line.name + '\n';
    return '\\' + line.digest + '\t' + escape(line.name) + '\n';
}

std::optional<ChecksumManifest::Line> ChecksumManifest::decode(QByteArray line) {
    const bool escaped = line.startsWith('\\');
    if (escaped)
        line.remove(0, 1);
    const qsizetype tab = line.indexOf('\t');
    if (tab <= 0)
        return std::nullopt;
    Line decoded{line.left(tab), line.mid(tab + 1)};
    if (!isDigestField(decoded.digest))
        return std::nullopt;
    if (!escaped)
        return decoded;
    const std::optional<QByteArray> name = unescape(decoded.name);
    if (!name)
        return std::nullopt;
    decoded.name = *name;
    return decoded;
}

QByteArray ChecksumManifest::nameFor(FileLayer& layer, const QByteArray& folder) {
    for (int index = 0;; ++index) {
        if (!exists(layer, folder + '/' + candidate(index)))
            return candidate(index);
    }
}

QByteArray ChecksumManifest::find(FileLayer& layer, const QByteArray& folder) {
    // Ours is the first name that was free when it was written: the last one present.
    int index = 0;
    while (exists(layer, folder + '/' + candidate(index + 1)))
        ++index;
    return candidate(index);
}

std::optional<QByteArray> ChecksumManifest::read(FileLayer& layer, const QByteArray& folder) {
    const int fd = layer.openRead(folder + '/' + find(layer, folder));
    if (fd < 0)
        return std::nullopt;
    QByteArray text;
    std::vector<char> buffer(1 << 16);
    for (ssize_t n = 0; (n = layer.read(fd, buffer.data(), buffer.size(), text.size())) > 0;)
        text.append(buffer.data(), n);
    layer.close(fd);
    return text;
}

bool ChecksumManifest::isReservationNumber(const QByteArray& name) {
    static const QRegularExpression number(QStringLiteral("^[0-9]{4,}(\\.dmg)?$"));
    return number.match(QString::fromLatin1(name)).hasMatch();
}

bool ChecksumManifest::isLaterCopy(FileLayer& layer, const QByteArray& folder,
                                   const QByteArray& name) {
    if (!isReservationNumber(name))
        return false;
    const QByteArray path = folder + '/' + name;
    struct stat status {};
    if (layer.linkStatus(path, &status) != 0)
        return false;
    if (S_ISREG(status.st_mode))
        return name.endsWith(".dmg");
    return S_ISDIR(status.st_mode) && exists(layer, path + '/' + find(layer, path));
}

// Whole or absent: a temporary, flushed, read back from the medium, renamed into place.
Status ChecksumManifest::write(FileLayer& layer, const QByteArray& path,
                               const QByteArray& contents) {
    StreamedFile file(layer, path);
    file.append(contents);
    return file.commit();
}
