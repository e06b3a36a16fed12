// SPDX-License-Identifier: MIT
#include "command/Columns.h"
#include "command/CommandLine.h"
#include "command/Commands.h"
#include "export/Csv.h"
#include "export/FlightFigures.h"
#include "project/Project.h"
#include "words/Latin1.h"

#include <QtCore/QDateTime>
#include <QtCore/QJsonArray>
#include <QtCore/QLocale>
#include <QtCore/QMap>

#include <algorithm>
#include <cstdio>

namespace
{
// Names of the columns of a table and of the values in a document.
const QStringList Keys{QStringLiteral("start"),
                       QStringLiteral("latitude_deg"),
                       QStringLiteral("longitude_deg"),
                       QStringLiteral("aircraft"),
                       QStringLiteral("name"),
                       QStringLiteral("airborne_s"),
                       QStringLiteral("distance_m"),
                       QStringLiteral("greatest_height_m"),
                       QStringLiteral("greatest_speed_m_s"),
                       QStringLiteral("battery_used_percent"),
                       QStringLiteral("end"),
                       QStringLiteral("waiting_rows"),
                       QStringLiteral("mission")};

QString fixed(double number, int decimals, const QString& unit)
{
    return std::isnan(number) ? QStringLiteral("-") : QString::number(number, 'f', decimals) + unit;
}

QString duration(double seconds)
{
    const auto whole = qint64(std::llround(seconds));
    return QStringLiteral("%1:%2:%3")
        .arg(whole / 3600)
        .arg(whole / 60 % 60, 2, 10, QLatin1Char('0'))
        .arg(whole % 60, 2, 10, QLatin1Char('0'));
}

QJsonValue rounded(double number, double steps)
{
    return std::isnan(number) ? QJsonValue() : QJsonValue(std::round(number * steps) / steps);
}

struct Total {
    qint64 flights = 0;
    double airborne = 0;
    double distance = 0;
    qint64 waiting = 0;

    void add(const FlightFigures& figures)
    {
        ++flights;
        airborne += figures.airborne;
        distance += figures.distance;
        waiting += figures.waiting;
    }
    [[nodiscard]] QJsonObject json() const
    {
        return {{"flights"_l1, flights},
                {"airborne_s"_l1, rounded(airborne, 1000)},
                {"distance_m"_l1, rounded(distance, 10)},
                {"waiting_rows"_l1, waiting}};
    }
    [[nodiscard]] QStringList texts(const QString& name) const
    {
        return {name, flights == 1 ? QStringLiteral("1 flight") : QStringLiteral("%1 flights").arg(flights),
                duration(airborne), fixed(distance / 1000, 2, QStringLiteral(" km")), waitingText(waiting)};
    }
    static QString waitingText(qint64 rows)
    {
        return rows == 0 ? QStringLiteral("uploaded")
                         : QStringLiteral("%1 records wait").arg(QLocale(QLocale::English).toString(rows));
    }
};

/// Days of which the flights are asked for, both included; an invalid one is no bound.
struct Period {
    QDate from;
    QDate to;

    bool holds(qint64 msec) const
    {
        if (msec == flightTime::Unknown) {
            return !from.isValid() && !to.isValid();
        }
        const QDate day = QDateTime::fromMSecsSinceEpoch(msec, Qt::UTC).date();
        return (!from.isValid() || day >= from) && (!to.isValid() || day <= to);
    }
};

class Logbook
{
public:
    Logbook(Console& console, Period period) : m_console(console), m_period(period) {}

    void add(const QString& path)
    {
        MissionFile file(path);
        for (const MissionCount& mission : file.missions()) {
            Flight flight(file, mission);
            if (m_period.holds(flight.start())) {
                add(flight, FlightFigures::of(flight));
            }
        }
        if (!file.isReadable()) {
            m_console.error(QStringLiteral("%1 cannot be read: locked, or no mission file").arg(path));
            m_complete = false;
        }
    }

    /// Oldest first, and the sums.
    int finish(bool asCsv)
    {
        std::sort(m_lines.begin(), m_lines.end(),
                  [](const Line& a, const Line& b) { return a.start < b.start; });
        if (asCsv) {
            printCsv();
        } else {
            printTable();
        }
        QJsonArray flights;
        for (const Line& line : qAsConst(m_lines)) {
            flights.append(line.facts);
        }
        QJsonObject byAircraft;
        for (auto it = m_byAircraft.cbegin(); it != m_byAircraft.cend(); ++it) {
            byAircraft.insert(it.key(), it->json());
        }
        m_console.document({{"ok"_l1, m_complete},
                            {"flights"_l1, flights},
                            {"by_aircraft"_l1, byAircraft},
                            {"total"_l1, m_total.json()}});
        return m_complete ? Done : NotDone;
    }

private:
    struct Line {
        qint64 start;
        QStringList texts;
        QJsonObject facts;
    };

    void add(const Flight& flight, const FlightFigures& figures)
    {
        m_lines.append({figures.start, texts(flight, figures), facts(flight, figures)});
        m_byAircraft[flight.mission().aircraft].add(figures);
        m_total.add(figures);
        if (!figures.gaps.isWhole()) {
            m_console.error(QStringLiteral("%1: %2 records are damaged or cannot be read, and do not count")
                                .arg(flight.name())
                                .arg(figures.gaps.damaged + figures.gaps.unreadable));
            m_complete = false;
        }
    }

    static QString endWords(const Flight& flight, const FlightFigures& figures)
    {
        const QString cut = flight.mission().cutWords();
        return cut.isEmpty() ? figures.end : figures.end + QStringLiteral(", ") + cut;
    }

    static QStringList texts(const Flight& flight, const FlightFigures& figures)
    {
        const QString start =
            figures.start == flightTime::Unknown ? QString() : flightTime::text(figures.start);
        const QString place =
            figures.place.hasPlace()
                ? fixed(figures.place.lat, 5, {}) + QStringLiteral(", ") + fixed(figures.place.lng, 5, {})
                : QStringLiteral("-");
        return {start.isEmpty() ? QStringLiteral("-") : start.left(10),
                start.isEmpty() ? QStringLiteral("-") : start.mid(11, 8),
                place,
                flight.mission().aircraft,
                flight.name(),
                duration(figures.airborne),
                fixed(figures.distance / 1000, 2, QStringLiteral(" km")),
                fixed(figures.highest, 1, QStringLiteral(" m")),
                fixed(figures.fastest, 1, QStringLiteral(" m/s")),
                fixed(figures.batteryUsed, 0, QStringLiteral(" %")),
                endWords(flight, figures),
                Total::waitingText(figures.waiting)};
    }

    static QJsonObject facts(const Flight& flight, const FlightFigures& figures)
    {
        const QJsonValue start =
            figures.start == flightTime::Unknown ? QJsonValue() : QJsonValue(flightTime::text(figures.start));
        const QJsonValue values[] = {start,
                                     rounded(figures.place.lat, 1e7),
                                     rounded(figures.place.lng, 1e7),
                                     flight.mission().aircraft,
                                     flight.mission().name,
                                     rounded(figures.airborne, 1000),
                                     rounded(figures.distance, 10),
                                     rounded(figures.highest, 1000),
                                     rounded(figures.fastest, 1000),
                                     rounded(figures.batteryUsed, 10),
                                     endWords(flight, figures),
                                     figures.waiting,
                                     flight.mission().id};
        QJsonObject facts;
        for (int i = 0; i < Keys.size(); ++i) {
            facts.insert(Keys.at(i), values[i]);
        }
        return facts;
    }

    void printTable()
    {
        Columns flights;
        flights.add({"date"_l1, "start (UTC)"_l1, "place"_l1, "aircraft"_l1, "name"_l1, "airborne"_l1,
                     "distance"_l1, "height"_l1, "speed"_l1, "battery"_l1, "end"_l1, "upload"_l1});
        for (const Line& line : qAsConst(m_lines)) {
            flights.add(line.texts);
        }
        flights.print(m_console);
        m_console.line({});
        Columns sums;
        for (auto it = m_byAircraft.cbegin(); it != m_byAircraft.cend(); ++it) {
            sums.add(it->texts(it.key().isEmpty() ? QStringLiteral("(no aircraft)") : it.key()));
        }
        sums.add(m_total.texts(QStringLiteral("all")));
        sums.print(m_console);
    }

    void printCsv()
    {
        m_console.line(Keys.join(QLatin1Char(',')));
        for (const Line& line : qAsConst(m_lines)) {
            QStringList values;
            for (const QString& key : Keys) {
                values += line.facts.value(key).toVariant().toString();
            }
            m_console.line(QString::fromUtf8(csvLine(values)).trimmed());
        }
    }

    Console& m_console;
    const Period m_period;
    QVector<Line> m_lines;
    QMap<QString, Total> m_byAircraft;
    Total m_total;
    bool m_complete = true;
};

/// A day that an option names. \return false, after an error, when it names none
bool readDay(const CommandLine& line, const QString& option, QDate* day)
{
    *day = QDate::fromString(line.value(option), Qt::ISODate);
    if (line.isSet(option) && !day->isValid()) {
        Console::printUsageError(QStringLiteral("--%1 takes a date as 2026-07-05").arg(option));
        return false;
    }
    return true;
}
} // namespace

int runLogbook(const QStringList& arguments)
{
    CommandLine line(QStringLiteral("Lists the flights with place, times and sums. Days and times are UTC."),
                     {{"from"_l1, "The first day."_l1, "DATE"_l1},
                      {"to"_l1, "The last day."_l1, "DATE"_l1},
                      {"csv"_l1, "Print comma separated values, for spreadsheets."_l1}});
    if (const auto exitCode = line.read(arguments)) {
        return *exitCode;
    }
    const bool asCsv = line.isSet(QStringLiteral("csv"));
    if (asCsv && line.isSet(QStringLiteral("json"))) {
        Console::printUsageError(QStringLiteral("--csv and --json exclude each other"));
        return BadUsage;
    }
    Period period;
    if (!readDay(line, QStringLiteral("from"), &period.from) ||
        !readDay(line, QStringLiteral("to"), &period.to)) {
        return BadUsage;
    }
    const Project project = Project::open(line.project());
    Logbook logbook(line.console(), period);
    for (const QString& path : project.missionFiles({QStringLiteral("*.kv"), QStringLiteral("*.db")})) {
        logbook.add(path);
    }
    return logbook.finish(asCsv);
}
