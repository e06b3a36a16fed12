// SPDX-License-Identifier: MIT
#include "export/Flight.h"
#include "support/Programs.h"
#include "support/Rows.h"
#include "telemetry/MavlinkCodec.h"
#include "telemetry/MavlinkMessages.h"
#include "telemetry/TelemetryLog.h"

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
    static const QRegularExpression place(R"((-?[\d.]+) (-?[\d.]+) (-?[\d.]+)(?=[,)]))");
    static const QRegularExpression time(R"(\d{4}[-/]\d\d[-/]\d\d[T ]\d\d:\d\d:\d\d(\.\d+)?)");
    Found all;
    for (auto it = place.globalMatch(lines); it.hasNext();) {
        const QRegularExpressionMatch match = it.next();
        for (int i = 1; i <= 3; ++i) {
            all.numbers += match.captured(i).toDouble();
        }
    }
    for (auto it = time.globalMatch(lines); it.hasNext();) {
        const QRegularExpressionMatch match = it.next();
        all.times += flightTime::read(match.captured().replace('/', '-').replace(' ', 'T') + 'Z');
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
        TestProject::file("project/flown/flight.kv", bytes);
    }
    static QByteArray fly()
    {
        const FlownProject flown;
        flown.simulate(1);
        return contents(flown.missionFiles().value(0));
    }
    ProgramResult write(const QString& format, const QString& target) const
    {
        return desk("export", {"--format", format, "--output", target});
    }
    QString db = path("project/flown/flight.kv");
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
            flown.db, {"UPDATE pos_data SET lng = NULL, lat = NULL WHERE rowid < 4",
                       "UPDATE pos_data SET alt = -alt WHERE rowid % 7 = 0",
                       "UPDATE flight_mission SET clock_offset = -3600.25, name = '<&\"' || char(7)"}));
        const QString format = QString(QTest::currentDataTag()).section(' ', 0, 0);
        const QString target = flown.path("flight." + format);
        const ProgramResult result = flown.write(format, target);
        QVERIFY2(result.exitCode == 0, result.err);
        QVERIFY2(result.out.contains("3 positions have no place"), result.out);
        const QByteArray read = run(command.takeFirst(), command.replaceInStrings("@", target));
        const Found told = found(read);

        const QString place = " FROM pos_data WHERE lat IS NOT NULL ORDER BY rowid";
        const QVariantList wanted =
            TestProject::values(flown.db, "SELECT lng || ' ' || lat || ' ' || alt" + place);
        QVector<double> numbers;
        for (const QVariant& text : wanted) {
            for (const QString& number : text.toString().split(' ')) {
                numbers += number.toDouble();
            }
        }
        QVERIFY2(told.numbers.size() >= numbers.size(), read.left(2000));
        for (int i = 0; i < numbers.size(); ++i) {
            const bool same = std::abs(told.numbers[i] - numbers[i]) <= (i % 3 == 2 ? 0.01 : 1e-7);
            QVERIFY2(same, qPrintable(QString("number %1: %2 for %3")
                                          .arg(i)
                                          .arg(told.numbers[i], 0, 'f', 8)
                                          .arg(numbers[i], 0, 'f', 8)));
        }
        QVector<qint64> times;
        for (const QVariant& text : TestProject::values(flown.db, "SELECT time" + place)) {
            times += flightTime::read(text.toString()) - 3600250;
        }
        if (command.contains("Name")) { // which shows no times of tracks
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
            {"UPDATE pos_data SET lng = lng + 180 - (SELECT (min(lng) + max(lng)) / 2 FROM pos_data)",
             "UPDATE pos_data SET lng = lng - 360 WHERE lng > 180"}));
        const QString target = flown.path("flight.geojson");
        QCOMPARE(flown.write("geojson", target).exitCode, 0);
        const QJsonObject feature =
            QJsonDocument::fromJson(TestProject::contents(target))["features"][0].toObject();
        const QJsonArray lines = feature["geometry"].toObject()["coordinates"].toArray();
        const QJsonArray times = feature["properties"].toObject()["coordTimes"].toArray();
        QCOMPARE(feature["geometry"].toObject()["type"].toString(), QString("MultiLineString"));
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
                 TestProject::value(flown.db, "SELECT count(*) FROM pos_data").toInt());
    }
    void aLogComesBackByteForByte()
    {
        const Simulated flown;
        const QString first = flown.path("first.tlog"), second = flown.path("second.tlog");
        QCOMPARE(flown.write("tlog", first).exitCode, 0);
        const FlownProject other;
        QCOMPARE(other.desk("record", {first}).exitCode, 0);
        const ProgramResult written = other.desk("export", {"--format", "tlog", "--output", "-"});
        QCOMPARE(written.exitCode, 0);
        QVERIFY(written.out == TestProject::contents(first));

        // Files of old hold the frames alone: those that told a position come back with its time.
        QVERIFY(TestProject::run(
            flown.db, {"UPDATE flight_monitor_detail_log SET message = substr(message, 9)",
                       "UPDATE flight_monitor_detail_log SET message = 'take-off' WHERE rowid = 9"}));
        const ProgramResult old = flown.write("tlog", second);
        QCOMPARE(old.exitCode, 1);
        QVERIFY2(old.out.contains("without their time") && old.out.contains("1 messages (8 bytes)"), old.out);
        QStringList times;
        TelemetryLog log(second);
        for (TelemetryFrame frame; log.next(&frame);) {
            if (const auto message = mavlink::decode(frame.bytes);
                message && message->id == mavlink::GlobalPositionInt::Id) {
                times += flightTime::text(frame.usec / 1000);
            }
        }
        QCOMPARE(times.join(' '), TestProject::text(flown.db, "SELECT time FROM pos_data ORDER BY rowid"));
    }
    void goesAsFarAsItCan_data() { addRows(); }
    void goesAsFarAsItCan()
    {
        const QString sql = cell("sql");
        const QByteArray said = cell("said").toUtf8();
        const Simulated flown;
        const int all = TestProject::value(flown.db, "SELECT count(*) FROM pos_data").toInt();
        if (sql == "garbage") {
            flown.TestProject::file("project/other/flight.kv", QByteArray(5000, 'x'));
        } else if (sql == "pages") {
            const int page = TestProject::value(flown.db, "SELECT pageno FROM dbstat WHERE name = 'pos_data' "
                                                          "AND pagetype = 'leaf' LIMIT 1 OFFSET 2")
                                 .toInt();
            QFile file(flown.db);
            QVERIFY(page > 1 && file.open(QIODevice::ReadWrite) && file.seek(qint64(page - 1) * 4096));
            file.write(QByteArray(4096, '\x55'));
        } else {
            QVERIFY(TestProject::run(flown.db, {sql}));
        }
        const QString target = flown.path("flight.csv");
        const ProgramResult result = flown.write("csv", target);
        QVERIFY2(result.exitCode == cell("exit").toInt(), result.out + result.err);
        QVERIFY2((result.out + result.err).contains(said), result.out + result.err);
        const int lines = TestProject::contents(target).count('\n') - 1;
        if (sql == "pages") {
            QVERIFY2(lines > all / 2 && lines < all, QByteArray::number(lines));
        } else {
            QCOMPARE(lines, cell("missing") == "all" ? 0 : all - cell("missing").toInt());
        }
    }
    void leavesTargetsThatItCannotReplace()
    {
        const Simulated flown;
        const QString target = flown.TestProject::file("flights.kml", "precious");
        for (const QStringList& wrong : {QStringList{"nobody", "--format", "kml", "--output", target},
                                         QStringList{"--format", "kml", "--output", target + "/x"},
                                         QStringList{"--format", "png", "--output", target}}) {
            QVERIFY(flown.desk("export", wrong).exitCode != 0);
        }
        QCOMPARE(TestProject::contents(target), QByteArray("precious"));
        const QString id = TestProject::text(flown.db, "SELECT id FROM flight_mission");
        QCOMPARE(flown.desk("export", {id.right(8), "--format", "kml", "--output", target}).exitCode, 0);
        QVERIFY(TestProject::contents(target).endsWith("</kml>\n"));
        QCOMPARE(QDir(QFileInfo(target).path()).entryList({"flights*"}).size(), 1);
    }
    /// Who records never waits for an export, and what is recorded meanwhile is not half in it.
    void readsBesideARecorder()
    {
        const Simulated flown;
        CKvDataBase::SetLockWait(0);
        MissionFile file(flown.db);
        Flight flight(file, file.missions().constFirst());
        int points = 0;
        const int all = TestProject::value(flown.db, "SELECT count(*) FROM pos_data").toInt();
        flight.positionsWithStatus([&](const FlightPoint&, const FlightStatus&) {
            if (points++ % 20 == 0) {
                QVERIFY(TestProject::run(
                    flown.db, {"INSERT INTO pos_data(id, flight_mission_id) "
                               "SELECT new.id || count(*), new.id FROM pos_data, flight_mission new"}));
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
        QVERIFY(flown.desk("simulate", {"--interrupted", "--minutes", "1"}).exitCode == 0);
        double airborne = 0, distance = 0, waiting = 0;
        for (const QString& file : flown.missionFiles()) {
            const QStringList sums = TestProject::text(file, R"(
WITH p AS (SELECT p.rowid AS n, lng, lat, julianday(time) * 86400 AS t, (relative_alt > 1 OR speed > 3) AND
    (SELECT armed FROM uas_status s WHERE s.time <= p.time ORDER BY s.time DESC LIMIT 1) AS up FROM pos_data p),
w AS (SELECT b.t - a.t AS dt, 6371008.8 * radians(1) * sqrt((b.lat - a.lat) * (b.lat - a.lat) +
    (b.lng - a.lng) * (b.lng - a.lng) * cos(radians(a.lat)) * cos(radians(b.lat))) AS d
    FROM p a JOIN p b ON b.n = a.n + 1 WHERE a.up AND b.up)
SELECT sum(dt) || ' ' || sum(d) FROM w)")
                                         .split(' ');
            airborne += sums.value(0).toDouble();
            distance += sums.value(1).toDouble();
            waiting += TestProject::waiting(file);
        }
        const QJsonDocument book = QJsonDocument::fromJson(flown.desk("logbook", {"--json"}).out);
        QVERIFY(airborne > 60);
        QVERIFY(std::abs(book["total"]["airborne_s"].toDouble() - airborne) < 0.01);
        QVERIFY(std::abs(book["total"]["distance_m"].toDouble() - distance) < distance / 1000);
        QCOMPARE(book["total"]["waiting_rows"].toDouble(), waiting);
        QCOMPARE(book["by_aircraft"]["simulated quadrotor"]["flights"].toInt(), 3);
        QStringList ends;
        for (const auto& flight : book["flights"].toArray()) {
            ends += flight.toObject()["end"].toString().section(' ', 0, 0);
        }
        std::sort(ends.begin(), ends.end());
        QCOMPARE(ends.join(' '), QString("interrupted landed landed"));
        const QByteArray none = flown.desk("logbook", {"--to", "2024-01-01", "--csv"}).out;
        QCOMPARE(none.count('\n'), 1);
        QCOMPARE(flown.desk("logbook", {"--from", "2024-01-02", "--csv"}).out.count('\n'), 4);
        QCOMPARE(flown.desk("logbook", {"--from", "yesterday"}).exitCode, 2);
    }
};

QTEST_GUILESS_MAIN(tst_export)
#include "tst_export.moc"
