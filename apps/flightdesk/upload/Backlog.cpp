// SPDX-License-Identifier: MIT
#include "upload/Backlog.h"

#include <QtCore/QVariant>

#include <algorithm>
#include <utility>

namespace
{
const char* const WaitingSql = "SELECT %1, count(*), %3 FROM %2 WHERE is_uploaded = 0 GROUP BY 1";
const char* const HasMissionRowSql = "flight_mission_id IN (SELECT id FROM %1)";

qint64 sum(const QVector<WaitingRows>& rows)
{
    qint64 all = 0;
    for (const WaitingRows& some : rows) {
        all += some.rows;
    }
    return all;
}
} // namespace

BacklogCounter::BacklogCounter(Project project, const MissionFormat& format)
    : m_project(std::move(project)), m_format(format), m_diskTrouble(m_project.diskTrouble())
{
}

void BacklogCounter::countAll()
{
    const QStringList files = m_project.missionFiles({QLatin1Char('*') + m_format.suffix});
    const QStringList known = m_files.keys();
    for (const QString& file : known) {
        if (!files.contains(file)) {
            m_files.remove(file);
        }
    }
    for (const QString& file : files) {
        settle(file, count(file));
    }
}

void BacklogCounter::follow(const QString& path)
{
    m_followed.insert(path);
    settle(path, count(path));
}

void BacklogCounter::recount()
{
    const std::optional<Trouble> trouble = m_project.diskTrouble();
    const bool isOtherDisk = trouble != std::exchange(m_diskTrouble, trouble);
    const QStringList known = m_files.keys();
    for (const QString& path : known) {
        if (isOtherDisk || m_files.value(path).stamp.isOutdated(path)) {
            settle(path, count(path));
        }
    }
}

BacklogCounter::File BacklogCounter::count(const QString& path) const
{
    File result;
    result.stamp = FileStamp(path);
    const Obstacle ofFile = MissionFile::markObstacle(path);
    MissionFile file(path);
    const bool hasMissions = file.hasTable(m_format.missionTable);
    for (const QString& kind : m_format.uploadKinds) {
        if (!file.hasTable(kind)) {
            continue;
        }
        const QString hasRow = kind == m_format.missionTable ? QStringLiteral("1")
                               : hasMissions
                                   ? QString::fromLatin1(HasMissionRowSql).arg(m_format.missionTable)
                                   : QStringLiteral("0");
        const QString sql =
            QString::fromLatin1(WaitingSql).arg(MissionFile::missionColumn(kind), kind, hasRow);
        file.read(sql, [&](const QSqlQuery& row) {
            result.rows.append({path, row.value(0).toString(), kind, row.value(1).toLongLong(),
                                obstacleOf(row.value(2).toBool(), ofFile)});
        });
    }
    result.readable = file.isReadable();
    return result;
}

void BacklogCounter::settle(const QString& path, const File& now)
{
    const File before = m_files.value(path);
    if (!now.readable) {
        // Perhaps locked for a moment, whose end changes nothing of the file: what waited there still counts.
        m_files.insert(path, {FileStamp(), false, before.rows});
        return;
    }
    m_settled += qMax(qint64(0), sum(before.rows) - sum(now.rows));
    if (now.rows.isEmpty() && !m_followed.contains(path)) {
        m_files.remove(path);
    } else {
        m_files.insert(path, now);
    }
}

Backlog BacklogCounter::backlog() const
{
    Backlog all;
    all.settled = m_settled;
    for (auto file = m_files.cbegin(); file != m_files.cend(); ++file) {
        all.rows += file->rows;
        if (!file->readable) {
            all.unreadable.append(file.key());
        }
    }
    return all;
}

qint64 Backlog::waiting() const
{
    return sum(rows);
}

qint64 Backlog::waiting(const WaitingRows& like) const
{
    qint64 all = 0;
    for (const WaitingRows& some : rows) {
        all += some.file == like.file && some.mission == like.mission ? some.rows : 0;
    }
    return all;
}

qint64 Backlog::sendable() const
{
    qint64 all = 0;
    for (const WaitingRows& some : rows) {
        all += some.obstacle == Obstacle::None ? some.rows : 0;
    }
    return all;
}

QStringList Backlog::obstacles() const
{
    QStringList words;
    for (const WaitingRows& some : rows) {
        words.append(obstacleWords(some.obstacle));
    }
    words.removeAll({});
    words.removeDuplicates();
    return words;
}

WaitingRows Backlog::after(const WaitingRows& current, bool eachMission) const
{
    const auto key = [eachMission](const WaitingRows& some) {
        return std::make_pair(some.file, eachMission ? some.mission : QString());
    };
    WaitingRows first;
    WaitingRows next;
    for (const WaitingRows& some : rows) {
        if (some.obstacle != Obstacle::None) {
            continue;
        }
        if (first.file.isEmpty() || key(some) < key(first)) {
            first = some;
        }
        if (key(current) < key(some) && (next.file.isEmpty() || key(some) < key(next))) {
            next = some;
        }
    }
    return next.file.isEmpty() ? first : next;
}

bool Backlog::holds(const WaitingRows& some) const
{
    return std::any_of(rows.begin(), rows.end(), [&some](const WaitingRows& own) {
        return own.file == some.file && own.mission == some.mission && own.obstacle == Obstacle::None;
    });
}

int Backlog::missionsIn(const QString& file) const
{
    QSet<QString> missions;
    for (const WaitingRows& some : rows) {
        if (some.file == file && some.obstacle == Obstacle::None) {
            missions.insert(some.mission);
        }
    }
    return missions.size();
}
