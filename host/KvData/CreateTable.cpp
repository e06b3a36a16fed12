// SPDX-License-Identifier: MIT
#include "KvAlgorthm.h"
#include "KvData.h"
#include "KvLocks.h"
#include "KvWarnings.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QVariant>
#include <QtSql/QSqlDriver>
#include <QtSql/QSqlQuery>

#include <algorithm>
#include <optional>
#include <utility>

namespace
{
/// Has a lock waited for once on a connection, not once for each table: after a wait in vain the next
/// statements only try, until one of them finds the file free.
class CSharedWait
{
public:
    explicit CSharedWait(const QSqlDatabase& database)
        : m_database(database), m_bBusy(m_database.driver()->property(Waited).toBool())
    {
    }
    ~CSharedWait() { m_database.driver()->setProperty(Waited, m_bBusy); }
    Q_DISABLE_COPY(CSharedWait)

    /// Runs a statement; a name is bound to each of its placeholders.
    QSqlQuery Run(const QString& sql, const QStringList& names = {})
    {
        if (m_bBusy && !m_noWait) {
            m_noWait.emplace(m_database);
        }
        QElapsedTimer waited;
        waited.start();
        QSqlQuery query(m_database);
        query.setForwardOnly(true);
        if (query.prepare(sql)) {
            for (const QString& name : names) {
                query.addBindValue(name);
            }
            query.exec();
        }
        m_bBusy = IsBusy(query.lastError());
        if (m_bBusy) {
            const int nWaited = m_database.driver()->property(WaitedProperty).toInt();
            m_database.driver()->setProperty(WaitedProperty, nWaited + static_cast<int>(waited.elapsed()));
        }
        return query;
    }

    QString File() const { return m_database.databaseName(); }

private:
    static constexpr const char* Waited = "kvWaitedForLock";
    QSqlDatabase m_database;
    bool m_bBusy;
    std::optional<CNoWait> m_noWait;
};

bool Exists(CSharedWait& connection, const QString& type, const QString& name)
{
    return connection
        .Run(QStringLiteral("SELECT 1 FROM sqlite_master WHERE type = ? AND name = ? COLLATE NOCASE"),
             {type, name})
        .next();
}

bool Create(CSharedWait& connection, const QString& sql)
{
    const QSqlQuery query = connection.Run(sql);
    WarnRefused(connection.File(), sql, query.lastError());
    return !query.lastError().isValid();
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

QList<std::pair<QString, QString>> MissionTables()
{
    return {{FlightMissionTableName, GetFlightMissionTableContents()},
            {FlightLogTableName, GetFlightLogTableContents()},
            {UasStatusTableName, GetUasStatusTableContents()},
            {PosDataTableName, GetPosDataTableContents()},
            {FlightCompleteTableName, GetFlightCompleteTableContents()}};
}

/// Nothing, where the file cannot be read now.
std::optional<bool> HasMissionTables(const CKvDataBase& database)
{
    QSqlQuery query = database.exec(QStringLiteral("SELECT name FROM sqlite_master WHERE type = 'table'"));
    if (!query.isActive()) {
        return std::nullopt;
    }
    QStringList listTable;
    while (query.next()) {
        listTable.append(query.value(0).toString());
    }
    const auto tables = MissionTables();
    return std::all_of(tables.begin(), tables.end(), [&listTable](const auto& table) {
        return listTable.contains(table.first, Qt::CaseInsensitive);
    });
}
} // namespace

bool CreateTable(const QString& table, const QString& contents, QSqlDatabase* database)
{
    if (!database || !database->isOpen()) {
        return false;
    }
    CSharedWait connection(*database);
    const bool created =
        Exists(connection, QStringLiteral("table"), table) ||
        Create(connection, QStringLiteral("CREATE TABLE IF NOT EXISTS %1(%2)").arg(table, contents));
    const QString index = table + QStringLiteral("_waiting");
    if (created && contents.contains(QLatin1String("is_uploaded")) &&
        !Exists(connection, QStringLiteral("index"), index)) {
        Create(connection, WaitingIndex(index, table, contents));
    }
    return created;
}

bool CreateMissionFile(const QString& path)
{
    CKvDataBase database(path);
    if (!database.open()) {
        return false;
    }
    const std::optional<bool> complete = HasMissionTables(database);
    if (!complete || *complete) { // it is locked, which has been told; or it may lack an index still
        return complete && CreateMissionTables(database.DBInstance());
    }
    // Whoever looks into the file meanwhile, or after a loss of power, finds all tables in it or none.
    const bool bCreated = database.transaction() && CreateMissionTables(database.DBInstance());
    return database.commit() && bCreated;
}

bool CreateMissionTables(QSqlDatabase* database)
{
    bool created = true;
    for (const auto& [table, contents] : MissionTables()) {
        created = CreateTable(table, contents, database) && created;
    }
    return created;
}
