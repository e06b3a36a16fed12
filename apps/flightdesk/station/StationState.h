// SPDX-License-Identifier: MIT
#pragma once

#include "telemetry/FlightTrack.h"

#include <QtCore/QMetaType>
#include <QtCore/QString>
#include <QtCore/QVector>

/// A link as it was when somebody looked.
struct LinkState {
    QString text;
    bool up = false;
    qint64 frames = 0;
    qint64 bytes = 0;
    qint64 lost = 0; ///< frames that sequence numbers say were sent and did not come
    qint64 badChecksums = 0;
    qint64 noiseBytes = 0;
};

/// A vehicle that has been heard.
struct VehicleState {
    int link = 0; ///< which of the station's
    int system = 0;
    qint64 frames = 0; ///< of the vehicle that came
    qint64 missed = 0; ///< that sequence numbers say were sent and did not come
    QString mode;
    bool armed = false;
    QString mission; ///< id; empty while it is not in the air, or nothing could be written yet
    qint64 records = 0;
    qint64 lost = 0; ///< frames of its flight that came and found no room in memory
};

/// Where a vehicle was and how it did, since it was told before; times are those of the station.
struct VehicleSamples {
    int link = 0;
    int system = 0;
    QVector<FlightSample> samples;
};

/// What a station hears and records.
struct StationState {
    QVector<LinkState> links;
    QVector<VehicleState> vehicles;
    qint64 memoryBytes = 0; ///< of frames that no file has yet
};

Q_DECLARE_METATYPE(StationState)
Q_DECLARE_METATYPE(QVector<VehicleSamples>)
