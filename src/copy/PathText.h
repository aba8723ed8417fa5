#pragma once
// Paths are bytes from the directory walk to the open calls; this is where they become text
// for people (logs, the terminal, the window) and nowhere else. Stateless.

#include <QByteArray>
#include <QString>

class PathText {
  public:
    /// The path as a person reads it: UTF-8, with every byte that isn't part of valid UTF-8
    /// and every control character (a newline in a name) shown as an escape ("\xff", "\n").
    static QString display(const QByteArray& path);
    /// A text path as the file system's bytes (UTF-8).
    static QByteArray bytes(const QString& path);
    /// The last component of a path.
    static QByteArray fileName(const QByteArray& path);
    static bool isValidUtf8(const QByteArray& text);
    /// Bytes of the valid UTF-8 character starting at text[at]; 0 when none starts there.
    static int utf8SequenceLength(const QByteArray& text, qsizetype at);
};
