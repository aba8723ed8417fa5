#include "QVJSON.h"

#include <QStringList>

namespace {

constexpr int kMostLevels = 512;

void writeString(const QString& text, QByteArray& out) {
    out += '"';
    // Runs of plain characters are converted whole, so surrogate pairs stay together.
    qsizetype plainFrom = 0;
    const auto flush = [&](qsizetype upTo) {
        out += QStringView(text).mid(plainFrom, upTo - plainFrom).toUtf8();
    };
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char16_t code = text[i].unicode();
        if (code >= 0x20 && code != u'"' && code != u'\\')
            continue;
        flush(i);
        plainFrom = i + 1;
        switch (code) {
            case u'"':
                out += "\\\"";
                break;
            case u'\\':
                out += "\\\\";
                break;
            case 8:
                out += "\\b";
                break;
            case 9:
                out += "\\t";
                break;
            case 10:
                out += "\\n";
                break;
            case 12:
                out += "\\f";
                break;
            case 13:
                out += "\\r";
                break;
            default:
                out += QStringLiteral("\\u%1").arg(int(code), 4, 16, QChar(u'0')).toLatin1();
        }
    }
    flush(text.size());
    out += '"';
}

bool write(const JsonValue& value, int depth, QByteArray& out, QString* error) {
    if (depth > kMostLevels) {
        *error = QStringLiteral("Nested too deep");
        return false;
    }
    const auto& held = value.variant();
    if (std::holds_alternative<std::monostate>(held)) {
        out += "null";
    } else if (const bool* flag = std::get_if<bool>(&held)) {
        out += *flag ? "true" : "false";
    } else if (const qint64* number = std::get_if<qint64>(&held)) {
        out += QByteArray::number(*number);
    } else if (const QString* text = std::get_if<QString>(&held)) {
        writeString(*text, out);
    } else if (const auto* array = std::get_if<JsonValue::Array>(&held)) {
        out += '[';
        for (std::size_t i = 0; i < array->size(); ++i) {
            if (i > 0)
                out += ',';
            if (!write((*array)[i], depth + 1, out, error))
                return false;
        }
        out += ']';
    } else if (const auto* object = std::get_if<JsonValue::Object>(&held)) {
        out += '{';
        for (std::size_t i = 0; i < object->size(); ++i) {
            if (i > 0)
                out += ',';
            writeString((*object)[i].first, out);
            out += ':';
            if (!write((*object)[i].second, depth + 1, out, error))
                return false;
        }
        out += '}';
    } else {
        *error = QStringLiteral("JSON serialisation not supported for %1")
                     .arg(std::get<JsonValue::Unsupported>(held).typeName);
        return false;
    }
    return true;
}

}  // namespace

std::optional<QByteArray> QVJSON::stringify(const JsonValue& value, QString* error) {
    QString ignored;
    QString& why = error != nullptr ? *error : ignored;
    QByteArray out;
    if (!write(value, 1, out, &why))
        return std::nullopt;
    return out;
}

JsonValue QVJSON::fromPropertyList(const PropertyList& value, const QStringList& keyOrder) {
    switch (value.type()) {
        case PropertyList::Type::Absent:
            return JsonValue();
        case PropertyList::Type::Integer:
            return JsonValue(value.toInteger());
        case PropertyList::Type::Boolean:
            return JsonValue(value.toBool());
        case PropertyList::Type::String:
            return JsonValue(value.toString());
        case PropertyList::Type::Array: {
            JsonValue::Array items;
            for (const PropertyList& item : value.toArray())
                items.push_back(fromPropertyList(item, keyOrder));
            return JsonValue(std::move(items));
        }
        case PropertyList::Type::Dictionary: {
            const PropertyList::Dictionary entries = value.toDictionary();
            JsonValue::Object pairs;
            for (const QString& key : keyOrder) {
                if (const auto found = entries.find(key); found != entries.end())
                    pairs.emplace_back(key, fromPropertyList(found->second, keyOrder));
            }
            for (const auto& [key, item] : entries) {
                if (!keyOrder.contains(key))
                    pairs.emplace_back(key, fromPropertyList(item, keyOrder));
            }
            return JsonValue(std::move(pairs));
        }
        case PropertyList::Type::Real:
            return JsonValue(JsonValue::Unsupported{QStringLiteral("real")});
        case PropertyList::Type::Date:
            return JsonValue(JsonValue::Unsupported{QStringLiteral("date")});
        case PropertyList::Type::Data:
            return JsonValue(JsonValue::Unsupported{QStringLiteral("data")});
    }
    return JsonValue();
}
