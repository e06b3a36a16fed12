// SPDX-License-Identifier: MIT
#include "CKvFlightDataDbOperator.h"

#include "KvData.h"
#include "KvData/KvOwnThread.h"
#include "KvData/KvWarnings.h"
#include "KvKeptBatches.h"
#include "KvTrace.h"

#include <QtCore/QDebug>
#include <QtCore/QJsonDocument>

namespace
{
const char* const UpdateOneValueSql = "UPDATE flight_mission SET %1 = %2 WHERE id = '%3'";
const char* const SelectDocumentSql = "select flight_mission_data from flight_mission where id = '";
const char* const UpdateBreakpointSql =
    "UPDATE flight_mission SET is_uploaded = 0,last_waypoint_index = '%1', break_point_lng = '%2', "
    "break_point_lat = '%3', flight_mission_data = '%4' WHERE id = '%5'";

const char* const BreakpointMethod = "CKvFlightDataDbOperator::slotUpdateBreakpoint"; // in the log

/// The mission's document with its completion degree, indented; empty when it is no JSON.
QByteArray WithCompletionDegree(const QByteArray& data, double dDegree)
{
    QJsonDocument document = QJsonDocument::fromJson(data);
    if (!document.isEmpty()) {
        QJsonObject object = document.object();
        object.insert(QStringLiteral("circula_task_completion_degree"), dDegree);
        document.setObject(object);
    }
    return document.toJson();
}
} // namespace

/// Tells of an update that was refused, or that found no row: to SQLite that is a success.
void CKvFlightDataDbOperator::_WarnUnlessUpdated(const QSqlQuery& update, const QString& strID)
{
    if (!m_pDataBase->isOpen()) {
        WarnOnce(KvSql(), m_pDataBase->databaseName(),
                 QStringLiteral("is not open: an update of flight mission \"%1\" is lost").arg(strID));
        return;
    }
    _WarnRefused(update);
    if (!update.lastError().isValid() && update.numRowsAffected() == 0) {
        WarnOnce(KvSql(), m_pDataBase->databaseName(),
                 QStringLiteral("has no flight mission \"%1\" to update").arg(strID));
    }
}

void CKvFlightDataDbOperator::slotUpdateGeneralOneValue(const QVariant& cmd, const QVariant& key,
                                                        const QVariant& value,
                                                        const QVariant& strFlightMissionID)
{
    KV_ON_OWN_THREAD;
    if (cmd.toInt() != 1) {
        return;
    }
    m_mutexDB.lock();
    if (!m_pDataBase) {
        return; // the lock stays held
    }
    _EnsureOpen();
    // As at a breakpoint, a marker inside a value is substituted too.
    // clazy:excludeall=qstring-arg
    const QString sql = QString::fromLatin1(UpdateOneValueSql)
                            .arg(key.toString())
                            .arg(QString::number(value.toInt()))
                            .arg(strFlightMissionID.toString());
    bool bDone = false;
    const bool bStored = _WriteKept() && _Transact([&] {
                             QSqlQuery update(*m_pDataBase->DBInstance());
                             bDone = update.exec(sql);
                             _WarnUnlessUpdated(update, strFlightMissionID.toString());
                         });
    if (!bStored) {
        WarnOnce(KvSql(), m_pDataBase->databaseName(),
                 QStringLiteral("took no update of flight mission \"%1\", which is lost")
                     .arg(strFlightMissionID.toString()));
    }
    qDebug() << (bStored && bDone ? "----------------sql ====success  " : "----------------sql ====fail  ");
    m_mutexDB.unlock();
}

void CKvFlightDataDbOperator::slotUpdateBreakpoint(int nLastWPIndex, double dLng, double dLat,
                                                   QString strFlightMissionID,
                                                   double dCirculaTaskCompletionDegree)
{
    KV_ON_OWN_THREAD;
    KV_TRACE << BreakpointMethod << 403 << "------record break point slot in" << strFlightMissionID
             << dCirculaTaskCompletionDegree;
    m_mutexDB.lock();
    KV_TRACE << BreakpointMethod << 405 << "------record break point slot start";
    if (!m_pDataBase) {
        KV_TRACE << BreakpointMethod << 410 << "------record break point slot m_pDataBase nullptr";
        return; // the lock stays held
    }
    _EnsureOpen();
    const bool bTakes = _WriteKept(); // the mission's row may be among it
    // To go on would update a row that is not there yet, or write an empty document, where a lock goes in
    // between.
    if (m_pDataBase->isOpen() && (!bTakes || !m_pDataBase->transaction())) {
        _AnswerBreakpoint(false);
        return;
    }
    QByteArray data;
    const bool bRead = _ReadDocument(strFlightMissionID, data);
    if (!data.isEmpty()) {
        data = WithCompletionDegree(data, dCirculaTaskCompletionDegree);
    }
    // One substitution after the other: a marker inside the document is substituted too.
    const QString sql = QString::fromLatin1(UpdateBreakpointSql)
                            .arg(nLastWPIndex)
                            .arg(QString::number(dLng, 'f', 6))
                            .arg(QString::number(dLat, 'f', 6))
                            .arg(QString::fromUtf8(data))
                            .arg(strFlightMissionID);
    KV_TRACE << BreakpointMethod << 447 << "------record break point slot sql==" << sql;
    _StoreBreakpoint(sql, bRead, strFlightMissionID);
}

/// Reads a mission's document, which stays empty where there is none. False when it could not be looked for.
bool CKvFlightDataDbOperator::_ReadDocument(const QString& strFlightMissionID, QByteArray& data) const
{
    QSqlQuery select =
        m_pDataBase->exec(QString::fromLatin1(SelectDocumentSql) + strFlightMissionID + QLatin1Char('\''));
    if (select.lastError().isValid()) {
        return false;
    }
    if (select.next()) {
        data = select.value(QStringLiteral("flight_mission_data")).toByteArray();
    }
    return true;
}

/// Runs the update, unless the document could not be read, and ends the slot: with the answer, or without one
/// where the statement does not even prepare.
void CKvFlightDataDbOperator::_StoreBreakpoint(const QString& sql, bool bRead,
                                               const QString& strFlightMissionID)
{
    QSqlQuery update(*m_pDataBase->DBInstance());
    const bool bPrepared = m_pDataBase->isOpen() && update.prepare(sql);
    const bool bDone = bPrepared && bRead && update.exec();
    const QSqlError error = update.lastError();
    if (bRead) {
        _WarnUnlessUpdated(update, strFlightMissionID);
    }
    update.finish();
    const bool bStored = m_pDataBase->commit();
    if (!bPrepared) {
        KV_TRACE << BreakpointMethod << 454 << "record break point fail"
                 << "sql string==" << sql << "sql error==" << error;
        m_mutexDB.unlock();
        return;
    }
    _AnswerBreakpoint(bDone && bStored);
}

void CKvFlightDataDbOperator::_AnswerBreakpoint(bool bStored)
{
    _EmitUnderLock([this, bStored] {
        Q_EMIT RecBreakPointRet(bStored);
        KV_TRACE << BreakpointMethod << 451 << "record break point is ok";
    });
}
