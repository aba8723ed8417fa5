#pragma once
// Lets test failures print Qt strings and string lists as text rather than as raw bytes.

#include <QString>
#include <QStringList>
#include <ostream>

inline void PrintTo(const QString& text, std::ostream* out) {
    *out << '"' << text.toStdString() << '"';
}

inline void PrintTo(const QStringList& list, std::ostream* out) {
    *out << '{';
    for (qsizetype i = 0; i < list.size(); ++i) {
        *out << (i ? ",\n  " : "");
        PrintTo(list[i], out);
    }
    *out << '}';
}
