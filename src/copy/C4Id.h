#pragma once
// C4 identifiers (SMPTE ST 2114): the SHA-512 of some bytes written in base 58, padded to 88
// characters behind "c4". Histories name each generation file by one. Pure functions.

#include <QByteArray>
#include <QString>

class C4Id {
  public:
    static constexpr int kLength = 90;

    /// The identifier of these bytes.
    static QString of(const QByteArray& bytes);
    /// The identifier of a SHA-512 digest (64 raw bytes).
    static QString fromSha512(const QByteArray& digest);
};
