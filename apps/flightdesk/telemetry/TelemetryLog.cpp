// SPDX-License-Identifier: MIT
#include "telemetry/TelemetryLog.h"

#include "telemetry/MavlinkCodec.h"
#include "words/Failure.h"

#include <QtCore/QtEndian>

namespace
{
constexpr int StampLength = 8;
constexpr int LongestRecord = StampLength + mavlink::LongestFrame;
// A decision looks at one record, all that may begin inside it, and the beginning of their followers.
constexpr int LookAhead = 3 * LongestRecord;
constexpr int ChunkLength = 64 * 1024;
constexpr quint64 Year10000 = 253402300800ULL * 1000 * 1000;
} // namespace

TelemetryLog::TelemetryLog(const QString& path) : m_file(path)
{
    if (!m_file.open(QIODevice::ReadOnly)) {
        throw Failure(QStringLiteral("cannot be read: %1").arg(m_file.errorString()));
    }
}

bool TelemetryLog::next(TelemetryFrame* frame)
{
    for (;;) {
        fill();
        if (endsHere()) {
            return false;
        }
        if (acceptHere()) {
            take(frame);
            return true;
        }
        skip();
    }
}

void TelemetryLog::fill()
{
    if (m_atEnd || available() >= LookAhead) {
        return;
    }
    m_buffer.remove(0, m_at);
    m_at = 0;
    while (!m_atEnd && m_buffer.size() < LookAhead) {
        const QByteArray chunk = m_file.read(ChunkLength);
        m_atEnd = chunk.isEmpty();
        if (m_atEnd && m_file.error() != QFileDevice::NoError) {
            throw Failure(QStringLiteral("cannot be read: %1").arg(m_file.errorString()));
        }
        m_buffer += chunk;
    }
}

/// Whether a record begins at the offset. At the end of the log it may be cut off.
TelemetryLog::Fit TelemetryLog::fit(int offset) const
{
    const int rest = m_buffer.size() - offset;
    const char* data = m_buffer.constData() + offset;
    if (rest >= StampLength && qFromBigEndian<quint64>(data) >= Year10000) {
        return Fit::No;
    }
    if (rest <= StampLength) {
        return Fit::CutOff;
    }
    const auto magic = static_cast<uchar>(data[StampLength]);
    if (magic != mavlink::Magic1 && magic != mavlink::Magic2) {
        return Fit::No;
    }
    const bool complete = rest >= StampLength + mavlink::PrefixLength && rest >= recordLength(offset);
    return complete ? Fit::Complete : Fit::CutOff;
}

int TelemetryLog::recordLength(int offset) const
{
    return StampLength + mavlink::frameLength(m_buffer.constData() + offset + StampLength);
}

/// Whether the record at the offset ends where the log ends or where another record begins.
bool TelemetryLog::isFollowed(int offset) const
{
    const int end = offset + recordLength(offset);
    return end == m_buffer.size() || (end + StampLength < m_buffer.size() && fit(end) != Fit::No);
}

/// A record must be followed by another. The last one before a damaged place is not: it counts when it came
/// in step, or when its checksum is right, unless a whole record begins within what it claims as its own.
bool TelemetryLog::acceptHere() const
{
    if (fit(m_at) != Fit::Complete) {
        return false;
    }
    if (isFollowed(m_at)) {
        return true;
    }
    const int length = recordLength(m_at);
    if (mavlink::decode(m_buffer.mid(m_at + StampLength, length - StampLength))) {
        return true;
    }
    return m_inStep && !betterRecordWithin(length);
}

bool TelemetryLog::betterRecordWithin(int length) const
{
    const int end = qMin(m_at + length, m_buffer.size());
    for (int offset = m_at + 1; offset < end; ++offset) {
        if (fit(offset) == Fit::Complete && isFollowed(offset)) {
            return true;
        }
    }
    return false;
}

/// The end of the log, also when it breaks off within a record.
bool TelemetryLog::endsHere()
{
    const int rest = available();
    if (rest == 0) {
        return true;
    }
    if (!m_inStep || fit(m_at) != Fit::CutOff || betterRecordWithin(rest)) {
        return false;
    }
    m_truncated = rest;
    m_at += rest;
    m_consumed += rest;
    return true;
}

void TelemetryLog::skip()
{
    ++m_at;
    ++m_consumed;
    ++m_skipped;
    m_inStep = false;
}

void TelemetryLog::take(TelemetryFrame* frame)
{
    const int length = recordLength(m_at);
    frame->usec = static_cast<qint64>(qFromBigEndian<quint64>(m_buffer.constData() + m_at));
    frame->bytes = m_buffer.mid(m_at + StampLength, length - StampLength);
    m_at += length;
    m_consumed += length;
    m_inStep = true;
}
