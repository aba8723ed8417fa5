#pragma once
// One user-defined metadata field (a column of the volume list, a folder level, a
// spreadsheet column) as kept in the settings array `metadata`, and a volume's values.

#include <QString>
#include <map>
#include <optional>
#include <vector>

#include "PropertyList.h"

enum class MetadataFieldType {
    Text = 0,
    Number = 1,
    IncrementingNumber = 2,
    Timestamp = 3,
    Date = 4,
    UserName = 5
};

/// A volume's values, keyed by field identifier.
using MetadataValues = std::map<QString, QString>;

struct MetadataField {
    QString title;
    qint64 type = 0;  // a MetadataFieldType code; unknown codes give no value
    QString defaultVal;
    qint64 visible = 0;
    qint64 useInPath = 0;
    qint64 useInSpreadsheet = 0;
    std::optional<QString> qtMetadataKey;  // absent means no movie tag
    // The dictionary the field was read from, so keys this version does not know survive
    // a read-modify-write of the list.
    PropertyList::Dictionary storedRecord;

    /// "QVMeta" followed by the title with every ASCII space removed.
    QString identifier() const;
    /// The title with every ASCII space removed.
    static QString spacelessTitle(const QString& title);

    /// The stored record with the known keys laid over it; `qtMetadataKey` is left out
    /// when it is absent.
    PropertyList toPropertyList() const;
    /// Absent or mistyped keys read as 0 / empty.
    static MetadataField fromPropertyList(const PropertyList& value);

    /// The fields of a settings array, in order; anything but an array gives none.
    static std::vector<MetadataField> listFrom(const PropertyList& array);
    static PropertyList toArray(const std::vector<MetadataField>& fields);

    /// Compares the known keys only; the stored record's other keys do not count.
    bool operator==(const MetadataField& other) const;
};
