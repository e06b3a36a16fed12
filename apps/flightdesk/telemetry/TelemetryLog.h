// SPDX-License-Identifier: MIT
#pragma once

#include "telemetry/FrameSource.h"

#include <QtCore/QFile>
#include <QtCore/QString>

/// Reads a telemetry log (.tlog): records of an 8-byte big-endian time stamp and one MAVLink frame.
///
/// The log is streamed and may be of any length. What is no record is skipped up to the next record that
/// another one, or the end of the log, follows.
class TelemetryLog : public FrameSource
{
public:
    /// Throws Failure when the log cannot be opened.
    explicit TelemetryLog(const QString& path);

    bool next(TelemetryFrame* frame) override;
    qint64 position() const override { return m_consumed; }
    qint64 size() const override { return m_file.size(); }

    /// Bytes that belonged to no record.
    qint64 skippedBytes() const { return m_skipped; }
    /// Bytes of a last record that the log breaks off in; not counted as skipped.
    int truncatedBytes() const { return m_truncated; }

private:
    enum class Fit { No, CutOff, Complete };

    int available() const { return m_buffer.size() - m_at; }
    void fill();
    Fit fit(int offset) const;
    int recordLength(int offset) const;
    bool isFollowed(int offset) const;
    bool acceptHere() const;
    bool betterRecordWithin(int length) const;
    bool endsHere();
    void skip();
    void take(TelemetryFrame* frame);

    QFile m_file;
    QByteArray m_buffer;
    int m_at = 0;          ///< where the unread bytes begin in the buffer
    qint64 m_consumed = 0; ///< bytes of the log before m_at
    bool m_atEnd = false;  ///< the buffer holds all that is left
    bool m_inStep = true;  ///< a record ended right before m_at
    qint64 m_skipped = 0;
    int m_truncated = 0;
};
