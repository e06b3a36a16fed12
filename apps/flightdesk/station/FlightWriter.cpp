// SPDX-License-Identifier: MIT
#include "station/FlightWriter.h"

#include "station/OpenMark.h"
#include "words/Failure.h"

#include <KvAlgorthm.h>

#include <QtCore/QFileInfo>
#include <QtCore/QVariant>

#include <utility>

namespace
{
constexpr int WriteInterval = 700;    // milliseconds; with the time it takes less than a second
constexpr int RemindInterval = 60000; // milliseconds

/// Messages in a file, which only grows; nothing when it cannot be read now.
std::optional<qint64> messagesIn(const QString& path)
{
    qint64 messages = 0;
    MissionFile file(path);
    file.read(QStringLiteral("SELECT max(rowid) FROM %1").arg(FlightLogTableName),
              [&messages](const QSqlQuery& row) { messages = row.value(0).toLongLong(); });
    return file.isReadable() ? std::optional(messages) : std::nullopt;
}
} // namespace

FlightWriter::FlightWriter(FlightWriters& station, FlightRecorder& recorder, LiveFlight& flight)
    : m_station(station), m_recorder(recorder), m_flight(flight)
{
}

void FlightWriter::run()
{
    QVector<TelemetryFrame> frames;
    while (m_flight.take(&frames, WriteInterval)) {
        m_frames += frames;
        write();
    }
    // Only in trouble is anything left.
    while (!m_frames.isEmpty() && m_station.pause(WriteInterval)) {
        write();
    }
    end();
}

void FlightWriter::write()
{
    try {
        if (m_file.isEmpty() && !m_frames.isEmpty()) {
            begin();
        }
        if (!m_file.isEmpty()) {
            handOver();
            m_recorder.flush();
            confirm();
        }
    } catch (const Failure& failure) {
        abandon();
        noteTrouble(failure.words());
    }
}

void FlightWriter::begin()
{
    const QString trouble = diskTrouble();
    if (!trouble.isEmpty()) {
        throw Failure(trouble);
    }
    ++m_part;
    const QString name =
        m_part == 1 ? m_flight.name() : QStringLiteral("%1 part %2").arg(m_flight.name()).arg(m_part);
    VehicleTracker preRoll;
    for (const TelemetryFrame& frame : qAsConst(m_frames)) {
        preRoll.take(frame);
    }
    m_recorder.begin(m_frames.constFirst().usec, name, QStringLiteral("system %1").arg(m_flight.system()), {},
                     preRoll.clockOffset());
    m_file = m_recorder.flight().file;
    m_flight.setMission(m_recorder.flight().missionId);
    Q_EMIT m_station.began(m_file);
}

/// What the file did not take the operator keeps: there is no use in giving it more before it has written
/// that.
void FlightWriter::handOver()
{
    if (m_inTrouble && m_handedOver > 0) {
        m_recorder.retry();
        return;
    }
    const int end = m_inTrouble ? qMin(1, m_frames.size()) : m_frames.size();
    for (; m_handedOver < end; ++m_handedOver) {
        m_recorder.take(m_frames.at(m_handedOver));
    }
}

/// No writer reports an error, so the rows are counted.
void FlightWriter::confirm()
{
    const auto messages = messagesIn(m_file);
    if (!messages) {
        if (QFileInfo(m_file).size() == 0) {
            throw Failure(QStringLiteral("%1 is gone").arg(m_file));
        }
        return; // locked for a moment: what was handed over is counted next time
    }
    const int stored = static_cast<int>(*messages - m_stored);
    m_stored = *messages;
    m_handedOver -= stored;
    m_flight.noteStored(&m_frames, stored);
    if (m_handedOver > 0) {
        const QString trouble = diskTrouble();
        noteTrouble(trouble.isEmpty() ? QStringLiteral("%1 takes no rows").arg(m_file) : trouble);
    } else if (m_inTrouble) {
        noteWell();
    }
}

/// Begins anew with another mission, as soon as there can be one.
void FlightWriter::abandon()
{
    if (!m_file.isEmpty()) {
        m_abandoned.append(std::exchange(m_file, {}));
    }
    m_handedOver = 0;
    m_stored = 0;
}

void FlightWriter::end()
{
    if (!m_file.isEmpty()) {
        const RecordedFlight mission = m_recorder.end(0, m_flight.endReason());
        if (mission.error.isEmpty()) {
            OpenMark::clear(m_file);
            m_flight.noteStored(&m_frames, m_handedOver);
        }
        Q_EMIT m_station.ended(mission);
    }
    m_station.endLeft(m_recorder, m_abandoned);
    if (!m_frames.isEmpty()) {
        say(QStringLiteral("%1 frames were never written").arg(m_frames.size()));
        m_flight.giveUp(&m_frames);
    }
}

void FlightWriter::noteTrouble(const QString& words)
{
    if (!std::exchange(m_inTrouble, true) || m_sinceSaid.hasExpired(RemindInterval)) {
        m_sinceSaid.start();
        say(QStringLiteral("NOTHING IS WRITTEN: %1; frames wait in memory, %2 of %3 MiB, and %4 were lost")
                .arg(words)
                .arg(m_station.memory().bytes() >> 20)
                .arg(FrameMemory::MostBytes >> 20)
                .arg(m_flight.lost()));
    }
}

void FlightWriter::noteWell()
{
    m_inTrouble = false;
    say(QStringLiteral("recording goes on; %1 frames were lost").arg(m_flight.lost()));
}

QString FlightWriter::diskTrouble() const
{
    const auto trouble = m_station.project().diskTrouble();
    return !trouble ? QString()
           : *trouble == Trouble::DiskReadOnly
               ? QStringLiteral("the disk of %1 is read-only").arg(m_station.project().path())
               : QStringLiteral("the disk of %1 is full").arg(m_station.project().path());
}

void FlightWriter::say(const QString& words) const
{
    Q_EMIT m_station.said(QStringLiteral("vehicle %1: %2").arg(m_flight.system()).arg(words));
}
