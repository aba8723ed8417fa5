#pragma once
// Our own compact JSON writer: no white space, keys in their given order, the escapes of the
// analytics format, at most 512 levels deep. Class-level; any thread.

#include <QByteArray>
#include <QString>
#include <optional>

#include "JsonValue.h"
#include "PropertyList.h"

class QVJSON {
  public:
    /// The UTF-8 text, or nullopt with *error set ("Nested too deep", "JSON serialisation not
    /// supported for TYPE").
    static std::optional<QByteArray> stringify(const JsonValue& value, QString* error = nullptr);
    /// A property list as JSON: integers, booleans, strings, arrays and dictionaries (keys in
    /// `keyOrder` first, the rest after them in order); anything else is Unsupported.
    static JsonValue fromPropertyList(const PropertyList& value, const QStringList& keyOrder = {});
};
