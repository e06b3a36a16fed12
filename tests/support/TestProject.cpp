// SPDX-License-Identifier: MIT
#include "TestProject.h"

#include "KvAlgorthm.h"
#include "KvData.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtSql/QSqlError>

HostSignals::HostSignals(QObject* pOperator)
{
    connect(this, SIGNAL(message(QByteArray)), pOperator, SLOT(slotWriteFlightMonitor(QByteArray)));
    connect(this, SIGNAL(positions(QJsonArray, QString, QString)), pOperator,
            SLOT(slotParseJson(QJsonArray, QString, QString)));
    connect(this, SIGNAL(record(QJsonObject, QString, QString)), pOperator,
            SLOT(slotParseSingleJson(QJsonObject, QString, QString)));
    connect(this, SIGNAL(breakpoint(int, double, double, QString, double)), pOperator,
            SLOT(slotUpdateBreakpoint(int, double, double, QString, double)));
    connect(this, SIGNAL(arm()), pOperator, SLOT(slotCheckNewData()));
    connect(this, SIGNAL(tick()), pOperator, SLOT(slotStartUpload()));
    connect(this, SIGNAL(startUploadTimer(bool)), pOperator, SLOT(slotStartUploadTimer(bool)));
}

TestProject::TestProject()
{
    CKvControl::GetInstance(false, EPlaneType::Multirotor)->SetProjectDirPath(m_dir.path());
}

QString TestProject::file(const QString& name, const QByteArray& bytes) const
{
    const QString full = path(name);
    QDir().mkpath(QFileInfo(full).path());
    QFile file(full);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size()) {
        qFatal("cannot write %s", qPrintable(full));
    }
    return full;
}

QString TestProject::missionFile(const QString& name) const
{
    const QString full = file(name);
    CKvDataBase database(full);
    database.open();
    database.transaction();
    CreateTable(FlightMissionTableName, GetFlightMissionTableContents(), database.DBInstance());
    CreateTable(FlightLogTableName, GetFlightLogTableContents(), database.DBInstance());
    CreateTable(UasStatusTableName, GetUasStatusTableContents(), database.DBInstance());
    CreateTable(PosDataTableName, GetPosDataTableContents(), database.DBInstance());
    CreateTable(FlightVideoTableName, GetFlightVideoTableContents(), database.DBInstance());
    if (!database.commit()) {
        qFatal("cannot make %s", qPrintable(full));
    }
    return full;
}

bool TestProject::run(const QString& file, const QStringList& statements)
{
    CKvDataBase database(file);
    bool done = database.open() && database.transaction();
    for (const QString& sql : statements) {
        done = !database.exec(sql).lastError().isValid() && done;
    }
    return database.commit() && done;
}

QVariantList TestProject::values(const QString& file, const QString& sql)
{
    CKvDataBase database(file);
    QVariantList values;
    if (database.open()) {
        QSqlQuery query = database.exec(sql);
        while (query.next()) {
            values.append(query.value(0));
        }
    }
    return values;
}

int TestProject::waiting(const QString& file, const QString& table)
{
    const QVariant count = value(file, "SELECT count(*) FROM " + table + " WHERE is_uploaded = 0");
    return count.isValid() ? count.toInt() : -1;
}

void TestProject::addMission(const QString& file, const QString& id, int positions, int status, int log)
{
    const auto rows = [&id](const char* table, int count) {
        return QString("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < %1) "
                       "INSERT INTO %2(id, flight_mission_id) SELECT '%3-%2-' || i, '%3' FROM n WHERE %1 > 0")
            .arg(count)
            .arg(table, id);
    };
    const bool done =
        run(file, {"INSERT INTO flight_mission(id, project_id) VALUES('" + id + "', 'project-" + id + "')",
                   rows("pos_data", positions), rows("uas_status", status),
                   rows("flight_monitor_detail_log", log)});
    if (!done) {
        qFatal("cannot fill %s", qPrintable(file));
    }
}
