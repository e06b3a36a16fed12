// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QVariant>
#include <QtSql/QSqlDatabase>
#include <QtSql/QSqlDriver>
#include <QtSql/QSqlError>

/// Whether a statement failed because somebody else holds a lock on the file (SQLITE_BUSY).
inline bool IsBusy(const QSqlError& error)
{
    return error.nativeErrorCode() == QLatin1String("5");
}

/// Remembers, from one CreateTable() to the next, that somebody else holds the write lock: a file with no
/// tables that is locked costs one wait, not one for each table.
inline void SetWriteLocked(QSqlDatabase& database, bool locked)
{
    database.driver()->setProperty("kvWriteLocked", locked);
}

inline bool IsWriteLocked(const QSqlDatabase& database)
{
    return database.driver()->property("kvWriteLocked").toBool();
}
