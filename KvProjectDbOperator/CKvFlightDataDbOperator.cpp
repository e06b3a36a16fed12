// SPDX-License-Identifier: MIT
#include "CKvFlightDataDbOperator.h"

#include "KvAlgorthm.h"
#include "KvBoundInsert.h"
#include "KvData.h"
#include "KvData/KvWarnings.h"
#include "KvIdLookUp.h"
#include "KvKeptBatches.h"
#include "KvData/KvOwnThread.h"
#include "KvProjectFiles.h"
#include "KvTableDescription.h"
#include "KvTrace.h"

#include <QtCore/QDateTime>
#include <QtCore/QFileInfo>
#include <QtCore/QJsonDocument>
#include <QtCore/QPointer>
#include <QtCore/QScopedValueRollback>
#include <QtCore/QUuid>

namespace
{
constexpr int MonitorBatch = 50;
const char* const MonitorColumnsFile = ":/flight_monitor_detail_log.txt";

/// Whether the connection has all tables of a video mission's file now.
bool CreateVideoTables(QSqlDatabase* pInstance)
{
    const bool bLog = CreateTable(FlightLogTableName, GetFlightLogTableContents(), pInstance);
    const bool bStatus = CreateTable(UasStatusTableName, GetUasStatusTableContents(), pInstance);
    const bool bVideo = CreateTable(FlightVideoTableName, GetFlightVideoTableContents(), pInstance);
    return bLog && bStatus && bVideo;
}

/// KvData can do the same in one call, but a host may bring a KvData of its own, which need not.
void CreateTables(QSqlDatabase* pInstance)
{
    CreateTable(FlightMissionTableName, GetFlightMissionTableContents(), pInstance);
    CreateTable(FlightLogTableName, GetFlightLogTableContents(), pInstance);
    CreateTable(UasStatusTableName, GetUasStatusTableContents(), pInstance);
    CreateTable(PosDataTableName, GetPosDataTableContents(), pInstance);
    CreateTable(FlightCompleteTableName, GetFlightCompleteTableContents(), pInstance);
}

/// A mission file that is gone, or that opening it has made anew, gets no tables and would take no row.
bool TakesRows(const QString& strFile)
{
    const QFileInfo info(strFile);
    return info.isFile() && (info.size() > 0 || strFile.endsWith(QLatin1String(".db")));
}

/// About what records take in memory.
qint64 JsonBytes(const QJsonArray& jsonArray)
{
    constexpr qint64 Expansion = 4; // from text to values
    return Expansion * QJsonDocument(jsonArray).toJson(QJsonDocument::Compact).size();
}

} // namespace

CKvFlightDataDbOperator::CKvFlightDataDbOperator(QObject* parent, EUploadEnv eUploadEnv)
    : QObject(parent)
    , m_eUploadEnv(eUploadEnv)
    , m_pMonitorColumns(std::make_unique<CKvTableDescription>())
    , m_pKept(std::make_unique<CKvKeptBatches>())
{
    _initDataBase();
}

CKvFlightDataDbOperator::~CKvFlightDataDbOperator()
{
    KV_ON_OWN_THREAD;
    if (m_nSignalsUnderLock > 0) {
        m_mutexDB.unlock(); // a receiver deletes the operator, and the slot that emits ends without it
    }
    if (!m_pKept->IsEmpty()) {
        _KeepFlightMonitor(m_listFlightMonitorQuery); // one wait for all of them
        _WriteKeptAtLast();
    } else if (!m_listFlightMonitorQuery.isEmpty()) {
        _WriteFlightMonitor2DB(m_listFlightMonitorQuery);
        _WriteKept();
    }
    m_listFlightMonitorQuery.clear();
}

void CKvFlightDataDbOperator::SetStartTimeInterval(unsigned int nStartTimeInterval)
{
    KV_ON_OWN_THREAD;
    m_nStartTimeInterval = nStartTimeInterval;
}

void CKvFlightDataDbOperator::SetFilghtMissionID(const QString& strMissionID)
{
    KV_ON_OWN_THREAD;
    m_strFlightMissionID = strMissionID;
}

void CKvFlightDataDbOperator::SetFlightModeEasyFly(bool easyMode)
{
    KV_ON_OWN_THREAD;
    m_bFlightModeEasyFly = easyMode;
}

void CKvFlightDataDbOperator::_initDataBase()
{
    const QString strUserName = GetCurUserInfo().m_strUserName; // hosts rely on being asked, not on its use
    Q_UNUSED(strUserName)
    const auto listFile = ProjectMissionFiles();
    if (!listFile) {
        return;
    }
    for (const QString& strFile : *listFile) {
        if (!QFileInfo::exists(strFile)) {
            continue;
        }
        CKvDataBase database(strFile);
        if (database.open()) {
            CreateTables(database.DBInstance());
        }
    }
    m_pDataBase = new CKvDataBase(QLatin1String(""));
}

bool CKvFlightDataDbOperator::_IsDataBaseOpen() const
{
    return m_pDataBase && m_pDataBase->isOpen();
}

/// Points the connection at a file and opens it, also where the name stays: the file behind it may have been
/// replaced. Leaving a file finalises the statements that wait on it, so they are executed before.
bool CKvFlightDataDbOperator::_PointDataBaseAt(const QString& strFile)
{
    _CloseDataBase();
    m_pDataBase->DBInstance()->setDatabaseName(strFile);
    return m_pDataBase->open();
}

void CKvFlightDataDbOperator::_EnsureOpen()
{
    if (!m_pDataBase->isOpen()) {
        m_pDataBase->open();
    }
}

void CKvFlightDataDbOperator::_CloseDataBase()
{
    if (_IsDataBaseOpen()) {
        _FlushFlightMonitor();
        m_listIdleMonitorQuery.clear(); // closing finalises them
        m_pDataBase->close();
    }
}

void CKvFlightDataDbOperator::SetFlightMissionFilePath(const QString& strFlightMissionFilePath)
{
    KV_ON_OWN_THREAD;
    m_strFlightMissionFilePath = strFlightMissionFilePath;
    if (!m_pDataBase) {
        return;
    }
    _PointDataBaseAt(strFlightMissionFilePath);
    _WriteKept();
    if (strFlightMissionFilePath.endsWith(QLatin1String(".db")) &&
        !CreateVideoTables(m_pDataBase->DBInstance()) && _IsDataBaseOpen() &&
        !m_pKept->Has(strFlightMissionFilePath)) {
        m_pKept->Keep(strFlightMissionFilePath, 0, [this] { CreateVideoTables(m_pDataBase->DBInstance()); });
    }
}

// Batches: what a file does not take now is kept until it does

/// Runs what writes a batch in one transaction, after those that are kept for the file. False when nothing of
/// it was stored, and it is to be kept.
bool CKvFlightDataDbOperator::_Store(const std::function<void()>& write)
{
    if (!m_pDataBase->isOpen()) {
        return true; // and no waiting would open it
    }
    _WriteKept();
    const QString strFile = m_pDataBase->databaseName();
    if (m_pKept->Has(strFile)) {
        return false;
    }
    if (!TakesRows(strFile)) {
        WarnOnce(KvSql(), strFile, QStringLiteral("has no tables; records wait in memory for them"));
        return false;
    }
    return _Transact(write);
}

bool CKvFlightDataDbOperator::_Transact(const std::function<void()>& write)
{
    if (!m_pDataBase->transaction()) {
        return false;
    }
    write();
    return m_pDataBase->commit();
}

/// Writes what is kept, hardly waiting for those who hold the files: one short wait for all of them.
void CKvFlightDataDbOperator::_WriteKept()
{
    if (!m_pKept->IsEmpty()) {
        CKvDataBase visit(m_pKept->Files().constFirst());
        _WriteKept(visit);
    }
}

/// Writes what is kept with the patience of a whole wait.
void CKvFlightDataDbOperator::_WriteKeptAtLast()
{
    CKvDataBase database{QString()};
    _WriteKept(database);
}

void CKvFlightDataDbOperator::_WriteKept(CKvDataBase& database)
{
    const QScopedValueRollback<CKvDataBase*> visiting(m_pDataBase, &database);
    for (const QString& strFile : m_pKept->Files()) {
        database.DBInstance()->setDatabaseName(strFile);
        if (TakesRows(strFile) && database.open()) {
            m_pKept->HandOver(strFile,
                              [this](const CKvKeptBatches::Write& write) { return _Transact(write); });
        }
    }
}

QSqlError CKvFlightDataDbOperator::_write2DB(const QString& sql, const QString&, unsigned int)
{
    m_mutexDB.lock();
    QSqlError error = m_pDataBase->exec(sql).lastError();
    m_mutexDB.unlock();
    return error;
}

bool CKvFlightDataDbOperator::SelectRecord(QString strFields, QString strTable, QString strWhere,
                                           QString strTail, QList<QVariant>& rows)
{
    QString sql = QStringLiteral("SELECT ") + strFields + QStringLiteral(" FROM ") + strTable;
    if (!strWhere.isEmpty()) {
        sql += QStringLiteral(" WHERE ") + strWhere;
    }
    sql += strTail;
    QSqlQuery query(*m_pDataBase->DBInstance());
    query.setForwardOnly(true);
    if (!query.exec(sql)) {
        _WarnRefused(query);
        return false;
    }
    const int nFields = strFields.split(QLatin1Char(',')).size();
    while (query.next()) {
        QList<QVariant> listValue;
        for (int i = 0; i < nFields; ++i) {
            listValue.append(query.value(i));
        }
        rows.append(QVariant(listValue));
    }
    return true;
}

void CKvFlightDataDbOperator::_WarnRefused(const QSqlQuery& query) const
{
    WarnRefused(m_pDataBase->databaseName(), query.lastQuery(), query.lastError());
}

void CKvFlightDataDbOperator::slotParseJson(QJsonArray jsonArray, QString strFilePath, QString strMissionID,
                                            unsigned int iOperatorType, QString strFlightMissionFilePath)
{
    KV_ON_OWN_THREAD;
    m_mutexDB.lock();
    if (jsonArray.isEmpty()) {
        m_mutexDB.unlock();
        return;
    }
    const CKvTableDescription description(strFilePath);
    const QList<QVariant> listRecord = ReadJsonArray(jsonArray);
    if (!m_pDataBase || !_PointDataBaseAt(strFlightMissionFilePath)) {
        return; // the lock stays held
    }
    const QString strTable = QFileInfo(strFilePath).baseName();
    const auto write = [this, listRecord, description, strTable] {
        _InsertRecords(listRecord, description, strTable);
    };
    if (!_Store(write)) {
        m_pKept->Keep(strFlightMissionFilePath, JsonBytes(jsonArray), write);
    }
    _CloseDataBase();
    _EmitUnderLock([&] { Q_EMIT WriteDBFinished(strMissionID, iOperatorType, strFlightMissionFilePath); });
}

/// Emits a signal as the last act of a slot that holds the lock, and frees it. A receiver may delete the
/// operator.
void CKvFlightDataDbOperator::_EmitUnderLock(const std::function<void()>& emitSignal)
{
    const QPointer<CKvFlightDataDbOperator> alive(this);
    ++m_nSignalsUnderLock;
    emitSignal();
    if (alive) {
        --m_nSignalsUnderLock;
        m_mutexDB.unlock();
    }
}

void CKvFlightDataDbOperator::_InsertRecords(const QList<QVariant>& listRecord,
                                             const CKvTableDescription& description, const QString& strTable)
{
    QSqlQuery query(*m_pDataBase->DBInstance());
    const bool bPrepared = query.prepare(description.InsertSql(strTable));
    if (!bPrepared) {
        _WarnRefused(query);
    }
    CKvIdLookUp lookUp(*m_pDataBase->DBInstance(), strTable);
    for (const QVariant& element : listRecord) {
        const QJsonObject record = element.toJsonObject();
        if (_IsRecorded(record, strTable, lookUp)) {
            continue;
        }
        description.BindRecordAsText(query, record);
        query.exec();
        if (query.lastError().type() != QSqlError::NoError) {
            IsTestServer();  // hosts see in this call that a record was refused
            if (bPrepared) { // what is told otherwise is that nothing was
                _WarnRefused(query);
            }
        }
    }
}

/// Whether the table has the record's id already. The id is the value of the first key that has "id" in it.
bool CKvFlightDataDbOperator::_IsRecorded(const QJsonObject& record, const QString& strTable,
                                          CKvIdLookUp& lookUp)
{
    if (!record.contains(QLatin1String("id"))) {
        return false;
    }
    auto member = record.constBegin();
    while (!member.key().contains(QLatin1String("id"))) {
        ++member;
    }
    const QString strID = member.value().toString();
    if (const std::optional<bool> found = lookUp.Has(strID)) {
        return *found;
    }
    QList<QVariant> rows;
    SelectRecord(QStringLiteral("id"), strTable, QStringLiteral("id = '") + strID + QLatin1Char('\''),
                 QString(), rows);
    return !rows.isEmpty();
}

void CKvFlightDataDbOperator::slotParseJson(QJsonArray jsonArray, QString strFilePath,
                                            QString strFlightMissionID)
{
    KV_ON_OWN_THREAD;
    m_strParseFlightMissionID = strFlightMissionID;
    if (jsonArray.isEmpty()) {
        return;
    }
    const CKvTableDescription description(strFilePath);
    if (!m_pDataBase) {
        return;
    }
    _EnsureOpen();
    _InsertPositions(jsonArray, description);
    Q_EMIT WriteDBFinished(strFlightMissionID, 2, m_strFlightMissionFilePath);
}

void CKvFlightDataDbOperator::_InsertPositions(const QJsonArray& jsonArray,
                                               const CKvTableDescription& description)
{
    const auto write = [this, jsonArray, description] { _WritePositions(jsonArray, description); };
    m_mutexDB.lock();
    if (!_Store(write)) {
        m_pKept->Keep(m_pDataBase->databaseName(), JsonBytes(jsonArray), write);
    }
    m_mutexDB.unlock();
}

/// One statement for all records: preparing one for each would take twice the time of the inserts.
void CKvFlightDataDbOperator::_WritePositions(const QJsonArray& jsonArray,
                                              const CKvTableDescription& description)
{
    QSqlQuery insert(*m_pDataBase->DBInstance());
    if (!insert.prepare(description.InsertSql(PosDataTableName))) {
        _WarnRefused(insert);
        return;
    }
    m_listPosDataQuery = {insert};
    for (const QJsonValue& element : jsonArray) {
        description.BindRecord(insert, element.toObject());
        if (!insert.exec()) {
            _WarnRefused(insert);
        }
    }
    m_listPosDataQuery.clear();
}

void CKvFlightDataDbOperator::slotParseSingleJson(QJsonObject jsonObject, QString strFilePath,
                                                  QString strTableName)
{
    KV_ON_OWN_THREAD;
    m_mutexDB.lock();
    if (jsonObject.isEmpty()) {
        m_mutexDB.unlock();
        return;
    }
    const CKvTableDescription description(strFilePath);
    if (!m_pDataBase) {
        return; // the lock stays held
    }
    _EnsureOpen();
    const auto write = [this, jsonObject, description, strTableName] {
        QSqlQuery query(*m_pDataBase->DBInstance());
        bool bDone = query.prepare(description.InsertSql(strTableName));
        if (bDone) {
            description.BindRecord(query, jsonObject);
            bDone = query.exec();
        }
        if (!bDone) {
            _WarnRefused(query);
        }
    };
    if (!_Store(write)) {
        m_pKept->Keep(m_pDataBase->databaseName(), JsonBytes({jsonObject}), write);
    }
    m_mutexDB.unlock();
}

void CKvFlightDataDbOperator::slotWriteFlightMonitor(QByteArray byte)
{
    KV_ON_OWN_THREAD;
    if (m_strFlightMissionID.isNull()) {
        WarnOnce(KvHost(), QStringLiteral("no flight mission"),
                 QStringLiteral("its messages are dropped; it is named with SetFilghtMissionID()"));
    }
    if (m_strFlightMissionID.isEmpty() || !m_pDataBase) {
        return;
    }
    m_bRecorded = true;
    m_pMonitorColumns->Read(QString::fromLatin1(MonitorColumnsFile));
    _EnsureOpen();
    QSqlQuery query = _TakeMonitorInsert();
    for (const CKvTableDescription::SColumn& column : m_pMonitorColumns->Columns()) {
        const auto is = [&column](const char* name) {
            return column.strName.compare(QLatin1String(name), Qt::CaseInsensitive) == 0;
        };
        if (is("id")) {
            query.bindValue(column.strPlaceholder, UidToString(QUuid::createUuid()));
        } else if (is("flight_mission_id")) {
            query.bindValue(column.strPlaceholder, m_strFlightMissionID);
        } else if (is("is_uploaded")) {
            query.bindValue(column.strPlaceholder, 0);
        } else if (is("message")) {
            query.bindValue(column.strPlaceholder, byte);
        } else if (is("created_at")) {
            query.bindValue(column.strPlaceholder, QDateTime::currentDateTime().toString(DateTimeMSFormat));
        }
    }
    m_listFlightMonitorQuery.append(query);
    if (m_listFlightMonitorQuery.size() >= MonitorBatch) {
        QList<QSqlQuery> listQuery = m_listFlightMonitorQuery;
        m_listFlightMonitorQuery.clear();
        _WriteFlightMonitor2DB(listQuery);
        m_listIdleMonitorQuery = listQuery;
    }
}

/// A prepared insert: one of the last batch, where that had the same columns and has not failed, since
/// preparing takes twice the time of the insert itself.
QSqlQuery CKvFlightDataDbOperator::_TakeMonitorInsert()
{
    const QString sql = m_pMonitorColumns->InsertSql(FlightLogTableName);
    while (!m_listIdleMonitorQuery.isEmpty()) {
        QSqlQuery query = m_listIdleMonitorQuery.takeLast();
        if (query.lastQuery() == sql && !query.lastError().isValid()) {
            return query;
        }
    }
    QSqlQuery query(*m_pDataBase->DBInstance());
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
    const bool bStored = _Store([&] {
        for (QSqlQuery& query : listQuery) {
            if (query.lastError().isValid()) { // not prepared: the file was locked then, or had no tables yet
                CKvBoundInsert(query).Execute(*m_pDataBase->DBInstance());
            } else {
                if (!query.exec()) {
                    _WarnRefused(query);
                }
                query.finish();
            }
        }
    });
    if (!bStored) {
        _KeepFlightMonitor(listQuery);
    }
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
    m_pKept->Keep(m_pDataBase->databaseName(), nBytes, [this, listInsert] {
        for (const CKvBoundInsert& insert : listInsert) {
            insert.Execute(*m_pDataBase->DBInstance());
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
