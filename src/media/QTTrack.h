#pragma once
// The media attributes of one movie track that frame arithmetic needs.

#include <QtGlobal>

struct QTTrack {
    /// Number of samples (frames for a video track).
    qint64 sampleCount = 0;
    /// Units per second of the track's media.
    qint32 timeScale = 0;
    /// Length of the media in timeScale units.
    qint64 duration = 0;
};
