// SPDX-License-Identifier: MIT
#pragma once

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
    int system = 0;
    QString mode;
    bool armed = false;
    QString mission; ///< id; empty while it is not in the air, or nothing could be written yet
    qint64 records = 0;
    qint64 lost = 0; ///< frames of its flight that came and found no room in memory
};

/// What a station hears and records.
struct StationState {
    QVector<LinkState> links;
    QVector<VehicleState> vehicles;
    qint64 memoryBytes = 0; ///< of frames that no file has yet
};

Q_DECLARE_METATYPE(StationState)
