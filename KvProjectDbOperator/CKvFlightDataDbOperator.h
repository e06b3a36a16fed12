// SPDX-License-Identifier: MIT
#pragma once

#include "KvProjectDbOperatorGlobal.h"

#include <QtCore/QByteArray>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonObject>
#include <QtCore/QList>
#include <QtCore/QMutex>
#include <QtCore/QObject>
#include <QtCore/QSet>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVariant>
#include <QtSql/QSqlError>
#include <QtSql/QSqlQuery>

#include <functional>
#include <memory>

class CKvBoundInsert;
class CKvDataBase;
class CKvIdLookUp;
class CKvKeptBatches;
class CKvTableDescription;
class CKvUpLoadObject;
class QTimer;

/// \file
/// The operator: what a host creates to record flights and to upload them.

/// Which mission files and flight missions an operator uploads.
enum class EUploadEnv : int {
    None = 0,              ///< scans nothing; for an operator that only records
    CurrentMissionLog = 1, ///< the current file; its current mission, once that has log rows waiting
    WholeProject = 2,      ///< every "*.kv" file of the project; every mission with rows waiting
    OncePerRequest = 3,    ///< the current file; every mission with rows waiting; ends with UploadFinished()
};

/// Keeps a project's flight records in mission database files and uploads them to the operator's server.
///
/// A mission database is a "*.kv" file in a folder of the project folder (CKvControl::GetProjectDirPath()).
/// The operator has one database connection, which it points at one file after another; so a host uses one
/// operator for recording and another for uploading, each on one thread with an event loop. The two may
/// share a file.
///
/// Every uploaded table has a column is_uploaded: 0 waits, 1 was accepted by the server. A row is marked by
/// its id after the server has accepted the request that carried it, never before.
///
/// The host reaches the private slots through signal connections with text signatures:
/// \code
/// connect(&host, SIGNAL(message(QByteArray)), pOperator, SLOT(slotWriteFlightMonitor(QByteArray)));
/// \endcode
///
/// No operation throws or returns an error: a failure shows as a signal, or not at all where the text says
/// so. Beside that the trace tells it (KvLog, level 2), and what a host has to mend is a warning: a statement
/// that SQLite refuses, a server that does not accept, something that was not set.
///
/// Everything is called on the operator's own thread, deleting it included; the lock does not change that. It
/// is the thread of the constructor, or one to which a fresh operator was moved. A debug build stops where it
/// is called on another one. All signals are emitted there.
///
/// The writers take a plain, non-recursive lock and some of their early returns keep it, which is said
/// where it happens: from then on every operation that takes the lock blocks. A receiver that is connected
/// directly to WriteDBFinished() or RecBreakPointRet() must not call a writer, as the lock is held while it
/// runs.
///
/// Other than that a receiver may do anything. Steps of the upload that it causes, or that begin in an event
/// loop that it runs, run there, to their end. It deletes the operator through deleteLater(); a plain delete
/// is survived.
class KVPROJECTDBOPERATOR_EXPORT CKvFlightDataDbOperator : public QObject
{
    Q_OBJECT

public:
    /// Creates the missing tables in every mission file of the project and makes the (closed) database
    /// connection. Files that cannot be opened are skipped; one that is locked gets its tables when it is
    /// opened next. Without a project folder there is no connection, and nothing is ever written or uploaded;
    /// the log has a warning.
    ///
    /// \param parent  owner, or null
    /// \param eUploadEnv  what is uploaded once slotCheckNewData() has been called
    CKvFlightDataDbOperator(QObject* parent, EUploadEnv eUploadEnv);

    /// Writes what still waits, for which locks are waited for once, and tells the log what is lost. The
    /// database connection, the timer and the request objects live on until the process ends.
    ~CKvFlightDataDbOperator() override;

    /// Sets the milliseconds between arming, or a failed request, and the next upload cycle; 3000 at the
    /// start. A timer that runs goes on with the old interval. After a cycle without failure it is always
    /// 3000. The way to keep a fleet of clients from knocking together after a server's outage.
    void SetStartTimeInterval(unsigned int nStartTimeInterval);

Q_SIGNALS:
    /// With EUploadEnv::OncePerRequest: a pass has ended. strProID is empty; strFlightID is the mission
    /// sent last, empty when nothing waited. Then the timer's signals are blocked and the file is closed,
    /// also where a receiver has armed the operator anew; one that does is connected through a queued
    /// connection.
    void UploadFinished(const QString& strProID, const QString& strFlightID);
    /// A batch of flight monitor rows is on its way (not accepted yet): project id and flight mission id.
    void UpLoading(const QString& strProID, const QString& strFlightID);
    /// A slotParseJson() call has ended. It does not say that every record was written. Emitted under the
    /// lock by the five-argument slot.
    void WriteDBFinished(QString strMissionID, unsigned int iOperatorType, QString strFlightMissionFilePath);
    /// Answer of slotUpdateBreakpoint(): whether the statement was executed and stored, which it also is
    /// where the file has no such mission. Emitted under the lock; not at all where the file cannot be
    /// opened.
    void RecBreakPointRet(bool);
    /// The server accepted a flight mission row and it has been marked.
    void signalUploadFlightMissionFinish();

public Q_SLOTS:
    /// Sets the current flight mission: that of monitor messages, and of EUploadEnv::CurrentMissionLog.
    void SetFilghtMissionID(const QString& strMissionID);
    /// Points the connection at a mission file and opens it, reopening a closed one. Creates the log,
    /// status and video tables in a file whose name ends with ".db"; another one gains tables here only if
    /// the constructor found it locked. Messages that still wait are first written into the file that they
    /// were recorded for.
    void SetFlightMissionFilePath(const QString& strFlightMissionFilePath);
    /// Switches easy-fly mode: the mission row is read from the video table.
    void SetFlightModeEasyFly(bool easyMode);
    /// Sets one column of one flight mission in the file that the connection names.
    ///
    /// \param cmd  must be 1; anything else is ignored
    /// \param key  column name
    /// \param value  as QVariant::toInt() has it: 5.7 gives 6, the text "12" gives 12, any other text 0
    /// \param strFlightMissionID  id of the row; must hold no single quote
    ///
    /// Success and failure go to the debug output only. Without a connection the lock stays held.
    void slotUpdateGeneralOneValue(const QVariant& cmd, const QVariant& key, const QVariant& value,
                                   const QVariant& strFlightMissionID);
    /// Writes an array of records into a mission file in one transaction and closes the file; emits
    /// WriteDBFinished(strMissionID, iOperatorType, strFlightMissionFilePath).
    ///
    /// \param strFilePath  table description file, named after the table up to its first ".": text whose
    ///        tokens at even positions name the columns
    /// \param strMissionID, iOperatorType  handed to the signal only
    /// \param strFlightMissionFilePath  mission file
    ///
    /// Values are taken as text: a number, boolean or null gives NULL, so pass numbers as text. A column
    /// whose name contains "message" takes Base64; one whose name contains "log_count" gets the text
    /// "NULL". A record whose id is in the table already is skipped. A column that a record lacks keeps the
    /// value of the record before; so a record without "id" behind one with an id is dropped. An empty array
    /// is ignored, without a signal. Without a connection, or with a file that no waiting makes open, there
    /// is no signal and the lock stays held.
    void slotParseJson(QJsonArray, QString strFilePath, QString strMissionID, unsigned int iOperatorType,
                       QString strFlightMissionFilePath);
    /// Ends the upload of flight monitor rows after the batch in flight and begins a new cycle after 3 s.
    void slotResetUploadFlow();

private Q_SLOTS:
    /// \name Private slots
    /// Reached by connections with text signatures, or by QMetaObject::invokeMethod(). Those of timer and
    /// request objects are for these alone.
    /// @{

    /// A tick of the upload timer: scans the next file while the network is there.
    void slotStartUpload();
    /// Arms the pipeline: creates timer and request objects on the first call, with the token of the user
    /// who is signed in then (it is never renewed), and starts the timer.
    void slotCheckNewData();
    /// The server accepted a mission row: marks it and sends the mission's positions.
    void slotUploadMissionFinished();
    /// The server accepted positions: marks them and sends the status rows.
    void slotUpLoadPosDataFinshed();
    /// The server accepted status rows: marks them and sends the log.
    void slotUploadUasStatusFinished();
    /// The server accepted log rows: marks them and sends the next ones.
    void slotUpLoadFlightMonitorFinished();
    /// Queues one raw flight monitor message for the current mission; rows are written in batches of 50,
    /// and at the latest when the connection leaves the file or the operator is destroyed. Without a
    /// current mission the message is dropped. The columns are those of ":/flight_monitor_detail_log.txt".
    void slotWriteFlightMonitor(QByteArray byte);
    /// The server accepted a video mission row: marks it.
    void slotUploadVideoMissionFisished();
    /// Writes position records into the file that the connection names, in one transaction; values keep
    /// their JSON type. Emits WriteDBFinished(strFlightMissionID, 2, current file).
    void slotParseJson(QJsonArray jsonArray, QString strFilePath, QString strFlightMissionID);
    /// Writes one record into a table of the file that the connection names; values keep their JSON type.
    /// No signal. Without a connection the lock stays held.
    void slotParseSingleJson(QJsonObject, QString strFilePath, QString strTableName);
    /// Stores where a flight mission was interrupted and marks it for upload; emits RecBreakPointRet().
    ///
    /// \param nLastWPIndex  index of the last waypoint reached
    /// \param dLng, dLat  position in degrees, stored with 6 decimals
    /// \param strFlightMissionID  id of the mission row
    /// \param dCirculaTaskCompletionDegree  how far a circular task had got, written into the mission's
    ///        JSON document as "circula_task_completion_degree"
    ///
    /// The document must hold no single quote and no "%" with a digit behind it, not even as a \\u escape:
    /// with a quote there is no answer, as the statement cannot be prepared; with a marker another row than
    /// this one may be meant, or none. Without a connection the lock stays held.
    void slotUpdateBreakpoint(int nLastWPIndex, double dLng, double dLat, QString strFlightMissionID,
                              double dCirculaTaskCompletionDegree);
    /// Pauses (false: ticks are silenced, the file is closed) or resumes the upload.
    void slotStartUploadTimer(bool bStart);
    /// A request failed: the timer starts the next cycle after the interval.
    void slotUpLoadfailed();
    /// A mission row was not accepted; ends in slotUpLoadfailed().
    void slotFlightMissionUpLoadfailed();
    /// Positions were not accepted; ends in slotUpLoadfailed().
    void slotPosDataUpLoadfailed();
    /// Status rows were not accepted; ends in slotUpLoadfailed().
    void slotUasStatusUpLoadfailed();
    /// Log rows were not accepted; ends in slotUpLoadfailed().
    void slotFlightMonitorUpLoadfailed();
    /// @}

private:
    // Flight data store
    void _initDataBase();
    QSqlError _write2DB(const QString& sql, const QString&, unsigned int);
    bool SelectRecord(QString strFields, QString strTable, QString strWhere, QString strTail,
                      QList<QVariant>& rows);
    void _WriteFlightMonitor2DB(QList<QSqlQuery>& listQuery);
    void _InsertRecords(const QList<QVariant>& listRecord, const CKvTableDescription& description,
                        const QString& strTable);
    void _WarnRefused(const QSqlQuery& query) const;
    void _WarnUnlessUpdated(const QSqlQuery& update, const QString& strID) const;
    bool _IsRecorded(const QJsonObject& record, const QString& strTable, CKvIdLookUp& lookUp);
    void _InsertPositions(const QJsonArray& jsonArray, const CKvTableDescription& description);
    void _WritePositions(const QJsonArray& jsonArray, const CKvTableDescription& description);
    QVariant _MonitorValue(const QString& strColumn, const QByteArray& byte) const;
    QSqlQuery _TakeMonitorInsert();
    void _ExecuteBatch(QList<QSqlQuery> listQuery);
    void _KeepFlightMonitor(const QByteArray& byte);
    void _KeepFlightMonitor(const QList<QSqlQuery>& listQuery);
    bool _ReadDocument(const QString& strFlightMissionID, QByteArray& data) const;
    void _StoreBreakpoint(const QString& sql, bool bRead, const QString& strFlightMissionID);
    void _AnswerBreakpoint(bool bStored);
    void _FlushFlightMonitor();
    bool _IsDataBaseOpen() const;
    bool _PointDataBaseAt(const QString& strFile);
    bool _EnsureOpen();
    void _WarnNoTables(const QString& strLacked = {}) const;
    static void _WarnNoFile();
    void _TellTaken(const QString& strFile) const;
    bool _IsBare(const QString& strFile) const;
    bool _MakeTables();
    void _CloseDataBase();
    bool _Store(const QString& strTable, const std::function<void()>& write);
    void _KeepRecords(const QJsonArray& jsonArray, const QString& strTable, const QString& sql,
                      const std::function<void(const QJsonArray&)>& write);
    void _Keep(const QString& strTable, int nRows, qint64 nBytes, const std::function<void()>& write);
    bool _Transact(const std::function<void()>& write);
    bool _Run(QSqlQuery& query);
    void _Run(const CKvBoundInsert& insert);
    bool _WriteKept();
    bool _WriteKept(CKvDataBase& database, const QString& strFile);
    void _EmitUnderLock(const std::function<void()>& emitSignal);

    // Upload pipeline, in the order in which it runs
    static constexpr unsigned int CycleInterval = 3000; // milliseconds
    struct SBatchKind;
    static const SBatchKind& _PosDataKind();
    static const SBatchKind& _UasStatusKind();
    CKvUpLoadObject* _NewUpLoadObject(const QString& strToken, const char* finishedSlot,
                                      const char* failedSlot, const char* noLoginSlot);
    enum class ENextStep { None, ScanFile, NextMission };
    void _GoOn(ENextStep eStep, const QString& strFile = {});
    void _RunStep(ENextStep eStep, const QString& strFile);
    bool _EmitInFlow(const std::function<void()>& emitSignal);
    void _GetFlightMissionFileInformation();
    void _QueueCurrentFile();
    void _WarnIfElsewhere() const;
    void _WarnIfNoMission() const;
    void _WarnIfNeverArmed() const;
    void _WarnOfOrphans() const;
    void _upload(const QString& strFile);
    void _ScanFile(const QString& strFile);
    void _QueueMissions();
    void _upLoadFlightMission();
    void _UpLoadNextMission();
    void _postFlightMission(const QByteArray& json, const QString& strID);
    void _uploadPosData(const QString& strID);
    void _postPosData(QByteArray json, const QString& strID, const QStringList& listID);
    void _uploadUasStatus(const QString& strID);
    void _postUasStatus(QByteArray json, const QString& strID, const QStringList& listID);
    void _UploadBatch(const SBatchKind& kind, const QString& strID);
    void _PostBatch(const SBatchKind& kind, QByteArray json, const QString& strID, const QStringList& listID);
    void _FinishBatch(const SBatchKind& kind);
    void _upLoadFlightMonitor(const QString& strID);
    void _postFlightMonitor(QByteArray json, const QString& strID, const QStringList& listID);
    void _EndMission(const QString& strID);
    void _upLoadVideoMission(const QString& strID);
    void _uploadVideoUasStatus(const QString& strID);
    void _postVideoMission(const QByteArray& json, const QString& strID);
    void _MarkUploaded(const QString& sql);
    void _FinishPass(const QString& strID);
    void _BlockTimer(bool bBlock);
    void _StartTimer(unsigned int nInterval);
    void _WaitForNextCycle(unsigned int nInterval);

    QString m_strFlightMissionFilePath;
    QString m_strFlightMissionID;
    QTimer* m_pCheckTimer = nullptr;
    QStringList m_listFlightMissionFile;
    QStringList m_listFlightMissionID;
    CKvDataBase* m_pDataBase = nullptr;
    CKvUpLoadObject* m_pFlightMissionUpLoad = nullptr;
    CKvUpLoadObject* m_pPosDataUpLoad = nullptr;
    CKvUpLoadObject* m_pUasStatusUpLoad = nullptr;
    CKvUpLoadObject* m_pFlightMonitorUpLoad = nullptr;
    CKvUpLoadObject* m_pVideoMissionUpLoad = nullptr;
    QMutex m_mutexDB;
    QList<QSqlQuery> m_listFlightMonitorQuery;
    QList<QSqlQuery> m_listPosDataQuery; // the insert of the records that are being written
    QString m_strParseFlightMissionID = QLatin1String("");
    EUploadEnv m_eUploadEnv;
    unsigned int m_nStartTimeInterval = 3000;
    bool m_bFlightModeEasyFly = false;
    bool m_bResetUploadFlow = false;
    ENextStep m_eNextStep = ENextStep::None; // see _GoOn()
    QString m_strNextFile;
    bool m_bFlowRunning = false;
    int m_nSignalsUnderLock = 0;
    QList<QSqlQuery> m_listIdleMonitorQuery; // see _TakeMonitorInsert()
    std::unique_ptr<CKvTableDescription> m_pMonitorColumns;
    std::unique_ptr<CKvKeptBatches> m_pKept;
    QSet<QString> m_setBareFile; // locked at the start, when their tables would have been made
    bool m_bWasThere = false;    // the file that the connection names, when it was last opened
    bool m_bOpensLater = false;  // for want of descriptors or room
    bool m_bUndone = false;      // the transaction, see _Run()
    bool m_bRecords = false;     // has been given something to record
    bool m_bMissionSet = false;  // whether one flies, or none any more
};
