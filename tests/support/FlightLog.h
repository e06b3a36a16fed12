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

/// A simulated flight of a minute; the telemetry of one that is interrupted breaks off in the air.
inline QList<QByteArray> flightOf(quint8 system, bool interrupted = false)
{
    QList<QByteArray> frames;
    quint8 sequence = 0;
    for (const QByteArray& frame : framesOf(FlightSimulator(system, 0, 1, interrupted))) {
        mavlink::Message message = *mavlink::decode(frame);
        message.system = system;
        frames.append(mavlink::encode(message, sequence++));
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
