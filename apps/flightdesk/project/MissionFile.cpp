// SPDX-License-Identifier: MIT
#include "project/MissionFile.h"

#include "telemetry/FrameSource.h"
#include "words/Latin1.h"
#include "words/Trouble.h"

#include <KvAlgorthm.h>

#include <QtCore/QDateTime>
#include <QtCore/QFileInfo>
#include <QtCore/QJsonDocument>
#include <QtCore/QStorageInfo>
#include <QtCore/QVariant>
#include <QtSql/QSqlRecord>

#include <algorithm>
#include <cmath>

namespace
{
const char* const TablesSql = "SELECT name FROM sqlite_master WHERE type = 'table'";
const char* const AttachSql = "ATTACH '%1' AS ledger";
const char* const MissionsSql = "SELECT * FROM %1";
const char* const ColumnsSql = "PRAGMA table_info(%1)";
const char* const LastRowSql = "(SELECT max(rowid) FROM %1)";
const char* const MissionAtEndsSql = "SELECT flight_mission_id FROM %1 WHERE rowid IN "
                                     "((SELECT min(rowid) FROM %1), (SELECT max(rowid) FROM %1))";
const char* const LastTimeSql =
    "SELECT time FROM %1 WHERE flight_mission_id = '%2' ORDER BY rowid DESC LIMIT 1";
const char* const LastMessageSql = "SELECT message FROM %1 ORDER BY rowid DESC LIMIT 1";
const char* const NextMessageSql =
    "SELECT id FROM %1 WHERE is_uploaded = 0 AND flight_mission_id = '%2' LIMIT 1"; // as the operator asks
const char* const WaitingSql = "SELECT count(*) FROM %1 WHERE is_uploaded = 0 AND %2 = '%3'";
const char* const CountSql = "SELECT %1, count(*), total(is_uploaded = 1), total(is_uploaded = 0), %3 "
                             "FROM %2 t GROUP BY 1";
const char* const AcceptedSql = "total(EXISTS (SELECT 1 FROM ledger.\"row\" r "
                                "WHERE r.kind = '%1' AND r.id = t.id))";

/// Tables whose rows a mission has many of.
QStringList recordKinds()
{
    return {PosDataTableName, UasStatusTableName, FlightLogTableName};
}

/// Tables with a row for each mission.
QStringList missionTables()
{
    return {FlightMissionTableName, FlightVideoTableName};
}

/// A column that the table lacks is as an empty one.
std::optional<Breakpoint> breakpointIn(const QSqlRecord& mission, const QJsonObject& document)
{
    const QString lng = mission.value("break_point_lng"_l1).toString();
    if (lng.isEmpty()) {
        return std::nullopt;
    }
    return Breakpoint{mission.value("last_waypoint_index"_l1).toInt(), lng.toDouble(),
                      mission.value("break_point_lat"_l1).toDouble(),
                      document["circula_task_completion_degree"_l1].toDouble()};
}

QString quoted(QString text)
{
    return text.replace(QLatin1Char('\''), QLatin1String("''"));
}

MissionCount& missionIn(QVector<MissionCount>* missions, const QString& id)
{
    const auto known = std::find_if(missions->begin(), missions->end(),
                                    [&id](const MissionCount& mission) { return mission.id == id; });
    if (known != missions->end()) {
        return *known;
    }
    MissionCount mission;
    mission.id = id;
    missions->append(mission);
    return missions->last();
}
} // namespace

QString MissionCount::incompleteWords() const
{
    if (!isIncomplete) {
        return {};
    }
    const QString stored = durationWords(seconds.value_or(0));
    return wholeSeconds > 0 ? QStringLiteral("incomplete (%1 of %2)").arg(stored, durationWords(wholeSeconds))
                            : QStringLiteral("incomplete (%1)").arg(stored);
}

QString MissionCount::cutWords() const
{
    return truncatedBytes > 0 ? QStringLiteral("log cut off") : QString();
}

QString MissionCount::lostWords() const
{
    QStringList words;
    if (skippedBytes > 0) {
        words.append(QStringLiteral("%1 unreadable bytes of its log were skipped").arg(skippedBytes));
    }
    if (truncatedBytes > 0) {
        words.append(QStringLiteral("its log is cut off in a last record of %1 bytes").arg(truncatedBytes));
    }
    return words.join(QStringLiteral("; "));
}

QDateTime MissionCount::begun() const
{
    const QDateTime told = QDateTime::fromString(startedAt, Qt::ISODateWithMs);
    return told.isValid() ? told.addMSecs(std::llround(clockOffset * 1000)).toUTC() : told;
}

KindCount& KindCount::operator+=(const KindCount& other)
{
    recorded += other.recorded;
    accepted += other.accepted;
    marked += other.marked;
    waiting += other.waiting;
    return *this;
}

MissionFile::MissionFile(const QString& path) : m_database(path)
{
    // Opening would make a missing file.
    m_readable = QFileInfo(path).isFile() && m_database.open();
    read(QLatin1String(TablesSql),
         [this](const QSqlQuery& row) { m_tables.append(row.value(0).toString()); });
}

void MissionFile::attachLedger(const QString& path)
{
    read(QString::fromLatin1(AttachSql).arg(quoted(QFileInfo(path).absoluteFilePath())),
         [](const QSqlQuery&) {});
}

void MissionFile::read(const QString& sql, const RowReader& row)
{
    if (!m_readable) {
        return;
    }
    QSqlQuery query = m_database.exec(sql);
    while (query.next()) {
        row(query);
    }
    m_readable = !query.lastError().isValid();
}

QSqlError MissionFile::readSome(const QString& sql, const std::function<bool(const QSqlQuery&)>& row)
{
    QSqlQuery query = m_database.exec(sql);
    while (query.next()) {
        if (!row(query)) {
            return {};
        }
    }
    return query.lastError();
}

QStringList MissionFile::columns(const QString& table)
{
    QStringList names;
    readSome(QString::fromLatin1(ColumnsSql).arg(table), [&names](const QSqlQuery& row) {
        names.append(row.record().value("name"_l1).toString());
        return true;
    });
    return names;
}

QHash<QString, qint64> MissionFile::lastRows()
{
    const QStringList tables = recordKinds();
    QStringList values;
    for (const QString& table : tables) {
        values.append(hasTable(table) ? QString::fromLatin1(LastRowSql).arg(table) : QStringLiteral("0"));
    }
    QHash<QString, qint64> rows;
    read(QStringLiteral("SELECT ") + values.join(QLatin1Char(',')), [&](const QSqlQuery& row) {
        for (int i = 0; i < tables.size(); ++i) {
            rows.insert(tables.at(i), row.value(i).toLongLong());
        }
    });
    return rows;
}

QVector<MissionCount> MissionFile::missions()
{
    QVector<MissionCount> missions = readMissions();
    for (const QString& table : recordKinds()) {
        if (hasTable(table)) {
            readSome(QString::fromLatin1(MissionAtEndsSql).arg(table), [&missions](const QSqlQuery& row) {
                missionIn(&missions, row.value(0).toString());
                return true;
            });
        }
    }
    return missions;
}

QString MissionFile::firstWaitingMessage(const QString& missionId)
{
    QString id;
    read(QString::fromLatin1(NextMessageSql).arg(FlightLogTableName, quoted(missionId)),
         [&id](const QSqlQuery& row) { id = row.value(0).toString(); });
    return id;
}

qint64 MissionFile::waiting(const QString& missionId)
{
    qint64 rows = 0;
    for (const QString& kind : missionTables() + recordKinds()) {
        if (hasTable(kind)) {
            read(QString::fromLatin1(WaitingSql).arg(kind, missionColumn(kind), quoted(missionId)),
                 [&rows](const QSqlQuery& row) { rows += row.value(0).toLongLong(); });
        }
    }
    return rows;
}

QVector<MissionCount> MissionFile::count(bool withLedger)
{
    QVector<MissionCount> missions = readMissions();
    for (const QString& kind : missionTables() + recordKinds()) {
        if (hasTable(kind)) {
            countKind(kind, withLedger, &missions);
        }
    }
    return missions;
}

QVector<MissionCount> MissionFile::readMissions()
{
    QVector<MissionCount> missions;
    for (const QString& table : missionTables()) {
        readRows(table, &missions);
    }
    readEnds(&missions);
    return missions;
}

void MissionFile::readRows(const QString& table, QVector<MissionCount>* missions)
{
    if (!hasTable(table)) {
        return;
    }
    read(QString::fromLatin1(MissionsSql).arg(table), [missions](const QSqlQuery& row) {
        const QSqlRecord fields = row.record();
        MissionCount& mission = missionIn(missions, fields.value("id"_l1).toString());
        mission.hasRow = true;
        mission.name = fields.value("name"_l1).toString();
        mission.aircraft = fields.value("aircraft"_l1).toString();
        mission.startedAt = fields.value("started_at"_l1).toString();
        const QJsonObject document =
            QJsonDocument::fromJson(fields.value("flight_mission_data"_l1).toByteArray()).object();
        mission.breakpoint = breakpointIn(fields, document);
        mission.clockOffset = fields.value("clock_offset"_l1).toDouble();
        mission.logId = document.value(missionKeys::LogId).toString();
        mission.wholeSeconds = qint64(document.value(missionKeys::WholeSeconds).toDouble());
        mission.skippedBytes = qint64(document.value(missionKeys::SkippedBytes).toDouble());
        mission.truncatedBytes = qint64(document.value(missionKeys::TruncatedBytes).toDouble());
        mission.isIncomplete = document.contains(missionKeys::Incomplete);
    });
}

void MissionFile::readEnds(QVector<MissionCount>* missions)
{
    const bool hasEnds = hasTable(FlightCompleteTableName);
    if (hasEnds) {
        readCompletions(missions);
    }
    for (MissionCount& mission : *missions) {
        readLength(&mission, missions->size() == 1);
        // A replayed flight without its end is still recorded, or its recorder died.
        mission.isIncomplete = mission.isIncomplete ||
                               (hasEnds && mission.completedAt.isEmpty() && mission.wholeSeconds > 0) ||
                               mission.result == RecorderEnded;
    }
}

/// \param isAlone  another one's records need not be passed over to find its last
void MissionFile::readLength(MissionCount* mission, bool isAlone)
{
    const auto time = [](const QString& text) { return QDateTime::fromString(text, Qt::ISODateWithMs); };
    QString last = mission->completedAt;
    if (last.isEmpty() && isAlone && hasTable(UasStatusTableName)) {
        read(QString::fromLatin1(LastTimeSql).arg(UasStatusTableName, quoted(mission->id)),
             [&last](const QSqlQuery& row) { last = row.value(0).toString(); });
    }
    const QDateTime start = time(mission->startedAt);
    QDateTime end = time(last);
    if (mission->completedAt.isEmpty() && isAlone && mission->wholeSeconds > 0 &&
        hasTable(FlightLogTableName)) {
        read(QString::fromLatin1(LastMessageSql).arg(FlightLogTableName), [&end](const QSqlQuery& row) {
            const TelemetryFrame frame = TelemetryFrame::ofLogRecord(row.value(0).toByteArray());
            end = QDateTime::fromMSecsSinceEpoch(frame.usec / 1000, Qt::UTC);
        });
    }
    if (start.isValid() && end.isValid()) {
        mission->seconds = start.secsTo(end);
    }
}

void MissionFile::readCompletions(QVector<MissionCount>* missions)
{
    read(QString::fromLatin1(MissionsSql).arg(FlightCompleteTableName), [missions](const QSqlQuery& row) {
        const QSqlRecord fields = row.record();
        const QString id = fields.value("flight_mission_id"_l1).toString();
        for (MissionCount& mission : *missions) {
            if (mission.id == id) {
                mission.completedAt = fields.value("completed_at"_l1).toString();
                mission.result = fields.value("result"_l1).toString();
                const QString offset = fields.value("clock_offset"_l1).toString();
                mission.clockOffset = offset.isEmpty() ? mission.clockOffset : offset.toDouble();
            }
        }
    });
}

std::optional<Breakpoint> MissionFile::breakpoint(const QString& missionId)
{
    QVector<MissionCount> missions;
    readRows(FlightMissionTableName, &missions);
    return missionIn(&missions, missionId).breakpoint;
}

void MissionFile::countKind(const QString& kind, bool withLedger, QVector<MissionCount>* missions)
{
    const QString accepted = withLedger ? QString::fromLatin1(AcceptedSql).arg(kind) : QStringLiteral("0");
    read(QString::fromLatin1(CountSql).arg(missionColumn(kind), kind, accepted), [&](const QSqlQuery& row) {
        KindCount count;
        count.kind = kind;
        count.recorded = row.value(1).toLongLong();
        count.marked = row.value(2).toLongLong();
        count.waiting = row.value(3).toLongLong();
        count.accepted = row.value(4).toLongLong();
        missionIn(missions, row.value(0).toString()).kinds.append(count);
    });
}

const MissionFormat& MissionFormat::flight()
{
    static const MissionFormat format{false, QStringLiteral(".kv"), FlightMissionTableName,
                                      QStringList(FlightMissionTableName) + recordKinds()};
    return format;
}

const MissionFormat& MissionFormat::video()
{
    static const MissionFormat format{true,
                                      QStringLiteral(".db"),
                                      FlightVideoTableName,
                                      {FlightVideoTableName, UasStatusTableName, FlightLogTableName}};
    return format;
}

QString MissionFile::missionColumn(const QString& kind)
{
    return missionTables().contains(kind) ? QStringLiteral("id") : QStringLiteral("flight_mission_id");
}

Obstacle obstacleOf(bool hasMissionRow, Obstacle ofFile)
{
    return hasMissionRow ? ofFile : Obstacle::NoMissionRow;
}

QString obstacleWords(Obstacle obstacle)
{
    switch (obstacle) {
    case Obstacle::NoMissionRow:
        return QStringLiteral("the mission has no row of its own, so its records are never sent");
    case Obstacle::NotMarkable:
        return QStringLiteral("the file, its folder or its disk is read-only");
    case Obstacle::DiskFull:
        return QStringLiteral("the disk is full");
    case Obstacle::None:
        break;
    }
    return {};
}

Obstacle MissionFile::markObstacle(const QString& path)
{
    const QFileInfo file(path);
    const QStorageInfo disk(file.absolutePath());
    if (!file.isWritable() || !QFileInfo(file.absolutePath()).isWritable() || disk.isReadOnly()) {
        return Obstacle::NotMarkable;
    }
    return disk.bytesAvailable() < LeastRoom ? Obstacle::DiskFull : Obstacle::None;
}
