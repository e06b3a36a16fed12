// SPDX-License-Identifier: MIT
#include "CKvFlightDataDbOperator.h"

#include "KvAlgorthm.h"
#include "KvData.h"
#include "KvTableDescription.h"
#include "KvTrace.h"

#include <QtCore/QDateTime>
#include <QtCore/QDebug>
#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QJsonDocument>
#include <QtCore/QUuid>

namespace
{
const char* const UpdateOneValueSql = "UPDATE flight_mission SET %1 = %2 WHERE id = '%3'";
const char* const SelectDocumentSql = "select flight_mission_data from flight_mission where id = '";
const char* const UpdateBreakpointSql =
    "UPDATE flight_mission SET is_uploaded = 0,last_waypoint_index = '%1', break_point_lng = '%2', "
    "break_point_lat = '%3', flight_mission_data = '%4' WHERE id = '%5'";

constexpr int MonitorBatch = 50;
const char* const MonitorColumnsFile = ":/flight_monitor_detail_log.txt";

/// The mission files of the project: "*.kv" in its folders, one level deep, in the file system's order.
QStringList ProjectMissionFiles(const QDir& project)
{
    QStringList listFile;
    for (const QString& strFolder : project.entryList(QDir::AllDirs | QDir::NoDotAndDotDot, QDir::Unsorted)) {
        const QDir folder(project.absoluteFilePath(strFolder));
        for (const QString& strFile :
             folder.entryList({QStringLiteral("*.kv")}, QDir::Files, QDir::Unsorted)) {
            listFile.append(folder.absoluteFilePath(strFile));
        }
    }
    return listFile;
}

/// False for an empty path too, which QDir takes for the working directory.
bool IsProject(const QString& strPath)
{
    return !strPath.isEmpty() && QDir(strPath).exists();
}

QString ProjectPath()
{
    return CKvControl::GetInstance(false, static_cast<EPlaneType>(0))->GetProjectDirPath();
}

void CreateMissionTables(CKvDataBase& database)
{
    QSqlDatabase* const pInstance = database.DBInstance();
    CreateTable(FlightMissionTableName, GetFlightMissionTableContents(), pInstance);
    CreateTable(FlightLogTableName, GetFlightLogTableContents(), pInstance);
    CreateTable(UasStatusTableName, GetUasStatusTableContents(), pInstance);
    CreateTable(PosDataTableName, GetPosDataTableContents(), pInstance);
    CreateTable(FlightCompleteTableName, GetFlightCompleteTableContents(), pInstance);
}

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

CKvFlightDataDbOperator::CKvFlightDataDbOperator(QObject* parent, EUploadEnv eUploadEnv)
    : QObject(parent), m_eUploadEnv(eUploadEnv), m_pMonitorColumns(std::make_unique<CKvTableDescription>())
{
    _initDataBase();
}

CKvFlightDataDbOperator::~CKvFlightDataDbOperator()
{
    if (!m_listFlightMonitorQuery.isEmpty()) {
        _WriteFlightMonitor2DB(m_listFlightMonitorQuery);
        m_listFlightMonitorQuery.clear();
    }
}

void CKvFlightDataDbOperator::SetStartTimeInterval(unsigned int nStartTimeInterval)
{
    m_nStartTimeInterval = nStartTimeInterval;
}

void CKvFlightDataDbOperator::SetFilghtMissionID(const QString& strMissionID)
{
    m_strFlightMissionID = strMissionID;
}

void CKvFlightDataDbOperator::SetFlightModeEasyFly(bool easyMode)
{
    m_bFlightModeEasyFly = easyMode;
}

void CKvFlightDataDbOperator::_initDataBase()
{
    const QString strUserName = GetCurUserInfo().m_strUserName;
    Q_UNUSED(strUserName)
    const QString strProject = ProjectPath();
    if (!IsProject(strProject)) {
        return;
    }
    for (const QString& strFile : ProjectMissionFiles(QDir(strProject))) {
        if (!QFileInfo::exists(strFile)) {
            continue;
        }
        CKvDataBase database(strFile);
        if (database.open()) {
            CreateMissionTables(database);
        }
    }
    m_pDataBase = new CKvDataBase(QLatin1String(""));
}

bool CKvFlightDataDbOperator::_IsDataBaseOpen() const
{
    return m_pDataBase && m_pDataBase->isOpen();
}

/// Points the connection at a file and opens it. Leaving another file finalises the statements that wait
/// on it, so they are executed before.
bool CKvFlightDataDbOperator::_PointDataBaseAt(const QString& strFile)
{
    if (_IsDataBaseOpen() && m_pDataBase->databaseName() != strFile) {
        _CloseDataBase();
    }
    m_pDataBase->DBInstance()->setDatabaseName(strFile);
    return m_pDataBase->open();
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
    m_strFlightMissionFilePath = strFlightMissionFilePath;
    if (!m_pDataBase) {
        return;
    }
    _PointDataBaseAt(strFlightMissionFilePath);
    if (strFlightMissionFilePath.endsWith(QLatin1String(".db"))) {
        QSqlDatabase* const pInstance = m_pDataBase->DBInstance();
        CreateTable(FlightLogTableName, GetFlightLogTableContents(), pInstance);
        CreateTable(UasStatusTableName, GetUasStatusTableContents(), pInstance);
        CreateTable(FlightVideoTableName, GetFlightVideoTableContents(), pInstance);
    }
}

void CKvFlightDataDbOperator::_GetFlightMissionFileInformation()
{
    if (m_listFlightMissionFile.isEmpty()) {
        if (m_eUploadEnv == EUploadEnv::WholeProject) {
            const QString strProject = ProjectPath();
            if (!IsProject(strProject)) {
                return;
            }
            m_listFlightMissionFile = ProjectMissionFiles(QDir(strProject));
        } else if ((m_eUploadEnv == EUploadEnv::CurrentMissionLog ||
                    m_eUploadEnv == EUploadEnv::OncePerRequest) &&
                   !m_strFlightMissionFilePath.isEmpty()) {
            m_listFlightMissionFile.append(m_strFlightMissionFilePath);
        }
    }
    if (m_listFlightMissionFile.isEmpty() || !m_pDataBase) {
        return;
    }
    const QString strFile = m_listFlightMissionFile.takeFirst();
    if (QFileInfo(strFile).isFile()) {
        _upload(strFile);
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

void CKvFlightDataDbOperator::slotUpdateGeneralOneValue(const QVariant& cmd, const QVariant& key,
                                                        const QVariant& value,
                                                        const QVariant& strFlightMissionID)
{
    if (cmd.toInt() != 1) {
        return;
    }
    m_mutexDB.lock();
    if (!m_pDataBase) {
        return; // the lock stays held
    }
    if (!m_pDataBase->isOpen()) {
        m_pDataBase->open();
    }
    // As at a breakpoint, a marker inside a value is substituted too.
    // clazy:excludeall=qstring-arg
    const QString sql = QString::fromLatin1(UpdateOneValueSql)
                            .arg(key.toString())
                            .arg(QString::number(value.toInt()))
                            .arg(strFlightMissionID.toString());
    QSqlQuery query(*m_pDataBase->DBInstance());
    qDebug() << (query.exec(sql) ? "----------------sql ====success  " : "----------------sql ====fail  ");
    m_mutexDB.unlock();
}

void CKvFlightDataDbOperator::slotParseJson(QJsonArray jsonArray, QString strFilePath, QString strMissionID,
                                            unsigned int iOperatorType, QString strFlightMissionFilePath)
{
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
    _InsertRecords(listRecord, description, QFileInfo(strFilePath).baseName());
    _CloseDataBase();
    emit WriteDBFinished(strMissionID, iOperatorType, strFlightMissionFilePath);
    m_mutexDB.unlock();
}

void CKvFlightDataDbOperator::_InsertRecords(const QList<QVariant>& listRecord,
                                             const CKvTableDescription& description, const QString& strTable)
{
    QSqlQuery query(*m_pDataBase->DBInstance());
    query.prepare(description.InsertSql(strTable));
    m_pDataBase->transaction();
    for (const QVariant& element : listRecord) {
        const QJsonObject record = element.toJsonObject();
        if (_IsRecorded(record, strTable)) {
            continue;
        }
        description.BindRecordAsText(query, record);
        query.exec();
        if (query.lastError().type() != QSqlError::NoError) {
            IsTestServer();
        }
    }
    m_pDataBase->commit();
}

/// Whether the table has the record's id already. The id is the value of the first key that has "id" in it.
bool CKvFlightDataDbOperator::_IsRecorded(const QJsonObject& record, const QString& strTable)
{
    const QStringList listKey = record.keys();
    if (!listKey.contains(QStringLiteral("id"))) {
        return false;
    }
    const auto key = std::find_if(listKey.cbegin(), listKey.cend(),
                                  [](const QString& name) { return name.contains(QLatin1String("id")); });
    QList<QVariant> rows;
    SelectRecord(QStringLiteral("id"), strTable,
                 QStringLiteral("id = '") + record.value(*key).toString() + QLatin1Char('\''), QString(),
                 rows);
    return !rows.isEmpty();
}

void CKvFlightDataDbOperator::slotParseJson(QJsonArray jsonArray, QString strFilePath,
                                            QString strFlightMissionID)
{
    m_strParseFlightMissionID = strFlightMissionID;
    if (jsonArray.isEmpty()) {
        return;
    }
    const CKvTableDescription description(strFilePath);
    if (!m_pDataBase) {
        return;
    }
    if (!m_pDataBase->isOpen()) {
        m_pDataBase->open();
    }
    _InsertPositions(jsonArray, description);
    emit WriteDBFinished(strFlightMissionID, 2, m_strFlightMissionFilePath);
}

/// One statement for all records: preparing one for each would take twice the time of the inserts.
void CKvFlightDataDbOperator::_InsertPositions(const QJsonArray& jsonArray,
                                               const CKvTableDescription& description)
{
    QSqlQuery insert(*m_pDataBase->DBInstance());
    if (insert.prepare(description.InsertSql(PosDataTableName))) {
        m_listPosDataQuery.append(insert);
    }
    m_mutexDB.lock();
    m_pDataBase->transaction();
    for (QSqlQuery& query : m_listPosDataQuery) {
        for (const QJsonValue& element : jsonArray) {
            description.BindRecord(query, element.toObject());
            query.exec();
        }
        query.finish();
    }
    m_listPosDataQuery.clear();
    m_pDataBase->commit();
    m_mutexDB.unlock();
}

void CKvFlightDataDbOperator::slotParseSingleJson(QJsonObject jsonObject, QString strFilePath,
                                                  QString strTableName)
{
    m_mutexDB.lock();
    if (jsonObject.isEmpty()) {
        m_mutexDB.unlock();
        return;
    }
    const CKvTableDescription description(strFilePath);
    if (!m_pDataBase) {
        return; // the lock stays held
    }
    if (!m_pDataBase->isOpen()) {
        m_pDataBase->open();
    }
    QSqlQuery query(*m_pDataBase->DBInstance());
    if (query.prepare(description.InsertSql(strTableName))) {
        description.BindRecord(query, jsonObject);
        query.exec();
    }
    m_mutexDB.unlock();
}

void CKvFlightDataDbOperator::slotWriteFlightMonitor(QByteArray byte)
{
    if (m_strFlightMissionID.isEmpty() || !m_pDataBase) {
        return;
    }
    m_pMonitorColumns->Read(QString::fromLatin1(MonitorColumnsFile));
    if (!m_pDataBase->isOpen()) {
        m_pDataBase->open();
    }
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
    m_pDataBase->transaction();
    for (QSqlQuery& query : listQuery) {
        query.exec();
        query.finish();
    }
    m_pDataBase->commit();
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

void CKvFlightDataDbOperator::slotUpdateBreakpoint(int nLastWPIndex, double dLng, double dLat,
                                                   QString strFlightMissionID,
                                                   double dCirculaTaskCompletionDegree)
{
    const char* const strMethod = "CKvFlightDataDbOperator::slotUpdateBreakpoint";
    KV_TRACE << strMethod << 403 << "------record break point slot in" << strFlightMissionID
             << dCirculaTaskCompletionDegree;
    m_mutexDB.lock();
    KV_TRACE << strMethod << 405 << "------record break point slot start";
    if (!m_pDataBase) {
        KV_TRACE << strMethod << 410 << "------record break point slot m_pDataBase nullptr";
        return; // the lock stays held
    }
    if (!m_pDataBase->isOpen()) {
        m_pDataBase->open();
    }
    QByteArray data;
    {
        QSqlQuery select = m_pDataBase->exec(QString::fromLatin1(SelectDocumentSql) + strFlightMissionID +
                                             QLatin1Char('\''));
        if (select.next()) {
            data = select.value(QStringLiteral("flight_mission_data")).toByteArray();
        }
    }
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
    KV_TRACE << strMethod << 447 << "------record break point slot sql==" << sql;
    QSqlQuery update(*m_pDataBase->DBInstance());
    if (update.prepare(sql)) {
        emit RecBreakPointRet(update.exec());
        KV_TRACE << strMethod << 451 << "record break point is ok";
    } else {
        KV_TRACE << strMethod << 454 << "record break point fail"
                 << "sql string==" << sql << "sql error==" << update.lastError();
    }
    update.finish();
    m_mutexDB.unlock();
}
