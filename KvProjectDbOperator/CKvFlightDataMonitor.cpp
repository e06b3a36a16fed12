// SPDX-License-Identifier: MIT
#include "CKvFlightDataDbOperator.h"

#include "KvAlgorthm.h"
#include "KvBoundInsert.h"
#include "KvData.h"
#include "KvData/KvLocks.h"
#include "KvData/KvOwnThread.h"
#include "KvData/KvWarnings.h"
#include "KvTableDescription.h"

#include <QtCore/QDateTime>
#include <QtCore/QUuid>

#include <optional>

namespace
{
constexpr int MonitorBatch = 50;
const char* const MonitorColumnsFile = ":/flight_monitor_detail_log.txt";
} // namespace

void CKvFlightDataDbOperator::slotWriteFlightMonitor(QByteArray byte)
{
    KV_ON_OWN_THREAD;
    if (!m_bMissionSet) {
        WarnOnce(KvHost(), QStringLiteral("no flight mission"),
                 QStringLiteral("its messages are dropped; it is named with SetFilghtMissionID()"));
    }
    if (m_strFlightMissionID.isEmpty() || !m_pDataBase) {
        return;
    }
    m_bRecords = true;
    m_pMonitorColumns->Read(QString::fromLatin1(MonitorColumnsFile));
    _EnsureOpen();
    if (!_IsDataBaseOpen()) {
        _KeepFlightMonitor(byte);
        return;
    }
    _WarnIfElsewhere();
    QSqlQuery query = _TakeMonitorInsert();
    for (const CKvTableDescription::SColumn& column : m_pMonitorColumns->Columns()) {
        query.bindValue(column.strPlaceholder, _MonitorValue(column.strName, byte));
    }
    m_listFlightMonitorQuery.append(query);
    if (m_listFlightMonitorQuery.size() >= MonitorBatch) {
        QList<QSqlQuery> listQuery = m_listFlightMonitorQuery;
        m_listFlightMonitorQuery.clear();
        _WriteFlightMonitor2DB(listQuery);
        m_listIdleMonitorQuery = listQuery;
    }
}

/// What a message has in a column; invalid for one that is not the library's.
QVariant CKvFlightDataDbOperator::_MonitorValue(const QString& strColumn, const QByteArray& byte) const
{
    const auto is = [&strColumn](const char* name) {
        return strColumn.compare(QLatin1String(name), Qt::CaseInsensitive) == 0;
    };
    if (is("id")) {
        return UidToString(QUuid::createUuid());
    }
    if (is("flight_mission_id")) {
        return m_strFlightMissionID;
    }
    if (is("is_uploaded")) {
        return 0;
    }
    if (is("message")) {
        return byte;
    }
    return is("created_at") ? QDateTime::currentDateTime().toString(DateTimeMSFormat) : QVariant();
}

/// A prepared insert: one of the last batch, where that had the same columns and has not failed, since
/// preparing takes twice the time of the insert itself. One for a table that the connection does not know yet
/// reads the file; if somebody else holds that, it is the batch which waits for him.
QSqlQuery CKvFlightDataDbOperator::_TakeMonitorInsert()
{
    const QString sql = m_pMonitorColumns->InsertSql(FlightLogTableName);
    while (!m_listIdleMonitorQuery.isEmpty()) {
        QSqlQuery query = m_listIdleMonitorQuery.takeLast();
        if (query.lastQuery() == sql && !query.lastError().isValid()) {
            return query;
        }
    }
    const bool bKnown =
        !m_listFlightMonitorQuery.isEmpty() && !m_listFlightMonitorQuery.constLast().lastError().isValid();
    const QSqlDatabase& database = *m_pDataBase->DBInstance();
    std::optional<CNoWait> noWait;
    if (!bKnown) {
        noWait.emplace(database);
    }
    QSqlQuery query(database);
    query.prepare(sql);
    return query;
}

void CKvFlightDataDbOperator::_WriteFlightMonitor2DB(QList<QSqlQuery>& listQuery)
{
    m_mutexDB.lock();
    _ExecuteBatch(listQuery);
    m_mutexDB.unlock();
}

void CKvFlightDataDbOperator::_ExecuteBatch(QList<QSqlQuery> listQuery)
{
    const bool bStored = _Store(FlightLogTableName, [&] {
        for (QSqlQuery& query : listQuery) {
            if (query.lastError().isValid()) { // not prepared: the file was locked then, or had no tables yet
                _Run(CKvBoundInsert(query));
            } else {
                _Run(query);
                query.finish();
            }
        }
    });
    if (!bStored) {
        _KeepFlightMonitor(listQuery);
    }
}

/// Keeps a message for a file that cannot be opened, on which nothing can be prepared.
void CKvFlightDataDbOperator::_KeepFlightMonitor(const QByteArray& byte)
{
    QVector<QVariant> listValue;
    for (const CKvTableDescription::SColumn& column : m_pMonitorColumns->Columns()) {
        listValue.append(_MonitorValue(column.strName, byte));
    }
    const CKvBoundInsert insert(m_pMonitorColumns->InsertSql(FlightLogTableName), listValue);
    _Keep(FlightLogTableName, 1, insert.Bytes(), [this, insert] { _Run(insert); });
}

void CKvFlightDataDbOperator::_KeepFlightMonitor(const QList<QSqlQuery>& listQuery)
{
    if (listQuery.isEmpty()) {
        return;
    }
    QList<CKvBoundInsert> listInsert;
    qint64 nBytes = 0;
    for (const QSqlQuery& query : listQuery) {
        listInsert.append(CKvBoundInsert(query));
        nBytes += listInsert.constLast().Bytes();
    }
    _Keep(FlightLogTableName, listInsert.size(), nBytes, [this, listInsert] {
        for (const CKvBoundInsert& insert : listInsert) {
            _Run(insert);
        }
    });
}

/// Executes the waiting monitor inserts before their connection leaves the file. A lock that is held now is
/// held further up on this very thread, so waiting for it would never end.
void CKvFlightDataDbOperator::_FlushFlightMonitor()
{
    if (m_listFlightMonitorQuery.isEmpty()) {
        return;
    }
    const QList<QSqlQuery> listQuery = m_listFlightMonitorQuery;
    m_listFlightMonitorQuery.clear();
    const bool bLocked = m_mutexDB.tryLock();
    _ExecuteBatch(listQuery);
    if (bLocked) {
        m_mutexDB.unlock();
    }
}
