// SPDX-License-Identifier: MIT
#pragma once

#include "support/Programs.h"
#include "telemetry/FlightSimulator.h"

inline QList<QByteArray> framesOf(FlightSimulator flight)
{
    QList<QByteArray> frames;
    for (TelemetryFrame frame; flight.next(&frame);) {
        frames.append(frame.bytes);
    }
    return frames;
}

/// A telemetry log with ten frames a second.
inline QByteArray asLog(const QList<QByteArray>& frames)
{
    QByteArray log;
    quint64 usec = 1436056003484000;
    for (const QByteArray& frame : frames) {
        QByteArray stamp(8, '\0');
        qToBigEndian(usec += 100000, stamp.data());
        log += stamp + frame;
    }
    return log;
}
