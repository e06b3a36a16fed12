// SPDX-License-Identifier: MIT
#include "CKvFlightDataDbOperator.h"

#include "CKvUpLoadObject.h"
#include "KvAlgorthm.h"
#include "KvData.h"
#include "KvData/KvOwnThread.h"
#include "KvData/KvWarnings.h"
#include "KvProjectFiles.h"
#include "KvQuoted.h"
#include "KvTrace.h"

#include <QtCore/QDebug>
#include <QtCore/QFileInfo>
#include <QtCore/QPointer>
#include <QtCore/QTimer>

#include <limits>
#include <utility>

namespace
{
// Missions of a file with anything waiting. The gaps are tabs.
const char* const SelectMissionsSql =
    "select id from flight_mission where id in (SELECT distinct flight_mission_id as id from "
    "flight_monitor_detail_log WHERE is_uploaded = 0\t\t\tunion all\t\t\tSELECT id from flight_mission WHERE "
    "is_uploaded = 0\t\t\tunion\t\t\tSELECT distinct flight_mission_id as id from uas_status WHERE "
    "is_uploaded = 0\t\t\tunion\t\t\tSELECT distinct flight_mission_id as id from pos_data WHERE "
    "is_uploaded = 0)";
const char* const SelectOrphanSql =
    "SELECT flight_mission_id FROM flight_monitor_detail_log WHERE is_uploaded = 0 AND NOT EXISTS (SELECT 1 "
    "FROM flight_mission WHERE flight_mission.id = flight_mission_id) LIMIT 1";
} // namespace

// Timer

void CKvFlightDataDbOperator::_BlockTimer(bool bBlock)
{
    if (m_pCheckTimer) {
        m_pCheckTimer->blockSignals(bBlock);
    }
}

void CKvFlightDataDbOperator::_StartTimer(unsigned int nInterval)
{
    if (m_pCheckTimer) {
        constexpr unsigned int nLongest = std::numeric_limits<int>::max();
        m_pCheckTimer->start(static_cast<int>(qMin(nInterval, nLongest)));
    }
}

void CKvFlightDataDbOperator::_WaitForNextCycle(unsigned int nInterval)
{
    _BlockTimer(false);
    _StartTimer(nInterval);
}

// Arming, pausing, resetting

void CKvFlightDataDbOperator::slotCheckNewData()
{
    KV_ON_OWN_THREAD;
    if (m_eUploadEnv == EUploadEnv::None) {
        WarnOnce(KvHost(), QStringLiteral("slotCheckNewData"),
                 QStringLiteral("an operator with EUploadEnv::None uploads nothing"));
    }
    if (!m_pCheckTimer) {
        m_pCheckTimer = new QTimer;
        connect(m_pCheckTimer, SIGNAL(timeout()), this, SLOT(slotStartUpload()));
    }
    const QString strToken = GetCurUserInfo().m_strToken;
    const auto create = [&](CKvUpLoadObject*& pUpLoad, const char* finished, const char* failed,
                            const char* noLogin) {
        if (!pUpLoad) {
            pUpLoad = _NewUpLoadObject(strToken, finished, failed, noLogin);
        }
    };
    create(m_pFlightMonitorUpLoad, SLOT(slotUpLoadFlightMonitorFinished()),
           SLOT(slotFlightMonitorUpLoadfailed()), SLOT(slotFlightMonitorUpLoadfailed()));
    create(m_pFlightMissionUpLoad, SLOT(slotUploadMissionFinished()), SLOT(slotFlightMissionUpLoadfailed()),
           SLOT(slotFlightMissionUpLoadfailed()));
    create(m_pPosDataUpLoad, SLOT(slotUpLoadPosDataFinshed()), SLOT(slotPosDataUpLoadfailed()),
           SLOT(slotPosDataUpLoadfailed()));
    create(m_pUasStatusUpLoad, SLOT(slotUploadUasStatusFinished()), SLOT(slotUasStatusUpLoadfailed()),
           SLOT(slotUasStatusUpLoadfailed()));
    create(m_pVideoMissionUpLoad, SLOT(slotUploadVideoMissionFisished()), SLOT(slotUpLoadfailed()), nullptr);
    _StartTimer(m_nStartTimeInterval);
}

CKvUpLoadObject* CKvFlightDataDbOperator::_NewUpLoadObject(const QString& strToken, const char* finishedSlot,
                                                           const char* failedSlot, const char* noLoginSlot)
{
    auto* const pUpLoad = new CKvUpLoadObject;
    pUpLoad->setRawHeader("token", strToken.toLatin1());
    connect(pUpLoad, SIGNAL(upLoadFinished(QByteArray)), this, finishedSlot);
    connect(pUpLoad, SIGNAL(NetWorkError()), this, failedSlot);
    if (noLoginSlot) {
        connect(pUpLoad, SIGNAL(NoLogin()), this, noLoginSlot);
    }
    return pUpLoad;
}

void CKvFlightDataDbOperator::slotStartUploadTimer(bool bStart)
{
    KV_ON_OWN_THREAD;
    _BlockTimer(!bStart);
    if (!bStart) {
        _CloseDataBase();
        if (m_pDataBase) {
            _WriteKept();
        }
    }
}

void CKvFlightDataDbOperator::slotResetUploadFlow()
{
    KV_ON_OWN_THREAD;
    m_bResetUploadFlow = true;
    KV_TRACE << "CKvFlightDataDbOperator::slotResetUploadFlow";
}

// One cycle: tick, scan of a file, queue of missions

void CKvFlightDataDbOperator::slotStartUpload()
{
    KV_ON_OWN_THREAD;
    if (!CKvControl::GetInstance(false, static_cast<EPlaneType>(0))->IsNetWorkConnected()) {
        if (GetServerIP().isEmpty()) {
            WarnOnce(KvHost(), QStringLiteral("no server address"),
                     QStringLiteral("nothing is uploaded; it is set with SetServerIP()"));
        }
        return;
    }
    WellAgain(QStringLiteral("no server address"));
    if (!m_pFlightMissionUpLoad) {
        WarnOnce(KvHost(), QStringLiteral("slotStartUpload"),
                 QStringLiteral("nothing is sent before slotCheckNewData"));
    }
    const QPointer<CKvFlightDataDbOperator> alive(this); // receivers of UpLoading() and UploadFinished()
    _BlockTimer(true);
    _GetFlightMissionFileInformation();
    if (alive && m_bFlightModeEasyFly) {
        _upLoadVideoMission(QString(m_strFlightMissionID)); // a receiver may set another
    }
    if (alive) {
        _BlockTimer(false);
    }
}

/// The next file of the project, or of the host.
void CKvFlightDataDbOperator::_GetFlightMissionFileInformation()
{
    if (m_listFlightMissionFile.isEmpty()) {
        if (m_eUploadEnv == EUploadEnv::WholeProject) {
            m_listFlightMissionFile = ProjectMissionFiles().value_or(QStringList());
        } else if (m_eUploadEnv == EUploadEnv::CurrentMissionLog ||
                   m_eUploadEnv == EUploadEnv::OncePerRequest) {
            _QueueCurrentFile();
        }
    }
    if (m_listFlightMissionFile.isEmpty() || !m_pDataBase) {
        return;
    }
    const QString strFile = m_listFlightMissionFile.takeFirst();
    if (QFileInfo(strFile).isFile()) {
        _upload(strFile);
    } else {
        WarnOnce(KvSql(), strFile, QStringLiteral("is no file, so nothing of it is uploaded"));
    }
}

void CKvFlightDataDbOperator::_QueueCurrentFile()
{
    if (!m_strFlightMissionFilePath.isEmpty()) {
        m_listFlightMissionFile.append(m_strFlightMissionFilePath);
    } else if (m_eUploadEnv == EUploadEnv::OncePerRequest) { // otherwise it is before the first flight
        WarnOnce(KvHost(), QStringLiteral("no mission file"),
                 QStringLiteral("nothing is uploaded; it is named with SetFlightMissionFilePath()"));
    }
}

void CKvFlightDataDbOperator::_RunStep(ENextStep eStep, const QString& strFile)
{
    switch (eStep) {
    case ENextStep::None:
        break;
    case ENextStep::ScanFile:
        _ScanFile(strFile);
        break;
    case ENextStep::NextMission:
        _UpLoadNextMission();
        break;
    }
}

void CKvFlightDataDbOperator::_upload(const QString& strFile)
{
    _GoOn(ENextStep::ScanFile, strFile);
}

void CKvFlightDataDbOperator::_ScanFile(const QString& strFile)
{
    const bool bThere = QFileInfo(strFile).isFile();
    if (!bThere) { // it has gone since it was queued, and opening would make an empty one
        _CloseDataBase();
    } else if (m_pDataBase->databaseName() != strFile || m_bOpensLater || _IsReplaced()) {
        _PointDataBaseAt(strFile);
    }
    if (bThere && !_IsDataBaseOpen()) {
        qDebug() << "Data base not open ";
        return;
    }
    _QueueMissions();
    if (!m_listFlightMissionID.isEmpty()) {
        _upLoadFlightMission();
        return;
    }
    _WarnOfOrphans();
    if (m_eUploadEnv == EUploadEnv::OncePerRequest) {
        _FinishPass(QLatin1String(""));
    } else if (m_listFlightMissionFile.isEmpty()) {
        _WaitForNextCycle(CycleInterval);
    } else {
        _GetFlightMissionFileInformation();
    }
}

/// Tells of rows that wait where nothing is left to send: no scan finds those of a mission without a row.
void CKvFlightDataDbOperator::_WarnOfOrphans() const
{
    if (m_eUploadEnv == EUploadEnv::CurrentMissionLog) {
        _WarnIfNoMission();
        return;
    }
    const QString strText = QStringLiteral(
        "keeps messages of \"%1\", of which it has no row in flight_mission; they are not uploaded");
    QSqlQuery query = m_pDataBase->exec(QLatin1String(SelectOrphanSql));
    if (query.next()) {
        WarnOnce(KvSql(), m_pDataBase->databaseName(), strText.arg(query.value(0).toString()));
    } else if (query.isActive()) {
        TellOver(m_pDataBase->databaseName(), strText,
                 QStringLiteral("keeps no messages without a row in flight_mission any more"));
    }
}

/// Tells of messages that wait while no flight mission is named; a file without any is not news.
void CKvFlightDataDbOperator::_WarnIfNoMission() const
{
    if (!m_bMissionSet && m_pDataBase
                              ->exec(QStringLiteral("SELECT 1 FROM ") + FlightLogTableName +
                                     QStringLiteral(" WHERE is_uploaded = 0 LIMIT 1"))
                              .next()) {
        WarnOnce(KvHost(), QStringLiteral("no flight mission"),
                 QStringLiteral("nothing is uploaded; it is named with SetFilghtMissionID()"));
    }
}

/// Tells of an operator that was to upload a file, and that its host forgot to start.
void CKvFlightDataDbOperator::_WarnIfNeverArmed() const
{
    const bool bWhole = m_eUploadEnv == EUploadEnv::WholeProject;
    const bool bFile =
        m_eUploadEnv == EUploadEnv::CurrentMissionLog || m_eUploadEnv == EUploadEnv::OncePerRequest;
    if (!m_pCheckTimer && !m_bRecords && (bWhole || (bFile && !m_strFlightMissionFilePath.isEmpty())) &&
        !GetCurUserInfo().m_strToken.isEmpty()) { // nobody signed in, so nobody was to start it
        WarnOnce(KvHost(), QStringLiteral("slotCheckNewData"),
                 QStringLiteral("it never came to an operator that was to upload, which has sent nothing"));
    }
}

/// Tells that an operator which scans other files takes the messages that it records along.
void CKvFlightDataDbOperator::_WarnIfElsewhere() const
{
    if (m_pCheckTimer && m_pDataBase->databaseName() != m_strFlightMissionFilePath) {
        WarnOnce(
            KvSql(), m_strFlightMissionFilePath,
            QStringLiteral("its messages go into other files, as the operator that records them looks for "
                           "what to upload there; use one to record and another to upload"));
    }
}

void CKvFlightDataDbOperator::_QueueMissions()
{
    QString sql;
    switch (m_eUploadEnv) {
    case EUploadEnv::CurrentMissionLog:
        sql = QStringLiteral("SELECT flight_mission_id from ") + FlightLogTableName +
              QStringLiteral(" WHERE is_uploaded = 0 AND flight_mission_id = ") +
              Quoted(m_strFlightMissionID) + QStringLiteral(" group by flight_mission_id");
        break;
    case EUploadEnv::WholeProject:
    case EUploadEnv::OncePerRequest:
        sql = QString::fromLatin1(SelectMissionsSql);
        break;
    default:
        return;
    }
    QSqlQuery query = m_pDataBase->exec(sql);
    while (query.next()) {
        m_listFlightMissionID.append(query.value(0).toString());
    }
    if (m_eUploadEnv == EUploadEnv::CurrentMissionLog) {
        m_listFlightMissionID.removeDuplicates();
    }
}

void CKvFlightDataDbOperator::_FinishPass(const QString& strID)
{
    if (_EmitInFlow([&] { Q_EMIT UploadFinished(QLatin1String(""), strID); })) {
        _BlockTimer(true);
        _CloseDataBase();
    }
}

// Failures

void CKvFlightDataDbOperator::slotUpLoadfailed()
{
    KV_ON_OWN_THREAD;
    qDebug() << "Uplaod Failed";
    _WaitForNextCycle(m_nStartTimeInterval);
}

void CKvFlightDataDbOperator::slotFlightMissionUpLoadfailed()
{
    KV_TRACE << "CKvFlightDataDbOperator::slotFlightMissionUpLoadfailed" << 690;
    slotUpLoadfailed();
}

void CKvFlightDataDbOperator::slotPosDataUpLoadfailed()
{
    KV_TRACE << "CKvFlightDataDbOperator::slotPosDataUpLoadfailed" << 695;
    slotUpLoadfailed();
}

void CKvFlightDataDbOperator::slotUasStatusUpLoadfailed()
{
    KV_TRACE << "CKvFlightDataDbOperator::slotUasStatusUpLoadfailed" << 700;
    slotUpLoadfailed();
}

void CKvFlightDataDbOperator::slotFlightMonitorUpLoadfailed()
{
    KV_TRACE << "CKvFlightDataDbOperator::slotFlightMonitorUpLoadfailed" << 705;
    slotUpLoadfailed();
}
