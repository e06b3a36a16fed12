// SPDX-License-Identifier: MIT
#include "command/CommandLine.h"
#include "command/Commands.h"
#include "command/EndSignals.h"
#include "command/FlightWords.h"
#include "command/SignIn.h"
#include "link/SerialLink.h"
#include "project/ProjectLock.h"
#include "record/BreakpointKeeper.h"
#include "record/RecorderPool.h"
#include "station/Station.h"
#include "station/StationReport.h"
#include "upload/Uploader.h"
#include "words/Failure.h"
#include "words/Latin1.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QRegularExpression>
#include <QtCore/QStorageInfo>

#include <csignal>

namespace
{
constexpr int RemindInterval = 60000; // milliseconds
constexpr int FirstRetry = 3000;

/// Uploads what a station records, and never gives up.
class StationUpload
{
public:
    StationUpload(const Project& project, const LogFeed& log, Console& console)
        : m_console(console)
        , m_lock(project, ProjectLock::Use::Uploading)
        , m_breakpoints(log)
        , m_uploader(log)
    {
        m_uploader.setPace(RetryPace::growing(FirstRetry));
        QObject::connect(&m_uploader, &Uploader::failed, &m_uploader,
                         [this](const RequestFailure& failure) { noteFailure(failure); });
        QObject::connect(&m_uploader, &Uploader::unmarkable, &m_uploader,
                         [this](const QString&, const QString& words) { m_console.note(words); });
        QObject::connect(
            &m_breakpoints, &BreakpointKeeper::storeAgain, &m_pool,
            [this, project](const RecordedFlight& flight) { m_pool.storeBreakpoint(project, flight); });
    }

    void noteEnded(const RecordedFlight& flight) { m_breakpoints.noteRecorded(flight); }

    void look(const Backlog& backlog, bool network)
    {
        if (backlog.settled != m_settled) {
            m_settled = backlog.settled;
            m_failure.clear();
        }
        m_hasNetwork = network;
        if (hasTurn()) {
            m_uploader.look(backlog, network);
        }
    }

    QString text() const
    {
        return !m_lock.isTaken() ? QStringLiteral("another program uploads")
               : m_hasNetwork    ? m_uploader.text([](const QString& mission) { return mission; })
                                 : QStringLiteral("no network");
    }

private:
    /// As long as another program uploads from the project, this one records alone.
    bool hasTurn()
    {
        if (m_lock.isTaken()) {
            return true;
        }
        const QString inUse = m_lock.take();
        if (!inUse.isEmpty()) {
            noteFailure(RequestFailure{Trouble::InUse, inUse, inUse, {}, false});
            return false;
        }
        m_failure.clear();
        m_uploader.start();
        return true;
    }

    /// Each reason is told once until a row is accepted.
    void noteFailure(const RequestFailure& failure)
    {
        if (m_failure != failure.words) {
            m_failure = failure.words;
            m_console.note(failure.words);
        }
    }

    Console& m_console;
    ProjectLock m_lock;
    RecorderPool m_pool;
    BreakpointKeeper m_breakpoints;
    Uploader m_uploader;
    QString m_failure;
    qint64 m_settled = 0;
    bool m_hasNetwork = true;
};

/// What the command prints while a station records.
class StationDesk
{
public:
    StationDesk(CommandLine& line, const Project& project, const StationOptions& options, qint64 keepFree)
        : m_console(line.console())
        , m_project(project)
        , m_keepFree(keepFree)
        , m_station(std::make_unique<Station>(project, options))
    {
        if (line.isSet(QStringLiteral("server"))) {
            m_upload.emplace(project, line.log(), m_console);
        }
        Station* const station = m_station.get();
        QObject::connect(station, &Station::linkUp, station, [this](const QString& link) {
            const QString word = link.startsWith("udp:"_l1) ? "listening on"_l1 : "connected to"_l1;
            tell(word.section(QLatin1Char(' '), 0, 0), QStringLiteral("%1 %2").arg(word, link),
                 {{"link"_l1, link}});
        });
        QObject::connect(station, &Station::linkLost, station,
                         [this](const QString& link, const QString& why) {
                             tell("lost"_l1, QStringLiteral("lost %1: %2").arg(link, why),
                                  {{"link"_l1, link}, {"why"_l1, why}});
                         });
        QObject::connect(station, &Station::linkWaits, station,
                         [this](const QString& link, const QString& why) {
                             warn(QStringLiteral("%1: %2; it is tried again each second").arg(link, why));
                         });
        QObject::connect(station, &Station::said, station, [this](const QString& words) { warn(words); });
        QObject::connect(station, &Station::ended, station,
                         [this](const RecordedFlight& flight) { noteEnded(flight); });
        QObject::connect(station, &Station::counted, station,
                         [this](const Backlog& backlog, bool network) { noteBacklog(backlog, network); });
        QObject::connect(station, &Station::looked, station,
                         [this](const StationState& state) { report(state); });
    }

    /// The upload ends first, so that no late reply marks a breakpoint of a flight that ends now.
    void finish()
    {
        m_upload.reset();
        m_station->finish();
    }

private:
    void tell(const QString& event, const QString& words, QJsonObject details)
    {
        details.insert("event"_l1, event);
        m_console.line(words);
        m_console.record(details);
    }

    void warn(const QString& words)
    {
        m_console.note(words);
        m_console.record({{"event"_l1, "warning"_l1}, {"words"_l1, words}});
    }

    void noteEnded(const RecordedFlight& flight)
    {
        if (!flight.error.isEmpty()) {
            warn(flightWords(flight));
        } else if (!flight.missionId.isEmpty()) {
            tell("ended"_l1, flightWords(flight), flightJson(flight));
        }
        if (m_upload) {
            m_upload->noteEnded(flight);
        }
    }

    void noteBacklog(const Backlog& backlog, bool network)
    {
        m_report.waiting = backlog.waiting();
        if (m_upload) {
            m_upload->look(backlog, network);
        }
    }

    void report(const StationState& state)
    {
        m_report.state = state;
        m_report.freeBytes = QStorageInfo(m_project.path()).bytesAvailable();
        m_report.upload = m_upload ? m_upload->text() : QString();
        warnOfRoom();
        m_console.record(m_report.json());
        m_console.status(m_report.line());
    }

    void warnOfRoom()
    {
        if (m_report.freeBytes >= m_keepFree) {
            m_sinceWarned.invalidate();
        } else if (!m_sinceWarned.isValid() || m_sinceWarned.hasExpired(RemindInterval)) {
            m_sinceWarned.start();
            warn(QStringLiteral(
                     "ROOM IS SHORT: %1 MiB are free on the disk of %2, below the %3 MiB of --keep-free")
                     .arg(QString::number(m_report.freeBytes >> 20), m_project.path(),
                          QString::number(m_keepFree >> 20)));
        }
    }

    Console& m_console;
    const Project m_project;
    const qint64 m_keepFree;
    QElapsedTimer m_sinceWarned;
    StationReport m_report;
    std::unique_ptr<Station> m_station;
    std::optional<StationUpload> m_upload;
};

/// A size in bytes, as in "500M"; nothing when it is none.
std::optional<qint64> bytesIn(const QString& text)
{
    static const QRegularExpression form(QStringLiteral("^(\\d{1,9})([KMGT]?)$"));
    const QRegularExpressionMatch match = form.match(text);
    if (!match.hasMatch()) {
        return std::nullopt;
    }
    const int power =
        match.captured(2).isEmpty() ? 0 : 1 + int(QStringLiteral("KMGT").indexOf(match.captured(2)));
    return match.captured(1).toLongLong() << (10 * power);
}

StationOptions readOptions(const CommandLine& line, int preRoll)
{
    StationOptions options;
    options.links = LinkSettings::parseAll(line.values(QStringLiteral("link")));
    options.heartbeat = line.isSet(QStringLiteral("heartbeat"));
    options.preRoll = preRoll;
    if (options.links.isEmpty()) {
        throw Failure(QStringLiteral("is missing; write udp:[ADDRESS]:PORT, tcp:HOST:PORT or "
                                     "serial:DEVICE:BAUD"));
    }
    for (const LinkSettings& link : qAsConst(options.links)) {
        if (link.kind == LinkSettings::Kind::Serial) {
            SerialLink::check(link);
        }
    }
    return options;
}
} // namespace

int runStation(const QStringList& arguments)
{
    CommandLine line(
        QStringLiteral("Records what its links hear, until it is told to end (SIGTERM, SIGINT, SIGHUP)."),
        {{"link"_l1, "udp:[ADDRESS]:PORT, tcp:HOST:PORT or serial:DEVICE:BAUD; may be given again."_l1,
          "LINK"_l1},
         {"server"_l1, "Upload to this server, http or https; the token is in KV_TOKEN."_l1, "URL"_l1},
         {"heartbeat"_l1, "Tell the vehicles each second that a ground station is there."_l1},
         {"pre-roll"_l1, "A flight begins so long before its vehicle arms (default 10)."_l1, "S"_l1, "10"_l1},
         {"keep-free"_l1, "Warn when less room is left on the disk (default 1G)."_l1, "BYTES"_l1, "1G"_l1}});
    if (const auto exitCode = line.read(arguments)) {
        return *exitCode;
    }
    const auto preRoll = line.number(QStringLiteral("pre-roll"), 0, 600);
    const auto keepFree = bytesIn(line.value(QStringLiteral("keep-free")));
    if (!keepFree) {
        Console::printUsageError(QStringLiteral("--keep-free takes a size in bytes, as in 500M or 1G"));
    }
    if (!preRoll || !keepFree ||
        (line.isSet(QStringLiteral("server")) && !signIn(line.value(QStringLiteral("server"))))) {
        return BadUsage;
    }
    qunsetenv("KV_TOKEN"); // no child process needs it
    StationOptions options;
    try {
        options = readOptions(line, int(*preRoll));
    } catch (const Failure& failure) {
        Console::printUsageError(QStringLiteral("--link ") + failure.words());
        return BadUsage;
    }
    StationDesk desk(line, Project::makeInNewFolder(line.project()), options, *keepFree);
    const EndSignals endSignals;
    std::signal(SIGPIPE, SIG_IGN); // recording goes on when nobody reads any more what is printed
    QCoreApplication::exec();
    desk.finish();
    return Done;
}
