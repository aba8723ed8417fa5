#include "PathText.h"

#include <QFile>

namespace {

QString escapedByte(unsigned char byte) {
    static constexpr char digits[] = "0123456789abcdef";
    return QStringLiteral("\\x") + QLatin1Char(digits[byte >> 4]) + QLatin1Char(digits[byte & 15]);
}

QString escapedControl(unsigned char byte) {
    switch (byte) {
        case '\n':
            return QStringLiteral("\\n");
        case '\r':
            return QStringLiteral("\\r");
        case '\t':
            return QStringLiteral("\\t");
        default:
            return escapedByte(byte);
    }
}

}  // namespace

int PathText::utf8SequenceLength(const QByteArray& text, qsizetype at) {
    const auto byte = [&](qsizetype i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(at);
    if (lead < 0x80)
        return 1;
    int length = 0;
    char32_t minimum = 0;
    char32_t code = 0;
    if ((lead & 0xE0) == 0xC0) {
        length = 2, minimum = 0x80, code = lead & 0x1F;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3, minimum = 0x800, code = lead & 0x0F;
    } else if ((lead & 0xF8) == 0xF0) {
        length = 4, minimum = 0x10000, code = lead & 0x07;
    } else {
        return 0;
    }
    if (at + length > text.size())
        return 0;
    for (int k = 1; k < length; ++k) {
        if ((byte(at + k) & 0xC0) != 0x80)
            return 0;
        code = (code << 6) | (byte(at + k) & 0x3F);
    }
    const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
    return code < minimum || code > 0x10FFFF || surrogate ? 0 : length;
}

bool PathText::isValidUtf8(const QByteArray& text) {
    for (qsizetype i = 0; i < text.size();) {
        const int length = utf8SequenceLength(text, i);
        if (length == 0)
            return false;
        i += length;
    }
    return true;
}

QString PathText::display(const QByteArray& path) {
    QString text;
    text.reserve(path.size());
    for (qsizetype i = 0; i < path.size();) {
        const auto byte = static_cast<unsigned char>(path[i]);
        const int length = utf8SequenceLength(path, i);
        if (length == 0) {
            text += escapedByte(byte);
            ++i;
        } else if (byte < 0x20 || byte == 0x7F) {
            text += escapedControl(byte);
            ++i;
        } else {
            text += QString::fromUtf8(path.constData() + i, length);
            i += length;
        }
    }
    return text;
}

QByteArray PathText::bytes(const QString& path) {
    return QFile::encodeName(path);
}

QByteArray PathText::fileName(const QByteArray& path) {
    return path.mid(path.lastIndexOf('/') + 1);
}
