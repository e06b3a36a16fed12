// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QPointer>
#include <QtCore/QString>
#include <QtCore/QtGlobal>
#include <QtCore/QThread>
#include <QtSql/QSqlDatabase>
#include <QtSql/QSqlError>
#include <QtSql/QSqlQuery>

#include <functional>
#include <utility>

#if defined(KVDATA_LIBRARY)
#define KVDATA_EXPORT Q_DECL_EXPORT
#else
#define KVDATA_EXPORT Q_DECL_IMPORT
#endif

/// \file
/// The host application's access to mission database files, its project and its network state.

class CKvPatience;

/// One SQLite connection, used on one thread from open() to close(), which a debug build of the library
/// insists on; while it is closed, its owner may move.
///
/// A mission database is one file at rest: a rollback journal, synced so that a committed row survives a
/// loss of power. Where another program holds the file open in WAL mode, that mode is left alone until it has
/// gone.
///
/// A connection constructed on a file is meant for a short visit and waits up to 1 s for a lock that somebody
/// else holds (and hardly at all where the file is known to be locked), all visits of a thread together; one
/// constructed without a file name carries the records of a flight and waits up to 30 s. That is the wait for
/// all its statements together: once it is used up, they fail at once until the thread is back in its event
/// loop, or for as long as the thread has done other things.
///
/// What keeps a file from being opened or written is told to the log once, at level Error, with its path; a
/// lock that keeps it from being read, at level Warn. When the same comes again it is told after twenty
/// minutes, with the number of times.
class KVDATA_EXPORT CKvDataBase
{
public:
    /// Makes a closed connection of its own whose database name is `databaseName` (a file path, or empty
    /// when the name follows later through DBInstance()).
    explicit CKvDataBase(const QString& databaseName);
    /// Closes the connection and releases it.
    ~CKvDataBase();

    CKvDataBase(const CKvDataBase&) = delete;
    CKvDataBase& operator=(const CKvDataBase&) = delete;

    /// The wrapped connection, never null, owned by this object. Its database name may be set at any
    /// time and takes effect with the next open().
    QSqlDatabase* DBInstance();

    /// Opens the file that the connection now names, creating it when it is missing (in an existing
    /// folder).
    ///
    /// Does nothing when that very file is open already, so that prepared statements stay valid; closes
    /// another file first. A file that is locked is open all the same: what this has to set up is tried again
    /// when the connection is next used. Where no file descriptor is free, or no room for a new file, the
    /// answer is true too, with a line in the log, but isOpen() is false until a later open() finds some.
    /// \return false, with a line in the log, for what waiting does not mend: an empty name, a folder that
    ///         does not exist, a path that is a folder, a device or a link that leads nowhere, a file that
    ///         may not be read, or made where there is none, or that is no database
    bool open();

    /// Whether a file is open.
    bool isOpen() const;

    /// Closes the connection, which stays reusable. Prepared statements on it become invalid.
    void close();

    /// Runs one statement. The query is forward-only and stands before its first row; errors are in its
    /// lastError(), and one that is not a lock is a warning in the log (at its first, tenth, ... time).
    QSqlQuery exec(const QString& sql) const;

    /// Begins a transaction that may write: the write lock is taken at once, waiting for others.
    /// \return false, with a line in the log, when no transaction has begun; so too when the open file was
    ///         moved away, replaced or deleted, as nobody would find what it takes
    bool transaction();

    /// Commits the transaction, waiting for others that read. When that fails, the transaction is rolled
    /// back, so that no lock stays behind and nothing of it is stored; it may be run again. \return false,
    /// with a line in the log, when nothing was stored
    bool commit();

    /// Sets how long connections that are constructed from now on wait for locks, in milliseconds, instead of
    /// 30000; visits wait no longer either. For tests of a host that cannot wait that long.
    static void SetLockWait(int nMilliseconds);

    /// Database name that the connection has now, one set through DBInstance() included.
    QString databaseName() const;

private:
    QSqlError _Run(const QString& sql) const;
    QSqlError _Insist(const std::function<QSqlError()>& run) const;
    QSqlError _Settle();
    QSqlError _Begin();
    QSqlError _Touch() const;
    QSqlError _CheckPlace() const;
    void _ReportNotBegun(const QSqlError& error);
    void _CountWaits() const;
    void _LeaveWriteAheadLog();
    QSqlError _SetUp();
    void _SetBusyTimeout(int nMilliseconds) const;

    QSqlDatabase m_database;
    QString m_strOpenFile; ///< what is really open; the database name may run ahead of it
    int m_nSettled = 0;    ///< how many of the opening statements have been run
    bool m_bInTransaction = false;
    bool m_bToldReadOnly = false;
    QString m_strPlace;                     ///< absolute path of the open file
    QString m_strLog;                       ///< where SQLite has its log in WAL mode
    std::pair<quint64, quint64> m_identity; ///< what IdentityOf() has said of it
    QPointer<QThread> m_pThread;            ///< the one that has the file open
    mutable int m_nBusyTimeout = 0;         ///< what SQLite has been told, milliseconds
    CKvPatience* const m_pPatience;
};

/// Creates a table unless it exists, and its index of rows that wait for upload.
///
/// \param table     name of the table
/// \param contents  column definitions as the table-contents functions of KvAlgorthm give them
/// \param database  an open connection
/// \return whether the table exists afterwards. A table that was there already keeps its columns and rows.
///
/// A lock that somebody else holds is waited for as the connection does it, by one call; the next ones on the
/// same connection only try, until one of them finds the file free.
KVDATA_EXPORT bool CreateTable(const QString& table, const QString& contents, QSqlDatabase* database);

/// Creates the tables of a flight's mission file, those that are missing, each as CreateTable() does.
///
/// \return whether all of them exist afterwards
KVDATA_EXPORT bool CreateMissionTables(QSqlDatabase* database);

/// Makes a flight's mission file with its tables, in a folder that exists; in a file that is there already,
/// the tables that it lacks. All of them come at once: nobody ever finds some, a loss of power included.
///
/// \return false, with a line in the log, when the file cannot be made or lacks a table afterwards
KVDATA_EXPORT bool CreateMissionFile(const QString& path);

/// Kinds of aircraft that a host controls.
enum class EPlaneType : int {
    Multirotor = 0,
    FixedWing = 1,
    Vtol = 2,
};

/// The host's application control: the current project and the network. Usable from any thread.
class KVDATA_EXPORT CKvControl
{
public:
    /// The process-wide instance, never null. Both arguments are for hosts that keep one control for each
    /// kind of aircraft; this implementation keeps one for all.
    static CKvControl* GetInstance(const bool& bCreate, const EPlaneType& ePlaneType);

    /// Folder of the current project; empty until SetProjectDirPath().
    QString GetProjectDirPath();
    /// Sets the folder of the current project, which must be there when an operator is constructed: one that
    /// is constructed without it has no connection, writes and uploads nothing, and warns of it.
    void SetProjectDirPath(const QString& path);

    /// Whether the upload server can be expected to answer: the last SetNetWorkConnected(), and without
    /// one, whether a server address is set and an interface is up that can lead there (the loopback
    /// interface for a server on this machine, any other for all others).
    bool IsNetWorkConnected();
    /// Overrides the answer of IsNetWorkConnected().
    void SetNetWorkConnected(bool connected);
    /// Takes the override back.
    void ResetNetWorkConnected();

    CKvControl(const CKvControl&) = delete;
    CKvControl& operator=(const CKvControl&) = delete;

private:
    CKvControl();
    ~CKvControl();
    struct Private;
    Private* const d;
};
