#pragma once
// One destination folder of the user's list and whether transfers use it.

#include <QString>
#include <vector>

#include "PropertyList.h"

struct DestinationEntry {
    qint64 selected = 1;  // 1 = used; any other value keeps it listed but skipped
    QString path;

    bool isSelected() const { return selected == 1; }
    PropertyList toPropertyList() const;
    static DestinationEntry fromPropertyList(const PropertyList& value);

    static std::vector<DestinationEntry> listFrom(const PropertyList& value);
    static PropertyList toPropertyList(const std::vector<DestinationEntry>& list);

    bool operator==(const DestinationEntry&) const = default;
};
