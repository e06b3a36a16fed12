// SPDX-License-Identifier: MIT
#include "MissionFile.h"

#include "Baseline.h"
#include "flightdesk/words/Latin1.h"
#include "KvAlgorthm.h"
#include "KvData.h"
#include "Report.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QFile>

#include <unistd.h>

const QByteArray MissionId = "5c02a798-84e5-5220-a4fe-a173392aa9c4";

namespace
{
const char* const RandomId =
    "lower(hex(randomblob(4))||'-'||hex(randomblob(2))||'-'||hex(randomblob(2))||'-'||"
    "hex(randomblob(2))||'-'||hex(randomblob(6)))";
const char* const TimeText = "'2026-04-12 10:20:30.' || (100 + i % 900)";

const char* const InsertLog =
    "INSERT INTO flight_monitor_detail_log(id, flight_mission_id, message, created_at, is_uploaded) SELECT ";

QByteArray series(int rows)
{
    return "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
           QByteArray::number(rows) + ") ";
}

// What is not on the disk yet would be written while something is measured.
void writeOut(const QString& path)
{
    QFile file(path);
    require(file.open(QIODevice::ReadOnly) && fsync(file.handle()) == 0, "cannot write out "_l1 + path);
}

// Nobody reads these files before they are complete, so nothing has to survive a crash.
void fill(const QString& file, const QByteArray& sql)
{
    {
        Database database(file);
        database.provideIds();
        database.run("PRAGMA synchronous=OFF; PRAGMA cache_size=-1000000");
        database.run("BEGIN;" + sql + ";COMMIT");
    }
    writeOut(file);
}
} // namespace

QString diskFolder()
{
    return QCoreApplication::applicationDirPath() + "/bench-XXXXXX"_l1;
}

QString memoryFolder()
{
    return "/dev/shm/kvbench-XXXXXX"_l1;
}

void makeMissionFile(const QString& file)
{
    CKvDataBase database(file);
    require(database.open(), "cannot make "_l1 + file);
    database.transaction();
    CreateMissionTables(database.DBInstance());
    database.exec(QString::fromUtf8("INSERT INTO flight_mission(id, project_id, is_uploaded) VALUES('" +
                                    MissionId + "', 'project', 1)"));
    require(database.commit(), "cannot fill "_l1 + file);
}

void addLog(const QString& file, int rows, int messageBytes, bool randomIds)
{
    fill(file, series(rows) + InsertLog + (randomIds ? RandomId : "new_id()") + ", '" + MissionId +
                   "', randomblob(" + QByteArray::number(messageBytes) + "), " + TimeText + ", 0 FROM n");
}

void addUploadedLog(const QString& file, int rows)
{
    fill(file, series(rows) + InsertLog + "printf('%036d', i), '" + MissionId + "', randomblob(20), " +
                   TimeText + ", 1 FROM n");
}

void addPositions(const QString& file, int rows)
{
    fill(file, series(rows) +
                   "INSERT INTO pos_data(id, flight_mission_id, time, lng, lat, alt, relative_alt, speed, "
                   "heading, created_at) SELECT " +
                   "new_id(), '" + MissionId + "', " + TimeText +
                   ", 8.545 + i * 1e-6, 47.397 + i * 1e-6, 488.5, i % 120 + 0.25, 12.5, i % 360, " +
                   TimeText + " FROM n");
}

void addFlight(const QString& file, int seconds)
{
    const QByteArray ids = "new_id(), '" + MissionId +
                           "', strftime('%Y-%m-%dT%H:%M:%S', '2026-04-12', i || ' seconds') || '.125Z', ";
    fill(file, series(seconds) +
                   "INSERT INTO pos_data(id, flight_mission_id, time, lng, lat, alt, relative_alt, speed, "
                   "heading) SELECT " +
                   ids + "8.545 + i * 1e-6, 47.397 + i * 1e-6, 488.5, i % 120 + 0.25, 12.5, i % 360 FROM n;" +
                   series(seconds) +
                   "INSERT INTO uas_status(id, flight_mission_id, time, armed, battery_remaining) SELECT " +
                   ids + "1, 100 - i / 60 FROM n");
}

void copyFile(const QString& from, const QString& to)
{
    QFile::remove(to);
    require(QFile::copy(from, to), "cannot make "_l1 + to);
    writeOut(to);
}

qint64 countRows(const QString& file, const char* table)
{
    return Database(file).number("SELECT count(*) FROM " + QByteArray(table));
}

qint64 bytesOfLog(const QString& file)
{
    return Database(file).number(
        "SELECT sum(pgsize) FROM dbstat WHERE name LIKE '%flight_monitor_detail_log%'");
}

qint64 bytesOfMessages(const QString& file)
{
    return Database(file).number("SELECT sum(length(message)) FROM flight_monitor_detail_log");
}

void requireDrained(const QString& file)
{
    Database database(file);
    const qint64 waiting =
        database.number("SELECT (SELECT count(*) FROM flight_monitor_detail_log WHERE is_uploaded = 0) + "
                        "(SELECT count(*) FROM pos_data WHERE is_uploaded = 0)");
    require(waiting == 0, QStringLiteral("%1 rows still wait in %2").arg(waiting).arg(file));
}
