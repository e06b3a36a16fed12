// SPDX-License-Identifier: MIT
#include "CKvFlightDataDbOperator.h"

#include "KvAlgorthm.h"
#include "KvBoundInsert.h"
#include "KvData.h"
#include "KvData/KvOwnThread.h"
#include "KvData/KvWarnings.h"
#include "KvIdLookUp.h"
#include "KvKeptBatches.h"
#include "KvProjectFiles.h"
#include "KvTableDescription.h"
#include "KvTrace.h"

#include <QtCore/QCborArray>
#include <QtCore/QCborValue>
#include <QtCore/QDateTime>
#include <QtCore/QFileInfo>
#include <QtCore/QMutexLocker>
#include <QtCore/QPointer>
#include <QtCore/QScopedValueRollback>
#include <QtCore/QUuid>

#include <utility>

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
bool CreateTables(QSqlDatabase* pInstance)
{
    const bool bMission = CreateTable(FlightMissionTableName, GetFlightMissionTableContents(), pInstance);
    const bool bLog = CreateTable(FlightLogTableName, GetFlightLogTableContents(), pInstance);
    const bool bStatus = CreateTable(UasStatusTableName, GetUasStatusTableContents(), pInstance);
    const bool bPosData = CreateTable(PosDataTableName, GetPosDataTableContents(), pInstance);
    const bool bComplete = CreateTable(FlightCompleteTableName, GetFlightCompleteTableContents(), pInstance);
    return bMission && bLog && bStatus && bPosData && bComplete;
}

/// A mission file that is gone, or that opening it has made anew, gets no tables and would take no row.
bool TakesRows(const QString& strFile)
{
    const QFileInfo info(strFile);
    return info.isFile() && (info.size() > 0 || strFile.endsWith(QLatin1String(".db")));
}

/// What records for a table have to wait for: one of a mission file's own, in lower case. Nothing, where it
/// is a host's own or the file is a video mission's, which lacks some for good.
QString AwaitedTable(const QString& strFile, const QString& strTable)
{
    const QStringList listOwn{FlightMissionTableName, FlightLogTableName, UasStatusTableName,
                              PosDataTableName, FlightCompleteTableName};
    const bool bAwaited =
        !strFile.endsWith(QLatin1String(".db")) && listOwn.contains(strTable, Qt::CaseInsensitive);
    return bAwaited ? strTable.toLower() : QString();
}

/// The tables of the connection's file, in lower case.
QSet<QString> TablesOf(const CKvDataBase& database)
{
    QSet<QString> setTable;
    QSqlQuery query =
        database.exec(QStringLiteral("SELECT name FROM sqlite_master WHERE type IN ('table', 'view')"));
    while (query.next()) {
        setTable.insert(query.value(0).toString().toLower());
    }
    return setTable;
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
    _WarnIfNeverArmed();
    if (!m_listFlightMonitorQuery.isEmpty()) {
        const QMutexLocker lock(&m_mutexDB);
        _KeepFlightMonitor(std::exchange(m_listFlightMonitorQuery, {}));
    }
    if (!m_pKept->IsEmpty()) {
        CKvDataBase database{QString()}; // what the operator's own has waited before does not count here
        for (const QString& strFile : m_pKept->Files()) {
            _WriteKept(database, strFile);
        }
    }
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
    m_bMissionSet = true;
    if (!strMissionID.isEmpty()) {
        WellAgain(QStringLiteral("no flight mission"));
    }
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
        if (database.open() && !CreateTables(database.DBInstance())) {
            m_setBareFile.insert(QFileInfo(strFile).canonicalFilePath());
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
    m_bWasThere = false;
    return _EnsureOpen();
}

/// A file that has gone since it was last open is not made anew: an empty one would be in the way of putting
/// it back.
bool CKvFlightDataDbOperator::_EnsureOpen()
{
    if (m_pDataBase->isOpen()) {
        return true;
    }
    if (m_bWasThere && !QFileInfo(m_pDataBase->databaseName()).isFile()) {
        _WarnNoTables();
        return false;
    }
    const bool bOpen = m_pDataBase->open();
    if (bOpen) {
        m_bWasThere = true;
        _MakeTables();
    }
    return bOpen;
}

void CKvFlightDataDbOperator::_WarnNoTables() const
{
    const QString strFile = m_pDataBase->databaseName();
    WarnOnce(KvSql(), strFile,
             QFileInfo(strFile).isFile()
                 ? QStringLiteral("has no tables; records wait in memory for them")
                 : QStringLiteral("is not there any more; records wait in memory for a file with tables"),
             strFile);
}

bool CKvFlightDataDbOperator::_IsBare(const QString& strFile) const
{
    return !m_setBareFile.isEmpty() && m_setBareFile.contains(QFileInfo(strFile).canonicalFilePath());
}

/// Makes the tables that the open file could not be given at the start. False when it still cannot.
bool CKvFlightDataDbOperator::_MakeTables()
{
    const QString strFile = m_pDataBase->databaseName();
    if (!_IsBare(strFile)) {
        return true;
    }
    const bool bMade = CreateTables(m_pDataBase->DBInstance());
    if (bMade) {
        m_setBareFile.remove(QFileInfo(strFile).canonicalFilePath());
    }
    return bMade;
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
    if (!strFlightMissionFilePath.isEmpty()) {
        WellAgain(QStringLiteral("no mission file"));
    }
    if (!m_pDataBase) {
        return;
    }
    _PointDataBaseAt(strFlightMissionFilePath);
    _WriteKept();
    if (strFlightMissionFilePath.endsWith(QLatin1String(".db")) &&
        !CreateVideoTables(m_pDataBase->DBInstance()) && _IsDataBaseOpen() &&
        !m_pKept->Has(strFlightMissionFilePath)) {
        m_pKept->Keep(strFlightMissionFilePath, {}, 0, 0,
                      [this] { CreateVideoTables(m_pDataBase->DBInstance()); });
    }
}

// Batches: what a file does not take now is kept until it does

/// Runs what writes a batch for a table in one transaction, after those that are kept for the file. False
/// when nothing of it was stored, and it is to be kept.
bool CKvFlightDataDbOperator::_Store(const QString& strTable, const std::function<void()>& write)
{
    const QString strFile = m_pDataBase->databaseName();
    if (!_WriteKept() || !m_pDataBase->isOpen()) {
        return false;
    }
    _MakeTables();
    bool bHasTable = TakesRows(strFile);
    const bool bStored = bHasTable && _Transact([&] {
                             const QString strAwaited = AwaitedTable(strFile, strTable);
                             bHasTable = strAwaited.isEmpty() || TablesOf(*m_pDataBase).contains(strAwaited);
                             if (bHasTable) {
                                 write();
                             }
                         });
    if (!bHasTable) {
        _WarnNoTables();
        return false;
    }
    if (bStored) {
        TellWellAgain(KvSql(), strFile, strFile, QStringLiteral("takes records again"));
    }
    return bStored;
}

/// Keeps records, packed: as JSON values they would take several times the room.
void CKvFlightDataDbOperator::_KeepRecords(const QJsonArray& jsonArray, const QString& strTable,
                                           const QString& sql,
                                           const std::function<void(const QJsonArray&)>& write)
{
    QByteArray packed = QCborArray::fromJsonArray(jsonArray).toCborValue().toCbor();
    packed.squeeze();
    constexpr int Description = 12; // what a batch knows of its columns, for each letter of its statement
    _Keep(strTable, jsonArray.size(), packed.size() + Description * sql.size(),
          [packed, write] { write(QCborValue::fromCbor(packed).toArray().toJsonArray()); });
}

/// Keeps a batch for the file that the connection names. One for no file at all would wait for ever.
void CKvFlightDataDbOperator::_Keep(const QString& strTable, int nRows, qint64 nBytes,
                                    const std::function<void()>& write)
{
    if (m_pDataBase->databaseName().isEmpty()) {
        WarnOnce(KvHost(), QStringLiteral("no mission file"),
                 QStringLiteral("records are dropped; it is named with SetFlightMissionFilePath()"));
    } else {
        const QString strFile = m_pDataBase->databaseName();
        m_pKept->Keep(strFile, AwaitedTable(strFile, strTable), nRows, nBytes, write);
    }
}

bool CKvFlightDataDbOperator::_Transact(const std::function<void()>& write)
{
    if (!m_pDataBase->transaction()) {
        return false;
    }
    write();
    return m_pDataBase->commit();
}

/// Writes what is kept, hardly waiting for those who hold the files: one short wait for all of them, and
/// hardly any for one that is known to be held. False when the file that the connection names takes nothing
/// now; what waits for a table of its own does not count.
bool CKvFlightDataDbOperator::_WriteKept()
{
    const QString strNamed = m_pDataBase->databaseName();
    bool bTakes = true;
    for (const QString& strFile : m_pKept->Files()) {
        CKvDataBase visit(strFile);
        bTakes = (_WriteKept(visit, strFile) || strFile != strNamed) && bTakes;
    }
    return bTakes;
}

bool CKvFlightDataDbOperator::_WriteKept(CKvDataBase& database, const QString& strFile)
{
    const QScopedValueRollback<CKvDataBase*> visiting(m_pDataBase, &database);
    database.DBInstance()->setDatabaseName(strFile);
    if (!(TakesRows(strFile) || _IsBare(strFile)) || !database.open()) {
        return false;
    }
    _MakeTables();
    return m_pKept->HandOver(strFile, [this](const CKvKeptBatches::WriteInto& write) {
        return _Transact([&] { write(TablesOf(*m_pDataBase)); });
    });
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
    m_bRecords = true;
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
    const auto write = [this, description, strTable](const QList<QVariant>& listElement) {
        _InsertRecords(listElement, description, strTable);
    };
    if (!_Store(strTable, [&] { write(listRecord); })) {
        _KeepRecords(jsonArray, strTable, description.InsertSql(strTable),
                     [write](const QJsonArray& records) { write(ReadJsonArray(records)); });
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
    m_bRecords = true;
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
    const auto write = [this, description](const QJsonArray& records) {
        _WritePositions(records, description);
    };
    const QMutexLocker lock(&m_mutexDB);
    if (!_Store(PosDataTableName, [&] { write(jsonArray); })) {
        _KeepRecords(jsonArray, PosDataTableName, description.InsertSql(PosDataTableName), write);
    }
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
    m_listPosDataQuery.append(insert);
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
    m_bRecords = true;
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
    const QString sql = description.InsertSql(strTableName);
    const auto write = [this, description, sql](const QJsonArray& records) {
        QSqlQuery query(*m_pDataBase->DBInstance());
        bool bDone = query.prepare(sql);
        if (bDone) {
            description.BindRecord(query, records.at(0).toObject());
            bDone = query.exec();
        }
        if (!bDone) {
            _WarnRefused(query);
        }
    };
    const QJsonArray records{jsonObject};
    if (!_Store(strTableName, [&] { write(records); })) {
        _KeepRecords(records, strTableName, sql, write);
    }
    m_mutexDB.unlock();
}

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
    const bool bStored = _Store(FlightLogTableName, [&] {
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

/// Keeps a message for a file that cannot be opened, on which nothing can be prepared.
void CKvFlightDataDbOperator::_KeepFlightMonitor(const QByteArray& byte)
{
    QVector<QVariant> listValue;
    for (const CKvTableDescription::SColumn& column : m_pMonitorColumns->Columns()) {
        listValue.append(_MonitorValue(column.strName, byte));
    }
    const CKvBoundInsert insert(m_pMonitorColumns->InsertSql(FlightLogTableName), listValue);
    _Keep(FlightLogTableName, 1, insert.Bytes(),
          [this, insert] { insert.Execute(*m_pDataBase->DBInstance()); });
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
