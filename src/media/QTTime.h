#pragma once
// A point or span of movie time: a count of units at a time scale (units per second).

#include <QtGlobal>

struct QTTime {
    qint64 timeValue = 0;
    qint32 timeScale = 0;
    qint32 flags = 0;

    friend bool operator==(const QTTime&, const QTTime&) = default;
};
