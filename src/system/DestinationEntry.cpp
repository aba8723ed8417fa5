#include "DestinationEntry.h"

PropertyList DestinationEntry::toPropertyList() const {
    return PropertyList::Dictionary{{QStringLiteral("selected"), selected},
                                    {QStringLiteral("path"), path}};
}

DestinationEntry DestinationEntry::fromPropertyList(const PropertyList& value) {
    return {value[QStringLiteral("selected")].toInteger(),
            value[QStringLiteral("path")].toString()};
}

std::vector<DestinationEntry> DestinationEntry::listFrom(const PropertyList& value) {
    std::vector<DestinationEntry> list;
    for (const PropertyList& item : value.toArray()) {
        list.push_back(fromPropertyList(item));
    }
    return list;
}

PropertyList DestinationEntry::toPropertyList(const std::vector<DestinationEntry>& list) {
    PropertyList::Array items;
    for (const DestinationEntry& entry : list) {
        items.push_back(entry.toPropertyList());
    }
    return items;
}
