#include "QVFormat.h"

#include <cstdio>
#include <string>

namespace {

struct Directive {
    QString flags;
    QString width;
    QString precision;  // without the dot; empty when none
    bool hasPrecision = false;
    QChar conversion;
};

const QString kFlagChars = QStringLiteral("-+ #0'");
const QString kLengthChars = QStringLiteral("hlqLzjt");
const QString kNumberConversions = QStringLiteral("diouxXcfFeEgGaAp");

class Reader {
  public:
    Reader(QStringView text, const std::vector<QVariant>& arguments)
        : text_(text), arguments_(arguments) {}

    QString run() {
        QString out;
        out.reserve(text_.size());
        while (pos_ < text_.size()) {
            const QChar c = text_[pos_++];
            if (c != u'%') {
                out += c;
                continue;
            }
            out += directive();
        }
        return out;
    }

  private:
    QVariant nextArgument() { return next_ < arguments_.size() ? arguments_[next_++] : QVariant(); }

    QString takeWhile(const QString& allowed) {
        const qsizetype start = pos_;
        while (pos_ < text_.size() && allowed.contains(text_[pos_])) {
            ++pos_;
        }
        return text_.mid(start, pos_ - start).toString();
    }

    QString takeCount() {
        if (pos_ < text_.size() && text_[pos_] == u'*') {
            ++pos_;
            return QString::number(nextArgument().toInt());
        }
        return takeWhile(QStringLiteral("0123456789"));
    }

    QString directive() {
        const qsizetype start = pos_ - 1;
        Directive d;
        d.flags = takeWhile(kFlagChars);
        d.width = takeCount();
        if (pos_ < text_.size() && text_[pos_] == u'.') {
            ++pos_;
            d.hasPrecision = true;
            d.precision = takeCount();
        }
        takeWhile(kLengthChars);
        if (pos_ >= text_.size()) {
            return text_.mid(start).toString();
        }
        d.conversion = text_[pos_++];
        if (d.conversion == u'%') {
            return QStringLiteral("%");
        }
        if (d.conversion == u'@' || d.conversion == u's' || d.conversion == u'S') {
            return text(d, nextArgument());
        }
        if (kNumberConversions.contains(d.conversion)) {
            return number(d, nextArgument());
        }
        return text_.mid(start, pos_ - start).toString();
    }

    static QString pad(const Directive& d, QString body) {
        const int width = d.width.toInt();
        if (body.size() >= width) {
            return body;
        }
        const QString fill(width - body.size(), u' ');
        return d.flags.contains(u'-') ? body + fill : fill + body;
    }

    static QString text(const Directive& d, const QVariant& value) {
        QString body = value.isValid() ? value.toString() : QStringLiteral("(null)");
        if (d.hasPrecision && d.conversion != u'@') {
            body.truncate(d.precision.toInt());
        }
        return pad(d, body);
    }

    static QString number(const Directive& d, const QVariant& value) {
        QString printfFormat = u'%' + d.flags + d.width;
        if (d.hasPrecision) {
            printfFormat += u'.' + (d.precision.isEmpty() ? QStringLiteral("0") : d.precision);
        }
        const char conversion = d.conversion.toLatin1();
        char buffer[512];
        switch (conversion) {
            case 'd':
            case 'i':
                printfFormat += QStringLiteral("lld");
                std::snprintf(buffer, sizeof buffer, printfFormat.toLatin1().constData(),
                              static_cast<long long>(value.toLongLong()));
                break;
            case 'o':
            case 'u':
            case 'x':
            case 'X':
                printfFormat += QStringLiteral("ll") + d.conversion;
                std::snprintf(buffer, sizeof buffer, printfFormat.toLatin1().constData(),
                              static_cast<unsigned long long>(value.toULongLong()));
                break;
            case 'c':
                return pad(d, QString(QChar(static_cast<char16_t>(value.toUInt()))));
            case 'p':
                printfFormat = QStringLiteral("%p");
                std::snprintf(buffer, sizeof buffer, "%p",
                              reinterpret_cast<void*>(value.toULongLong()));
                break;
            default:
                printfFormat += d.conversion;
                std::snprintf(buffer, sizeof buffer, printfFormat.toLatin1().constData(),
                              value.toDouble());
                break;
        }
        return QString::fromLatin1(buffer);
    }

    QStringView text_;
    const std::vector<QVariant>& arguments_;
    qsizetype pos_ = 0;
    std::size_t next_ = 0;
};

}  // namespace

QString QVFormat::formatList(QStringView format, const std::vector<QVariant>& arguments) {
    return Reader(format, arguments).run();
}
