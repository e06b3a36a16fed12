// SPDX-License-Identifier: MIT
#include "KvMissionTables.h"

#include "KvAlgorthm.h"
#include "KvData.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QVector>

#include <algorithm>

namespace
{
struct STable {
    QString strName;
    QString strContents;
};

QVector<STable> MissionTables()
{
    return {{FlightMissionTableName, GetFlightMissionTableContents()},
            {FlightLogTableName, GetFlightLogTableContents()},
            {UasStatusTableName, GetUasStatusTableContents()},
            {PosDataTableName, GetPosDataTableContents()},
            {FlightCompleteTableName, GetFlightCompleteTableContents()}};
}

QVector<STable> VideoTables()
{
    return {{FlightLogTableName, GetFlightLogTableContents()},
            {UasStatusTableName, GetUasStatusTableContents()},
            {FlightVideoTableName, GetFlightVideoTableContents()}};
}

/// Without detours, also through links.
QString OnePath(const QString& strFile)
{
    const QFileInfo info(strFile);
    if (info.exists()) {
        return info.canonicalFilePath();
    }
    const QString strFolder = info.dir().canonicalPath();
    return QDir::cleanPath((strFolder.isEmpty() ? info.absolutePath() : strFolder) + QLatin1Char('/') +
                           info.fileName());
}

bool HasAll(const QVector<STable>& listTable, const QSet<QString>& setTable)
{
    return std::all_of(listTable.cbegin(), listTable.cend(), [&setTable](const STable& table) {
        return setTable.contains(table.strName.toLower());
    });
}

/// Also where all are there: a table may lack its index.
bool MakeEach(const QVector<STable>& listTable, CKvDataBase& database)
{
    bool bAll = true;
    for (const STable& table : listTable) {
        bAll = CreateTable(table.strName, table.strContents, database.DBInstance()) && bAll;
    }
    return bAll;
}

bool MakeAtOnce(const QVector<STable>& listTable, CKvDataBase& database)
{
    const auto setTable = TablesOf(database);
    if (!setTable) {
        return false;
    }
    if (HasAll(listTable, *setTable)) {
        return MakeEach(listTable, database);
    }
    const bool bMade = database.transaction() && MakeEach(listTable, database);
    return database.commit() && bMade;
}
} // namespace

bool MakeMissionTables(CKvDataBase& database)
{
    return MakeAtOnce(MissionTables(), database);
}

bool MakeVideoTables(CKvDataBase& database)
{
    return MakeAtOnce(VideoTables(), database);
}

bool MakeVideoTablesWithin(CKvDataBase& database)
{
    return MakeEach(VideoTables(), database);
}

bool TakesRows(const QString& strFile)
{
    const QFileInfo info(strFile);
    return info.isFile() && (info.size() > 0 || strFile.endsWith(QLatin1String(".db")));
}

bool IsSameFile(const QString& strFile, const QString& strOther)
{
    return strFile == strOther || OnePath(strFile) == OnePath(strOther);
}

QString AwaitedTable(const QString& strFile, const QString& strTable)
{
    const QStringList listOwn{FlightMissionTableName, FlightLogTableName, UasStatusTableName,
                              PosDataTableName, FlightCompleteTableName};
    const bool bAwaited =
        !strFile.endsWith(QLatin1String(".db")) && listOwn.contains(strTable, Qt::CaseInsensitive);
    return bAwaited ? strTable.toLower() : QString();
}

std::optional<QSet<QString>> TablesOf(const CKvDataBase& database)
{
    QSqlQuery query =
        database.exec(QStringLiteral("SELECT name FROM sqlite_master WHERE type IN ('table', 'view')"));
    if (!query.isActive()) {
        return std::nullopt;
    }
    QSet<QString> setTable;
    while (query.next()) {
        setTable.insert(query.value(0).toString().toLower());
    }
    return setTable;
}

QSet<QString> TablesWithin(CKvDataBase& database)
{
    QSet<QString> setTable = TablesOf(database).value_or(QSet<QString>());
    if (!database.databaseName().endsWith(QLatin1String(".db")) || HasAll(VideoTables(), setTable)) {
        return setTable;
    }
    MakeVideoTablesWithin(database);
    return TablesOf(database).value_or(QSet<QString>());
}
