// SPDX-License-Identifier: MIT
#include "tour/ScreenshotTour.h"

#include "command/Commands.h"
#include "command/Console.h"
#include "flightserver/ServerProcess.h"
#include "telemetry/FlightSimulator.h"
#include "window/DownloadPage.h"
#include "window/MainWindow.h"
#include "window/ProjectPage.h"
#include "window/RecordPage.h"
#include "window/Theme.h"
#include "window/UploadPage.h"
#include "words/Failure.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QDir>
#include <QtCore/QTemporaryDir>
#include <QtNetwork/QUdpSocket>
#include <QtWidgets/QApplication>
#include <QtWidgets/QTabWidget>

#include <functional>

namespace
{
constexpr int Patience = 60000; // milliseconds for each step
constexpr int Interrupted = 1;  // rows of the flights
constexpr int InTheAir = 3;
constexpr int Heard = 4;
const QString Token = QStringLiteral("tour");

bool waitFor(const std::function<bool()>& done, int milliseconds = Patience)
{
    const QDeadlineTimer end(milliseconds);
    while (!done() && !end.hasExpired()) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents | QEventLoop::AllEvents, 50);
    }
    return done();
}

/// A vehicle that the window hears, in the air for as long as pictures are taken.
class Vehicle
{
public:
    explicit Vehicle(WindowSession& session)
    {
        const LiveStation* const station = session.station();
        QObject::connect(station, &LiveStation::looked, &m_ticks, [this](const StationState& state) {
            m_port = state.links.constFirst().text.section(QLatin1Char(':'), -1).toUShort();
        });
        QObject::connect(&m_ticks, &QTimer::timeout, &m_ticks, [this] {
            TelemetryFrame frame;
            if (m_port != 0 && m_flight.next(&frame)) {
                m_socket.writeDatagram(frame.bytes, QHostAddress::LocalHost, m_port);
            }
        });
        session.connectLinks({QStringLiteral("udp:127.0.0.1:0")}, false);
        m_ticks.start(5); // about ten times as fast as it would fly
    }

private:
    FlightSimulator m_flight{17, 0, 60};
    QUdpSocket m_socket;
    QTimer m_ticks;
    quint16 m_port = 0;
};

/// What the pictures show: flights on their way to a slow server, one that broke off, one in the air.
bool fly(MainWindow& window, const QString& server)
{
    WindowSession& session = window.session();
    const auto record = [&session](const char* name, quint32 seed, double speed, bool interrupted,
                                   bool easyFly) {
        FlightTask task;
        task.name = QString::fromLatin1(name);
        task.seed = seed;
        task.minutes = 15;
        task.speed = speed;
        task.interrupted = interrupted;
        task.easyFly = easyFly;
        session.record(task);
    };
    record("north field", 7, 0, false, false);
    record("river survey", 3, 0, true, false);
    record("roof inspection", 5, 0, false, true);
    const auto recorded = [&session](int row) { return !session.flights()->isRunning(row); };
    if (!waitFor([&] { return recorded(0) && recorded(1) && recorded(2); })) {
        return false;
    }
    record("south field", 11, 10, false, false);
    window.uploadPage()->setServer(server);
    window.uploadPage()->signIn(Token);
    const QString file = QDir(session.projectPath()).filePath(QStringLiteral("map.zip"));
    window.downloadPage()->panel(FileDownload::Way::Direct)->start(server + QStringLiteral("/map.zip"), file);
    return waitFor([&session] { return session.missions()->backlog(false).settled > 4000; });
}

bool savePictures(MainWindow& window, const QString& folder)
{
    bool saved = true;
    for (const bool dark : {false, true}) {
        QApplication::setPalette(theme::palette(dark));
        for (const QSize size : {QSize(1280, 800), QSize(1920, 1080)}) {
            window.resize(size);
            window.recordPage()->select(size.width() > 1280 ? Heard : dark ? Interrupted : InTheAir);
            for (int page = 0; page < window.tabs()->count(); ++page) {
                window.tabs()->setCurrentIndex(page);
                window.gaps().restart();             // saving a picture takes its time
                waitFor([] { return false; }, 1200); // until the page is drawn and has new figures
                const QString name = QStringLiteral("%1-%2-%3x%4.png")
                                         .arg(window.tabs()->tabText(page).toLower(),
                                              dark ? QStringLiteral("dark") : QStringLiteral("light"))
                                         .arg(size.width())
                                         .arg(size.height());
                saved = window.grab().save(QDir(folder).filePath(name)) && saved;
            }
        }
    }
    return saved;
}
} // namespace

int takeScreenshots(const QStringList& arguments)
{
    if (arguments.size() != 2) {
        Console::printError(QStringLiteral("--screenshot takes a folder"));
        return BadUsage;
    }
    const QString& folder = arguments.last();
    if (!QDir().mkpath(folder)) {
        throw Failure(QStringLiteral("cannot make the folder %1").arg(folder));
    }
    const QTemporaryDir place;
    const ServerProcess server(
        {QStringLiteral("--token"), Token, QStringLiteral("--fault"), QStringLiteral("delay=1000:20")});
    if (server.url.isEmpty()) {
        throw Failure(QStringLiteral(
            "cannot start flightserver, which lies neither beside flightdesk nor in the path"));
    }
    QFont font = QApplication::font();
    font.setPointSize(10); // as desktops have it; without one it is larger
    QApplication::setFont(font);
    const QString logFile = place.filePath(QStringLiteral("flightdesk.log"));
    Logger::instance().setLogFile(logFile);
    MainWindow window(logFile);
    window.resize(1280, 800);
    window.show();
    window.projectPage()->open(place.filePath(QStringLiteral("project")), true);
    window.tabs()->setCurrentWidget(window.recordPage());
    if (!fly(window, server.url)) {
        throw Failure(QStringLiteral("the tour came to a halt: %1").arg(window.session().uploadText()));
    }
    [[maybe_unused]] const Vehicle vehicle(window.session());
    if (!savePictures(window, folder)) {
        throw Failure(QStringLiteral("cannot write pictures into %1").arg(folder));
    }
    return Done;
}
