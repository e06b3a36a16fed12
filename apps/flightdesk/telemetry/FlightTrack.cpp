// SPDX-License-Identifier: MIT
#include "telemetry/FlightTrack.h"

#include <QtCore/QtMath>

#include <cmath>

namespace
{
double number(const QJsonValue& value)
{
    return value.isString() ? value.toString().toDouble() : value.toDouble(FlightSample::Unknown);
}
} // namespace

bool FlightSample::note(const VehicleTracker::Records& records)
{
    if (records.status) {
        volts = number(records.status->value(QLatin1String("battery_voltage")));
    }
    if (records.position) {
        lng = number(records.position->value(QLatin1String("lng")));
        lat = number(records.position->value(QLatin1String("lat")));
        height = number(records.position->value(QLatin1String("relative_alt")));
        speed = number(records.position->value(QLatin1String("speed")));
    }
    return records.position.has_value();
}

void FlightTrack::add(const QVector<FlightSample>& samples)
{
    for (const FlightSample& sample : samples) {
        m_start = m_samples.isEmpty() && m_skipped == 0 ? sample.seconds : m_start;
        if (std::isnan(m_home.lng) && !std::isnan(sample.lng)) {
            m_home = sample;
        }
        if (++m_skipped < m_stride) {
            continue;
        }
        m_skipped = 0;
        m_samples.append(sample);
        if (m_samples.size() >= MostSamples) {
            for (int i = 0; i < MostSamples / 2; ++i) {
                m_samples[i] = m_samples[2 * i + 1];
            }
            m_samples.resize(MostSamples / 2);
            m_stride *= 2;
        }
    }
}

QVector<QPointF> FlightTrack::path() const
{
    QVector<QPointF> points;
    for (const FlightSample& sample : m_samples) {
        if (!std::isnan(sample.lng)) {
            points.append(place(sample.lng, sample.lat));
        }
    }
    return points;
}

QPointF FlightTrack::place(double lng, double lat) const
{
    constexpr double MetresPerDegree = 111319.5;
    return {(lng - m_home.lng) * MetresPerDegree * std::cos(qDegreesToRadians(m_home.lat)),
            (lat - m_home.lat) * MetresPerDegree};
}

QVector<QPointF> FlightTrack::over(double FlightSample::*value) const
{
    QVector<QPointF> points;
    for (const FlightSample& sample : m_samples) {
        if (!std::isnan(sample.*value)) {
            points.append({(sample.seconds - m_start) / 60, sample.*value});
        }
    }
    return points;
}
