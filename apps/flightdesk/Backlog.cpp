// SPDX-License-Identifier: MIT
#include "Backlog.h"

#include <QtCore/QFileInfo>
#include <QtCore/QVariant>

#include <utility>

namespace
{
const char* const WaitingSql = "SELECT %1, count(*), %3 FROM %2 WHERE is_uploaded = 0 GROUP BY 1";
const char* const HasMissionRowSql = "flight_mission_id IN (SELECT id FROM %1)";

// A file's time stamp may stand still for that long while the file changes.
constexpr int StampSeconds = 2;

Obstacle obstacleOf(bool hasMissionRow, bool markable)
{
    if (!hasMissionRow) {
        return Obstacle::NoMissionRow;
    }
    return markable ? Obstacle::None : Obstacle::NotMarkable;
}

qint64 sum(const QVector<WaitingRows>& rows)
{
    qint64 all = 0;
    for (const WaitingRows& some : rows) {
        all += some.rows;
    }
    return all;
}
} // namespace

Backlog::Backlog(Project project, const MissionFormat& format)
    : m_project(std::move(project)), m_format(format)
{
}

void Backlog::countAll()
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

void Backlog::recount()
{
    const QStringList known = m_files.keys();
    for (const QString& path : known) {
        const QDateTime changed = QFileInfo(path).lastModified();
        if (changed.addSecs(StampSeconds) >= m_files.value(path).countedAt) {
            settle(path, count(path));
        }
    }
}

Backlog::File Backlog::count(const QString& path) const
{
    File result;
    result.countedAt = QDateTime::currentDateTime();
    const bool markable = MissionFile::isMarkable(path);
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
                                obstacleOf(row.value(2).toBool(), markable)});
        });
    }
    result.readable = file.isReadable();
    return result;
}

void Backlog::settle(const QString& path, const File& now)
{
    const File before = m_files.value(path);
    if (!now.readable) {
        // Perhaps locked for a moment: what waited there still counts.
        m_files.insert(path, {now.countedAt, false, before.rows});
        return;
    }
    m_settled += qMax(qint64(0), sum(before.rows) - sum(now.rows));
    if (now.rows.isEmpty()) {
        m_files.remove(path);
    } else {
        m_files.insert(path, now);
    }
}

qint64 Backlog::waiting() const
{
    return sum(rows());
}

qint64 Backlog::sendable() const
{
    qint64 all = 0;
    for (const WaitingRows& some : rows()) {
        all += some.obstacle == Obstacle::None ? some.rows : 0;
    }
    return all;
}

QVector<WaitingRows> Backlog::rows() const
{
    QVector<WaitingRows> all;
    for (const File& file : m_files) {
        all += file.rows;
    }
    return all;
}

QStringList Backlog::unreadable() const
{
    QStringList paths;
    for (auto file = m_files.cbegin(); file != m_files.cend(); ++file) {
        if (!file->readable) {
            paths.append(file.key());
        }
    }
    return paths;
}

WaitingRows Backlog::firstSendable() const
{
    for (const WaitingRows& some : rows()) {
        if (some.obstacle == Obstacle::None) {
            return some;
        }
    }
    return {};
}

QString Backlog::fileOf(const QString& mission) const
{
    for (const WaitingRows& some : rows()) {
        if (some.mission == mission) {
            return some.file;
        }
    }
    return {};
}
