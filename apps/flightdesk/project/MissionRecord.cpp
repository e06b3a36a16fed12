// SPDX-License-Identifier: MIT
#include "project/MissionRecord.h"

#include <KvAlgorthm.h>

#include <QtCore/QVariant>

namespace
{
const char* const OldestSql = "SELECT created_at FROM %1 WHERE rowid = "
                              "(SELECT min(rowid) FROM %1 WHERE is_uploaded = 0)";

/// What one value of the file is; empty when there is none.
QString valueIn(MissionFile& file, const QString& table, const char* sql)
{
    QString value;
    if (file.hasTable(table)) {
        file.read(QString::fromLatin1(sql).arg(table),
                  [&value](const QSqlQuery& row) { value = row.value(0).toString(); });
    }
    return value;
}

QDateTime oldestWaiting(MissionFile& file, const MissionRecord& mission)
{
    QDateTime oldest;
    for (const KindCount& kind : mission.kinds) {
        if (kind.waiting > 0) {
            const QString text = valueIn(file, kind.kind, OldestSql);
            const QDateTime time = QDateTime::fromString(text, DateTimeMSFormat);
            oldest = oldest.isValid() && oldest < time ? oldest : time;
        }
    }
    return oldest;
}
} // namespace

KindCount MissionRecord::kind(const QString& table) const
{
    for (const KindCount& count : kinds) {
        if (count.kind == table) {
            return count;
        }
    }
    return {table};
}

KindCount MissionRecord::all() const
{
    KindCount sum;
    for (const KindCount& count : kinds) {
        sum += count;
    }
    return sum;
}

QString MissionRecord::version() const
{
    return QStringLiteral("%1 %2 %3 %4 %5")
        .arg(QString::number(all().recorded), QString::number(clockOffset),
             QString::number(int(isIncomplete)), completedAt, result);
}

MissionsOfFile MissionsOfFile::read(const QString& path)
{
    MissionFile file(path);
    const QVector<MissionCount> counts = file.count(false);
    MissionsOfFile result{path, {}};
    for (const MissionCount& count : counts) {
        MissionRecord mission;
        static_cast<MissionCount&>(mission) = count;
        mission.file = path;
        mission.start = count.begun();
        mission.obstacle = obstacleOf(count.hasRow, MissionFile::markObstacle(path));
        mission.oldestWaiting = oldestWaiting(file, mission);
        result.missions.append(mission);
    }
    if (!file.isReadable()) {
        MissionRecord broken;
        broken.file = path;
        broken.readable = false;
        result.missions = {broken};
    }
    return result;
}
