// SPDX-License-Identifier: MIT
#pragma once

#include "telemetry/FrameSource.h"

#include <QtCore/QElapsedTimer>

#include <atomic>

/// Frames of another source at the pace at which they were flown, or a multiple of it. Waiting blocks the
/// thread.
class PacedSource : public FrameSource
{
public:
    /// \param speed  times the flight's own; 0 is as fast as possible
    /// \param cancelled  has next() throw Trouble::Stopped, from any thread
    PacedSource(FrameSource& source, double speed, const std::atomic_bool& cancelled);

    bool next(TelemetryFrame* frame) override;
    qint64 position() const override { return m_source.position(); }
    qint64 size() const override { return m_source.size(); }
    /// How long the aircraft had flown at the latest frame, leaps of its clock left out.
    double flownSeconds() const { return double(m_flownUsec) / 1e6; }

private:
    void waitFor(qint64 usec);

    FrameSource& m_source;
    const double m_speed;
    const std::atomic_bool& m_cancelled;
    QElapsedTimer m_clock;
    qint64 m_lastUsec = 0;
    qint64 m_flownUsec = 0;
};
