// SPDX-License-Identifier: MIT
#pragma once

#include "telemetry/VehicleTracker.h"

#include <QtCore/QMetaType>
#include <QtCore/QVector>

#include <limits>

/// Where the aircraft was and how it did, once for each position that it told.
struct FlightSample {
    static constexpr double Unknown = std::numeric_limits<double>::quiet_NaN();

    double seconds = 0; ///< since the first frame, or since a station began
    double lng = Unknown;
    double lat = Unknown;
    double height = Unknown; ///< metres above the start
    double speed = Unknown;  ///< metres a second over ground
    double volts = Unknown;  ///< of the battery

    /// Takes over what the vehicle has told; the rest stays as it was.
    /// \return whether its position is among it
    bool note(const VehicleTracker::Records& records);
};

/// A flight's samples, however long it is: when there are too many to draw, every other one goes.
class FlightTrack
{
public:
    static constexpr int MostSamples = 1200;

    void add(const QVector<FlightSample>& samples);
    /// Forgets what is later: it was flown, and is not stored.
    void cutAt(double seconds);
    const QVector<FlightSample>& samples() const { return m_samples; }

private:
    QVector<FlightSample> m_samples;
    int m_stride = 1; ///< one of so many samples is kept
    int m_skipped = 0;
};

Q_DECLARE_METATYPE(QVector<FlightSample>)
