// SPDX-License-Identifier: MIT
#include "MissionFile.h"

#include <KvAlgorthm.h>

#include <QtCore/QFileInfo>
#include <QtCore/QVariant>
#include <QtSql/QSqlError>
#include <QtSql/QSqlRecord>

#include <algorithm>

namespace
{
const char* const TablesSql = "SELECT name FROM sqlite_master WHERE type = 'table'";
const char* const AttachSql = "ATTACH '%1' AS ledger";
const char* const MissionsSql = "SELECT * FROM flight_mission";
const char* const CountSql = "SELECT %1, count(*), total(is_uploaded = 1), total(is_uploaded = 0), %3 "
                             "FROM %2 t GROUP BY 1";
const char* const AcceptedSql = "total(EXISTS (SELECT 1 FROM ledger.\"row\" r "
                                "WHERE r.kind = '%1' AND r.id = t.id))";

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

MissionFile::MissionFile(const QString& path) : m_database(path)
{
    // Opening would make a missing file.
    m_readable = QFileInfo(path).isFile() && m_database.open();
    read(QLatin1String(TablesSql),
         [this](const QSqlQuery& row) { m_tables.append(row.value(0).toString()); });
}

void MissionFile::attachLedger(const QString& path)
{
    QString quoted = QFileInfo(path).absoluteFilePath();
    quoted.replace(QLatin1Char('\''), QLatin1String("''"));
    read(QString::fromLatin1(AttachSql).arg(quoted), [](const QSqlQuery&) {});
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

QVector<MissionCount> MissionFile::count(bool withLedger)
{
    QVector<MissionCount> missions;
    if (hasTable(FlightMissionTableName)) {
        read(QLatin1String(MissionsSql), [&missions](const QSqlQuery& row) {
            MissionCount& mission = missionIn(&missions, row.value(QStringLiteral("id")).toString());
            mission.hasRow = true;
            const int name = row.record().indexOf(QStringLiteral("name"));
            mission.name = name < 0 ? QString() : row.value(name).toString();
        });
    }
    for (const QString& kind : uploadKinds() + QStringList(FlightVideoTableName)) {
        if (hasTable(kind)) {
            countKind(kind, withLedger, &missions);
        }
    }
    return missions;
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

const QStringList& MissionFile::uploadKinds()
{
    static const QStringList kinds{FlightMissionTableName, PosDataTableName, UasStatusTableName,
                                   FlightLogTableName};
    return kinds;
}

QString MissionFile::missionColumn(const QString& kind)
{
    const bool isMission = kind == FlightMissionTableName || kind == FlightVideoTableName;
    return isMission ? QStringLiteral("id") : QStringLiteral("flight_mission_id");
}
