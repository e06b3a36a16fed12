// SPDX-License-Identifier: MIT
#include "record/BreakpointKeeper.h"
#include "record/RecorderPool.h"
#include "support/TestProject.h"
#include "telemetry/FlightSimulator.h"
#include "telemetry/FlightTrack.h"
#include "telemetry/PacedSource.h"
#include "window/LogModel.h"
#include "window/MissionModel.h"
#include "words/Failure.h"

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
        QVERIFY(project.run("UPDATE flight_mission SET name = 'n', started_at = '2024-01-01T08:00:00.000Z', "
                            "break_point_lng = '8.500000', break_point_lat = '47.000000'",
                            "UPDATE uas_status SET time = '2024-01-01T09:01:02.500Z'",
                            "UPDATE pos_data SET is_uploaded = 1, created_at = '2000-01-01 00:00:00.000'",
                            "UPDATE flight_monitor_detail_log SET created_at = '2020-01-01 00:00:00.000'"));
        const QString broken = project.file("broken/flight.kv", QByteArray(5000, 'x'));
        MissionModel model;
        model.update({MissionsOfFile::read(broken), MissionsOfFile::read(project.db)});
        QStringList row;
        for (int column = MissionModel::Start; column < MissionModel::ColumnCount; ++column) {
            row.append(column == MissionModel::Oldest ? QString() : shown(model, 1, column));
        }
        QCOMPARE(row.join('|'), QString("2024-01-01 08:00|1:01:02|1|3|2|4|7||waypoint 0"));
        QCOMPARE(model.index(1, MissionModel::BreakpointAt).data(Qt::ToolTipRole).toString(),
                 QString("waypoint 0 at 8.500000, 47.000000"));
        const int years = shown(model, 1, MissionModel::Oldest).section(' ', 0, 0).toInt() / 365;
        QCOMPARE(years, QDate(2020, 1, 1).daysTo(QDate::currentDate()) / 365);
        QCOMPARE(shown(model, 0, MissionModel::Mission), QString("locked, or no mission file"));
        QCOMPARE(model.backlog(false).waiting(), qint64(7));
        QCOMPARE(model.backlog(false).after({}).file, project.db);
        QCOMPARE(model.backlog(true).waiting(), qint64(0));
    }
    /// What waited in a file goes on waiting while it is locked, for the window as for the other counter.
    void aLockedFileStillWaits()
    {
        const FlightProject project(3, 2, 4);
        QVERIFY(project.run("UPDATE pos_data SET is_uploaded = 1"));
        BacklogCounter counter(Project::open(project.path("")));
        counter.countAll();
        MissionModel model;
        const auto seen = [&] {
            counter.recount();
            model.update({MissionsOfFile::read(project.db)});
            QStringList all;
            for (const Backlog& backlog : {counter.backlog(), model.backlog(false)}) {
                all.append(backlog.unreadable + QStringList(QString::number(backlog.waiting())));
            }
            return all.join(' ') + QString(" %1").arg(model.backlog(false).settled);
        };
        QCOMPARE(seen(), QString("7 7 3"));
        CKvDataBase other(project.db);
        QVERIFY(other.open());
        other.exec("BEGIN EXCLUSIVE");
        QCOMPARE(seen(), QString("%1 7 %1 7 3").arg(project.db));
        other.exec("COMMIT");
        QCOMPARE(seen(), QString("7 7 3"));
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
                mission.kinds = {{"pos_data", 9, 0, 9 - waiting, waiting}};
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
        model.update({file("a.kv", {"1", "2", "3"}, 0), file("b.kv", {"4"}, 5), file("c.kv", {"5"}, 0)});
        QCOMPARE(waited.rowCount(), 1);
        model.update({file("a.kv", {"2"}, 0), file("b.kv", {"4", "6"}, 0)});
        QCOMPARE(ids(), QString("2456"));
        QCOMPARE(waited.rowCount(), 1); // mission 4 stays, with its bars full
        model.remove({"b.kv"});
        model.update({file("c.kv", {"7"}, 1)});
        QCOMPARE(ids(), QString("27"));
        QCOMPARE(model.backlog(false).after({}).mission, QString("7"));
        QCOMPARE(model.backlog(false).after({}).file, QString("c.kv"));
    }
    void agesAndDurations()
    {
        const std::tuple<qint64, QString, QString> cases[] = {
            {-3, "0 s", "0:00:00"},        {59, "59 s", "0:00:59"},  {60, "1 min", "0:01:00"},
            {3599, "59 min", "0:59:59"},   {3600, "1 h", "1:00:00"}, {172799, "47 h", "47:59:59"},
            {172800, "2 days", "48:00:00"}};
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
            model.append(QString("line %1 ").arg(i) + QString(i % 2 ? 5000 : 0, 'x'), i % 5);
        }
        QTRY_VERIFY(model.rowCount() > 0);
        model.append("last", 4);
        QTRY_COMPARE(shown(model, model.rowCount() - 1, LogModel::Text), QString("last"));
        QVERIFY(model.rowCount() <= LogModel::MostLines);
        QVERIFY(shown(model, 1, LogModel::Text).size() < LogModel::LongestLine + 10);
        filter.setCondition([](auto& line) { return line.data(LogModel::LevelRole).toInt() >= 3; });
        filter.setFilterFixedString("LINE 2499");
        QStringList left;
        for (int row = 0; row < filter.rowCount(); ++row) {
            left.append(shown(filter, row, LogModel::Text).section(' ', 1, 1));
        }
        QCOMPARE(left.join(' '), QString("24993 24994 24998 24999"));
    }
    void storesBreakpointsAgain()
    {
        // p: the mission's row is posted, a: accepted, f: failed; o: another one's; b: its breakpoint stored.
        const QMap<QChar, QString> lines{
            {'p', "CKvFlightDataDbOperator::_postFlightMission Start upload flight mission,id = m"},
            {'o', "CKvFlightDataDbOperator::_postFlightMission Start upload flight mission,id = other"},
            {'a', "CKvFlightDataDbOperator::slotUploadMissionFinished Upload flight mission success,id = m"},
            {'f', "CKvFlightDataDbOperator::slotFlightMissionUpLoadfailed 690"}};
        const std::pair<QString, int> cases[] = {{"b", -1},   {"bpa", -1},   {"pba", 2},  {"pab", 2},
                                                 {"pbf", -1}, {"pbfpa", -1}, {"oba", -1}, {"pbaa", 2}};
        for (const auto& [seen, expected] : cases) {
            LogFeed feed;
            BreakpointKeeper keeper(feed);
            int at = 0, again = -1;
            connect(&keeper, &BreakpointKeeper::storeAgain, [&](const RecordedFlight&) { again = at; });
            for (; at < seen.size(); ++at) {
                if (seen[at] == 'b') {
                    RecordedFlight flight;
                    flight.missionId = "m";
                    flight.interruption = Interruption{"still armed", Breakpoint()};
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
        const Project project = Project::make(folder.path("p"));
        QByteArray log;
        for (int i = 0; i < 100; ++i) {
            const QByteArray heartbeat = mavlink::payload(mavlink::Heartbeat{quint32(i), 2, 3});
            log +=
                TelemetryFrame{1448000000000000 + i, mavlink::encode({0, quint8(1 + i % 2), 1, heartbeat}, 0)}
                    .logRecord();
        }
        FlightTask task;
        task.name = "n";
        task.log = folder.file("two.tlog", log);
        RecorderPool pool;
        connect(&pool, &RecorderPool::found, &pool,
                [&](const FlightTask& other) { pool.record(project, other); });
        QStringList told;
        connect(&pool, &RecorderPool::finished, &pool, [&told](int flight, const RecordedFlight& result) {
            told +=
                QString("%1: %2 %3%4").arg(flight).arg(result.name).arg(result.messages).arg(result.error);
        });
        pool.record(project, task);
        QTRY_COMPARE_WITH_TIMEOUT(told.size(), 2, 30000);
        told.sort();
        QCOMPARE(told, QStringList({"1: n (system 1) 50", "2: n (system 2) 50"}));
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
        const QVector<QPointF> height = track.over(&FlightSample::height);
        QVERIFY(height.first().y() < 500 && height.last().y() > 99000);
        QVERIFY(qAbs(track.path().constLast().x() - 0.01 * 111319.5 / 2) <
                5); // a degree is half as wide there
        QVERIFY(track.over(&FlightSample::volts).isEmpty());
    }

    void replaysAtAPace()
    {
        FlightSimulator flight(1, 0, 600), again(1, 0, 600);
        std::atomic_bool never{false}, cancelled{false};
        PacedSource paced(flight, 1, cancelled), fast(again, 0, never);
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
