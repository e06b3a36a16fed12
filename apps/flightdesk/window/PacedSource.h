// SPDX-License-Identifier: MIT
#pragma once

#include "FlightTrack.h"
#include "FrameSource.h"
#include "VehicleTracker.h"

#include <QtCore/QElapsedTimer>

#include <atomic>
#include <functional>

/// Frames of another source at the pace at which they were flown, or a multiple of it, with an eye on what
/// they tell. Waiting blocks the thread.
class PacedSource : public FrameSource
{
public:
    using Report = std::function<void(const QVector<FlightSample>& samples)>;

    /// \param speed  times the flight's own; 0 is as fast as possible
    /// \param cancelled  ends the source, from any thread
    PacedSource(FrameSource& source, double speed, const std::atomic_bool& cancelled, Report report);

    bool next(TelemetryFrame* frame) override;
    qint64 position() const override { return m_source.position(); }
    qint64 size() const override { return m_source.size(); }

private:
    void waitFor(qint64 usec);
    void observe(const TelemetryFrame& frame);
    void report();

    FrameSource& m_source;
    const double m_speed;
    const std::atomic_bool& m_cancelled;
    const Report m_report;
    VehicleTracker m_tracker;
    QElapsedTimer m_clock;
    QElapsedTimer m_sinceReport;
    qint64 m_lastUsec = 0;
    qint64 m_flownUsec = 0; ///< leaps of the aircraft's clock left out
    FlightSample m_sample;
    QVector<FlightSample> m_samples;
};
