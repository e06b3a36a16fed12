// SPDX-License-Identifier: MIT
#pragma once

#include "export/Flight.h"
#include "telemetry/FlightTrack.h"

#include <QtCore/QMetaType>

#include <array>

/// A flight as a screen shows it, however long it was: places of its track, and its values over time, of
/// which each stretch has kept its least and its greatest.
struct FlightProfile {
    enum Value { Height, Speed, Battery, Values };
    struct Span {
        qint64 msec = 0;
        double low = UnknownNumber;
        double high = UnknownNumber;
    };
    struct Place {
        qint64 msec = 0;
        double lng = UnknownNumber;
        double lat = UnknownNumber;
    };

    QVector<Place> track;
    std::array<QVector<Span>, Values> values; ///< metres above the start, metres a second, volts or per cent
    bool percent = false;                     ///< the battery told no volts
    qint64 end = flightTime::Unknown;         ///< of its recording, where the aircraft may have been silent

    bool isEmpty() const { return track.isEmpty() && values[Height].isEmpty() && values[Battery].isEmpty(); }
    /// The time of the first and of the last of all that is known, or of the recording's end.
    std::pair<qint64, qint64> period() const;
    /// Between which times nothing was heard, the last one until the recording ended.
    QVector<std::pair<qint64, qint64>> silences() const;

    /// Of a flight that goes on; times count from where its samples do.
    static FlightProfile of(const QVector<FlightSample>& samples);

    using Take = std::function<void(const FlightProfile&)>;
    /// Tells it twice where the flight is long: after a few looks here and there, and with every peak. The
    /// file is locked for a few milliseconds at a time.
    /// \param step  called every now and then; may throw to stop
    static void read(Flight& flight, const std::function<void()>& step, const Take& take);
};

Q_DECLARE_METATYPE(FlightProfile)
