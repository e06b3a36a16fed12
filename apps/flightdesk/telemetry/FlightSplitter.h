// SPDX-License-Identifier: MIT
#pragma once

#include "telemetry/Autopilot.h"
#include "telemetry/FrameSource.h"

#include <QtCore/QMap>
#include <QtCore/QQueue>
#include <QtCore/QSet>
#include <QtCore/QString>
#include <QtCore/QVector>

#include <optional>
#include <utility>

/// How frames become flights. Times in microseconds.
struct SplitRule {
    qint64 preRoll = 10000000;  ///< of a flight, before its vehicle arms
    qint64 landing = 5000000;   ///< of a flight, after its vehicle disarms; armed again within it flies on
    qint64 silence = 600000000; ///< after which a flight ends whose vehicle is not heard any more; 0: never
    /// Frames before a vehicle's first flight go to that one, those between two of them to the earlier one.
    bool everyFrame = false;
    bool perArming = true; ///< otherwise a vehicle has one flight; with everyFrame only
    /// With everyFrame: all vehicles there are, in the order of their first heartbeats.
    QVector<quint8> vehicles;

    /// All frames of a log, in flights or as one flight for each vehicle.
    static SplitRule ofLog(const QVector<quint8>& vehicles, bool perArming);
};

/// How a flight begins.
struct FlightStart {
    quint8 system = 0; ///< of the vehicle; 0 for that of a log without any
    int link = 0;
    QVector<TelemetryFrame> preRoll; ///< its frames from before it began, in the order in which they came
};

/// Cuts the frames of links into flights, one for each vehicle and arming.
///
/// A vehicle is a system on a link of which an autopilot's heartbeat was heard; the same system id on another
/// link is another one. All its components go with it. Frames of other systems (ground stations, radios) go
/// into every flight that is in the air on their link, frames of another vehicle never. A system of which no
/// heartbeat was heard yet may be either, so its frames wait for that, at most three seconds.
///
/// Times are those of the frames, and must not run backwards: a steady clock's.
class FlightSplitter
{
public:
    /// Who receives the flights. Must not call the splitter.
    class Sink
    {
    public:
        virtual ~Sink() = default;
        /// \param flight  a number for it, from 1; its frames in start come before those of frame()
        virtual void began(int flight, const FlightStart& start) = 0;
        virtual void frame(int flight, const TelemetryFrame& frame) = 0;
        /// \param reason  "disarmed", "link lost", or that of endAll()
        virtual void ended(int flight, const QString& reason) = 0;
    };

    explicit FlightSplitter(Sink& sink, SplitRule rule = {}) : m_sink(sink), m_rule(std::move(rule)) {}

    void take(const TelemetryFrame& frame, int link);
    /// Time goes on without a frame. To be called about once a second where links may fall silent.
    void pass(qint64 usec);
    void endAll(const QString& reason);

    /// Whether an autopilot's heartbeat was heard of the system on the link.
    bool isVehicle(quint8 system, int link) const { return m_vehicles.contains({link, system}); }
    /// The number of the vehicle's flight that is in the air; 0 for none.
    int flightOf(quint8 system, int link) const { return m_vehicles.value({link, system}).flight; }

    /// Bytes that the frames before a flight take at most, for each vehicle; the oldest go first.
    static constexpr int MostPreRoll = 8 * 1024 * 1024;

private:
    using Key = std::pair<int, quint8>; ///< link and system

    struct Vehicle {
        int flight = 0;        ///< 0: none
        bool inAir = false;    ///< armed, or disarmed a moment ago
        bool hasFlown = false; ///< has been in the air
        bool armed = false;    ///< as last heard
        Autopilot autopilot;
        qint64 heardUsec = 0; ///< latest heartbeat of that
        qint64 disarmedUsec = 0;
        QQueue<TelemetryFrame> waiting; ///< what may become the pre-roll of its next flight
        int waitingBytes = 0;
    };
    /// A system that may still turn out to be a vehicle.
    struct Stranger {
        qint64 sinceUsec = 0;
        QVector<TelemetryFrame> waiting;
    };

    void beginLog(const Key& key);
    void noteHeartbeat(const TelemetryFrame& frame, const Key& key);
    Vehicle* introduce(const Key& key);
    bool detain(const TelemetryFrame& frame, const Key& key);
    void release(const Key& key);
    void releaseSince(qint64 usec);
    void giveToAll(const TelemetryFrame& frame, int link);
    void give(const TelemetryFrame& frame, Vehicle* vehicle);
    void letGo(Vehicle* vehicle, qint64 beforeUsec);
    void takeOff(const Key& key, Vehicle* vehicle);
    void begin(const Key& key, Vehicle* vehicle);
    void land(Vehicle* vehicle, const QString& reason);
    void end(Vehicle* vehicle, const QString& reason);

    Sink& m_sink;
    const SplitRule m_rule;
    QMap<Key, Vehicle> m_vehicles;
    QMap<Key, Stranger> m_strangers;
    QSet<Key> m_others; ///< systems that are no vehicles, as far as is known
    qint64 m_nowUsec = 0;
    int m_last = 0; ///< number of the latest flight
};
