// SPDX-License-Identifier: MIT
#include "project/RowWalk.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QThread>
#include <QtCore/QVariant>

#include <algorithm>

namespace
{
const char* const SliceSql = "SELECT rowid, flight_mission_id = '%5', %1 FROM %2 "
                             "WHERE rowid > %3 AND rowid <= %4 ORDER BY rowid LIMIT 1000";
constexpr int LongestLock = 30;            // milliseconds
constexpr int SliceBytes = 1024 * 1024;    // of blobs
constexpr int LongestLockOfOthers = 30000; // milliseconds
constexpr int Pause = 20;

/// SQLite's code for a file that somebody else has locked.
bool isLocked(const QSqlError& error)
{
    constexpr int Busy = 5;
    return (error.nativeErrorCode().toInt() & 0xff) == Busy;
}
} // namespace

QString RowWalk::valueOf(const QString& column, const QStringList& there)
{
    const QString time = QStringLiteral("time");
    const QString createdAt = QStringLiteral("created_at");
    if (column == time && there.contains(createdAt)) {
        return there.contains(time) ? QStringLiteral("coalesce(nullif(time, ''), created_at)") : createdAt;
    }
    return there.contains(column) ? column : QStringLiteral("NULL");
}

RowWalk::RowWalk(MissionFile& file, const QString& table, const QStringList& columns,
                 const QString& missionId, qint64 lastRow)
    : m_file(file)
    , m_quotedId(QString(missionId).replace(QLatin1Char('\''), QLatin1String("''")))
    , m_lastRow(lastRow)
    , m_columns(columns.size())
{
    const QStringList there = file.columns(table);
    QStringList values;
    for (const QString& column : columns) {
        values.append(valueOf(column, there));
    }
    m_sql = QString::fromLatin1(SliceSql).arg(values.join(QLatin1Char(',')), table);
    m_atEnd = !file.hasTable(table);
}

const QVector<QVariant>* RowWalk::next()
{
    while (m_at == m_slice.size()) {
        if (m_atEnd) {
            return nullptr;
        }
        fetch();
    }
    return &m_slice.at(m_at++);
}

/// The next rows; at damaged ones possibly none.
void RowWalk::fetch()
{
    m_slice.clear();
    m_at = 0;
    QElapsedTimer waited;
    waited.start();
    QSqlError error = readSlice();
    while (isLocked(error) && waited.elapsed() < LongestLockOfOthers) {
        QThread::msleep(Pause);
        error = readSlice();
    }
    if (isLocked(error)) {
        m_unreadable += m_lastRow - m_row;
        m_atEnd = true;
    } else if (error.isValid()) {
        stepOver();
    }
}

QSqlError RowWalk::readSlice()
{
    QElapsedTimer lock;
    int bytes = 0;
    QSqlError error =
        m_file.readSome(m_sql.arg(QString::number(m_row), QString::number(m_lastRow), m_quotedId),
                        [&](const QSqlQuery& query) {
                            if (!lock.isValid()) {
                                lock.start();
                            }
                            m_row = query.value(0).toLongLong();
                            if (query.value(1).toBool()) {
                                QVector<QVariant> values(m_columns);
                                for (int i = 0; i < m_columns; ++i) {
                                    values[i] = query.value(i + 2);
                                }
                                bytes += values.constFirst().userType() == QMetaType::QByteArray
                                             ? values.constFirst().toByteArray().size()
                                             : 0;
                                m_slice.append(values);
                            }
                            return bytes < SliceBytes && lock.elapsed() < LongestLock;
                        });
    if (lock.isValid()) {
        m_step = 1;
    }
    m_atEnd = !lock.isValid() && !error.isValid();
    return error;
}

/// Past what is damaged on disk; each time twice as far, as it may be much.
void RowWalk::stepOver()
{
    const qint64 step = std::min(m_step, m_lastRow - m_row);
    m_row += step;
    m_unreadable += step;
    m_step *= 2;
    m_atEnd = m_row >= m_lastRow;
}
