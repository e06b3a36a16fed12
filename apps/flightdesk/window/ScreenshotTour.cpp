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
#include <QtCore/QTemporaryDir>
#include <QtWidgets/QApplication>
#include <QtWidgets/QTabWidget>

#include <cstdio>
#include <functional>

namespace
{
constexpr int Patience = 60000; // milliseconds for each step
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

/// A flightserver beside this program, that goes with the object.
class Server
{
public:
    Server()
    {
        m_process.start(
            QCoreApplication::applicationDirPath() + QStringLiteral("/flightserver"),
            {QStringLiteral("--token"), Token, QStringLiteral("--fault"), QStringLiteral("delay=400:30")});
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

/// What the pictures show: two flights recorded and on their way to the server, one in the air.
bool fly(MainWindow& window, const QString& server)
{
    WindowSession& session = window.session();
    const FlightTask flights[] = {
        {QStringLiteral("north field"), {}, 12, 7, false, false, 0},
        {QStringLiteral("river survey"), {}, 20, 3, true, false, 0},
        {QStringLiteral("roof inspection"), {}, 6, 5, false, true, 0},
    };
    for (const FlightTask& flight : flights) {
        session.record(flight);
    }
    const auto recorded = [&session](int row) { return !session.flights()->isRunning(row); };
    if (!waitFor([&] { return recorded(0) && recorded(1) && recorded(2); })) {
        return false;
    }
    session.record({QStringLiteral("south field"), {}, 15, 11, false, false, 10});
    window.uploadPage()->setServer(server);
    window.uploadPage()->signIn(Token);
    const QString file = QDir(session.projectPath()).filePath(QStringLiteral("map.zip"));
    window.downloadPage()->panel(FileDownload::Way::Direct)->start(server + QStringLiteral("/map.zip"), file);
    // The server is slow by now, and so the pictures show rows that wait.
    return waitFor([&session] { return session.missions()->totals(false).marked > 4000; });
}

bool savePictures(MainWindow& window, const QString& folder)
{
    bool saved = true;
    for (const bool dark : {false, true}) {
        QApplication::setPalette(theme::palette(dark));
        for (const QSize size : {QSize(1280, 800), QSize(1920, 1080)}) {
            window.resize(size);
            for (int page = 0; page < window.tabs()->count(); ++page) {
                window.tabs()->setCurrentIndex(page);
                waitFor([] { return false; }, 300); // until the page is laid out and drawn
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
        return fail(QStringLiteral("cannot start flightserver, which must lie beside flightdesk"));
    }
    MainWindow window(QDir::homePath() + QStringLiteral("/.local/share/flightdesk/flightdesk.log"));
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
    std::printf("pictures are in %s; longest pause %.0f ms\n", qPrintable(folder),
                window.gaps().longestMilliseconds());
    return Done;
}
