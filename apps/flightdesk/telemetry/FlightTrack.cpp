// SPDX-License-Identifier: MIT
#include "telemetry/FlightTrack.h"

#include <algorithm>

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

void FlightTrack::cutAt(double seconds)
{
    const auto later =
        std::find_if(m_samples.begin(), m_samples.end(),
                     [seconds](const FlightSample& sample) { return sample.seconds > seconds; });
    m_samples.erase(later, m_samples.end());
}
