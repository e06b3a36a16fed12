// SPDX-License-Identifier: MIT
#include "Baseline.h"
#include "flightdesk/words/Latin1.h"
#include "Host.h"
#include "MissionFile.h"
#include "Suites.h"

#include <QtCore/QDir>
#include <QtCore/QElapsedTimer>
#include <QtCore/QEventLoop>
#include <QtCore/QTemporaryDir>
#include <QtCore/QTimer>

#include <filesystem>

namespace
{
namespace fs = std::filesystem;

const char* const Scan =
    "select id from flight_mission where id in (SELECT distinct flight_mission_id as id from "
    "flight_monitor_detail_log WHERE is_uploaded = 0\t\t\tunion all\t\t\tSELECT id from flight_mission WHERE "
    "is_uploaded = 0\t\t\tunion\t\t\tSELECT distinct flight_mission_id as id from uas_status WHERE "
    "is_uploaded = 0\t\t\tunion\t\t\tSELECT distinct flight_mission_id as id from pos_data WHERE "
    "is_uploaded = 0)";
const char* const Exists = "SELECT 1 FROM sqlite_master WHERE type = ? AND name = ? COLLATE NOCASE";
constexpr std::pair<const char*, const char*> Complete[] = {{"table", "flight_mission"},
                                                            {"index", "flight_mission_waiting"},
                                                            {"table", "flight_monitor_detail_log"},
                                                            {"index", "flight_monitor_detail_log_waiting"},
                                                            {"table", "uas_status"},
                                                            {"index", "uas_status_waiting"},
                                                            {"table", "pos_data"},
                                                            {"index", "pos_data_waiting"},
                                                            {"table", "flight_complete"}};

void makeProject(const QTemporaryDir& folder, int files)
{
    constexpr int FilesInFolder = 100;
    const QString finished = folder.filePath("finished"_l1);
    makeMissionFile(finished);
    for (int i = 0; i < files; ++i) {
        const QString day = QString::number(i / FilesInFolder);
        QDir(folder.path()).mkpath(day);
        copyFile(finished, folder.filePath(day + u'/' + QString::number(i) + ".kv"_l1));
    }
}

template<class Visit>
void visitFiles(const QString& project, Visit&& visit)
{
    for (const auto& day : fs::directory_iterator(project.toStdString())) {
        if (!day.is_directory()) {
            continue;
        }
        for (const auto& file : fs::directory_iterator(day)) {
            if (file.is_regular_file() && file.path().extension() == ".kv") {
                visit(QString::fromStdString(file.path().string()));
            }
        }
    }
}

double tick(Host& host, int ticks)
{
    return seconds([&host, ticks] {
               for (int i = 0; i < ticks; ++i) {
                   Q_EMIT host.tick();
               }
           }) /
           ticks;
}

void benchTick(Report& report)
{
    constexpr int Rounds = 5;
    constexpr int Ticks = 500;
    const QTemporaryDir few(diskFolder());
    const QTemporaryDir many(diskFolder());
    const auto fill = [](const QTemporaryDir& folder, int rows) {
        makeProject(folder, 1);
        addUploadedLog(folder.filePath("0/0.kv"_l1), rows);
    };
    fill(few, 10000);
    fill(many, 5000000);
    // An operator holds one file open; the project is the one that is current at the tick.
    Host fewHost(EUploadEnv::WholeProject);
    Host manyHost(EUploadEnv::WholeProject);
    const auto tickIn = [](const QTemporaryDir& folder, Host& host) {
        setProject(folder.path());
        return tick(host, Ticks);
    };
    report.add("idle tick, 5,000,000 uploaded rows / 10,000"_l1,
               interleave(
                   Rounds, [&] { return tickIn(many, manyHost); }, [&] { return tickIn(few, fewHost); }),
               Unit::Seconds, 1.2);
}

// The longest time between two turns of the event loop while one tick is handled.
double longestStretch(Host& host)
{
    QEventLoop loop;
    QElapsedTimer sinceTurn;
    qint64 longest = 0;
    QTimer heartbeat;
    QObject::connect(&heartbeat, &QTimer::timeout, &loop,
                     [&] { longest = qMax(longest, sinceTurn.restart()); });
    QTimer::singleShot(50, &host, &Host::tick);
    QTimer::singleShot(100, &loop, [&loop] { QTimer::singleShot(100, &loop, &QEventLoop::quit); });
    sinceTurn.start();
    heartbeat.start(1);
    loop.exec();
    return static_cast<double>(longest) / 1000;
}

void benchPass(Report& report)
{
    constexpr int Rounds = 3;
    constexpr int Files = 10000;
    const QTemporaryDir project(diskFolder());
    makeProject(project, Files);
    Host host(EUploadEnv::WholeProject);
    setProject(project.path());
    const Pair pass = interleave(
        Rounds, [&] { return tick(host, 1); },
        [&] {
            return seconds([&] {
                visitFiles(project.path(), [](const QString& file) {
                    Database database(file);
                    require(sqlite3_step(database.prepare(Scan).get()) == SQLITE_DONE,
                            "rows wait in "_l1 + file);
                });
            });
        });
    report.add("idle pass over 10,000 finished files"_l1, pass, Unit::Seconds, 1.5);
    report.add("longest stretch without the event loop / the whole pass"_l1,
               {longestStretch(host), pass.ours}, Unit::Seconds);
}

void benchConstruction(Report& report)
{
    constexpr int Rounds = 5;
    constexpr int Files = 1000;
    const QTemporaryDir project(diskFolder());
    makeProject(project, Files);
    setProject(project.path());
    report.add("construction on a project of 1,000 complete files"_l1,
               interleave(
                   Rounds, [] { return seconds([] { CKvFlightDataDbOperator(nullptr, EUploadEnv::None); }); },
                   [&] {
                       return seconds([&] {
                           visitFiles(project.path(), [](const QString& file) {
                               Database database(file);
                               for (const auto& [type, name] : Complete) {
                                   const Database::Statement exists = database.prepare(Exists);
                                   bindText(exists, 1, QByteArray::fromRawData(type, qstrlen(type)));
                                   bindText(exists, 2, QByteArray::fromRawData(name, qstrlen(name)));
                                   require(sqlite3_step(exists.get()) == SQLITE_ROW, QLatin1String(name));
                               }
                           });
                       });
                   }),
               Unit::Seconds, 1.5);
}
} // namespace

void benchScan(Report& report)
{
    benchTick(report);
    benchPass(report);
    benchConstruction(report);
}
