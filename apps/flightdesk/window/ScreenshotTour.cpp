// SPDX-License-Identifier: MIT
#include "ScreenshotTour.h"

#include "Commands.h"
#include "Console.h"
#include "DownloadPage.h"
#include "MainWindow.h"
#include "ProjectPage.h"
#include "RecordPage.h"
#include "Theme.h"
#include "UploadPage.h"

#include <QtCore/QDir>
#include <QtCore/QElapsedTimer>
#include <QtCore/QProcess>
#include <QtCore/QStandardPaths>
#include <QtCore/QTemporaryDir>
#include <QtWidgets/QApplication>
#include <QtWidgets/QTabWidget>

#include <functional>

namespace
{
constexpr int Patience = 60000; // milliseconds for each step
constexpr int Interrupted = 1;  // rows of the flights
constexpr int InTheAir = 3;
const QString Token = QStringLiteral("tour");

bool waitFor(const std::function<bool()>& done, int milliseconds = Patience)
{
    QElapsedTimer clock;
    clock.start();
    while (!done() && clock.elapsed() < milliseconds) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents | QEventLoop::AllEvents, 50);
    }
    return done();
}

/// The flightserver beside this program, or else the installed one.
QString serverProgram()
{
    const QString name = QStringLiteral("flightserver");
    const QString beside = QStandardPaths::findExecutable(name, {QCoreApplication::applicationDirPath()});
    return beside.isEmpty() ? QStandardPaths::findExecutable(name) : beside;
}

/// A flightserver that goes with the object.
class Server
{
public:
    Server()
    {
        m_process.start(serverProgram(), {QStringLiteral("--token"), Token, QStringLiteral("--fault"),
                                          QStringLiteral("delay=1000:20")});
    }
    ~Server()
    {
        m_process.terminate();
        m_process.waitForFinished();
    }
    /// Empty when it does not start.
    QString url()
    {
        while (!m_said.endsWith('\n') && m_process.waitForReadyRead()) {
            m_said += m_process.readAll();
        }
        return QString::fromUtf8(m_said).section(QLatin1Char(' '), 3).trimmed();
    }

private:
    QProcess m_process;
    QByteArray m_said;
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
    return waitFor([&session] { return session.missions()->totals(false).marked > 4000; });
}

bool savePictures(MainWindow& window, const QString& folder)
{
    bool saved = true;
    for (const bool dark : {false, true}) {
        QApplication::setPalette(theme::palette(dark));
        window.recordPage()->select(dark ? Interrupted : InTheAir);
        for (const QSize size : {QSize(1280, 800), QSize(1920, 1080)}) {
            window.resize(size);
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

int fail(const QString& what)
{
    Console::printError(QStringLiteral("flightdesk: ") + what);
    return NotDone;
}
} // namespace

int takeScreenshots(const QString& folder)
{
    if (!QDir().mkpath(folder)) {
        return fail(QStringLiteral("cannot make the folder %1").arg(folder));
    }
    const QTemporaryDir place;
    Server server;
    const QString url = server.url();
    if (url.isEmpty()) {
        return fail(QStringLiteral(
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
    if (!fly(window, url)) {
        return fail(QStringLiteral("the tour came to a halt: %1").arg(window.session().uploader()->text()));
    }
    if (!savePictures(window, folder)) {
        return fail(QStringLiteral("cannot write pictures into %1").arg(folder));
    }
    return Done;
}
