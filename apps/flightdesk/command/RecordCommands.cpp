// SPDX-License-Identifier: MIT
#include "command/CommandLine.h"
#include "command/Commands.h"
#include "command/FlightWords.h"
#include "Failure.h"
#include "record/FlightRecorder.h"
#include "telemetry/FlightSimulator.h"
#include "telemetry/Latin1.h"
#include "telemetry/LogFlights.h"

#include <QtCore/QFileInfo>
#include <QtCore/QJsonArray>

#include <limits>

namespace
{
const QCommandLineOption EasyFly(QStringLiteral("easy-fly"),
                                 QStringLiteral("Record video missions instead of flight missions."));
const QCommandLineOption Split(QStringLiteral("split"),
                               QStringLiteral("One mission for each time that a vehicle arms."));

/// Records flights one after another and keeps the account.
class Recording
{
public:
    Recording(CommandLine& arguments, const Project& project)
        : m_console(arguments.console())
        , m_recorder(project, arguments.isSet(QStringLiteral("easy-fly")) ? MissionFormat::video()
                                                                          : MissionFormat::flight())
    {
        QObject::connect(&m_recorder, &FlightRecorder::progress, &m_recorder,
                         [this](qint64 done, qint64 size) { m_console.progress(m_label, done, size); });
    }

    RecordedFlight record(FrameSource& source, const QString& name, const QString& aircraft,
                          const QString& log = {})
    {
        m_label = name;
        return m_recorder.record(source, name, aircraft, log);
    }

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
    FlightRecorder m_recorder;
    QString m_label;
    QJsonArray m_missions;
    bool m_allDone = true;
};

/// What the log as a whole is told with, for the line and the document of a flight.
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

void recordLog(Recording& recording, const QString& path, bool split)
{
    RecordedFlight flight;
    QJsonObject details{{"log"_l1, path}, {"skipped_bytes"_l1, 0}, {"truncated_bytes"_l1, 0}};
    try {
        const LogFlights flights(path, split);
        const QFileInfo file(path);
        details["skipped_bytes"_l1] = flights.log().skippedBytes();
        details["truncated_bytes"_l1] = flights.log().truncatedBytes();
        for (int i = 0; i < flights.count(); ++i) {
            const auto source = flights.open(i);
            flight = recording.record(*source, file.completeBaseName() + flights.name(i),
                                      QStringLiteral("unknown"), file.fileName());
            if (!source->error().isEmpty()) {
                flight.error = QStringLiteral("cannot be read: %1").arg(source->error());
            }
            flight.name = path + flights.name(i);
            recording.report(flight, details, remarkOn(flights.log()));
        }
    } catch (const Failure& failure) {
        flight = RecordedFlight();
        flight.name = path;
        flight.error = failure.words();
        recording.report(flight, details);
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
    Recording recording(line, Project::make(line.project()));
    for (const QString& path : line.positionals()) {
        recordLog(recording, path, line.isSet(QStringLiteral("split")));
    }
    return recording.finish();
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
    Recording recording(line, Project::make(line.project()));
    for (int number = 0; number < *missions; ++number) {
        FlightSimulator flight(quint32(*seed), number, int(*minutes),
                               line.isSet(QStringLiteral("interrupted")));
        const QString name = QStringLiteral("simulated-%1-%2").arg(*seed).arg(number + 1);
        recording.report(recording.record(flight, name, QStringLiteral("simulated quadrotor")));
    }
    return recording.finish();
}
