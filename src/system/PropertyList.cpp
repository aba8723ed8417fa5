#include "PropertyList.h"

#include <QFile>
#include <QSaveFile>
#include <pugixml.hpp>
#include <sstream>

namespace {

const PropertyList kAbsent;
const PropertyList::Array kEmptyArray;
const PropertyList::Dictionary kEmptyDictionary;

QString text(const pugi::xml_node& node) {
    return QString::fromUtf8(node.child_value());
}

QByteArray utf8(const QString& value) {
    return value.toUtf8();
}

PropertyList parseNode(const pugi::xml_node& node, bool& ok);

PropertyList parseArray(const pugi::xml_node& node, bool& ok) {
    PropertyList::Array items;
    for (const pugi::xml_node& child : node.children()) {
        if (child.type() == pugi::node_element) {
            items.push_back(parseNode(child, ok));
        }
    }
    return items;
}

PropertyList parseDictionary(const pugi::xml_node& node, bool& ok) {
    PropertyList::Dictionary members;
    QString key;
    bool haveKey = false;
    for (const pugi::xml_node& child : node.children()) {
        if (child.type() != pugi::node_element) {
            continue;
        }
        if (std::string_view(child.name()) == "key") {
            key = text(child);
            haveKey = true;
            continue;
        }
        if (!haveKey) {
            ok = false;
            continue;
        }
        members[key] = parseNode(child, ok);
        haveKey = false;
    }
    return members;
}

PropertyList parseNode(const pugi::xml_node& node, bool& ok) {
    const std::string_view name = node.name();
    if (name == "dict") {
        return parseDictionary(node, ok);
    }
    if (name == "array") {
        return parseArray(node, ok);
    }
    if (name == "string") {
        return text(node);
    }
    if (name == "integer") {
        bool valid = false;
        const qint64 value = text(node).trimmed().toLongLong(&valid);
        ok = ok && valid;
        return value;
    }
    if (name == "real") {
        bool valid = false;
        const double value = text(node).trimmed().toDouble(&valid);
        ok = ok && valid;
        return value;
    }
    if (name == "true") {
        return true;
    }
    if (name == "false") {
        return false;
    }
    if (name == "date") {
        const QDateTime value = QDateTime::fromString(text(node).trimmed(), Qt::ISODate);
        ok = ok && value.isValid();
        return value;
    }
    if (name == "data") {
        return QByteArray::fromBase64(text(node).simplified().remove(u' ').toLatin1());
    }
    ok = false;
    return {};
}

void writeNode(pugi::xml_node parent, const PropertyList& value);

void writeText(pugi::xml_node parent, const char* tag, const QString& value) {
    parent.append_child(tag).text().set(utf8(value).constData());
}

void writeNode(pugi::xml_node parent, const PropertyList& value) {
    switch (value.type()) {
        case PropertyList::Type::Absent:
            return;
        case PropertyList::Type::Integer:
            writeText(parent, "integer", QString::number(value.toInteger()));
            return;
        case PropertyList::Type::Real:
            writeText(parent, "real", QString::number(value.toDouble(), 'g', 17));
            return;
        case PropertyList::Type::Boolean:
            parent.append_child(value.toBool() ? "true" : "false");
            return;
        case PropertyList::Type::String:
            writeText(parent, "string", value.toString());
            return;
        case PropertyList::Type::Date:
            writeText(parent, "date", value.toDateTime().toUTC().toString(Qt::ISODate));
            return;
        case PropertyList::Type::Data:
            writeText(parent, "data", QString::fromLatin1(value.toData().toBase64()));
            return;
        case PropertyList::Type::Array: {
            pugi::xml_node array = parent.append_child("array");
            for (const PropertyList& item : value.toArray()) {
                writeNode(array, item);
            }
            return;
        }
        case PropertyList::Type::Dictionary: {
            pugi::xml_node dict = parent.append_child("dict");
            for (const auto& [key, member] : value.toDictionary()) {
                if (member.isAbsent()) {
                    continue;
                }
                writeText(dict, "key", key);
                writeNode(dict, member);
            }
            return;
        }
    }
}

}  // namespace

PropertyList::PropertyList(const QStringList& strings) {
    Array items;
    items.reserve(static_cast<std::size_t>(strings.size()));
    for (const QString& string : strings) {
        items.emplace_back(string);
    }
    value_ = std::move(items);
}

bool PropertyList::isNumber() const {
    return type() == Type::Integer || type() == Type::Real || type() == Type::Boolean;
}

qint64 PropertyList::toInteger() const {
    switch (type()) {
        case Type::Integer:
            return std::get<qint64>(value_);
        case Type::Real:
            return static_cast<qint64>(std::get<double>(value_));
        case Type::Boolean:
            return std::get<bool>(value_) ? 1 : 0;
        case Type::String: {
            const QString trimmed = std::get<QString>(value_).trimmed();
            bool ok = false;
            const qint64 value = trimmed.toLongLong(&ok);
            return ok ? value : static_cast<qint64>(trimmed.toDouble());
        }
        default:
            return 0;
    }
}

double PropertyList::toDouble() const {
    switch (type()) {
        case Type::Real:
            return std::get<double>(value_);
        case Type::String:
            return std::get<QString>(value_).trimmed().toDouble();
        default:
            return static_cast<double>(toInteger());
    }
}

bool PropertyList::toBool() const {
    if (type() == Type::String) {
        const QString value = std::get<QString>(value_).trimmed();
        return value.compare(QStringLiteral("YES"), Qt::CaseInsensitive) == 0 ||
               value.compare(QStringLiteral("true"), Qt::CaseInsensitive) == 0 ||
               value.toLongLong() != 0;
    }
    return toDouble() != 0.0;
}

QString PropertyList::toString() const {
    switch (type()) {
        case Type::String:
            return std::get<QString>(value_);
        case Type::Integer:
        case Type::Boolean:
            return QString::number(toInteger());
        case Type::Real:
            return QString::number(toDouble(), 'g', 17);
        default:
            return {};
    }
}

QDateTime PropertyList::toDateTime() const {
    return type() == Type::Date ? std::get<QDateTime>(value_) : QDateTime();
}

QByteArray PropertyList::toData() const {
    return type() == Type::Data ? std::get<QByteArray>(value_) : QByteArray();
}

const PropertyList::Array& PropertyList::toArray() const {
    return type() == Type::Array ? std::get<Array>(value_) : kEmptyArray;
}

const PropertyList::Dictionary& PropertyList::toDictionary() const {
    return type() == Type::Dictionary ? std::get<Dictionary>(value_) : kEmptyDictionary;
}

QStringList PropertyList::toStringList() const {
    QStringList strings;
    for (const PropertyList& item : toArray()) {
        if (item.type() == Type::String) {
            strings << item.toString();
        }
    }
    return strings;
}

const PropertyList& PropertyList::operator[](const QString& key) const {
    const Dictionary& members = toDictionary();
    const auto it = members.find(key);
    return it == members.end() ? kAbsent : it->second;
}

const PropertyList& PropertyList::operator[](std::size_t index) const {
    const Array& items = toArray();
    return index < items.size() ? items[index] : kAbsent;
}

bool PropertyList::contains(const QString& key) const {
    return toDictionary().count(key) != 0;
}

QByteArray PropertyList::toXml() const {
    pugi::xml_document document;
    pugi::xml_node declaration = document.append_child(pugi::node_declaration);
    declaration.append_attribute("version") = "1.0";
    declaration.append_attribute("encoding") = "UTF-8";
    pugi::xml_node plist = document.append_child("plist");
    plist.append_attribute("version") = "1.0";
    writeNode(plist, *this);
    std::ostringstream out;
    document.save(out, "\t", pugi::format_default, pugi::encoding_utf8);
    return QByteArray::fromStdString(out.str());
}

PropertyList PropertyList::fromXml(const QByteArray& xml, ReadStatus* status) {
    pugi::xml_document document;
    const pugi::xml_parse_result parsed =
        document.load_buffer(xml.constData(), static_cast<std::size_t>(xml.size()),
                             pugi::parse_default, pugi::encoding_utf8);
    const pugi::xml_node plist = document.child("plist");
    const pugi::xml_node root = plist.find_child(
        [](const pugi::xml_node& node) { return node.type() == pugi::node_element; });
    bool ok = parsed && root;
    PropertyList value = ok ? parseNode(root, ok) : PropertyList();
    if (status != nullptr) {
        *status = ok ? ReadStatus::Ok : ReadStatus::Malformed;
    }
    return ok ? value : PropertyList();
}

PropertyList PropertyList::readFile(const QString& path, ReadStatus* status) {
    QFile file(path);
    if (!file.exists()) {
        if (status != nullptr) {
            *status = ReadStatus::Missing;
        }
        return {};
    }
    if (!file.open(QIODevice::ReadOnly)) {
        if (status != nullptr) {
            *status = ReadStatus::Unreadable;
        }
        return {};
    }
    return fromXml(file.readAll(), status);
}

bool PropertyList::writeFile(const QString& path) const {
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        return false;
    }
    file.write(toXml());
    return file.commit();
}
