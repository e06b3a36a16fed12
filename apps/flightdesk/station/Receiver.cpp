// SPDX-License-Identifier: MIT
#include "station/Receiver.h"

#include "station/FlightWriters.h"
#include "telemetry/MavlinkMessages.h"
#include "words/Latin1.h"

#include <QtCore/QDateTime>

#include <utility>

namespace
{
SplitRule ruleOf(const StationOptions& options)
{
    SplitRule rule;
    rule.preRoll = options.preRoll * 1000000LL;
    return rule;
}
} // namespace

Receiver::Receiver(const StationOptions& options, FlightWriters& writers)
    : m_options(options), m_writers(writers), m_splitter(*this, ruleOf(options))
{
    qRegisterMetaType<StationState>();
    qRegisterMetaType<QVector<VehicleSamples>>();
    connect(&m_second, &QTimer::timeout, this, &Receiver::look);
    connect(&m_tenth, &QTimer::timeout, this, &Receiver::tellSamples);
}

Receiver::~Receiver() = default;

void Receiver::start()
{
    m_clock.start();
    m_second.start(1000);
    if (m_options.samples) {
        m_tenth.start(100);
    }
    for (const LinkSettings& settings : m_options.links) {
        addLink(settings);
    }
    for (const Channel& channel : m_channels) {
        channel.link->open();
    }
}

void Receiver::addLink(const LinkSettings& settings)
{
    const int number = static_cast<int>(m_channels.size());
    m_channels.push_back({Link::make(settings), {}, {}});
    Link* const link = m_channels.back().link.get();
    connect(link, &Link::received, this, [this, number](const QByteArray& bytes) { read(number, bytes); });
    connect(link, &Link::up, this, [this, link] { Q_EMIT linkUp(link->text()); });
    connect(link, &Link::lost, this, [this, number, link](const QString& why) {
        endPiece(number);
        Q_EMIT linkLost(link->text(), why);
    });
    connect(link, &Link::waits, this,
            [this, link](const QString& why) { Q_EMIT linkWaits(link->text(), why); });
}

void Receiver::read(int link, const QByteArray& bytes)
{
    Channel& channel = m_channels[static_cast<std::size_t>(link)];
    channel.reader.feed(bytes);
    if (m_options.links.at(link).kind == LinkSettings::Kind::Udp) {
        channel.reader.endOfDatagram();
    }
    takeFrames(link);
}

/// What a link brings next does not go on where it ended.
void Receiver::endPiece(int link)
{
    m_channels[static_cast<std::size_t>(link)].reader.endOfDatagram();
    takeFrames(link);
}

void Receiver::takeFrames(int link)
{
    Channel& channel = m_channels[static_cast<std::size_t>(link)];
    TelemetryFrame frame;
    frame.usec = now();
    while (channel.reader.next(&frame.bytes)) {
        channel.quality.take(frame.bytes);
        m_splitter.take(frame, link);
        const mavlink::Header header = mavlink::headerOf(frame.bytes);
        const bool isSample =
            header.id == mavlink::SysStatus::Id || header.id == mavlink::GlobalPositionInt::Id;
        if ((header.id == mavlink::Heartbeat::Id || (isSample && m_options.samples)) &&
            m_splitter.isVehicle(header.system, link)) {
            note({link, header.system}, frame);
        }
    }
}

void Receiver::note(const Key& key, const TelemetryFrame& frame)
{
    Vehicle& vehicle = m_vehicles[key];
    const VehicleTracker::Records records = vehicle.tracker.take(frame);
    if (records.status) {
        vehicle.mode = records.status->value("flight_mode"_l1).toString();
        vehicle.armed = records.status->value("armed"_l1).toString() == "1"_l1;
    }
    if (vehicle.sample.note(records)) {
        vehicle.sample.seconds = double(frame.usec) / 1e6;
        vehicle.samples.append(vehicle.sample);
    }
}

/// The offset to UTC is the flight's from its beginning to its end: the system's clock may be set meanwhile.
void Receiver::began(int flight, const FlightStart& start)
{
    const QDateTime utc = QDateTime::currentDateTimeUtc();
    const QString name = QStringLiteral("vehicle-%1-%2")
                             .arg(start.system)
                             .arg(utc.toString(QStringLiteral("yyyyMMdd-hhmmss")));
    const auto live = std::make_shared<LiveFlight>(start.system, name, utc.toMSecsSinceEpoch() * 1000 - now(),
                                                   m_writers.memory());
    m_flights.insert(flight, live);
    for (const TelemetryFrame& before : start.preRoll) {
        live->append(before);
    }
    m_writers.take(live);
}

void Receiver::frame(int flight, const TelemetryFrame& frame)
{
    m_flights.value(flight)->append(frame);
}

void Receiver::ended(int flight, const QString& reason)
{
    m_flights.take(flight)->close(reason);
}

void Receiver::finish()
{
    for (int link = 0; link < m_options.links.size(); ++link) {
        endPiece(link);
    }
    m_splitter.endAll(QStringLiteral("station ended"));
    m_channels.clear();
    m_second.stop();
    m_tenth.stop();
}

void Receiver::look()
{
    m_splitter.pass(now());
    if (m_options.heartbeat) {
        sendHeartbeat();
    }
    StationState state;
    for (const Channel& channel : m_channels) {
        const FrameReader::Counts& counts = channel.reader.counts();
        state.links.append({channel.link->text(), channel.link->isUp(), qint64(counts.frames),
                            qint64(counts.bytes), qint64(channel.quality.lost()), qint64(counts.badChecksums),
                            qint64(counts.noiseBytes)});
    }
    for (auto vehicle = m_vehicles.cbegin(); vehicle != m_vehicles.cend(); ++vehicle) {
        state.vehicles.append(stateOf(vehicle.key(), *vehicle));
    }
    state.memoryBytes = m_writers.memory().bytes();
    Q_EMIT looked(state);
}

void Receiver::tellSamples()
{
    QVector<VehicleSamples> told;
    for (auto vehicle = m_vehicles.begin(); vehicle != m_vehicles.end(); ++vehicle) {
        if (!vehicle->samples.isEmpty()) {
            told.append({vehicle.key().first, vehicle.key().second, std::exchange(vehicle->samples, {})});
        }
    }
    if (!told.isEmpty()) {
        Q_EMIT sampled(told);
    }
}

VehicleState Receiver::stateOf(const Key& key, const Vehicle& vehicle) const
{
    const auto sender = m_channels[static_cast<std::size_t>(key.first)].quality.sender(key.second);
    VehicleState state;
    state.link = key.first;
    state.system = key.second;
    state.frames = qint64(sender.frames);
    state.missed = qint64(sender.lost);
    state.mode = vehicle.mode;
    state.armed = vehicle.armed;
    if (const auto flight = m_flights.value(m_splitter.flightOf(key.second, key.first))) {
        state.mission = flight->mission();
        state.records = flight->records();
        state.lost = flight->lost();
    }
    return state;
}

void Receiver::sendHeartbeat()
{
    constexpr quint8 GroundStation = 255;
    constexpr quint8 MissionPlanner = 190;
    constexpr quint8 TypeGroundStation = 6;
    constexpr quint8 NoAutopilot = 8;
    constexpr quint8 Active = 4;
    const mavlink::Heartbeat heartbeat{0, TypeGroundStation, NoAutopilot, 0, Active};
    const QByteArray bytes = mavlink::encode(
        {mavlink::Heartbeat::Id, GroundStation, MissionPlanner, mavlink::payload(heartbeat)}, m_sequence++);
    for (const Channel& channel : m_channels) {
        channel.link->send(bytes);
    }
}
