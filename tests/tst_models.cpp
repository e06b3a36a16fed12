// SPDX-License-Identifier: MIT
#include "book/FlightEvents.h"
#include "book/FlightProfile.h"
#include "project/MissionWatch.h"
#include "record/BreakpointKeeper.h"
#include "record/RecorderPool.h"
#include "support/TestProject.h"
#include "telemetry/FlightSimulator.h"
#include "telemetry/FlightTrack.h"
#include "telemetry/MavlinkMessages.h"
#include "telemetry/PacedSource.h"
#include "window/LogModel.h"
#include "window/MissionModel.h"
#include "words/Failure.h"

#include <QtCore/QScopeGuard>
#include <QtCore/QTemporaryDir>
#include <sys/mount.h>

#include <thread>

class tst_models : public QObject
{
    Q_OBJECT

private:
    static QString shown(const QAbstractItemModel& model, int row, int column)
    {
        return model.index(row, column).data().toString();
    }

private Q_SLOTS:
    void showsMissionsAsTheirFilesAre()
    {
        const FlightProject project(3, 2, 4);
        QVERIFY(
            project.run("UPDATE flight_mission SET name = 'n', started_at = '2024-01-01T08:00:00.000Z', "
                        "clock_offset = '86400', break_point_lng = '8.500000', break_point_lat = '47.000000'",
                        "UPDATE uas_status SET time = '2024-01-01T09:01:02.500Z'",
                        "UPDATE pos_data SET is_uploaded = 1, created_at = '2000-01-01 00:00:00.000'",
                        "UPDATE flight_monitor_detail_log SET created_at = '2020-01-01 00:00:00.000'"));
        const QString broken = project.file("broken/flight.kv"_l1, QByteArray(5000, 'x'));
        MissionModel model;
        model.update({MissionsOfFile::read(broken), MissionsOfFile::read(project.db)});
        QStringList row;
        for (int column = MissionModel::Start; column <= MissionModel::State; ++column) {
            row.append(column == MissionModel::Oldest ? QString() : shown(model, 1, column));
        }
        QCOMPARE(row.join(u'|'), "2024-01-02 08:00|1:01:02|1|3|2|4|7||waypoint 0||not ended, "
                                 "7 records wait"_l1);
        MissionFile file(project.db);
        QCOMPARE(Flight(file, file.missions().constFirst()).start(), model.start(1).toMSecsSinceEpoch());
        QCOMPARE(model.index(1, MissionModel::BreakpointAt).data(Qt::ToolTipRole).toString(),
                 "waypoint 0 at 8.500000, 47.000000"_l1);
        const int years = shown(model, 1, MissionModel::Oldest).section(u' ', 0, 0).toInt() / 365;
        QCOMPARE(years, QDate(2020, 1, 1).daysTo(QDate::currentDate()) / 365);
        QCOMPARE(shown(model, 0, MissionModel::Mission), "locked, or no mission file"_l1);
        QCOMPARE(model.backlog(false).waiting(), qint64(7));
        QCOMPARE(model.backlog(false).after({}).file, project.db);
        QCOMPARE(model.backlog(true).waiting(), qint64(0));
    }
    /// What waited in a file goes on waiting while it is locked, for the window as for the other counter.
    void aLockedFileStillWaits()
    {
        const FlightProject project(3, 2, 4);
        QVERIFY(project.run("UPDATE pos_data SET is_uploaded = 1"));
        BacklogCounter counter(Project::open(project.path(""_l1)));
        counter.countAll();
        MissionModel model;
        const auto seen = [&] {
            counter.recount();
            model.update({MissionsOfFile::read(project.db)});
            QStringList all;
            for (const Backlog& backlog : {counter.backlog(), model.backlog(false)}) {
                all.append(backlog.unreadable + QStringList(QString::number(backlog.waiting())));
            }
            return all.join(u' ') + QStringLiteral(" %1").arg(model.backlog(false).settled);
        };
        QCOMPARE(seen(), "7 7 3"_l1);
        CKvDataBase other(project.db);
        QVERIFY(other.open());
        other.exec("BEGIN EXCLUSIVE"_l1);
        QCOMPARE(seen(), QStringLiteral("%1 7 %1 7 3").arg(project.db));
        other.exec("COMMIT"_l1);
        QCOMPARE(seen(), "7 7 3"_l1);
    }
    /// Room that comes and goes on the disk, where one can be mounted, changes nothing of the files.
    void aFullDiskIsLookedAtAgain()
    {
        const FlightProject project(3, 2, 4);
        QTemporaryDir folder;
        const QByteArray disk = folder.path().toLocal8Bit();
        if (::mount("tmpfs", disk.constData(), "tmpfs", 0, "size=900k") != 0) {
            qInfo("not tried: only root may mount a disk");
            return;
        }
        const auto unmount = qScopeGuard([&] { ::umount2(disk.constData(), MNT_DETACH); });
        const QString file = folder.filePath("1/flight.kv"_l1);
        QVERIFY(QDir().mkpath(folder.filePath("1"_l1)) && QFile::copy(project.db, file));
        QFile flight(file);
        QVERIFY(flight.open(QIODevice::ReadWrite));
        QVERIFY(flight.setFileTime(QDateTime::currentDateTime().addDays(-1), QFile::FileModificationTime));
        const Project own = Project::make(folder.path());
        BacklogCounter counter(own);
        counter.countAll();
        MissionWatch watch(own);
        MissionModel model;
        connect(&watch, &MissionWatch::found, &model, &MissionModel::update);
        for (const auto& [room, sendable] : {std::pair("size=900k", 0), {"size=8m", 10}}) {
            QCOMPARE(::mount("tmpfs", disk.constData(), "tmpfs", MS_REMOUNT, room), 0);
            counter.recount();
            watch.look();
            QCOMPARE(counter.backlog().sendable(), qint64(sendable));
            QCOMPARE(model.backlog(false).sendable(), qint64(sendable));
        }
    }
    void keepsRowsApartWhenFilesComeAndGo()
    {
        MissionModel model;
        const MissionProxy waited(&model, true, nullptr);
        const auto file = [](const QString& name, QStringList ids, qint64 waiting) {
            MissionsOfFile result{name, {}};
            for (const QString& id : ids) {
                MissionRecord mission;
                mission.file = name;
                mission.id = id;
                mission.kinds = {{"pos_data"_l1, 9, 0, 9 - waiting, waiting}};
                result.missions.append(mission);
            }
            return result;
        };
        const auto ids = [&model] {
            QString all;
            for (int row = 0; row < model.rowCount(); ++row) {
                all += shown(model, row, MissionModel::Mission);
            }
            return all;
        };
        model.update({file("a.kv"_l1, {"1"_l1, "2"_l1, "3"_l1}, 0), file("b.kv"_l1, {"4"_l1}, 5),
                      file("c.kv"_l1, {"5"_l1}, 0)});
        QCOMPARE(waited.rowCount(), 1);
        model.update({file("a.kv"_l1, {"2"_l1}, 0), file("b.kv"_l1, {"4"_l1, "6"_l1}, 0)});
        QCOMPARE(ids(), "2456"_l1);
        QCOMPARE(waited.rowCount(), 1); // mission 4 stays, with its bars full
        model.remove({"b.kv"_l1});
        model.update({file("c.kv"_l1, {"7"_l1}, 1)});
        QCOMPARE(ids(), "27"_l1);
        QCOMPARE(model.backlog(false).after({}).mission, "7"_l1);
        QCOMPARE(model.backlog(false).after({}).file, "c.kv"_l1);
    }
    void saysHowAFlightIs()
    {
        const std::tuple<qint64, qint64, const char*, int, Obstacle, const char*> cases[] = {
            {900, 0, "completed", 0, Obstacle::None, "uploaded"},
            {10000, 4201, "completed", 0, Obstacle::None, "4,201 records wait"},
            {10000, 4201, "interrupted", 38, Obstacle::None,
             "interrupted at waypoint 38, 4,201 records wait"},
            {10, 1, "", 0, Obstacle::None, "not ended, 1 records wait"},
            {10, 1, "incomplete", 0, Obstacle::None, "incomplete (4 s of 22:57), 1 records wait"},
            {10, 1, "completed", 0, Obstacle::NotMarkable, "1 records wait: the file is read-only"},
            {10, 1, "completed", 0, Obstacle::NoMissionRow,
             "1 records wait for the record of the flight itself"}};
        for (const auto& [recorded, waiting, result, waypoint, obstacle, words] : cases) {
            MissionRecord mission;
            mission.id = "m"_l1;
            mission.file = "f.kv"_l1;
            mission.result = QLatin1String(result);
            mission.completedAt = QLatin1String(*result ? "2024-01-01T08:00:00.000Z" : "");
            mission.obstacle = obstacle;
            mission.isIncomplete = mission.result == "incomplete"_l1;
            mission.seconds = 4;
            mission.wholeSeconds = 1377;
            mission.kinds = {{"pos_data"_l1, recorded, 0, recorded - waiting, waiting}};
            if (waypoint > 0) {
                mission.breakpoint = Breakpoint{waypoint, 8, 47, 0};
            }
            MissionModel model;
            model.update({{"f.kv"_l1, {mission}}});
            QCOMPARE(model.stateText(0), QLatin1String(words));
            model.setUploading("m"_l1);
            QCOMPARE(model.stateText(0).endsWith(
                         QStringLiteral("uploading %1 %").arg(100 * (recorded - waiting) / recorded)),
                     waiting > 0);
            mission.kinds[0].recorded += 5;
            model.update({{"f.kv"_l1, {mission}}});
            QCOMPARE(model.stateText(0).startsWith("recording"_l1), !*result);
        }
    }
    /// Of each stretch the least and the greatest stay, however long the flight is.
    void aProfileKeepsItsPeaks()
    {
        const FlightProject project(40000, 3, 0);
        QVERIFY(project.run(
            "UPDATE pos_data SET time = strftime('%Y-%m-%dT%H:%M:%fZ', 1720000000 + rowid, "
            "'unixepoch'), lng = 8, lat = CASE WHEN rowid < 100 THEN NULL ELSE 47 END, speed = NULL, "
            "relative_alt = CASE rowid WHEN 12346 THEN 777 WHEN 20009 THEN -5 ELSE 10 END"));
        MissionFile file(project.db);
        Flight flight(file, file.missions().constFirst());
        QVector<FlightProfile> told;
        FlightProfile::read(
            flight, [] {}, [&told](const FlightProfile& profile) { told.append(profile); });
        QCOMPARE(told.size(), 2);
        double low = 0, high = 0;
        for (const FlightProfile::Span& span : told.last().values[FlightProfile::Height]) {
            low = qMin(low, span.low);
            high = qMax(high, span.high);
        }
        QCOMPARE(low, -5.0);
        QCOMPARE(high, 777.0);
        QCOMPARE(told.first().track.last().msec, 1720040000000);
        QVERIFY(told.first().track.size() > 3500 && told.first().track.size() < 4500);
        QCOMPARE(told.last().values[FlightProfile::Battery].size(), 3);
    }
    void tellsWhatHappened()
    {
        const FlightProject project(0, 4, 2);
        QByteArray text(51, '\0');
        text.replace(0, 12, "\3Low battery");
        const QByteArray frame = mavlink::encode({mavlink::StatusText::Id, 1, 1, text}, 0);
        QVERIFY(project.run(
            "UPDATE uas_status SET time = '2026-07-05T08:00:' || CASE rowid WHEN 4 THEN 30 "
            "ELSE '0' || rowid END "
            "|| '.000Z', armed = rowid > 1, flight_mode = substr('AUTOLAND', 4 * (rowid > 2) + 1, 4)",
            "UPDATE flight_monitor_detail_log SET message = x'"_l1 +
                QString::fromLatin1(TelemetryFrame{1783238402500000, frame}.logRecord().toHex()) +
                "' WHERE rowid = 2"_l1,
            "INSERT INTO flight_complete(flight_mission_id, completed_at, result) "
            "VALUES('m1', '2026-07-05T08:01:35.500Z', 'interrupted')"));
        MissionFile file(project.db);
        Flight flight(file, file.missions().constFirst());
        QStringList told;
        for (const FlightEvent& event : FlightEvent::of(flight, [] {})) {
            told += QStringLiteral("%1 %2%3")
                        .arg(event.msec % 60000)
                        .arg(event.text, event.trouble ? "!"_l1 : ""_l1);
        }
        QCOMPARE(told.join(u';'), "1000 Mode AUTO;2000 Armed;2500 Low battery!;3000 Mode LAND;"
                                  "3000 Link lost for 27 s!;30000 Link lost: nothing was heard for 65 s, "
                                  "until the recording ended!"_l1);
        FlightProfile profile;
        FlightProfile::read(
            flight, [] {}, [&profile](const FlightProfile& read) { profile = read; });
        QCOMPARE(profile.period().second % 3600000, 95500);
        QCOMPARE(profile.silences().size(), 2);
        QVERIFY(FlightFigures::of(flight).isLinkLost);
    }
    void agesAndDurations()
    {
        const std::tuple<qint64, QString, QString> cases[] = {
            {-3, "0 s"_l1, "0:00:00"_l1},        {59, "59 s"_l1, "0:00:59"_l1},
            {60, "1 min"_l1, "0:01:00"_l1},      {3599, "59 min"_l1, "0:59:59"_l1},
            {3600, "1 h"_l1, "1:00:00"_l1},      {172799, "47 h"_l1, "47:59:59"_l1},
            {172800, "2 days"_l1, "48:00:00"_l1}};
        for (const auto& [seconds, age, duration] : cases) {
            QCOMPARE(MissionModel::ageText(seconds), age);
            QCOMPARE(MissionModel::durationText(seconds), duration);
        }
    }
    void keepsTheLatestLogLines()
    {
        LogModel model;
        RowFilter filter(&model, LogModel::Text, nullptr);
        const int lines = LogModel::MostLines + 5000;
        for (int i = 0; i < lines; ++i) {
            model.append(QStringLiteral("line %1 ").arg(i) + QString(i % 2 ? 5000 : 0, u'x'), i % 5);
        }
        QTRY_VERIFY(model.rowCount() > 0);
        model.append("last"_l1, 4);
        QTRY_COMPARE(shown(model, model.rowCount() - 1, LogModel::Text), "last"_l1);
        QVERIFY(model.rowCount() <= LogModel::MostLines);
        QVERIFY(shown(model, 1, LogModel::Text).size() < LogModel::LongestLine + 10);
        filter.setCondition([](auto& line) { return line.data(LogModel::LevelRole).toInt() >= 3; });
        filter.setFilterFixedString("LINE 2499"_l1);
        QStringList left;
        for (int row = 0; row < filter.rowCount(); ++row) {
            left.append(shown(filter, row, LogModel::Text).section(u' ', 1, 1));
        }
        QCOMPARE(left.join(u' '), "24993 24994 24998 24999"_l1);
    }
    void storesBreakpointsAgain()
    {
        // p: the mission's row is posted, a: accepted, f: failed; o: another one's; b: its breakpoint stored.
        const QMap<QChar, QString> lines{
            {u'p', "CKvFlightDataDbOperator::_postFlightMission Start upload flight mission,id = m"_l1},
            {u'o', "CKvFlightDataDbOperator::_postFlightMission Start upload flight mission,id = other"_l1},
            {u'a',
             "CKvFlightDataDbOperator::slotUploadMissionFinished Upload flight mission success,id = m"_l1},
            {u'f', "CKvFlightDataDbOperator::slotFlightMissionUpLoadfailed 690"_l1}};
        const std::pair<QString, int> cases[] = {{"b"_l1, -1},   {"bpa"_l1, -1}, {"pba"_l1, 2},
                                                 {"pab"_l1, 2},  {"pbf"_l1, -1}, {"pbfpa"_l1, -1},
                                                 {"oba"_l1, -1}, {"pbaa"_l1, 2}};
        for (const auto& [seen, expected] : cases) {
            LogFeed feed;
            BreakpointKeeper keeper(feed);
            int at = 0, again = -1;
            connect(&keeper, &BreakpointKeeper::storeAgain, [&](const RecordedFlight&) { again = at; });
            for (; at < seen.size(); ++at) {
                if (seen[at] == u'b') {
                    RecordedFlight flight;
                    flight.missionId = "m"_l1;
                    flight.interruption = Interruption{"still armed"_l1, Breakpoint()};
                    keeper.noteRecorded(flight);
                } else {
                    Q_EMIT feed.line(lines[seen[at]], 2);
                }
            }
            QCOMPARE(again, expected);
        }
    }
    /// The second vehicle of a log is found when the first one's flight is opened.
    void recordsAllVehiclesOfALog()
    {
        const TestProject folder;
        const Project project = Project::make(folder.path("p"_l1));
        QByteArray log;
        for (int i = 0; i < 100; ++i) {
            const QByteArray heartbeat = mavlink::payload(mavlink::Heartbeat{quint32(i), 2, 3});
            log +=
                TelemetryFrame{1448000000000000 + i, mavlink::encode({0, quint8(1 + i % 2), 1, heartbeat}, 0)}
                    .logRecord();
        }
        FlightTask task;
        task.name = "n"_l1;
        task.log = folder.file("two.tlog"_l1, log);
        RecorderPool pool;
        connect(&pool, &RecorderPool::found, &pool,
                [&](const FlightTask& other) { pool.record(project, other); });
        QStringList told;
        connect(&pool, &RecorderPool::finished, &pool, [&told](int flight, const RecordedFlight& result) {
            told += QStringLiteral("%1: %2 %3%4")
                        .arg(flight)
                        .arg(result.name)
                        .arg(result.messages)
                        .arg(result.error);
        });
        pool.record(project, task);
        QTRY_COMPARE_WITH_TIMEOUT(told.size(), 2, 30000);
        told.sort();
        QCOMPARE(told, QStringList({"1: n (system 1) 50"_l1, "2: n (system 2) 50"_l1}));
        QVERIFY(!pool.isBusy());
    }
    void boundsAnyFlight()
    {
        FlightTrack track;
        for (int i = 0; i < 100000; ++i) {
            FlightSample sample;
            sample.seconds = i;
            sample.lng = i < 3 ? FlightSample::Unknown : 8 + i * 1e-7;
            sample.lat = 60;
            sample.height = i;
            track.add({sample});
        }
        QVERIFY(track.samples().size() <= FlightTrack::MostSamples);
        QVERIFY(track.samples().size() > FlightTrack::MostSamples / 3);
        const FlightProfile profile = FlightProfile::of(track.samples());
        const auto& heights = profile.values[FlightProfile::Height];
        QVERIFY(heights.first().high < 500 && heights.last().low > 99000);
        QVERIFY(profile.track.size() <= heights.size());
        QVERIFY(std::isnan(profile.values[FlightProfile::Battery].last().high));
    }

    void replaysAtAPace()
    {
        FlightSimulator flight(1, 0, 600), again(1, 0, 600);
        std::atomic_bool never{false}, cancelled{false};
        const std::atomic<double> slow{1}, any{0};
        PacedSource paced(flight, slow, cancelled), fast(again, any, never);
        std::thread thread([&paced] {
            TelemetryFrame frame;
            const auto readAll = [&] {
                while (paced.next(&frame)) {
                }
            };
            QVERIFY_EXCEPTION_THROWN(readAll(), Failure);
        });
        for (TelemetryFrame frame; fast.next(&frame);) {
        }
        cancelled = true;
        thread.join();
        QCOMPARE(fast.position(), fast.size());
        QVERIFY(fast.flownSeconds() > 35999);
        QVERIFY(paced.position() < paced.size() / 100);
    }
};

QTEST_GUILESS_MAIN(tst_models)
#include "tst_models.moc"
