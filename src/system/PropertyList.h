#pragma once
// A property-list value (integer, real, boolean, string, date, data, array, dictionary,
// or absent) and its XML file form. Serves the settings, the shared global and consent
// files, and disk-information dictionaries. An absent or mistyped value reads as
// 0 / NO / empty, so lookups never need a type check first.

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QStringList>
#include <map>
#include <variant>
#include <vector>

class PropertyList {
  public:
    enum class Type { Absent, Integer, Real, Boolean, String, Date, Data, Array, Dictionary };
    enum class ReadStatus { Ok, Missing, Unreadable, Malformed };
    using Array = std::vector<PropertyList>;
    using Dictionary = std::map<QString, PropertyList>;

    PropertyList() = default;
    PropertyList(int value) : value_(static_cast<qint64>(value)) {}
    PropertyList(qint64 value) : value_(value) {}
    PropertyList(double value) : value_(value) {}
    PropertyList(bool value) : value_(value) {}
    PropertyList(QString value) : value_(std::move(value)) {}
    PropertyList(const char* value) : value_(QString::fromUtf8(value)) {}
    PropertyList(QDateTime value) : value_(std::move(value)) {}
    PropertyList(QByteArray value) : value_(std::move(value)) {}
    PropertyList(Array value) : value_(std::move(value)) {}
    PropertyList(Dictionary value) : value_(std::move(value)) {}
    PropertyList(const QStringList& strings);

    Type type() const { return static_cast<Type>(value_.index()); }
    bool isAbsent() const { return type() == Type::Absent; }
    bool isNumber() const;

    /// Numbers and booleans convert; a string holding a number is read as that number.
    qint64 toInteger() const;
    double toDouble() const;
    /// Non-zero numbers, and the strings "YES", "true" or a non-zero number, are true.
    bool toBool() const;
    /// Strings as they are; numbers in their decimal form; anything else empty.
    QString toString() const;
    QDateTime toDateTime() const;
    QByteArray toData() const;
    const Array& toArray() const;
    const Dictionary& toDictionary() const;
    /// The string elements of an array, other elements dropped.
    QStringList toStringList() const;

    /// Dictionary member or array element; absent when there is none.
    const PropertyList& operator[](const QString& key) const;
    const PropertyList& operator[](std::size_t index) const;
    bool contains(const QString& key) const;

    bool operator==(const PropertyList& other) const { return value_ == other.value_; }

    QByteArray toXml() const;
    static PropertyList fromXml(const QByteArray& xml, ReadStatus* status = nullptr);

    /// Reads an XML property-list file; absent with the reason in `status` on failure.
    static PropertyList readFile(const QString& path, ReadStatus* status = nullptr);
    /// Writes the file atomically (a temporary file renamed over the old one).
    bool writeFile(const QString& path) const;

  private:
    std::variant<std::monostate, qint64, double, bool, QString, QDateTime, QByteArray, Array,
                 Dictionary>
        value_;
};
