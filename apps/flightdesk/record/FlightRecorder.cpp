// SPDX-License-Identifier: MIT
#include "record/FlightRecorder.h"

#include "words/Failure.h"
#include "words/Latin1.h"

#include <KvAlgorthm.h>
#include <KvProjectDbOperator/CKvFlightDataDbOperator.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QJsonDocument>
#include <QtCore/QVariant>

#include <utility>

/// Makes the table descriptions readable, which lie in a static library. Outside any namespace, as the macro
/// asks.
static void initTableDescriptions()
{
    Q_INIT_RESOURCE(flightdesk);
}

namespace
{
constexpr qint64 Second = 1000000; // microseconds
constexpr int PositionBatch = 200;
constexpr int StatusBatch = 100;
constexpr int FramesBetweenEvents = 500;
constexpr int LongestWait = 1000; // milliseconds; a flight recorded as it is flown fills a batch in a minute
constexpr unsigned int TextRecords = 1; // operator type: comes back with WriteDBFinished, nothing else

const QString PositionColumns = QStringLiteral(":/pos_data.txt");
const QString StatusColumns = QStringLiteral(":/uas_status.txt");
const QString CompleteColumns = QStringLiteral(":/flight_complete.txt");

/// The operator reads a mission's document and puts it into a statement as it then stands: a quote would end
/// the text there, also one that came as an escape, and "%5" would be replaced.
QString harmless(QString text)
{
    return text.replace(QLatin1Char('\''), QChar(0x2019)).replace(QLatin1Char('%'), QChar(0xFF05));
}

QString newId()
{
    return UidToString(QUuid::createUuid());
}
} // namespace

FlightRecorder::FlightRecorder(const Project& project, const MissionFormat& format)
    : m_project(project), m_format(format), m_projectId(project.id())
{
    static const bool Once = (initTableDescriptions(), true);
    Q_UNUSED(Once)
    makeOperator();
}

FlightRecorder::~FlightRecorder() = default;

void FlightRecorder::makeOperator()
{
    m_operator = std::make_unique<CKvFlightDataDbOperator>(nullptr, EUploadEnv::None);
    m_link.connectTo(m_operator.get());
    connect(m_operator.get(), SIGNAL(WriteDBFinished(QString, uint, QString)), this, SLOT(noteWritten()));
    connect(m_operator.get(), SIGNAL(RecBreakPointRet(bool)), this, SLOT(noteBreakpoint(bool)));
}

/// An operator that could not open its file keeps its lock; even its destructor would wait for that lock.
void FlightRecorder::abandonOperator()
{
    m_operator->disconnect(this);
    m_link.disconnect(m_operator.get());
    m_operator.release(); // NOLINT(bugprone-unused-return-value): left behind on purpose
    makeOperator();
    pointOperator();
}

/// Where the flight's messages and positions go.
void FlightRecorder::pointOperator()
{
    Q_EMIT m_link.missionFile(m_flight.file);
    Q_EMIT m_link.missionId(m_flight.missionId);
}

RecordedFlight FlightRecorder::record(FrameSource& source, const QString& name, const QString& aircraft,
                                      const LogOrigin& origin)
{
    m_flight = RecordedFlight();
    m_flight.name = name;
    try {
        recordFrames(source, name, aircraft, origin);
    } catch (const Failure& failure) {
        return breakOff(failure);
    }
    return end(m_lastUsec);
}

void FlightRecorder::recordFrames(FrameSource& source, const QString& name, const QString& aircraft,
                                  const LogOrigin& origin)
{
    TelemetryFrame frame;
    while (source.next(&frame)) {
        if (m_flight.messages == 0) {
            begin(frame.usec, name, aircraft, origin);
        }
        take(frame);
        check();
        if (m_flight.messages % FramesBetweenEvents == 0) {
            Q_EMIT progress(source.position(), source.size());
            QCoreApplication::processEvents();
        }
    }
    if (m_flight.messages == 0) {
        throw Failure(Trouble::NoLog, {name});
    }
    Q_EMIT progress(source.size(), source.size());
}

void FlightRecorder::begin(qint64 startUsec, const QString& name, const QString& aircraft,
                           const LogOrigin& origin, std::optional<double> clockOffset)
{
    m_flight = RecordedFlight();
    m_flight.name = name;
    m_flight.clockOffset = clockOffset;
    m_tracker = VehicleTracker();
    m_startUsec = startUsec;
    m_lastUsec = startUsec;
    m_flight.wholeSeconds = qMax(qint64(0), (origin.endUsec - startUsec) / Second);
    m_flushed = 0;
    m_stored = 0;
    m_vainLooks = 0;
    m_positions = QJsonArray();
    m_statuses = QJsonArray();
    m_sinceWritten.start();
    if (const auto trouble = m_project.diskTrouble()) {
        throw Failure(*trouble, {name});
    }
    if (!m_project.readOnlyWords().isEmpty()) {
        throw Failure(Trouble::ReadOnlyProject, {m_project.path()});
    }
    if (m_projectId.isEmpty()) {
        throw Failure(QStringLiteral("cannot write %1/project.ini").arg(m_project.path()));
    }
    m_flight.missionId = newId();
    m_flight.file = m_project.createMissionFile(m_format, m_flight.missionId, startUsec);
    Q_EMIT fileMade(m_flight.file);
    // Flights of one name in one project fly the same plan.
    m_planId = UidToString(QUuid::createUuidV5(QUuid(m_projectId), m_flight.name));
    pointOperator();
    writeMission(VehicleTracker::timeText(startUsec), aircraft, origin);
}

void FlightRecorder::writeMission(const QString& startedAt, const QString& aircraft, const LogOrigin& origin)
{
    QJsonObject data{{"name"_l1, harmless(m_flight.name)},
                     {"aircraft"_l1, harmless(aircraft)},
                     {"started_at"_l1, startedAt},
                     {"plan_id"_l1, m_planId}};
    if (!origin.id.isEmpty()) {
        data.insert(missionKeys::Log, harmless(origin.log));
        data.insert(missionKeys::LogId, origin.id);
        data.insert(missionKeys::WholeSeconds, m_flight.wholeSeconds);
    }
    for (const auto& [key, bytes] : {std::pair(missionKeys::SkippedBytes, origin.skippedBytes),
                                     {missionKeys::TruncatedBytes, origin.truncatedBytes}}) {
        if (bytes > 0) {
            data.insert(key, bytes);
        }
    }
    QJsonObject row{
        {"id"_l1, m_flight.missionId},
        {"project_id"_l1, m_projectId},
        {"mission_id"_l1, m_planId},
        {"name"_l1, m_flight.name},
        {"aircraft"_l1, aircraft},
        {"started_at"_l1, startedAt},
        {"flight_mission_data"_l1, QString::fromUtf8(QJsonDocument(data).toJson(QJsonDocument::Compact))},
    };
    if (!origin.log.isEmpty() && m_format.easyFly) {
        row.insert("video_file"_l1, origin.log);
    }
    if (m_flight.clockOffset) {
        row.insert("clock_offset"_l1, QString::number(*m_flight.clockOffset, 'f', 3));
    }
    writeText({row}, QStringLiteral(":/%1.txt").arg(m_format.missionTable));
}

void FlightRecorder::take(const TelemetryFrame& frame)
{
    m_lastUsec = frame.usec;
    Q_EMIT m_link.message(frame.logRecord());
    ++m_flight.messages;
    note(m_tracker.take(frame));
    if (m_sinceWritten.elapsed() >= LongestWait) {
        flush();
    }
}

void FlightRecorder::note(VehicleTracker::Records records)
{
    Q_EMIT told(records);
    if (records.position && m_format.uploadKinds.contains(PosDataTableName)) {
        records.position->insert(QStringLiteral("id"), newId());
        records.position->insert(QStringLiteral("flight_mission_id"), m_flight.missionId);
        m_positions.append(*records.position);
        ++m_flight.positions;
        if (m_positions.size() >= PositionBatch) {
            writePositions();
        }
    }
    if (records.status) {
        records.status->insert(QStringLiteral("id"), newId());
        records.status->insert(QStringLiteral("flight_mission_id"), m_flight.missionId);
        records.status->insert(QStringLiteral("mission_id"), m_planId);
        m_statuses.append(*records.status);
        ++m_flight.statuses;
        if (m_statuses.size() % StatusBatch == 0) { // they stay when they cannot be written
            writeStatuses();
        }
    }
}

void FlightRecorder::flush()
{
    m_sinceWritten.start();
    writePositions();
    // Both close the file, so that the messages that still wait are written; the next one opens it again.
    if (m_statuses.isEmpty()) {
        Q_EMIT m_link.startUploadTimer(false);
    } else {
        writeStatuses();
    }
    m_flushed = m_flight.messages;
}

/// A file that is locked takes what waits when the lock goes, for which the operator has waited already.
void FlightRecorder::check()
{
    constexpr int MostVainLooks = 3;
    if (m_flushed <= m_stored) {
        return;
    }
    const qint64 wanted = std::exchange(m_flushed, 0);
    const qint64 before = m_stored;
    noteStored();
    m_vainLooks = m_stored > before ? 0 : m_vainLooks + 1;
    const bool isFull = m_stored < wanted && m_project.diskTrouble();
    if (isFull || m_vainLooks >= MostVainLooks) {
        throw Failure(isFull ? Trouble::DiskFull : Trouble::NotStored,
                      {m_flight.name, durationWords(m_flight.seconds)});
    }
}

/// How many messages are in the file, and when the last of them came.
void FlightRecorder::noteStored()
{
    MissionFile(m_flight.file)
        .read(QStringLiteral("SELECT rowid, message FROM %1 ORDER BY rowid DESC LIMIT 1")
                  .arg(FlightLogTableName),
              [this](const QSqlQuery& row) {
                  m_stored = row.value(0).toLongLong();
                  const TelemetryFrame last = TelemetryFrame::ofLogRecord(row.value(1).toByteArray());
                  m_flight.seconds = qMax(qint64(0), (last.usec - m_startUsec) / Second);
              });
}

RecordedFlight FlightRecorder::breakOff(const Failure& why)
{
    if (m_flight.file.isEmpty()) {
        m_flight.error = why.words();
        return m_flight;
    }
    const Trouble trouble = why.trouble().value_or(Trouble::BrokeOff);
    try {
        if (trouble == Trouble::Stopped || trouble == Trouble::BrokeOff) {
            flush();
        }
        noteStored();
        m_flight.incomplete =
            troubleWords(trouble, {m_flight.name, durationWords(m_flight.seconds), why.words()});
        if (trouble != Trouble::Stopped) {
            m_flight.error = m_flight.incomplete;
        }
        if (trouble == Trouble::DiskFull || trouble == Trouble::NotStored) {
            m_flight.messages = m_stored; // it has no end in its file, which tells the same
            return m_flight;
        }
        writeIncomplete();
        if (!m_format.easyFly) {
            writeComplete(m_lastUsec, missionKeys::Incomplete);
        }
        verify();
    } catch (const Failure& failure) {
        m_flight.error = failure.words();
    }
    return m_flight;
}

/// The mission's row is sent again, so that the server has it as well.
void FlightRecorder::writeIncomplete()
{
    CKvDataBase database(m_flight.file);
    QByteArray data;
    if (database.open()) {
        QSqlQuery row = database.exec(QStringLiteral("SELECT flight_mission_data FROM %1 WHERE id = '%2'")
                                          .arg(m_format.missionTable, m_flight.missionId));
        data = row.next() ? row.value(0).toByteArray() : data;
    }
    QJsonObject document = QJsonDocument::fromJson(data).object();
    document.insert(missionKeys::Incomplete, m_flight.seconds);
    QSqlQuery update(*database.DBInstance());
    const bool prepared =
        update.prepare(QStringLiteral("UPDATE %1 SET flight_mission_data = ?, is_uploaded = 0 WHERE id = ?")
                           .arg(m_format.missionTable));
    update.addBindValue(QString::fromUtf8(QJsonDocument(document).toJson(QJsonDocument::Compact)));
    update.addBindValue(m_flight.missionId);
    if (data.isEmpty() || !prepared || !update.exec()) {
        throw Failure(QStringLiteral("cannot write %1").arg(m_flight.file));
    }
}

void FlightRecorder::writePositions()
{
    if (!m_positions.isEmpty()) {
        Q_EMIT m_link.positions(m_positions, PositionColumns, m_flight.missionId);
        m_positions = QJsonArray();
    }
}

void FlightRecorder::writeStatuses()
{
    if (!m_statuses.isEmpty()) {
        writeText(m_statuses, StatusColumns);
        m_statuses = QJsonArray();
    }
}

RecordedFlight FlightRecorder::end(qint64 endUsec, const QString& reason)
{
    try {
        endMission(qMax(endUsec, m_lastUsec), reason);
        verify();
        writeBreakpoint();
        m_flight.seconds = (m_lastUsec - m_startUsec) / Second;
    } catch (const Failure& failure) {
        m_flight.error = failure.words();
    }
    return m_flight;
}

void FlightRecorder::endMission(qint64 endUsec, const QString& reason)
{
    flush();
    if (!m_format.easyFly) {
        writeClockOffset();
        m_flight.interruption = m_tracker.interruption(endUsec);
        if (m_flight.interruption && !reason.isEmpty()) {
            m_flight.interruption->reason = reason;
        }
        writeComplete(endUsec,
                      m_flight.interruption ? QStringLiteral("interrupted") : QStringLiteral("completed"));
    }
}

/// What the mission's row could not tell yet when it was written, in whole seconds, as the operator has it.
/// The row is sent again.
void FlightRecorder::writeClockOffset()
{
    const auto offset = m_tracker.clockOffset();
    const auto seconds = [](std::optional<double> value) { return qRound64(value.value_or(0)); };
    if (!offset || std::abs(seconds(offset) - seconds(m_flight.clockOffset)) <= 1) {
        return;
    }
    m_flight.clockOffset = double(seconds(offset));
    Q_EMIT m_link.missionValue(1, QStringLiteral("clock_offset"), int(seconds(offset)), m_flight.missionId);
    Q_EMIT m_link.missionValue(1, QStringLiteral("is_uploaded"), 0, m_flight.missionId);
}

void FlightRecorder::writeComplete(qint64 endUsec, const QString& result)
{
    writeText({QJsonObject{{"id"_l1, newId()},
                           {"flight_mission_id"_l1, m_flight.missionId},
                           {"completed_at"_l1, VehicleTracker::timeText(endUsec)},
                           {"result"_l1, result}}},
              CompleteColumns);
}

RecordedFlight FlightRecorder::endLeft(const QString& file)
{
    const QString reason = RecorderEnded;
    m_flight = RecordedFlight();
    m_flight.file = file;
    m_tracker = VehicleTracker();
    m_lastUsec = 0;
    try {
        const bool hasEnd = readLeft();
        if (m_flight.missionId.isEmpty()) {
            m_project.removeMissionFile(file);
            return m_flight;
        }
        m_flight.interruption = m_tracker.interruption(m_lastUsec);
        if (!hasEnd) {
            writeComplete(m_lastUsec, reason);
        }
        if (m_flight.interruption) {
            m_flight.interruption->reason = reason;
            writeBreakpoint();
        }
    } catch (const Failure& failure) {
        m_flight.error = failure.words();
    }
    return m_flight;
}

/// What a file tells of its flight, up to the last frame; the mission has no id when nothing of it was
/// stored. \return whether the flight has its end
bool FlightRecorder::readLeft()
{
    MissionFile file(m_flight.file);
    const QVector<MissionCount> missions = file.count(false);
    bool hasEnd = false;
    if (!missions.isEmpty() && missions.constFirst().hasRow) {
        m_flight.missionId = missions.constFirst().id;
        m_flight.name = missions.constFirst().name;
        for (const KindCount& kind : missions.constFirst().kinds) {
            m_flight.positions = kind.kind == PosDataTableName ? kind.recorded : m_flight.positions;
            m_flight.statuses = kind.kind == UasStatusTableName ? kind.recorded : m_flight.statuses;
        }
    }
    file.read(QStringLiteral("SELECT message FROM %1 ORDER BY rowid").arg(FlightLogTableName),
              [this](const QSqlQuery& row) {
                  const TelemetryFrame frame = TelemetryFrame::ofLogRecord(row.value(0).toByteArray());
                  m_tracker.take(frame);
                  m_lastUsec = frame.usec;
                  ++m_flight.messages;
              });
    file.read(QStringLiteral("SELECT 1 FROM %1").arg(FlightCompleteTableName),
              [&hasEnd](const QSqlQuery&) { hasEnd = true; });
    if (!file.isReadable()) {
        throw Failure(QStringLiteral("%1 cannot be read").arg(m_flight.file));
    }
    return hasEnd;
}

/// Last of all, in a file that is whole without it.
void FlightRecorder::writeBreakpoint()
{
    if (!m_flight.interruption || !m_flight.interruption->breakpoint) {
        return;
    }
    const Breakpoint& here = *m_flight.interruption->breakpoint;
    if (!storeBreakpoint(m_flight.file, m_flight.missionId, here)) {
        throw Failure(QStringLiteral("the breakpoint (%1) was not stored; all other records are in %2")
                          .arg(here.text(), m_flight.file));
    }
}

bool FlightRecorder::storeBreakpoint(const QString& file, const QString& missionId, const Breakpoint& here)
{
    m_breakpointStored = false;
    Q_EMIT m_link.missionFile(file);
    Q_EMIT m_link.breakpoint(here.waypoint, here.lng, here.lat, missionId, here.completion);
    Q_EMIT m_link.startUploadTimer(false); // closes the file
    const auto stored = MissionFile(file).breakpoint(missionId);
    return m_breakpointStored && stored && stored->text() == here.text() &&
           stored->completion == here.completion;
}

/// Writes records whose values are text; the operator closes the file afterwards.
void FlightRecorder::writeText(const QJsonArray& records, const QString& description)
{
    m_written = false;
    Q_EMIT m_link.records(records, description, m_flight.missionId, TextRecords, m_flight.file);
    if (!m_written) {
        abandonOperator();
        throw Failure(QStringLiteral("cannot write %1").arg(m_flight.file));
    }
}

/// No writer reports an error, so the rows are counted.
void FlightRecorder::verify()
{
    const QString mine = QStringLiteral("SELECT count(*) FROM %1 WHERE %2 = '%3'");
    QVector<std::pair<QString, qint64>> expected{
        {m_format.missionTable, 1},
        {UasStatusTableName, m_flight.statuses},
        {FlightLogTableName, m_flight.messages},
    };
    if (!m_format.easyFly) {
        expected += {{PosDataTableName, m_flight.positions}, {FlightCompleteTableName, 1}};
    }
    MissionFile file(m_flight.file);
    for (const auto& [kind, rows] : expected) {
        qint64 found = 0;
        file.read(mine.arg(kind, MissionFile::missionColumn(kind), m_flight.missionId),
                  [&found](const QSqlQuery& row) { found = row.value(0).toLongLong(); });
        if (found != rows) {
            throw Failure(
                QStringLiteral("%1 of %2 %3 rows are in %4").arg(found).arg(rows).arg(kind, m_flight.file));
        }
    }
}
