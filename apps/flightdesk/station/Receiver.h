// SPDX-License-Identifier: MIT
#pragma once

#include "link/Link.h"
#include "station/StationState.h"
#include "telemetry/FlightSplitter.h"
#include "telemetry/FrameReader.h"
#include "telemetry/LinkQuality.h"
#include "telemetry/VehicleTracker.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QMap>
#include <QtCore/QObject>
#include <QtCore/QTimer>

#include <memory>
#include <vector>

class FlightWriters;
class LiveFlight;

/// What a station is asked to listen to.
struct StationOptions {
    QVector<LinkSettings> links;
    bool heartbeat = false; ///< tell the vehicles each second that a ground station is there
    int preRoll = 10;       ///< seconds
    bool samples = false;   ///< tell where the vehicles are, beside recording it
};

/// Reads the links, and deals out their frames to the flights in the air. It is meant for a thread of its
/// own, which never waits for a disk; frames are stamped there as they come.
class Receiver : public QObject, private FlightSplitter::Sink
{
    Q_OBJECT

public:
    Receiver(const StationOptions& options, FlightWriters& writers);
    ~Receiver() override;

    void start();
    /// Ends the flights in the air.
    void finish();

Q_SIGNALS:
    void linkUp(const QString& link);
    void linkLost(const QString& link, const QString& why);
    void linkWaits(const QString& link, const QString& why);
    /// Once a second.
    void looked(const StationState& state);
    /// At most ten times a second.
    void sampled(const QVector<VehicleSamples>& vehicles);

private:
    struct Channel {
        std::unique_ptr<Link> link;
        FrameReader reader;
        LinkQuality quality;
    };
    struct Vehicle {
        VehicleTracker tracker;
        QString mode;
        bool armed = false;
        FlightSample sample; ///< the latest
        QVector<FlightSample> samples;
    };
    using Key = std::pair<int, quint8>; ///< link and system

    void began(int flight, const FlightStart& start) override;
    void frame(int flight, const TelemetryFrame& frame) override;
    void ended(int flight, const QString& reason) override;

    void addLink(const LinkSettings& settings);
    void read(int link, const QByteArray& bytes);
    void endPiece(int link);
    void takeFrames(int link);
    void note(const Key& vehicle, const TelemetryFrame& frame);
    void sendHeartbeat();
    void look();
    void tellSamples();
    VehicleState stateOf(const Key& key, const Vehicle& vehicle) const;
    qint64 now() const { return m_clock.nsecsElapsed() / 1000; }

    const StationOptions m_options;
    FlightWriters& m_writers;
    FlightSplitter m_splitter;
    std::vector<Channel> m_channels;
    QMap<Key, Vehicle> m_vehicles;
    QMap<int, std::shared_ptr<LiveFlight>> m_flights;
    QElapsedTimer m_clock; ///< never leaps
    QTimer m_second{this};
    QTimer m_tenth{this};
    quint8 m_sequence = 0;
};
