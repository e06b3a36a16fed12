// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QSet>
#include <QtCore/QString>

#include <optional>

class CKvDataBase;

/// Makes the tables of a flight's mission file that the open one lacks, all in one transaction: whoever looks
/// into the file meanwhile, or after a loss of power, finds none of them or all. Whether it has all of them
/// now.
///
/// KvData can make them in one call too, but a host may bring a KvData of its own, which need not.
bool MakeMissionTables(CKvDataBase& database);

/// The same for the tables of a video mission's file.
bool MakeVideoTables(CKvDataBase& database);
/// The same within a transaction that has begun.
bool MakeVideoTablesWithin(CKvDataBase& database);

/// Whether a mission file can take rows: one that is gone, or that opening it has made anew, gets no tables
/// and would take none.
bool TakesRows(const QString& strFile);

/// Whether two paths lead to one mission file, which need not be there.
bool IsSameFile(const QString& strFile, const QString& strOther);

/// What records for a table have to wait for: one of a mission file's own, in lower case. Nothing, where it
/// is a host's own or the file is a video mission's, which lacks some for good.
QString AwaitedTable(const QString& strFile, const QString& strTable);

/// The tables of the connection's file, in lower case. Nothing, where it cannot be read.
std::optional<QSet<QString>> TablesOf(const CKvDataBase& database);

/// The same within a transaction that has begun. A video mission's file gets those that it lacks: it may have
/// taken the place of one that had them.
QSet<QString> TablesWithin(CKvDataBase& database);
