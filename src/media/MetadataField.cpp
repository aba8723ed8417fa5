#include "MetadataField.h"

namespace {

const QString kTitle = QStringLiteral("title");
const QString kType = QStringLiteral("type");
const QString kDefaultVal = QStringLiteral("defaultVal");
const QString kVisible = QStringLiteral("visible");
const QString kUseInPath = QStringLiteral("useInPath");
const QString kUseInSpreadsheet = QStringLiteral("useInSpreadsheet");
const QString kQtMetadataKey = QStringLiteral("qtMetadataKey");

}  // namespace

QString MetadataField::spacelessTitle(const QString& title) {
    QString spaceless = title;
    return spaceless.remove(QLatin1Char(' '));
}

QString MetadataField::identifier() const {
    return QStringLiteral("QVMeta") + spacelessTitle(title);
}

bool MetadataField::operator==(const MetadataField& other) const {
    return title == other.title && type == other.type && defaultVal == other.defaultVal &&
           visible == other.visible && useInPath == other.useInPath &&
           useInSpreadsheet == other.useInSpreadsheet && qtMetadataKey == other.qtMetadataKey;
}

PropertyList MetadataField::toPropertyList() const {
    PropertyList::Dictionary record = storedRecord;
    record[kTitle] = title;
    record[kType] = type;
    record[kDefaultVal] = defaultVal;
    record[kVisible] = visible;
    record[kUseInPath] = useInPath;
    record[kUseInSpreadsheet] = useInSpreadsheet;
    if (qtMetadataKey) {
        record[kQtMetadataKey] = *qtMetadataKey;
    } else {
        record.erase(kQtMetadataKey);
    }
    return record;
}

MetadataField MetadataField::fromPropertyList(const PropertyList& value) {
    MetadataField field;
    field.title = value[kTitle].toString();
    field.type = value[kType].toInteger();
    field.defaultVal = value[kDefaultVal].toString();
    field.visible = value[kVisible].toInteger();
    field.useInPath = value[kUseInPath].toInteger();
    field.useInSpreadsheet = value[kUseInSpreadsheet].toInteger();
    if (value[kQtMetadataKey].type() == PropertyList::Type::String) {
        field.qtMetadataKey = value[kQtMetadataKey].toString();
    }
    field.storedRecord = value.toDictionary();
    return field;
}

std::vector<MetadataField> MetadataField::listFrom(const PropertyList& array) {
    std::vector<MetadataField> fields;
    for (const PropertyList& item : array.toArray()) {
        fields.push_back(fromPropertyList(item));
    }
    return fields;
}

PropertyList MetadataField::toArray(const std::vector<MetadataField>& fields) {
    PropertyList::Array items;
    items.reserve(fields.size());
    for (const MetadataField& field : fields) {
        items.push_back(field.toPropertyList());
    }
    return items;
}
