#pragma once
// A settings key together with the type it is read as and, for the keys registered at start-up,
// its default. The conversion to and from the stored value is chosen once, by the type, so no
// caller picks one. Every key is declared in SettingsKeys.h. Immutable; any thread.

#include <QString>
#include <QStringList>
#include <vector>

#include "DestinationEntry.h"
#include "PropertyList.h"

/// An integer that is on only when it equals 1 (a 2 is off); written as 1 or 0.
struct IntegerSwitch {};

/// How a setting of type T is read from and written to its stored value.
template <typename T>
struct SettingValue;

template <>
struct SettingValue<PropertyList> {  // records and lists kept as stored, checked by their reader
    using Value = PropertyList;
    static Value read(const PropertyList& stored) { return stored; }
    static PropertyList write(const Value& value) { return value; }
};

template <>
struct SettingValue<QString> {
    using Value = QString;
    static Value read(const PropertyList& stored) { return stored.toString(); }
    static PropertyList write(const Value& value) { return value; }
};

template <>
struct SettingValue<qint64> {
    using Value = qint64;
    static Value read(const PropertyList& stored) { return stored.toInteger(); }
    static PropertyList write(Value value) { return value; }
};

template <>
struct SettingValue<bool> {
    using Value = bool;
    static Value read(const PropertyList& stored) { return stored.toBool(); }
    static PropertyList write(Value value) { return value; }
};

template <>
struct SettingValue<IntegerSwitch> {
    using Value = bool;
    static Value read(const PropertyList& stored) { return stored.toInteger() == 1; }
    static PropertyList write(Value on) { return qint64(on ? 1 : 0); }
};

template <>
struct SettingValue<QStringList> {  // the strings of a list; anything else in it is dropped
    using Value = QStringList;
    static Value read(const PropertyList& stored) { return stored.toStringList(); }
    static PropertyList write(const Value& value) { return value; }
};

template <>
struct SettingValue<PropertyList::Dictionary> {
    using Value = PropertyList::Dictionary;
    static Value read(const PropertyList& stored) { return stored.toDictionary(); }
    static PropertyList write(const Value& value) { return value; }
};

template <>
struct SettingValue<std::vector<DestinationEntry>> {
    using Value = std::vector<DestinationEntry>;
    static Value read(const PropertyList& stored) { return DestinationEntry::listFrom(stored); }
    static PropertyList write(const Value& value) {
        return DestinationEntry::toPropertyList(value);
    }
};

template <typename T>
struct Setting {
    using Value = typename SettingValue<T>::Value;

    const char* name;
    /// The value registered at start-up; none: the key reads as absent until first written.
    Value (*registeredDefault)() = nullptr;

    QString key() const { return QString::fromLatin1(name); }
    /// The name, for the raw value: SettingsStore::object, a settings file's own keys.
    operator QString() const { return key(); }  // NOLINT(google-explicit-constructor)
    /// The registered default as it is stored; absent for a key with none.
    PropertyList storedDefault() const {
        return registeredDefault != nullptr ? SettingValue<T>::write(registeredDefault())
                                            : PropertyList();
    }
};
