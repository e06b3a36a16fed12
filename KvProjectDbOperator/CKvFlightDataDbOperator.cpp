// SPDX-License-Identifier: MIT
#include "CKvFlightDataDbOperator.h"

#include "KvAlgorthm.h"
#include "KvBoundInsert.h"
#include "KvData.h"
#include "KvData/KvIdentity.h"
#include "KvData/KvLocks.h"
#include "KvData/KvOwnThread.h"
#include "KvData/KvWarnings.h"
#include "KvIdLookUp.h"
#include "KvKeptBatches.h"
#include "KvMissionTables.h"
#include "KvProjectFiles.h"
#include "KvTableDescription.h"
#include "KvTrace.h"

#include <QtCore/QCborArray>
#include <QtCore/QCborValue>
#include <QtCore/QFileInfo>
#include <QtCore/QMutexLocker>
#include <QtCore/QPointer>
#include <QtCore/QScopedValueRollback>

#include <utility>

namespace
{
bool UndoesTransaction(const QSqlError& error)
{
    constexpr int NoMemory = 7;
    constexpr int Interrupted = 9;
    constexpr int InputOutput = 10;
    constexpr int Full = 13;
    const int nCode = ResultCode(error);
    return nCode == NoMemory || nCode == Interrupted || nCode == InputOutput || nCode == Full;
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
        if (database.open() && !MakeMissionTables(database)) {
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
/// it back. No file at all is what a host names between flights; whoever has a record for it then says so.
bool CKvFlightDataDbOperator::_EnsureOpen()
{
    if (m_pDataBase->isOpen()) {
        return true;
    }
    if (m_pDataBase->databaseName().isEmpty()) {
        return false;
    }
    if (m_bWasThere && !QFileInfo(m_pDataBase->databaseName()).isFile()) {
        _WarnNoTables();
        return false;
    }
    const bool bOpens = m_pDataBase->open();
    m_bOpensLater = bOpens && !m_pDataBase->isOpen();
    if (m_pDataBase->isOpen()) {
        m_bWasThere = true;
        m_strPlace = QFileInfo(m_pDataBase->databaseName()).absoluteFilePath();
        m_identity = IdentityOf(m_strPlace);
        _MakeTables();
    }
    return bOpens;
}

/// Whether the open file has lost its name since, to another one or to none. It is read no more: SQLite finds
/// journals by the name, and would take those of the other file for its own.
bool CKvFlightDataDbOperator::_IsReplaced() const
{
    return _IsDataBaseOpen() && IdentityOf(m_strPlace) != m_identity;
}

/// Tells that the named file has none of its tables, or that it lacks the given one.
void CKvFlightDataDbOperator::_WarnNoTables(const QString& strLacked) const
{
    const QString strFile = m_pDataBase->databaseName();
    QString strText = QStringLiteral("is not there any more; records wait in memory for a file with tables");
    if (!strLacked.isEmpty()) {
        strText = QStringLiteral("has no table \"%1\"; its records wait in memory for it").arg(strLacked);
    } else if (QFileInfo(strFile).isFile()) {
        strText = QStringLiteral("has no tables; records wait in memory for them");
    }
    WarnOnce(KvSql(), strFile, strText, strFile);
}

void CKvFlightDataDbOperator::_WarnNoFile()
{
    WarnOnce(KvHost(), QStringLiteral("no mission file"),
             QStringLiteral("records are dropped; it is named with SetFlightMissionFilePath()"));
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
    const bool bMade = MakeMissionTables(*m_pDataBase);
    if (bMade) {
        m_setBareFile.remove(QFileInfo(strFile).canonicalFilePath());
    }
    return bMade;
}

void CKvFlightDataDbOperator::_CloseDataBase()
{
    m_bOpensLater = false;
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
    if (strFlightMissionFilePath.endsWith(QLatin1String(".db")) && !MakeVideoTables(*m_pDataBase) &&
        _IsDataBaseOpen() && !m_pKept->Has(strFlightMissionFilePath)) {
        m_pKept->Keep(strFlightMissionFilePath, {}, 0, 0, [this] { MakeVideoTablesWithin(*m_pDataBase); });
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
    if (!TakesRows(strFile)) {
        _WarnNoTables();
        return false;
    }
    const QString strAwaited = AwaitedTable(strFile, strTable);
    QSet<QString> setTable{strAwaited};
    const bool bStored = _Transact([&] {
        const QSet<QString> setThere = TablesWithin(*m_pDataBase);
        if (!strAwaited.isEmpty()) {
            setTable = setThere;
        }
        if (setTable.contains(strAwaited)) {
            write();
        }
    });
    if (!setTable.contains(strAwaited)) {
        _WarnNoTables(setTable.isEmpty() ? QString() : strAwaited);
        return false;
    }
    if (bStored) {
        _TellTaken(strFile);
    }
    return bStored;
}

/// Nothing is the matter with a file any more, once it has taken all that was kept for it.
void CKvFlightDataDbOperator::_TellTaken(const QString& strFile) const
{
    if (!m_pKept->Has(strFile)) {
        TellWellAgain(KvSql(), strFile, strFile, QStringLiteral("takes records again"));
    }
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
        _WarnNoFile();
    } else {
        const QString strFile = m_pDataBase->databaseName();
        m_pKept->Keep(strFile, AwaitedTable(strFile, strTable), nRows, nBytes, write);
    }
}

bool CKvFlightDataDbOperator::_Transact(const std::function<void()>& write)
{
    m_bUndone = false;
    if (!m_pDataBase->transaction()) {
        return false;
    }
    write();
    if (m_bUndone) { // if only the statement is, the rest as well
        QSqlQuery(*m_pDataBase->DBInstance()).exec(QStringLiteral("ROLLBACK"));
    }
    return m_pDataBase->commit();
}

/// Runs a statement of a batch; false when it is refused.
bool CKvFlightDataDbOperator::_Run(QSqlQuery& query)
{
    if (m_bUndone) {
        return false;
    }
    const bool bDone = query.exec();
    if (!bDone || AwaitsTaking()) {
        _WarnRefused(query);
    }
    return bDone;
}

void CKvFlightDataDbOperator::_Run(const CKvBoundInsert& insert)
{
    QSqlQuery query(*m_pDataBase->DBInstance());
    if (insert.PrepareOn(query)) {
        _Run(query);
    } else {
        _WarnRefused(query);
    }
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
        bTakes = (_WriteKept(visit, strFile) || !IsSameFile(strFile, strNamed)) && bTakes;
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
    const bool bTakes = m_pKept->HandOver(strFile, [this](const CKvKeptBatches::WriteInto& write) {
        return _Transact([&] { write(TablesWithin(*m_pDataBase)); });
    });
    _TellTaken(strFile);
    return bTakes;
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
    const bool bDone = query.exec(sql);
    _WarnRefused(query);
    if (!bDone) {
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

/// With a statement for which there is no room, or that the disk fails, SQLite undoes the whole transaction,
/// and would store what follows at once, before what it has undone and what comes again: so nothing follows.
void CKvFlightDataDbOperator::_WarnRefused(const QSqlQuery& query)
{
    WarnRefused(m_pDataBase->databaseName(), query.lastQuery(), query.lastError());
    m_bUndone = m_bUndone || UndoesTransaction(query.lastError());
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
    if (strFlightMissionFilePath.isEmpty()) {
        _WarnNoFile();
    }
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
        if (!bPrepared || !_Run(query)) {
            IsTestServer(); // hosts see in this call that a record was refused
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
        _Run(insert);
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
        if (query.prepare(sql)) {
            description.BindRecord(query, records.at(0).toObject());
            _Run(query);
        } else {
            _WarnRefused(query);
        }
    };
    const QJsonArray records{jsonObject};
    if (!_Store(strTableName, [&] { write(records); })) {
        _KeepRecords(records, strTableName, sql, write);
    }
    m_mutexDB.unlock();
}
