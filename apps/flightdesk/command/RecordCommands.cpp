// SPDX-License-Identifier: MIT
#include "command/CommandLine.h"
#include "command/Commands.h"
#include "command/EndSignals.h"
#include "command/FlightWords.h"
#include "record/KnownLogs.h"
#include "record/LogRecorder.h"
#include "telemetry/FlightSimulator.h"
#include "words/Failure.h"
#include "words/Latin1.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QFileInfo>
#include <QtCore/QJsonArray>

#include <limits>

namespace
{
const QCommandLineOption EasyFly(QStringLiteral("easy-fly"),
                                 QStringLiteral("Record video missions instead of flight missions."));
const QCommandLineOption Split(QStringLiteral("split"),
                               QStringLiteral("One mission for each time that a vehicle arms."));

const QCommandLineOption
    Anyway(QStringLiteral("anyway"),
           QStringLiteral("Record also a log that the project has already, or that is mostly unreadable."));

const MissionFormat& formatOf(const CommandLine& arguments)
{
    return arguments.isSet(QStringLiteral("easy-fly")) ? MissionFormat::video() : MissionFormat::flight();
}

/// A flight that stops when the process is told to end.
class EndedSource : public FrameSource
{
public:
    EndedSource(FrameSource& source, const EndSignals& end) : m_source(source), m_end(end) {}

    bool next(TelemetryFrame* frame) override
    {
        if (m_end.signal() != 0) {
            throw Failure(Trouble::Stopped);
        }
        return m_source.next(frame);
    }
    qint64 position() const override { return m_source.position(); }
    qint64 size() const override { return m_source.size(); }

private:
    FrameSource& m_source;
    const EndSignals& m_end;
};

/// Keeps the account of what was recorded.
class Account
{
public:
    explicit Account(Console& console) : m_console(console) {}

    /// Reports one flight. `details` goes into the JSON document as well.
    void report(const RecordedFlight& flight, const QJsonObject& details = {})
    {
        QJsonObject mission = flightJson(flight);
        for (auto detail = details.begin(); detail != details.end(); ++detail) {
            mission.insert(detail.key(), detail.value());
        }
        m_missions.append(mission);
        if (flight.error.isEmpty()) {
            m_console.line(flightWords(flight));
        } else {
            m_console.error(flightWords(flight));
        }
        m_allDone = m_allDone && flight.error.isEmpty() && flight.incomplete.isEmpty();
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

/// Records logs, one after another, until it is told to end.
class LogDesk
{
public:
    /// A new project is made for the first log that is sound: a refused one leaves nothing behind.
    LogDesk(CommandLine& line, Account& account) : m_line(line), m_account(account)
    {
        if (!Project::isNewFolder(line.project())) {
            m_project = Project::open(line.project());
        }
    }

    void record(const QString& path)
    {
        RecordedFlight none;
        none.name = path;
        QJsonObject details{{"log"_l1, path}};
        try {
            const bool split = m_line.isSet(QStringLiteral("split"));
            const LogFlights flights(path, split, [this](const FrameSource&) { return !isEnding(); });
            details.insert("skipped_bytes"_l1, flights.skippedBytes());
            details.insert("truncated_bytes"_l1, flights.truncatedBytes());
            const bool anyway = m_line.isSet(QStringLiteral("anyway"));
            if (m_project) {
                m_known.check(*m_project, formatOf(m_line), flights, anyway);
            } else {
                flights.check(anyway);
                m_project = Project::make(m_line.project());
            }
            record(path, flights, details);
        } catch (const Failure& failure) {
            none.error = failure.is(Trouble::Stopped) ? QStringLiteral("stopped, nothing was recorded")
                                                      : failure.words();
            m_account.report(none, details);
        }
    }

    bool isEnding() const
    {
        QCoreApplication::processEvents();
        return m_end.signal() != 0;
    }
    int exitCode(int otherwise) const { return m_end.signal() != 0 ? m_end.exitCode() : otherwise; }

private:
    void record(const QString& path, const LogFlights& flights, const QJsonObject& details)
    {
        LogRecorder recorder(*m_project, formatOf(m_line), path, flights);
        const QString label = QFileInfo(path).completeBaseName();
        while (recorder.step()) {
            m_line.console().progress(label, recorder.log().position(), recorder.log().size());
            if (m_end.signal() != 0) {
                recorder.breakOff(Failure(Trouble::Stopped));
                break;
            }
        }
        if (recorder.log().position() == recorder.log().size()) {
            m_line.console().progress(label, 1, 1);
        }
        for (const RecordedFlight& flight : recorder.flights()) {
            m_account.report(flight, details);
        }
    }

    CommandLine& m_line;
    Account& m_account;
    std::optional<Project> m_project;
    KnownLogs m_known;
    const EndSignals m_end;
};
} // namespace

int runRecord(const QStringList& arguments)
{
    CommandLine line(QStringLiteral("Records telemetry logs, one mission for each vehicle in a log."),
                     {Split, Anyway, EasyFly});
    line.takes(QStringLiteral("LOG"), QStringLiteral("Telemetry log (.tlog)."), QStringLiteral("LOG..."));
    if (const auto exitCode = line.read(arguments)) {
        return *exitCode;
    }
    Account account(line.console());
    LogDesk desk(line, account);
    for (const QString& path : line.positionals()) {
        if (!desk.isEnding()) {
            desk.record(path);
        }
    }
    return desk.exitCode(account.finish());
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
    FlightRecorder recorder(Project::makeInNewFolder(line.project()), formatOf(line));
    const EndSignals end;
    QString name;
    QObject::connect(&recorder, &FlightRecorder::progress, &recorder,
                     [&](qint64 done, qint64 size) { line.console().progress(name, done, size); });
    for (int number = 0; number < *missions && end.signal() == 0; ++number) {
        FlightSimulator flight(quint32(*seed), number, int(*minutes),
                               line.isSet(QStringLiteral("interrupted")));
        EndedSource source(flight, end);
        name = QStringLiteral("simulated-%1-%2").arg(*seed).arg(number + 1);
        account.report(recorder.record(source, name, QStringLiteral("simulated quadrotor")));
    }
    const int result = account.finish();
    return end.signal() != 0 ? end.exitCode() : result;
}
