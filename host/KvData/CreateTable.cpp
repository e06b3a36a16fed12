// SPDX-License-Identifier: MIT
#include "KvData.h"
#include "KvLocks.h"

#include <QtSql/QSqlQuery>

namespace
{
bool Exists(const QSqlDatabase& database, const char* type, const QString& name)
{
    QSqlQuery query(database);
    query.setForwardOnly(true);
    query.prepare(QStringLiteral("SELECT 1 FROM sqlite_master WHERE type = ? AND name = ? COLLATE NOCASE"));
    query.addBindValue(QLatin1String(type));
    query.addBindValue(name);
    return query.exec() && query.next();
}

bool Create(QSqlDatabase& database, const QString& sql)
{
    if (IsWriteLocked(database)) {
        return false;
    }
    QSqlQuery query(database);
    const bool done = query.exec(sql);
    SetWriteLocked(database, !done && IsBusy(query.lastError()));
    return done;
}

/// Rows that wait are found without a look at the uploaded ones, however many those have become.
QString WaitingIndex(const QString& index, const QString& table, const QString& contents)
{
    const QString column = contents.contains(QLatin1String("flight_mission_id"))
                               ? QStringLiteral("flight_mission_id")
                               : QStringLiteral("id");
    return QStringLiteral("CREATE INDEX IF NOT EXISTS %1 ON %2(%3) WHERE is_uploaded = 0")
        .arg(index, table, column);
}
} // namespace

bool CreateTable(const QString& table, const QString& contents, QSqlDatabase* database)
{
    if (!database || !database->isOpen()) {
        return false;
    }
    const bool created =
        Exists(*database, "table", table) ||
        Create(*database, QStringLiteral("CREATE TABLE IF NOT EXISTS %1(%2)").arg(table, contents));
    const QString index = table + QStringLiteral("_waiting");
    if (created && contents.contains(QLatin1String("is_uploaded")) && !Exists(*database, "index", index)) {
        Create(*database, WaitingIndex(index, table, contents));
    }
    return created;
}
