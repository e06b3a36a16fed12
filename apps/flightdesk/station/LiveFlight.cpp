// SPDX-License-Identifier: MIT
#include "station/LiveFlight.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QMutexLocker>

#include <utility>

namespace
{
constexpr qint64 Overhead = 96; // of one frame in memory
}

qint64 FrameMemory::bytesOf(const TelemetryFrame& frame)
{
    return frame.bytes.size() + Overhead;
}

bool FrameMemory::reserve(qint64 bytes)
{
    if (m_bytes.fetch_add(bytes) + bytes <= MostBytes) {
        return true;
    }
    release(bytes);
    return false;
}

LiveFlight::LiveFlight(int system, QString name, qint64 clockOffset, FrameMemory& memory)
    : m_system(system), m_name(std::move(name)), m_clockOffset(clockOffset), m_memory(memory)
{
}

LiveFlight::~LiveFlight()
{
    release(&m_frames, m_frames.size());
}

void LiveFlight::append(TelemetryFrame frame)
{
    if (!m_memory.reserve(FrameMemory::bytesOf(frame))) {
        ++m_lost;
        return;
    }
    frame.usec += m_clockOffset;
    const QMutexLocker lock(&m_mutex);
    m_frames.append(std::move(frame));
}

void LiveFlight::close(const QString& reason)
{
    const QMutexLocker lock(&m_mutex);
    m_isClosed = true;
    m_endReason = reason;
    m_changed.wakeAll();
}

/// Frames do not wake the writer one by one: it comes for all of them when it is time.
bool LiveFlight::take(QVector<TelemetryFrame>* frames, int milliseconds)
{
    const QDeadlineTimer deadline(milliseconds);
    const QMutexLocker lock(&m_mutex);
    while (!m_isClosed && m_changed.wait(&m_mutex, deadline)) {
    }
    *frames = std::exchange(m_frames, {});
    return !m_isClosed || !frames->isEmpty();
}

void LiveFlight::noteStored(QVector<TelemetryFrame>* frames, int stored)
{
    release(frames, stored);
    m_records += stored;
}

void LiveFlight::giveUp(QVector<TelemetryFrame>* frames)
{
    m_lost += frames->size();
    release(frames, frames->size());
}

void LiveFlight::release(QVector<TelemetryFrame>* frames, int count)
{
    const auto end = frames->cbegin() + count;
    for (auto frame = frames->cbegin(); frame != end; ++frame) {
        m_memory.release(FrameMemory::bytesOf(*frame));
    }
    frames->remove(0, count);
}

void LiveFlight::setMission(const QString& mission)
{
    const QMutexLocker lock(&m_mutex);
    m_mission = mission;
}

QString LiveFlight::mission() const
{
    const QMutexLocker lock(&m_mutex);
    return m_mission;
}

QString LiveFlight::endReason() const
{
    const QMutexLocker lock(&m_mutex);
    return m_endReason;
}
