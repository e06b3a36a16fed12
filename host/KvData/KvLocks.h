// SPDX-License-Identifier: MIT
#pragma once

#include <QtSql/QSqlError>

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
