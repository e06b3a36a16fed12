// SPDX-License-Identifier: MIT
#include "telemetry/PacedSource.h"

#include "words/Failure.h"

#include <QtCore/QThread>

namespace
{
constexpr unsigned long LongestSleep = 50; // milliseconds
constexpr qint64 LongestGap = 5000000;     // microseconds; nobody wants to watch a link that is lost
} // namespace

PacedSource::PacedSource(FrameSource& source, double speed, const std::atomic_bool& cancelled)
    : m_source(source), m_speed(speed), m_cancelled(cancelled)
{
    m_clock.start();
}

bool PacedSource::next(TelemetryFrame* frame)
{
    if (m_cancelled) {
        throw Failure(Trouble::Stopped);
    }
    if (!m_source.next(frame)) {
        return false;
    }
    waitFor(frame->usec);
    return true;
}

void PacedSource::waitFor(qint64 usec)
{
    const qint64 gap = m_lastUsec == 0 ? 0 : usec - m_lastUsec;
    m_lastUsec = usec;
    m_flownUsec += qBound(qint64(0), gap, LongestGap);
    if (m_speed <= 0) {
        return;
    }
    const auto due = qint64(double(m_flownUsec) / 1000 / m_speed);
    for (qint64 left = due - m_clock.elapsed(); left > 0 && !m_cancelled; left = due - m_clock.elapsed()) {
        QThread::msleep(qMin(LongestSleep, static_cast<unsigned long>(left)));
    }
}
