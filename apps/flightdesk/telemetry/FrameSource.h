// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QtEndian>

#include <algorithm>

/// One frame as the ground station received it.
struct TelemetryFrame {
    qint64 usec = 0; ///< microseconds since 1970, UTC
    QByteArray bytes;

    /// As it stands in a telemetry log: the time in 8 bytes, big-endian, and the frame.
    QByteArray logRecord() const
    {
        QByteArray record(int(sizeof usec) + bytes.size(), Qt::Uninitialized);
        qToBigEndian(usec, record.data());
        std::copy(bytes.cbegin(), bytes.cend(), record.begin() + int(sizeof usec));
        return record;
    }
    static TelemetryFrame ofLogRecord(const QByteArray& record)
    {
        constexpr int Stamp = sizeof usec;
        return record.size() < Stamp
                   ? TelemetryFrame()
                   : TelemetryFrame{qFromBigEndian<qint64>(record.constData()), record.mid(Stamp)};
    }
};

/// Where the frames of one flight come from.
class FrameSource
{
public:
    FrameSource() = default;
    virtual ~FrameSource() = default;
    FrameSource(const FrameSource&) = delete;
    FrameSource& operator=(const FrameSource&) = delete;

    /// Reads the next frame; false at the end. Throws Failure where something else ends it.
    virtual bool next(TelemetryFrame* frame) = 0;
    /// How far next() has come, in the unit of size().
    virtual qint64 position() const = 0;
    virtual qint64 size() const = 0;
};
