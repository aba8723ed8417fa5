#pragma once
// Camera card formats as stored in a volume's type field; the numbers are persisted, so they
// never change.

enum class CardFormat : int {
    Unknown = -1,
    P2 = 0,
    RED = 1,
    XDCAM = 2,
    XDCAMEX = 3,
    AVCHD = 4,
    EOSHD = 5,
    ARRI = 6,
    CanonXF = 7,
};
