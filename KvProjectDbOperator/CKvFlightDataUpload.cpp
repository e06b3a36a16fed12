// SPDX-License-Identifier: MIT
#include "CKvFlightDataDbOperator.h"

#include "CKvUpLoadObject.h"
#include "KvAlgorthm.h"
#include "KvData.h"
#include "KvData/KvOwnThread.h"
#include "KvQuoted.h"
#include "KvTrace.h"

#include <QtCore/QJsonDocument>
#include <QtCore/QPointer>
#include <QtCore/QSettings>
#include <QtCore/QTimer>

#include <utility>

namespace
{
QString QuotedList(const QStringList& listID)
{
    return QLatin1Char('\'') + listID.join(QStringLiteral("','")) + QLatin1Char('\'');
}

QString SelectWaitingSql(const QString& strTable, const QString& strColumn, const QString& strID,
                         const char* tail = "")
{
    return QStringLiteral("select * from ") + strTable + QStringLiteral(" WHERE is_uploaded = 0 AND ") +
           strColumn + QLatin1Char('=') + Quoted(strID) + QLatin1String(tail);
}

QString MarkListSql(const QString& strTable, const QStringList& listID)
{
    return QStringLiteral("UPDATE ") + strTable + QStringLiteral(" SET is_uploaded=1 WHERE id in (") +
           QuotedList(listID) + QLatin1Char(')');
}

QString MissionTable(bool bEasyFly)
{
    return bEasyFly ? FlightVideoTableName : FlightMissionTableName;
}

QByteArray CompactJson(const QJsonObject& object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

using JsonBuilder = QJsonObject (*)(QSqlQuery*);

/// The rows that one request carries.
struct SRows {
    QByteArray json; ///< a JSON array
    QStringList listID;
};

/// Each row becomes text as it is read: one JSON array of all would take several times the memory.
SRows ReadRows(const CKvDataBase& database, const QString& sql, JsonBuilder comboJsonInfo)
{
    SRows rows;
    rows.json = "[";
    QSqlQuery query = database.exec(sql);
    while (query.next()) {
        if (!rows.listID.isEmpty()) {
            rows.json += ',';
        }
        rows.listID.append(query.value(QStringLiteral("id")).toString());
        rows.json += CompactJson(comboJsonInfo(&query));
    }
    rows.json += ']';
    return rows;
}

/// The stored token is read as the server's sign-in expects it; the request carries the header that was
/// set when the request object was made.
void ReadStoredToken()
{
    QSettings settings(OrganizationName, CloundApplicationName);
    settings.beginGroup(UserInfoGroupName);
    const QString strToken = settings.value(UserInfoToken, QVariant()).toString();
    Q_UNUSED(strToken)
    settings.endGroup();
}

void Send(CKvUpLoadObject* pUpLoad, const char* endpoint, const QByteArray& body, const QString& strID,
          const QStringList& listID = {})
{
    if (!pUpLoad) {
        return;
    }
    pUpLoad->SetFilePathArray(body);
    pUpLoad->SetUrl(GetServerIP() + endpoint);
    pUpLoad->m_listRecordID = listID;
    pUpLoad->m_strRecordKey = strID;
    pUpLoad->PostNetWorkReplyMessage();
}

QByteArray ObjectBody(const QByteArray& json)
{
    return "data=" + json;
}

/// The rows become the body where they are; a mission's positions may be hundreds of megabytes.
QByteArray RowsBody(const QString& strID, QByteArray json)
{
    return json.insert(0, "flight_mission_id=" + strID.toLatin1() + "&data="); // prepend() would copy
}
} // namespace

/// What differs between the kinds that are sent whole, in one request.
struct CKvFlightDataDbOperator::SBatchKind {
    QString strTable;
    JsonBuilder comboJsonInfo;
    CKvUpLoadObject* CKvFlightDataDbOperator::*pUpLoad;
    const char* endpoint;
    const char* postMethod; // the two lines of the log
    const char* postText;
    const char* finishedMethod;
    const char* finishedText;
    void (CKvFlightDataDbOperator::*next)(const QString& strID);
};

const CKvFlightDataDbOperator::SBatchKind& CKvFlightDataDbOperator::_PosDataKind()
{
    static const SBatchKind kind{PosDataTableName,
                                 PosDataComboJsonInfo,
                                 &CKvFlightDataDbOperator::m_pPosDataUpLoad,
                                 "/flight/posupload",
                                 "CKvFlightDataDbOperator::_postPosData",
                                 "Start upload pos data, flightmission id =",
                                 "CKvFlightDataDbOperator::slotUpLoadPosDataFinshed",
                                 "Upload pos data success,idList =",
                                 &CKvFlightDataDbOperator::_uploadUasStatus};
    return kind;
}

const CKvFlightDataDbOperator::SBatchKind& CKvFlightDataDbOperator::_UasStatusKind()
{
    static const SBatchKind kind{UasStatusTableName,
                                 UasStatusComboJsonInfo,
                                 &CKvFlightDataDbOperator::m_pUasStatusUpLoad,
                                 "/flight/uasstatusupload",
                                 "CKvFlightDataDbOperator::_postUasStatus",
                                 "Start upload uasStatus, flightmission id =",
                                 "CKvFlightDataDbOperator::slotUploadUasStatusFinished",
                                 "Upload uasStatus success,idList =",
                                 &CKvFlightDataDbOperator::_upLoadFlightMonitor};
    return kind;
}

// The chain of one mission: its row, positions, status, log

void CKvFlightDataDbOperator::_upLoadFlightMission()
{
    _GoOn(ENextStep::NextMission);
}

void CKvFlightDataDbOperator::_UpLoadNextMission()
{
    if (!_IsDataBaseOpen()) {
        return;
    }
    if (m_listFlightMissionID.isEmpty()) {
        _StartTimer(CycleInterval);
        return;
    }
    const QString strID = m_listFlightMissionID.takeFirst();
    QJsonObject object;
    bool bUploaded = false;
    {
        QSqlQuery query =
            m_pDataBase->exec(QStringLiteral("select * from ") + MissionTable(m_bFlightModeEasyFly) +
                              QStringLiteral(" where id=") + Quoted(strID));
        if (!query.next()) {
            return;
        }
        bUploaded = query.value(QStringLiteral("is_uploaded")).toInt() != 0;
        if (!bUploaded) {
            object = FlightMissionComboJsonInfo(&query);
        }
    }
    if (m_pCheckTimer) {
        m_pCheckTimer->stop();
    }
    if (bUploaded) {
        _uploadPosData(strID);
        return;
    }
    const QByteArray json = CompactJson(object);
    KV_TRACE << "CKvFlightDataDbOperator::_upLoadFlightMission" << !object.isEmpty()
             << "Post flight_mission:" << json;
    if (!object.isEmpty()) {
        _postFlightMission(json, strID);
    }
}

void CKvFlightDataDbOperator::_postFlightMission(const QByteArray& json, const QString& strID)
{
    KV_TRACE << "CKvFlightDataDbOperator::_postFlightMission"
             << "Start upload flight mission,id =" << strID;
    Send(m_pFlightMissionUpLoad, "/flight/upload", ObjectBody(json), strID);
}

void CKvFlightDataDbOperator::slotUploadMissionFinished()
{
    KV_ON_OWN_THREAD;
    if (!m_pFlightMissionUpLoad) {
        return;
    }
    const QString strID = m_pFlightMissionUpLoad->m_strRecordKey;
    if (_IsDataBaseOpen()) {
        // The mission table is named in easy-fly mode too, where the row was read from the video table.
        _MarkUploaded(QStringLiteral("UPDATE ") + FlightMissionTableName +
                      QStringLiteral(" SET is_uploaded=1 WHERE id=") + Quoted(strID));
    }
    KV_TRACE << "CKvFlightDataDbOperator::slotUploadMissionFinished"
             << "Upload flight mission success,id =" << strID;
    const QPointer<CKvFlightDataDbOperator> alive(this);
    _uploadPosData(strID);
    if (alive) {
        Q_EMIT signalUploadFlightMissionFinish();
    }
}

void CKvFlightDataDbOperator::_uploadPosData(const QString& strID)
{
    _UploadBatch(_PosDataKind(), strID);
}

void CKvFlightDataDbOperator::_postPosData(QByteArray json, const QString& strID, const QStringList& listID)
{
    _PostBatch(_PosDataKind(), std::move(json), strID, listID);
}

void CKvFlightDataDbOperator::slotUpLoadPosDataFinshed()
{
    KV_ON_OWN_THREAD;
    _FinishBatch(_PosDataKind());
}

void CKvFlightDataDbOperator::_uploadUasStatus(const QString& strID)
{
    _UploadBatch(_UasStatusKind(), strID);
}

void CKvFlightDataDbOperator::_postUasStatus(QByteArray json, const QString& strID, const QStringList& listID)
{
    _PostBatch(_UasStatusKind(), std::move(json), strID, listID);
}

void CKvFlightDataDbOperator::slotUploadUasStatusFinished()
{
    KV_ON_OWN_THREAD;
    _FinishBatch(_UasStatusKind());
}

void CKvFlightDataDbOperator::_UploadBatch(const SBatchKind& kind, const QString& strID)
{
    ReadStoredToken();
    if (!_IsDataBaseOpen()) {
        return;
    }
    SRows rows =
        ReadRows(*m_pDataBase, SelectWaitingSql(kind.strTable, QStringLiteral("flight_mission_id"), strID),
                 kind.comboJsonInfo);
    if (rows.listID.isEmpty()) {
        (this->*kind.next)(strID);
    } else {
        _PostBatch(kind, std::move(rows.json), strID, rows.listID);
    }
}

void CKvFlightDataDbOperator::_PostBatch(const SBatchKind& kind, QByteArray json, const QString& strID,
                                         const QStringList& listID)
{
    // As a text, since the two Qts write a list in two ways.
    KV_TRACE << kind.postMethod << kind.postText << strID
             << ",idList =" << QLatin1Char('(') + listID.join(QLatin1String(", ")) + QLatin1Char(')');
    Send(this->*kind.pUpLoad, kind.endpoint, RowsBody(strID, std::move(json)), strID, listID);
}

void CKvFlightDataDbOperator::_FinishBatch(const SBatchKind& kind)
{
    const CKvUpLoadObject* const pUpLoad = this->*kind.pUpLoad;
    if (!pUpLoad) {
        return;
    }
    const QString strID = pUpLoad->m_strRecordKey; // the next post sets another
    KV_TRACE << kind.finishedMethod << _IsDataBaseOpen() << !pUpLoad->m_listRecordID.isEmpty();
    if (_IsDataBaseOpen() && !pUpLoad->m_listRecordID.isEmpty()) {
        _MarkUploaded(MarkListSql(kind.strTable, pUpLoad->m_listRecordID));
        KV_TRACE << kind.finishedMethod << kind.finishedText << QuotedList(pUpLoad->m_listRecordID);
    }
    (this->*kind.next)(strID);
}

void CKvFlightDataDbOperator::_upLoadFlightMonitor(const QString& strID)
{
    ReadStoredToken();
    if (!_IsDataBaseOpen()) {
        return;
    }
    SRows rows = ReadRows(
        *m_pDataBase,
        SelectWaitingSql(FlightLogTableName, QStringLiteral("flight_mission_id"), strID, " LIMIT 1000"),
        FlightLogComboJsonInfo);
    if (rows.listID.isEmpty()) {
        _EndMission(strID);
        return;
    }
    _postFlightMonitor(std::move(rows.json), strID, rows.listID);
    QString strProject;
    {
        QSqlQuery query =
            m_pDataBase->exec(QStringLiteral("select project_id from ") + FlightMissionTableName +
                              QStringLiteral(" WHERE id=") + Quoted(strID));
        if (!query.next()) {
            return;
        }
        strProject = query.value(0).toString();
    }
    _EmitInFlow([&] { Q_EMIT UpLoading(strProject, strID); });
}

void CKvFlightDataDbOperator::_postFlightMonitor(QByteArray json, const QString& strID,
                                                 const QStringList& listID)
{
    Send(m_pFlightMonitorUpLoad, "/flight/detailupload", RowsBody(strID, std::move(json)), strID, listID);
}

void CKvFlightDataDbOperator::slotUpLoadFlightMonitorFinished()
{
    KV_ON_OWN_THREAD;
    if (!m_pFlightMonitorUpLoad) {
        return;
    }
    const QString strID = m_pFlightMonitorUpLoad->m_strRecordKey;
    const QStringList listID = std::exchange(m_pFlightMonitorUpLoad->m_listRecordID, {});
    if (_IsDataBaseOpen() && !listID.isEmpty()) {
        _MarkUploaded(MarkListSql(FlightLogTableName, listID));
    }
    if (m_bResetUploadFlow) {
        _WaitForNextCycle(CycleInterval);
        m_bResetUploadFlow = false;
        return;
    }
    _upLoadFlightMonitor(strID);
}

/// Everything of the mission is sent: on to the next mission, the next file or the next cycle.
void CKvFlightDataDbOperator::_EndMission(const QString& strID)
{
    if (!m_listFlightMissionID.isEmpty()) {
        _upLoadFlightMission();
    } else if (m_eUploadEnv == EUploadEnv::OncePerRequest) {
        _WarnOfOrphans();
        _FinishPass(strID);
    } else if (m_listFlightMissionFile.isEmpty()) {
        _WaitForNextCycle(CycleInterval);
    } else {
        _upload(m_listFlightMissionFile.takeFirst());
    }
}

void CKvFlightDataDbOperator::_MarkUploaded(const QString& sql)
{
    m_mutexDB.lock();
    _Transact([&] { m_pDataBase->exec(sql).finish(); });
    m_mutexDB.unlock();
}

// The video mission, beside the chain

void CKvFlightDataDbOperator::_upLoadVideoMission(const QString& strID)
{
    if (strID.isEmpty() || !_IsDataBaseOpen()) {
        return;
    }
    QJsonObject object;
    {
        QSqlQuery query = m_pDataBase->exec(
            SelectWaitingSql(FlightVideoTableName, QStringLiteral("id"), strID, " LIMIT 1"));
        if (query.next()) {
            object = FlightVideoMissionComboJsonInfo(&query);
        }
    }
    if (object.isEmpty()) {
        _uploadUasStatus(strID);
    } else {
        _postVideoMission(CompactJson(object), strID);
    }
}

void CKvFlightDataDbOperator::_postVideoMission(const QByteArray& json, const QString& strID)
{
    Send(m_pVideoMissionUpLoad, "/flight/upload4video", ObjectBody(json), strID);
}

void CKvFlightDataDbOperator::slotUploadVideoMissionFisished()
{
    KV_ON_OWN_THREAD;
    if (m_pVideoMissionUpLoad && _IsDataBaseOpen()) {
        _MarkUploaded(QStringLiteral("UPDATE ") + FlightVideoTableName +
                      QStringLiteral(" SET is_uploaded=1 WHERE id = ") +
                      Quoted(m_pVideoMissionUpLoad->m_strRecordKey));
    }
}

void CKvFlightDataDbOperator::_uploadVideoUasStatus(const QString& strID)
{
    if (strID.isEmpty() || !_IsDataBaseOpen()) {
        return;
    }
    const SRows rows = ReadRows(
        *m_pDataBase, SelectWaitingSql(UasStatusTableName, QStringLiteral("mission_id"), strID, " LIMIT 1"),
        FlightVideoMissionComboJsonInfo);
    if (!rows.listID.isEmpty()) {
        _postUasStatus(rows.json, strID, {}); // no ids: the reply marks nothing
    }
}
