// SPDX-License-Identifier: MIT
#include "KvData.h"
#include "KvLocks.h"
#include "KvLog.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QUuid>
#include <QtSql/QSqlError>

namespace
{
constexpr int VisitLockWait = 1000; // milliseconds
constexpr int FlightLockWait = 30000;
constexpr int LockPoll = 5;

// One file at rest whatever happens to the process: a rollback journal. EXTRA syncs the folder after the
// journal has been deleted as well; otherwise a loss of power may bring the journal back and undo a commit.
// The first statement that reads the file also finds out whether it is a database at all.
// The server's answer is marked by ids that lie all over their index. With SQLite's own cache of 2 MiB each
// of 1,000,000 of them is read from the file, and draining takes a third longer; memory is taken as it is
// needed.
constexpr const char* OpeningStatements[] = {
    "PRAGMA journal_mode=DELETE", "PRAGMA synchronous=EXTRA", "PRAGMA temp_store=MEMORY",
    "PRAGMA cache_size=-65536", // KiB
};

bool Run(QSqlDatabase& database, const char* sql)
{
    QSqlQuery query(database);
    query.setForwardOnly(true);
    return query.exec(QLatin1String(sql));
}
} // namespace

CKvDataBase::CKvDataBase(const QString& databaseName)
    : m_database(QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QUuid::createUuid().toString()))
    , m_nLockWait(databaseName.isEmpty() ? FlightLockWait : VisitLockWait)
{
    m_database.setDatabaseName(databaseName);
    m_database.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=%1").arg(m_nLockWait));
}

CKvDataBase::~CKvDataBase()
{
    close();
    const QString strConnection = m_database.connectionName();
    m_database = QSqlDatabase();
    QSqlDatabase::removeDatabase(strConnection);
}

QSqlDatabase* CKvDataBase::DBInstance()
{
    return &m_database;
}

bool CKvDataBase::open()
{
    const QString strFile = m_database.databaseName();
    if (isOpen()) {
        if (strFile == m_strOpenFile) {
            return true;
        }
        close();
    }
    if (strFile.isEmpty() || !m_database.open()) {
        return false; // SQLite takes an empty name for a temporary database that forgets everything
    }
    m_strOpenFile = strFile;
    SetWriteLocked(m_database, false);
    for (const char* sql : OpeningStatements) {
        if (!Run(m_database, sql)) {
            close();
            return false;
        }
    }
    return true;
}

bool CKvDataBase::isOpen() const
{
    return m_database.isOpen();
}

void CKvDataBase::close()
{
    m_database.close();
    m_strOpenFile.clear();
    m_bInTransaction = false;
}

QSqlQuery CKvDataBase::exec(const QString& sql) const
{
    QSqlQuery query(m_database);
    query.setForwardOnly(true);
    query.exec(sql);
    return query;
}

bool CKvDataBase::transaction()
{
    if (!isOpen()) {
        return false;
    }
    // A deferred transaction that has read first cannot become a writer once somebody else has written. And
    // SQLite, left to wait by itself, asks ever more rarely and starves beside a program that writes all the
    // time, so it is asked again and again.
    QElapsedTimer waited;
    waited.start();
    QSqlError error;
    _SetBusyTimeout(LockPoll);
    do {
        error = exec(QStringLiteral("BEGIN IMMEDIATE")).lastError();
    } while (IsBusy(error) && waited.elapsed() < m_nLockWait);
    _SetBusyTimeout(m_nLockWait);
    m_bInTransaction = !error.isValid();
    if (!m_bInTransaction) {
        _Report("cannot be written", error);
    }
    return m_bInTransaction;
}

bool CKvDataBase::commit()
{
    if (!m_bInTransaction) {
        return false; // transaction() has said why
    }
    m_bInTransaction = false;
    const QSqlError error = exec(QStringLiteral("COMMIT")).lastError();
    if (error.isValid()) {
        _Report("the last batch was not stored", error);
        Run(m_database, "ROLLBACK");
    }
    return !error.isValid();
}

void CKvDataBase::_SetBusyTimeout(int nMilliseconds)
{
    exec(QStringLiteral("PRAGMA busy_timeout=%1").arg(nMilliseconds));
}

void CKvDataBase::_Report(const char* what, const QSqlError& error) const
{
    Logger::instance().write(
        Level::Error, QStringLiteral("%1: %2: %3").arg(databaseName(), QLatin1String(what), error.text()));
}

QString CKvDataBase::databaseName() const
{
    return m_database.databaseName();
}
