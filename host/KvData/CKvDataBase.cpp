// SPDX-License-Identifier: MIT
#include "KvData.h"
#include "KvIdentity.h"
#include "KvLocks.h"
#include "KvOwnThread.h"
#include "KvPath.h"
#include "KvPatience.h"
#include "KvTrouble.h"
#include "KvWarnings.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QFileInfo>
#include <QtCore/QUuid>
#include <QtCore/QVariant>
#include <QtSql/QSqlDriver>
#include <QtSql/QSqlError>

#include <algorithm>
#include <atomic>
#include <iterator>
#include <utility>

namespace
{
// Milliseconds
constexpr int KnownLockWait = 20; // for a visit to a file that is known to be locked
constexpr int LockPoll = 5;
std::atomic<int> g_nFlightLockWait{30000};

// One file at rest whatever happens to the process: a rollback journal. EXTRA syncs the folder after the
// journal has been deleted as well; otherwise a loss of power may bring the journal back and undo a commit.
// The first statement that reads the file also finds out whether it is a database at all.
// Nothing is written before the first ones have been run. Leaving WAL mode has to wait for others that use
// the file in it, beside whom rows are as safe. SQLite leaves it without a look at what they have written
// since it last read the file, and would write its old pages over theirs: so it forgets them.
const char* const OpeningStatements[] = {
    "PRAGMA synchronous=EXTRA",
    "PRAGMA temp_store=MEMORY",
    "PRAGMA journal_mode=DELETE",
    "PRAGMA shrink_memory",
};
constexpr int AllSettled = static_cast<int>(std::size(OpeningStatements));
constexpr int SafeToWrite = AllSettled - 2;

constexpr int ReadOnly = 8; // SQLite's code; at opening: a journal that is to be rolled back

int LockWait(const QString& strFile)
{
    if (strFile.isEmpty()) {
        return g_nFlightLockWait;
    }
    return std::min<int>(g_nFlightLockWait,
                         IsInTrouble(ETrouble::Writing, strFile) ? KnownLockWait : CKvPatience::Visits);
}

/// Whether a file's error stays however long one waits.
bool IsForGood(const QSqlError& error, const QString& strFile)
{
    constexpr int Permission = 3;
    constexpr int Corrupt = 11;
    constexpr int CannotOpen = 14;
    constexpr int Authorization = 23;
    constexpr int NoDatabase = 26;
    const int nCode = ResultCode(error);
    return nCode == Permission || nCode == ReadOnly || nCode == Corrupt || nCode == Authorization ||
           nCode == NoDatabase || (nCode == CannotOpen && IsForbidden(strFile));
}

/// An upload looks into a video mission's file for what only flights have. A breakpoint, which reads the
/// flight's document, does not belong there.
bool LacksTableByDesign(const QString& strFile, const QString& sql, const QSqlError& error)
{
    return strFile.endsWith(QLatin1String(".db")) && !sql.contains(QLatin1String("flight_mission_data")) &&
           error.databaseText().startsWith(QLatin1String("no such table"));
}
} // namespace

CKvDataBase::CKvDataBase(const QString& databaseName)
    : m_database(QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QUuid::createUuid().toString()))
    , m_pPatience(
          new CKvPatience(LockWait(databaseName), databaseName.isEmpty() ? nullptr : &CKvPatience::OfVisits))
{
    m_database.setDatabaseName(databaseName);
}

CKvDataBase::~CKvDataBase()
{
    close();
    _CountWaits();
    const QString strConnection = m_database.connectionName();
    m_database = QSqlDatabase();
    QSqlDatabase::removeDatabase(strConnection);
    delete m_pPatience;
}

void CKvDataBase::SetLockWait(int nMilliseconds)
{
    g_nFlightLockWait = nMilliseconds;
}

QSqlDatabase* CKvDataBase::DBInstance()
{
    KV_ON_THREAD(m_pThread);
    _CountWaits();
    // For the caller's own statements. Preparing one reads the file if opening it could not.
    _SetBusyTimeout(m_nSettled < SafeToWrite ? 0 : m_pPatience->Left());
    return &m_database;
}

bool CKvDataBase::open()
{
    KV_ON_THREAD(m_pThread);
    const QString strFile = m_database.databaseName();
    if (isOpen()) {
        if (strFile == m_strOpenFile) {
            return true;
        }
        close();
    }
    // SQLite takes an empty name for a temporary database that forgets everything.
    QString strTrouble = Obstacle(strFile);
    bool bForGood = !strTrouble.isEmpty();
    if (!bForGood) {
        const QSqlError error = _SetUp();
        bForGood = IsForGood(error, strFile);
        strTrouble = error.databaseText();
        if (!bForGood && isOpen()) {
            m_pThread = QThread::currentThread();
            m_strOpenFile = strFile;
            ClearTrouble(ETrouble::Opening, strFile);
            return true;
        }
    }
    close();
    ReportTrouble(ETrouble::Opening, strFile,
                  QLatin1String(bForGood ? "cannot be opened: " : "cannot be opened now: ") + strTrouble);
    return !bForGood;
}

/// Opens the file; returns the last error.
QSqlError CKvDataBase::_SetUp()
{
    m_nBusyTimeout = LockPoll;
    m_database.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=%1").arg(m_nBusyTimeout));
    m_nSettled = 0;
    if (!m_database.open()) {
        return m_database.lastError();
    }
    m_strPlace = QFileInfo(m_database.databaseName()).absoluteFilePath();
    m_identity = IdentityOf(m_strPlace);
    m_strLog = QFileInfo(m_strPlace).canonicalFilePath() + QLatin1String("-wal");
    // Else a large batch waits for a reader with every statement, and for nothing: it is the end that has to.
    _Run(QStringLiteral("PRAGMA cache_spill=OFF"));
    QSqlError error;
    _Insist([this, &error] {
        error = _Settle();
        return m_nSettled < SafeToWrite ? error : QSqlError();
    });
    return error;
}

/// Runs what is left of the opening statements; returns the error of the one that has to be run again.
QSqlError CKvDataBase::_Settle()
{
    while (m_nSettled < AllSettled) {
        QSqlError error = _Run(QLatin1String(OpeningStatements[m_nSettled]));
        if (error.isValid()) {
            return error;
        }
        ++m_nSettled;
    }
    return {};
}

bool CKvDataBase::isOpen() const
{
    return m_database.isOpen();
}

void CKvDataBase::close()
{
    KV_ON_THREAD(m_pThread);
    m_database.close();
    m_pThread.clear();
    m_strOpenFile.clear();
    m_bInTransaction = false;
    m_bToldReadOnly = false;
}

QSqlError CKvDataBase::_Run(const QString& sql) const
{
    QSqlQuery query(m_database);
    query.setForwardOnly(true);
    query.exec(sql);
    return query.lastError();
}

QSqlQuery CKvDataBase::exec(const QString& sql) const
{
    KV_ON_THREAD(m_pThread);
    QSqlQuery query(m_database);
    query.setForwardOnly(true);
    if (!isOpen()) { // why, is told; Qt would write a line for each statement
        return query;
    }
    const auto run = [&query, &sql] {
        query.exec(sql);
        return query.lastError();
    };
    // SQLite finds journals by the file's name: it would take those of another file for its own, and delete
    // them.
    if (!m_bInTransaction && _CheckPlace().isValid()) {
        ReportTrouble(ETrouble::Reading, m_strOpenFile,
                      QStringLiteral("cannot be read now: ") + _CheckPlace().databaseText());
        return query;
    }
    if (m_bInTransaction) { // in which nobody else is waited for
        run();
    } else if (IsBusy(_Insist(run))) { // to who reads, it looks as if nothing were there
        ReportTrouble(ETrouble::Reading, m_strOpenFile,
                      QStringLiteral("cannot be read now: ") + query.lastError().databaseText());
    } else {
        ClearTrouble(ETrouble::Reading, m_strOpenFile);
    }
    const QSqlError error = query.lastError();
    if (!LacksTableByDesign(m_strOpenFile, sql, error)) {
        WarnRefused(m_strOpenFile, sql, error);
    }
    return query;
}

/// Runs something again and again until nobody else holds the file, or the patience is used up. SQLite, left
/// to wait by itself, asks ever more rarely and starves beside a program that writes all the time; nor does
/// it tell a wait from long work.
QSqlError CKvDataBase::_Insist(const std::function<QSqlError()>& run) const
{
    _CountWaits();
    const int nPatience = m_pPatience->Left();
    _SetBusyTimeout(std::min(LockPoll, nPatience));
    QElapsedTimer waited;
    waited.start();
    for (qint64 nWaited = -1;;) {
        QSqlError error = run();
        const bool bBusy = IsBusy(error);
        if (bBusy) {
            nWaited = waited.elapsed();
        }
        if (!bBusy || nWaited >= nPatience) {
            if (nWaited >= 0) {
                m_pPatience->Spend(nWaited);
            }
            return error;
        }
    }
}

/// What CreateTable() has waited.
void CKvDataBase::_CountWaits() const
{
    const int nWaited = m_database.driver()->property(WaitedProperty).toInt();
    if (nWaited > 0) {
        m_database.driver()->setProperty(WaitedProperty, 0);
        m_pPatience->Spend(nWaited);
    }
}

bool CKvDataBase::transaction()
{
    KV_ON_THREAD(m_pThread);
    if (!isOpen()) {
        return false;
    }
    // A deferred transaction that has read first cannot become a writer once somebody else has written.
    const QSqlError error = _Insist([this] { return _Begin(); });
    m_bInTransaction = !error.isValid();
    if (!m_bInTransaction) {
        _ReportNotBegun(error);
    }
    _SetBusyTimeout(m_pPatience->Left());
    return m_bInTransaction;
}

QSqlError CKvDataBase::_Begin()
{
    QSqlError error = _CheckPlace();
    if (error.isValid()) {
        return error;
    }
    error = _Settle();
    if (m_nSettled >= SafeToWrite) {
        error = _Run(QStringLiteral("BEGIN IMMEDIATE"));
    }
    if (error.isValid()) {
        return error;
    }
    error = _Touch();
    if (error.isValid()) {
        _Run(QStringLiteral("ROLLBACK"));
    }
    return error;
}

/// A file that was moved away, replaced or deleted takes what nobody ever finds. SQLite refuses that only
/// with a rollback journal, where it writes, and where the file was not empty when it was opened.
QSqlError CKvDataBase::_CheckPlace() const
{
    if (IdentityOf(m_strPlace) == m_identity) {
        return {};
    }
    return {{},
            QStringLiteral("it was moved, replaced or deleted"),
            QSqlError::TransactionError,
            QString::number(ReadOnly)};
}

/// Writes what is there already into a page that every transaction writes: a file that is read-only lets a
/// transaction begin and end well, and refuses what is between.
QSqlError CKvDataBase::_Touch() const
{
    QSqlQuery query(m_database);
    query.setForwardOnly(true);
    query.exec(QStringLiteral("PRAGMA user_version"));
    const QString strVersion = query.next() ? query.value(0).toString() : QString();
    query.finish();
    return _Run(QStringLiteral("PRAGMA user_version=") + strVersion);
}

void CKvDataBase::_ReportNotBegun(const QSqlError& error)
{
    // Another connection may write what has taken the file's place, which does not mend this one.
    if (ResultCode(error) == ReadOnly && std::exchange(m_bToldReadOnly, true)) {
        return;
    }
    ReportTrouble(ETrouble::Writing, m_strOpenFile,
                  QStringLiteral("cannot be written: ") + error.databaseText());
}

bool CKvDataBase::commit()
{
    KV_ON_THREAD(m_pThread);
    if (!m_bInTransaction) {
        return false; // transaction() has said why
    }
    const QSqlError error = _Insist([this] {
        const QSqlError elsewhere = _CheckPlace();
        return elsewhere.isValid() ? elsewhere : _Run(QStringLiteral("COMMIT"));
    });
    m_bInTransaction = false;
    if (!error.isValid()) {
        m_bToldReadOnly = false;
        ClearTrouble(ETrouble::Writing, m_strOpenFile);
        _LeaveWriteAheadLog();
        return true;
    }
    ReportTrouble(ETrouble::Writing, m_strOpenFile,
                  QStringLiteral("the last batch was not stored: ") + error.databaseText());
    _Run(QStringLiteral("ROLLBACK"));
    return false;
}

/// Somebody else may have switched the file since it was opened. While others use it in that mode, this is
/// refused at once.
void CKvDataBase::_LeaveWriteAheadLog()
{
    if (QFileInfo::exists(m_strLog)) {
        m_nSettled = SafeToWrite;
        _Settle();
    }
}

void CKvDataBase::_SetBusyTimeout(int nMilliseconds) const
{
    if (isOpen() && nMilliseconds != m_nBusyTimeout) {
        m_nBusyTimeout = nMilliseconds;
        _Run(QStringLiteral("PRAGMA busy_timeout=%1").arg(nMilliseconds));
    }
}

QString CKvDataBase::databaseName() const
{
    return m_database.databaseName();
}
