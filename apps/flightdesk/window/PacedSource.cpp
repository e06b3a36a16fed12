// SPDX-License-Identifier: MIT
#include "PacedSource.h"

#include <QtCore/QThread>

#include <utility>

namespace
{
constexpr int ReportInterval = 100; // milliseconds
constexpr unsigned long LongestSleep = 50;
constexpr qint64 LongestGap = 5000000; // microseconds; nobody wants to watch a link that is lost

double number(const QJsonValue& value)
{
    return value.isString() ? value.toString().toDouble() : value.toDouble(FlightSample::Unknown);
}
} // namespace

PacedSource::PacedSource(FrameSource& source, double speed, const std::atomic_bool& cancelled, Report report)
    : m_source(source), m_speed(speed), m_cancelled(cancelled), m_report(std::move(report))
{
    m_clock.start();
    m_sinceReport.start();
}

bool PacedSource::next(TelemetryFrame* frame)
{
    if (m_cancelled || !m_source.next(frame)) {
        report();
        return false;
    }
    waitFor(frame->usec);
    observe(*frame);
    if (m_sinceReport.elapsed() >= ReportInterval) {
        report();
    }
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

void PacedSource::observe(const TelemetryFrame& frame)
{
    const VehicleTracker::Records records = m_tracker.take(frame);
    if (records.status) {
        m_sample.volts = number(records.status->value(QLatin1String("battery_voltage")));
    }
    if (records.position) {
        m_sample.seconds = double(m_flownUsec) / 1e6;
        m_sample.lng = number(records.position->value(QLatin1String("lng")));
        m_sample.lat = number(records.position->value(QLatin1String("lat")));
        m_sample.height = number(records.position->value(QLatin1String("relative_alt")));
        m_sample.speed = number(records.position->value(QLatin1String("speed")));
        m_samples.append(m_sample);
    }
}

void PacedSource::report()
{
    m_sinceReport.start();
    m_report(std::exchange(m_samples, {}));
}
