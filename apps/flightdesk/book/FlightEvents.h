// SPDX-License-Identifier: MIT
#pragma once

#include "export/Flight.h"

#include <QtCore/QMetaType>

/// Something that happened in a flight.
struct FlightEvent {
    qint64 msec = flightTime::Unknown;
    QString text;
    bool trouble = false; ///< a warning of the vehicle, or a time in which nothing came

    /// Modes, arming, texts of the vehicle and gaps of the link, in the order of their times; no more than a
    /// pilot can read.
    /// \param step  called at every record; may throw to stop
    static QVector<FlightEvent> of(Flight& flight, const std::function<void()>& step);
};

Q_DECLARE_METATYPE(QVector<FlightEvent>)
