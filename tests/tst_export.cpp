// SPDX-License-Identifier: MIT
#include "export/Flight.h"
#include "support/Programs.h"
#include "support/Rows.h"
#include "telemetry/MavlinkCodec.h"
#include "telemetry/MavlinkMessages.h"
#include "telemetry/TelemetryLog.h"

#include <sys/stat.h>

namespace
{
/// What a reader of other people found in a file: places as longitude, latitude and height, and times.
struct Found {
    QVector<double> numbers;
    QVector<qint64> times;
};

/// In lines of well-known text, with or without times of any layout.
Found found(const QByteArray& lines)
{
    static const QRegularExpression place(R"((-?[\d.]+) (-?[\d.]+) (-?[\d.]+)(?=[,)]))"_l1);
    static const QRegularExpression time(R"(\d{4}[-/]\d\d[-/]\d\d[T ]\d\d:\d\d:\d\d(\.\d+)?)"_l1);
    Found all;
    for (auto it = place.globalMatch(QString::fromUtf8(lines)); it.hasNext();) {
        const QRegularExpressionMatch match = it.next();
        for (int i = 1; i <= 3; ++i) {
            all.numbers += match.captured(i).toDouble();
        }
    }
    for (auto it = time.globalMatch(QString::fromUtf8(lines)); it.hasNext();) {
        const QRegularExpressionMatch match = it.next();
        all.times += flightTime::read(match.captured().replace(u'/', u'-').replace(u' ', u'T') + u'Z');
    }
    return all;
}

QByteArray run(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.start(program, arguments);
    process.waitForFinished(-1);
    return process.readAllStandardOutput();
}

/// A project with a simulated flight of a minute, flown once for all.
struct Simulated : FlownProject {
    Simulated()
    {
        static const QByteArray bytes = fly();
        TestProject::file("project/flown/flight.kv"_l1, bytes);
    }
    static QByteArray fly()
    {
        const FlownProject flown;
        flown.simulate(1);
        return contents(flown.missionFiles().value(0));
    }
    ProgramResult write(const QString& format, const QString& target) const
    {
        return desk("export"_l1, {"--format"_l1, format, "--output"_l1, target});
    }
    QString db = path("project/flown/flight.kv"_l1);
};
} // namespace

class tst_export : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    /// In "command" the file's name is put in for @.
    void othersReadTheSame_data() { addRows(); }
    /// As many points as have a place, with times to the millisecond, places to 1e-7 degrees, heights to 1
    /// cm.
    void othersReadTheSame()
    {
        QStringList command = QProcess::splitCommand(cell("command"));
        const Simulated flown;
        // No fix at first, an aircraft whose clock is not the recorder's, a name that is markup.
        QVERIFY(TestProject::run(
            flown.db, {"UPDATE pos_data SET lng = NULL, lat = NULL WHERE rowid < 4"_l1,
                       "UPDATE pos_data SET alt = -alt WHERE rowid % 7 = 0"_l1,
                       "UPDATE flight_mission SET clock_offset = -3600.25, name = '<&\"' || char(7)"_l1}));
        const QString format = QString::fromLatin1(QTest::currentDataTag()).section(u' ', 0, 0);
        const QString target = flown.path("flight."_l1 + format);
        const ProgramResult result = flown.write(format, target);
        QVERIFY2(result.exitCode == 0, result.err.constData());
        QVERIFY2(result.out.contains("3 positions have no place"), result.out.constData());
        const QByteArray read = run(command.takeFirst(), command.replaceInStrings("@"_l1, target));
        const Found told = found(read);

        const QString place = " FROM pos_data WHERE lat IS NOT NULL ORDER BY rowid"_l1;
        const QVariantList wanted =
            TestProject::values(flown.db, "SELECT lng || ' ' || lat || ' ' || alt"_l1 + place);
        QVector<double> numbers;
        for (const QVariant& text : wanted) {
            for (const QString& number : text.toString().split(u' ')) {
                numbers += number.toDouble();
            }
        }
        QVERIFY2(told.numbers.size() >= numbers.size(), read.left(2000).constData());
        for (int i = 0; i < numbers.size(); ++i) {
            const bool same = std::abs(told.numbers[i] - numbers[i]) <= (i % 3 == 2 ? 0.01 : 1e-7);
            QVERIFY2(same, qPrintable(QStringLiteral("number %1: %2 for %3")
                                          .arg(i)
                                          .arg(told.numbers[i], 0, 'f', 8)
                                          .arg(numbers[i], 0, 'f', 8)));
        }
        QVector<qint64> times;
        for (const QVariant& text : TestProject::values(flown.db, "SELECT time"_l1 + place)) {
            times += flightTime::read(text.toString()) - 3600250;
        }
        if (command.contains("Name"_l1)) { // which shows no times of tracks
            return;
        }
        QCOMPARE(told.times, times);
        QCOMPARE(told.numbers.size(), numbers.size());
    }
    void cutsLinesAtTheAntimeridian()
    {
        const Simulated flown;
        QVERIFY(TestProject::run(
            flown.db,
            {"UPDATE pos_data SET lng = lng + 180 - (SELECT (min(lng) + max(lng)) / 2 FROM pos_data)"_l1,
             "UPDATE pos_data SET lng = lng - 360 WHERE lng > 180"_l1}));
        const QString target = flown.path("flight.geojson"_l1);
        QCOMPARE(flown.write("geojson"_l1, target).exitCode, 0);
        const QJsonObject feature =
            QJsonDocument::fromJson(TestProject::contents(target))["features"_l1][0].toObject();
        const QJsonArray lines = feature["geometry"_l1].toObject()["coordinates"_l1].toArray();
        const QJsonArray times = feature["properties"_l1].toObject()["coordTimes"_l1].toArray();
        QCOMPARE(feature["geometry"_l1].toObject()["type"_l1].toString(), "MultiLineString"_l1);
        QVERIFY(lines.size() >= 2);
        int points = 0;
        for (int i = 0; i < lines.size(); ++i) {
            const QJsonArray line = lines[i].toArray();
            QCOMPARE(times[i].toArray().size(), line.size());
            points += line.size();
            const double side = line[0][0].toDouble();
            for (const QJsonValue& point : line) {
                QVERIFY(point[0].toDouble() * side > 0);
            }
            if (i > 0) {
                QCOMPARE(std::abs(side), 180.0);
                QCOMPARE(lines[i - 1].toArray().last()[0].toDouble(), -side);
                QCOMPARE(lines[i - 1].toArray().last()[1], line[0][1]);
            }
        }
        QCOMPARE(points - 2 * (lines.size() - 1),
                 TestProject::value(flown.db, "SELECT count(*) FROM pos_data"_l1).toInt());
    }
    void aLogComesBackByteForByte()
    {
        const Simulated flown;
        const QString first = flown.path("first.tlog"_l1), second = flown.path("second.tlog"_l1);
        QCOMPARE(flown.write("tlog"_l1, first).exitCode, 0);
        const FlownProject other;
        QCOMPARE(other.desk("record"_l1, {first}).exitCode, 0);
        const ProgramResult written =
            other.desk("export"_l1, {"--format"_l1, "tlog"_l1, "--output"_l1, "-"_l1});
        QCOMPARE(written.exitCode, 0);
        QVERIFY(written.out == TestProject::contents(first));

        // Files of old hold the frames alone: those that told a position come back with its time.
        QVERIFY(TestProject::run(
            flown.db, {"UPDATE flight_monitor_detail_log SET message = substr(message, 9)"_l1,
                       "UPDATE flight_monitor_detail_log SET message = 'take-off' WHERE rowid = 9"_l1}));
        const ProgramResult old = flown.write("tlog"_l1, second);
        QCOMPARE(old.exitCode, 1);
        QVERIFY2(old.out.contains("without their time") && old.out.contains("1 messages (8 bytes)"),
                 old.out.constData());
        QStringList times;
        TelemetryLog log(second);
        for (TelemetryFrame frame; log.next(&frame);) {
            if (const auto message = mavlink::decode(frame.bytes);
                message && message->id == mavlink::GlobalPositionInt::Id) {
                times += flightTime::text(frame.usec / 1000);
            }
        }
        QCOMPARE(times.join(u' '),
                 TestProject::text(flown.db, "SELECT time FROM pos_data ORDER BY rowid"_l1));
    }
    void goesAsFarAsItCan_data() { addRows(); }
    void goesAsFarAsItCan()
    {
        const QString sql = cell("sql");
        const QByteArray said = cell("said").toUtf8();
        const Simulated flown;
        const int all = TestProject::value(flown.db, "SELECT count(*) FROM pos_data"_l1).toInt();
        if (sql == "garbage"_l1) {
            flown.TestProject::file("project/other/flight.kv"_l1, QByteArray(5000, 'x'));
        } else if (sql == "pages"_l1) {
            const int page = TestProject::value(flown.db, "SELECT pageno FROM dbstat WHERE name = 'pos_data' "
                                                          "AND pagetype = 'leaf' LIMIT 1 OFFSET 2"_l1)
                                 .toInt();
            QFile file(flown.db);
            QVERIFY(page > 1 && file.open(QIODevice::ReadWrite) && file.seek(qint64(page - 1) * 4096));
            file.write(QByteArray(4096, '\x55'));
        } else {
            QVERIFY(TestProject::run(flown.db, {sql}));
        }
        const QString target = flown.path("flight.csv"_l1);
        const ProgramResult result = flown.write("csv"_l1, target);
        QVERIFY2(result.exitCode == cell("exit").toInt(), (result.out + result.err).constData());
        QVERIFY2((result.out + result.err).contains(said), (result.out + result.err).constData());
        const int lines = TestProject::contents(target).count('\n') - 1;
        if (sql == "pages"_l1) {
            QVERIFY2(lines > all / 2 && lines < all, QByteArray::number(lines).constData());
        } else {
            QCOMPARE(lines, cell("missing") == "all"_l1 ? 0 : all - cell("missing").toInt());
        }
    }
    void leavesTargetsThatItCannotReplace()
    {
        const Simulated flown;
        const QString target = flown.TestProject::file("flights.kml"_l1, "precious");
        for (const QStringList& wrong :
             {QStringList{"nobody"_l1, "--format"_l1, "kml"_l1, "--output"_l1, target},
              QStringList{"--format"_l1, "kml"_l1, "--output"_l1, target + "/x"_l1},
              QStringList{"--format"_l1, "png"_l1, "--output"_l1, target}}) {
            QVERIFY(flown.desk("export"_l1, wrong).exitCode != 0);
        }
        QCOMPARE(TestProject::contents(target), QByteArray("precious"));
        const QString id = TestProject::text(flown.db, "SELECT id FROM flight_mission"_l1);
        QCOMPARE(
            flown.desk("export"_l1, {id.right(8), "--format"_l1, "kml"_l1, "--output"_l1, target}).exitCode,
            0);
        QVERIFY(TestProject::contents(target).endsWith("</kml>\n"));
        QCOMPARE(QDir(QFileInfo(target).path()).entryList({"flights*"_l1}).size(), 1);
        const QString pipe = flown.path("pipe"_l1);
        QCOMPARE(::mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
        QFile reader(pipe);
        QVERIFY(reader.open(QIODevice::ReadWrite | QIODevice::Unbuffered)); // who only reads would wait
        QCOMPARE(flown.write("csv"_l1, pipe).exitCode, 0);
        QVERIFY(reader.readLine().startsWith("mission,")); // into what is no file, which stays
    }
    /// Who records never waits for an export, and what is recorded meanwhile is not half in it.
    void readsBesideARecorder()
    {
        const Simulated flown;
        CKvDataBase::SetLockWait(0);
        MissionFile file(flown.db);
        Flight flight(file, file.missions().constFirst());
        int points = 0;
        const int all = TestProject::value(flown.db, "SELECT count(*) FROM pos_data"_l1).toInt();
        flight.positionsWithStatus([&](const FlightPoint&, const FlightStatus&) {
            if (points++ % 20 == 0) {
                QVERIFY(TestProject::run(
                    flown.db, {"INSERT INTO pos_data(id, flight_mission_id) "
                               "SELECT new.id || count(*), new.id FROM pos_data, flight_mission new"_l1}));
            }
        });
        CKvDataBase::SetLockWait(30000);
        QCOMPARE(points, all);
    }
    /// The sums of the tables themselves, and how flights ended.
    void logbook()
    {
        const FlownProject flown;
        QVERIFY(flown.simulate(2));
        QVERIFY(flown.desk("simulate"_l1, {"--interrupted"_l1, "--minutes"_l1, "1"_l1}).exitCode == 0);
        double airborne = 0, distance = 0, waiting = 0;
        for (const QString& file : flown.missionFiles()) {
            const QStringList sums = TestProject::text(file, R"(
WITH p AS (SELECT p.rowid AS n, lng, lat, julianday(time) * 86400 AS t, (relative_alt > 1 OR speed > 3) AND
    (SELECT armed FROM uas_status s WHERE s.time <= p.time ORDER BY s.time DESC LIMIT 1) AS up FROM pos_data p),
w AS (SELECT b.t - a.t AS dt, 6371008.8 * radians(1) * sqrt((b.lat - a.lat) * (b.lat - a.lat) +
    (b.lng - a.lng) * (b.lng - a.lng) * cos(radians(a.lat)) * cos(radians(b.lat))) AS d
    FROM p a JOIN p b ON b.n = a.n + 1 WHERE a.up AND b.up)
SELECT sum(dt) || ' ' || sum(d) FROM w)"_l1)
                                         .split(u' ');
            airborne += sums.value(0).toDouble();
            distance += sums.value(1).toDouble();
            waiting += TestProject::waiting(file);
        }
        const QJsonDocument book = QJsonDocument::fromJson(flown.desk("logbook"_l1, {"--json"_l1}).out);
        QVERIFY(airborne > 60);
        QVERIFY(std::abs(book["total"_l1]["airborne_s"_l1].toDouble() - airborne) < 0.01);
        QVERIFY(std::abs(book["total"_l1]["distance_m"_l1].toDouble() - distance) < distance / 1000);
        QCOMPARE(book["total"_l1]["waiting_rows"_l1].toDouble(), waiting);
        QCOMPARE(book["by_aircraft"_l1]["simulated quadrotor"_l1]["flights"_l1].toInt(), 3);
        QStringList ends;
        for (const auto& flight : book["flights"_l1].toArray()) {
            ends += flight.toObject()["end"_l1].toString().section(u' ', 0, 0);
        }
        std::sort(ends.begin(), ends.end());
        QCOMPARE(ends.join(u' '), "interrupted landed landed"_l1);
        const QByteArray none = flown.desk("logbook"_l1, {"--to"_l1, "2024-01-01"_l1, "--csv"_l1}).out;
        QCOMPARE(none.count('\n'), 1);
        QCOMPARE(flown.desk("logbook"_l1, {"--from"_l1, "2024-01-02"_l1, "--csv"_l1}).out.count('\n'), 4);
        QCOMPARE(flown.desk("logbook"_l1, {"--from"_l1, "yesterday"_l1}).exitCode, 2);
    }
};

QTEST_GUILESS_MAIN(tst_export)
#include "tst_export.moc"
