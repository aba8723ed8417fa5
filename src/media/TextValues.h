#pragma once
// Numbers and flags read from the start of a text the lenient way tool output and
// version strings need: leading blanks skipped, trailing characters ignored.

#include <QStringView>

class TextValues {
  public:
    /// The decimal integer at the start (after blanks and an optional sign); 0 when the
    /// text does not start with one. Saturates at the int range.
    static int intValue(QStringView text);
    /// True when, after blanks, an optional sign and leading zeros, the text starts with
    /// "Y", "y", "T", "t" or a digit 1-9.
    static bool boolValue(QStringView text);
};
