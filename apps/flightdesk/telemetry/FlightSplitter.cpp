// SPDX-License-Identifier: MIT
#include "telemetry/FlightSplitter.h"

#include <limits>

namespace
{
constexpr qint64 LongestDoubt = 3000000; // microseconds; heartbeats come once a second
constexpr int MostDetained = 5000;       // frames of one stranger
constexpr int FrameOverhead = 64;        // bytes that a frame in memory takes beside its own

qint64 always()
{
    return std::numeric_limits<qint64>::max();
}
} // namespace

SplitRule SplitRule::ofLog(const QVector<quint8>& vehicles, bool perArming)
{
    SplitRule rule;
    rule.silence = 0;
    rule.everyFrame = true;
    rule.perArming = perArming;
    rule.vehicles = vehicles;
    return rule;
}

void FlightSplitter::take(const TelemetryFrame& frame, int link)
{
    pass(frame.usec);
    const mavlink::Header header = mavlink::headerOf(frame.bytes);
    const Key key{link, header.system};
    if (m_rule.everyFrame) {
        beginLog(key);
    }
    if (header.id == mavlink::Heartbeat::Id) {
        noteHeartbeat(frame, key);
    }
    const auto vehicle = m_vehicles.find(key);
    if (vehicle != m_vehicles.end()) {
        give(frame, &*vehicle);
    } else if (!detain(frame, key)) {
        giveToAll(frame, link);
    }
}

void FlightSplitter::pass(qint64 usec)
{
    m_nowUsec = usec;
    releaseSince(usec - LongestDoubt);
    if (!m_rule.perArming) {
        return;
    }
    for (Vehicle& vehicle : m_vehicles) {
        if (!vehicle.inAir) {
            continue;
        }
        if (!vehicle.armed && usec - vehicle.disarmedUsec > m_rule.landing) {
            land(&vehicle, QStringLiteral("disarmed"));
        } else if (m_rule.silence > 0 && usec - vehicle.heardUsec > m_rule.silence) {
            land(&vehicle, QStringLiteral("link lost"));
        }
    }
}

void FlightSplitter::endAll(const QString& reason)
{
    releaseSince(always());
    for (Vehicle& vehicle : m_vehicles) {
        letGo(&vehicle, always());
        end(&vehicle, reason);
    }
    m_vehicles.clear();
    m_others.clear();
}

/// A log's first vehicle has the frames from before it was heard, too.
void FlightSplitter::beginLog(const Key& key)
{
    const quint8 system = m_vehicles.isEmpty() ? m_rule.vehicles.value(0, 0) : key.second;
    const Key first{key.first, system};
    if (m_vehicles.isEmpty() || (m_rule.vehicles.contains(system) && !m_vehicles.contains(first))) {
        begin(first, &m_vehicles[first]);
        beginLog(key);
    }
}

void FlightSplitter::noteHeartbeat(const TelemetryFrame& frame, const Key& key)
{
    const auto message = mavlink::decode(frame.bytes);
    if (!message) {
        return;
    }
    const auto heartbeat = Autopilot::heartbeat(*message);
    if (!heartbeat) {
        if (!m_vehicles.contains(key)) {
            release(key);
        }
        return;
    }
    Vehicle* vehicle = introduce(key);
    if (!vehicle || !vehicle->autopilot.speaks(*message)) {
        return;
    }
    vehicle->heardUsec = frame.usec;
    if (heartbeat->isArmed()) {
        vehicle->armed = true;
        takeOff(key, vehicle);
    } else if (vehicle->armed) {
        vehicle->armed = false;
        vehicle->disarmedUsec = frame.usec;
    }
}

/// Null where the vehicles are known beforehand and this is none.
FlightSplitter::Vehicle* FlightSplitter::introduce(const Key& key)
{
    const auto known = m_vehicles.find(key);
    if (known != m_vehicles.end() || m_rule.everyFrame) {
        return known != m_vehicles.end() ? &*known : nullptr;
    }
    Vehicle* vehicle = &m_vehicles[key];
    m_others.remove(key);
    for (const TelemetryFrame& frame : m_strangers.take(key).waiting) {
        give(frame, vehicle);
    }
    return vehicle;
}

/// Keeps a frame until it is known whose it is.
/// \return whether that is not known yet
bool FlightSplitter::detain(const TelemetryFrame& frame, const Key& key)
{
    if (m_rule.everyFrame || m_others.contains(key)) {
        return false;
    }
    Stranger& stranger = m_strangers[key];
    if (stranger.waiting.isEmpty()) {
        stranger.sinceUsec = frame.usec;
    }
    stranger.waiting.append(frame);
    if (stranger.waiting.size() >= MostDetained) {
        release(key);
    }
    return true;
}

/// The system is no vehicle, or does not say so. Its frames come behind others that were not detained: they
/// get the time of now, as no flight's stamps run backwards.
void FlightSplitter::release(const Key& key)
{
    m_others.insert(key);
    for (TelemetryFrame& frame : m_strangers.take(key).waiting) {
        frame.usec = m_nowUsec;
        giveToAll(frame, key.first);
    }
}

void FlightSplitter::releaseSince(qint64 usec)
{
    QVector<Key> due;
    for (auto stranger = m_strangers.cbegin(); stranger != m_strangers.cend(); ++stranger) {
        if (stranger->sinceUsec < usec) {
            due.append(stranger.key());
        }
    }
    for (const Key& key : qAsConst(due)) {
        release(key);
    }
}

void FlightSplitter::giveToAll(const TelemetryFrame& frame, int link)
{
    for (auto vehicle = m_vehicles.lowerBound({link, 0});
         vehicle != m_vehicles.end() && vehicle.key().first == link; ++vehicle) {
        give(frame, &*vehicle);
    }
}

void FlightSplitter::give(const TelemetryFrame& frame, Vehicle* vehicle)
{
    if (vehicle->inAir || (m_rule.everyFrame && !vehicle->hasFlown)) {
        m_sink.frame(vehicle->flight, frame);
        return;
    }
    vehicle->waiting.enqueue(frame);
    vehicle->waitingBytes += frame.bytes.size() + FrameOverhead;
    letGo(vehicle, frame.usec - m_rule.preRoll);
}

/// Frames that are too old, or too many, for the pre-roll of the next flight.
void FlightSplitter::letGo(Vehicle* vehicle, qint64 beforeUsec)
{
    while (!vehicle->waiting.isEmpty() &&
           (vehicle->waiting.head().usec < beforeUsec || vehicle->waitingBytes > MostPreRoll)) {
        const TelemetryFrame frame = vehicle->waiting.dequeue();
        vehicle->waitingBytes -= frame.bytes.size() + FrameOverhead;
        if (m_rule.everyFrame) {
            m_sink.frame(vehicle->flight, frame);
        }
    }
}

void FlightSplitter::takeOff(const Key& key, Vehicle* vehicle)
{
    if (vehicle->inAir) {
        return;
    }
    letGo(vehicle, vehicle->heardUsec - m_rule.preRoll);
    const bool goesOn = m_rule.everyFrame && !vehicle->hasFlown; // the flight that has all before
    if (!goesOn) {
        end(vehicle, QStringLiteral("disarmed"));
        begin(key, vehicle);
    }
    vehicle->inAir = true;
    vehicle->hasFlown = true;
}

void FlightSplitter::begin(const Key& key, Vehicle* vehicle)
{
    FlightStart start{key.second, key.first, {}};
    for (const TelemetryFrame& frame : qAsConst(vehicle->waiting)) {
        const quint8 system = mavlink::headerOf(frame.bytes).system;
        if (system == key.second || !isVehicle(system, key.first)) { // it was not known then
            start.preRoll.append(frame);
        }
    }
    vehicle->waiting.clear();
    vehicle->waitingBytes = 0;
    vehicle->flight = ++m_last;
    m_sink.began(vehicle->flight, start);
}

void FlightSplitter::land(Vehicle* vehicle, const QString& reason)
{
    vehicle->inAir = false;
    vehicle->armed = false;
    if (!m_rule.everyFrame) {
        end(vehicle, reason);
    }
}

void FlightSplitter::end(Vehicle* vehicle, const QString& reason)
{
    if (vehicle->flight != 0) {
        m_sink.ended(std::exchange(vehicle->flight, 0), reason);
    }
}
