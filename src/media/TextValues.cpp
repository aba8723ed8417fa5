#include "TextValues.h"

#include <limits>

namespace {

qsizetype skipBlanks(QStringView text, qsizetype at) {
    while (at < text.size() && text[at].isSpace())
        ++at;
    return at;
}

qsizetype skipSign(QStringView text, qsizetype at, bool* negative = nullptr) {
    if (at < text.size() && (text[at] == u'+' || text[at] == u'-')) {
        if (negative)
            *negative = text[at] == u'-';
        ++at;
    }
    return at;
}

}  // namespace

int TextValues::intValue(QStringView text) {
    bool negative = false;
    qsizetype at = skipSign(text, skipBlanks(text, 0), &negative);
    qint64 value = 0;
    constexpr qint64 limit = qint64(std::numeric_limits<int>::max()) + 1;
    for (; at < text.size() && text[at] >= u'0' && text[at] <= u'9'; ++at) {
        value = value * 10 + (text[at].unicode() - u'0');
        if (value > limit)
            value = limit;
    }
    if (negative)
        return static_cast<int>(-value);
    return static_cast<int>(std::min<qint64>(value, std::numeric_limits<int>::max()));
}

bool TextValues::boolValue(QStringView text) {
    qsizetype at = skipSign(text, skipBlanks(text, 0));
    while (at < text.size() && text[at] == u'0')
        ++at;
    if (at >= text.size())
        return false;
    const QChar c = text[at];
    return c == u'Y' || c == u'y' || c == u'T' || c == u't' || (c >= u'1' && c <= u'9');
}
