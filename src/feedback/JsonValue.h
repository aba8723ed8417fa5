#pragma once
// A JSON value that keeps its object's keys in the order they were given, for the analytics
// upload whose text is compared byte for byte. An Unsupported value stands for something
// JSON can't say (its type's name), so the writer can refuse it. Immutable; any thread.

#include <QString>
#include <utility>
#include <variant>
#include <vector>

class JsonValue {
  public:
    using Array = std::vector<JsonValue>;
    using Object = std::vector<std::pair<QString, JsonValue>>;
    struct Unsupported {
        QString typeName;
    };

    JsonValue() = default;  // null
    JsonValue(bool value) : value_(value) {}
    JsonValue(qint64 value) : value_(value) {}
    JsonValue(int value) : value_(qint64(value)) {}
    JsonValue(QString value) : value_(std::move(value)) {}
    JsonValue(const char* value) : value_(QString::fromUtf8(value)) {}
    JsonValue(Array value) : value_(std::move(value)) {}
    JsonValue(Object value) : value_(std::move(value)) {}
    JsonValue(Unsupported value) : value_(std::move(value)) {}

    const auto& variant() const { return value_; }

  private:
    std::variant<std::monostate, bool, qint64, QString, Array, Object, Unsupported> value_;
};
