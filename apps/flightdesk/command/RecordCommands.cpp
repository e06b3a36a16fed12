// SPDX-License-Identifier: MIT
#include "command/CommandLine.h"
#include "command/Commands.h"
#include "command/FlightWords.h"
#include "Failure.h"
#include "record/LogRecorder.h"
#include "telemetry/FlightSimulator.h"
#include "telemetry/Latin1.h"

#include <QtCore/QFileInfo>
#include <QtCore/QJsonArray>

#include <limits>

namespace
{
const QCommandLineOption EasyFly(QStringLiteral("easy-fly"),
                                 QStringLiteral("Record video missions instead of flight missions."));
const QCommandLineOption Split(QStringLiteral("split"),
                               QStringLiteral("One mission for each time that a vehicle arms."));

const MissionFormat& formatOf(const CommandLine& arguments)
{
    return arguments.isSet(QStringLiteral("easy-fly")) ? MissionFormat::video() : MissionFormat::flight();
}

/// Keeps the account of what was recorded.
class Account
{
public:
    explicit Account(Console& console) : m_console(console) {}

    /// Reports one flight. `details` goes into the JSON document as well, `remark` behind the result line.
    void report(const RecordedFlight& flight, const QJsonObject& details = {}, const QString& remark = {})
    {
        QJsonObject mission = flightJson(flight);
        for (auto detail = details.begin(); detail != details.end(); ++detail) {
            mission.insert(detail.key(), detail.value());
        }
        m_missions.append(mission);
        if (flight.error.isEmpty()) {
            m_console.line(flightWords(flight, remark));
        } else {
            m_console.error(flightWords(flight));
            m_allDone = false;
        }
    }

    int finish()
    {
        m_console.document({{"ok"_l1, m_allDone}, {"missions"_l1, m_missions}});
        return m_allDone ? Done : NotDone;
    }

private:
    Console& m_console;
    QJsonArray m_missions;
    bool m_allDone = true;
};

/// What the log as a whole is told with, for the line and the document of a flight.
QJsonObject detailsOf(const QString& path, qint64 skippedBytes, int truncatedBytes)
{
    return {{"log"_l1, path}, {"skipped_bytes"_l1, skippedBytes}, {"truncated_bytes"_l1, truncatedBytes}};
}

QString remarkOn(const TelemetryLog& log)
{
    QString remark;
    if (log.skippedBytes() > 0) {
        remark += QStringLiteral(", %1 unreadable bytes skipped").arg(log.skippedBytes());
    }
    if (log.truncatedBytes() > 0) {
        remark += QStringLiteral(", last record cut off after %1 bytes").arg(log.truncatedBytes());
    }
    return remark;
}

void recordLog(Account& account, CommandLine& line, const Project& project, const QString& path)
{
    try {
        LogRecorder recorder(project, formatOf(line), path, line.isSet(QStringLiteral("split")));
        const TelemetryLog& log = recorder.log();
        const QString label = QFileInfo(path).completeBaseName();
        while (recorder.step()) {
            line.console().progress(label, log.position(), log.size());
        }
        line.console().progress(label, log.size(), log.size());
        for (const RecordedFlight& flight : recorder.flights()) {
            account.report(flight, detailsOf(path, log.skippedBytes(), log.truncatedBytes()), remarkOn(log));
        }
    } catch (const Failure& failure) {
        RecordedFlight flight;
        flight.name = path;
        flight.error = failure.words();
        account.report(flight, detailsOf(path, 0, 0));
    }
}
} // namespace

int runRecord(const QStringList& arguments)
{
    CommandLine line(QStringLiteral("Records telemetry logs, one mission for each vehicle in a log."),
                     {Split, EasyFly});
    line.takes(QStringLiteral("LOG"), QStringLiteral("Telemetry log (.tlog)."), QStringLiteral("LOG..."));
    if (const auto exitCode = line.read(arguments)) {
        return *exitCode;
    }
    Account account(line.console());
    const Project project = Project::make(line.project());
    for (const QString& path : line.positionals()) {
        recordLog(account, line, project, path);
    }
    return account.finish();
}

int runSimulate(const QStringList& arguments)
{
    CommandLine line(QStringLiteral("Records simulated flights; the same seed gives the same flights."),
                     {{"missions"_l1, "Number of flights (default 1)."_l1, "N"_l1, "1"_l1},
                      {"minutes"_l1, "Length of each flight (default 3)."_l1, "M"_l1, "3"_l1},
                      {"seed"_l1, "Seed of the simulation (default 1)."_l1, "S"_l1, "1"_l1},
                      {"interrupted"_l1, "The telemetry breaks off in mid-air."_l1},
                      EasyFly});
    if (const auto exitCode = line.read(arguments)) {
        return *exitCode;
    }
    const auto missions = line.number(QStringLiteral("missions"), 1, 100000);
    const auto minutes = line.number(QStringLiteral("minutes"), 1, 1440);
    const auto seed = line.number(QStringLiteral("seed"), 0, std::numeric_limits<quint32>::max());
    if (!missions || !minutes || !seed) {
        return BadUsage;
    }
    Account account(line.console());
    FlightRecorder recorder(Project::make(line.project()), formatOf(line));
    QString name;
    QObject::connect(&recorder, &FlightRecorder::progress, &recorder,
                     [&](qint64 done, qint64 size) { line.console().progress(name, done, size); });
    for (int number = 0; number < *missions; ++number) {
        FlightSimulator flight(quint32(*seed), number, int(*minutes),
                               line.isSet(QStringLiteral("interrupted")));
        name = QStringLiteral("simulated-%1-%2").arg(*seed).arg(number + 1);
        account.report(recorder.record(flight, name, QStringLiteral("simulated quadrotor")));
    }
    return account.finish();
}
