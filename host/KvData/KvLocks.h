// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QVariant>
#include <QtSql/QSqlDatabase>
#include <QtSql/QSqlError>
#include <QtSql/QSqlQuery>

/// SQLite's result code behind an error, without what a newer driver adds to it; 0 for none.
inline int ResultCode(const QSqlError& error)
{
    return error.nativeErrorCode().toInt() & 0xff;
}

/// Whether a statement failed because somebody else holds a lock on the file.
inline bool IsBusy(const QSqlError& error)
{
    constexpr int Busy = 5;
    return ResultCode(error) == Busy;
}

/// Property of a driver: milliseconds that statements have waited for a lock in vain, of which its
/// CKvDataBase does not know yet.
constexpr const char* WaitedProperty = "kvWaited";

/// While it lives, statements on a connection wait for nobody's lock.
class CNoWait
{
public:
    explicit CNoWait(const QSqlDatabase& database) : m_database(database)
    {
        QSqlQuery query(m_database);
        if (query.exec(QStringLiteral("PRAGMA busy_timeout")) && query.next()) {
            m_nTimeout = query.value(0).toInt();
            query.exec(QStringLiteral("PRAGMA busy_timeout=0"));
        }
    }
    ~CNoWait()
    {
        if (m_nTimeout > 0) {
            QSqlQuery(m_database).exec(QStringLiteral("PRAGMA busy_timeout=%1").arg(m_nTimeout));
        }
    }
    Q_DISABLE_COPY(CNoWait)

private:
    const QSqlDatabase m_database;
    int m_nTimeout = 0; ///< milliseconds that the connection waits otherwise
};
