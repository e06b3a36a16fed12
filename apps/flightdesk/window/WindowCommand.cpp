// SPDX-License-Identifier: MIT
#include "window/WindowCommand.h"

#include "command/CommandLine.h"
#include "command/EndSignals.h"
#include "window/ConnectDialog.h"
#include "window/FlightsPage.h"
#include "window/MainWindow.h"
#include "window/RecordPage.h"
#include "window/Theme.h"
#include "window/UploadPage.h"
#include "words/Latin1.h"

#include <QtCore/QSettings>
#include <QtCore/QStandardPaths>
#include <QtGui/QScreen>
#include <QtWidgets/QApplication>
#include <QtWidgets/QComboBox>
#include <QtWidgets/QSplitter>

namespace
{
// What is remembered from window to window; never the token.
constexpr QLatin1String ProjectKey = "project"_l1;
constexpr QLatin1String RecentKey = "recent"_l1;
constexpr QLatin1String ServerKey = "server"_l1;
constexpr QLatin1String LinksKey = "links"_l1;
constexpr QLatin1String SpeedKey = "speed"_l1;
constexpr QLatin1String HeartbeatKey = "heartbeat"_l1;
constexpr QLatin1String GeometryKey = "geometry"_l1;
constexpr QLatin1String SplitterKey = "splitters/%1"_l1;

/// Those that have a name are remembered.
QHash<QString, QSplitter*> splittersOf(const MainWindow& window)
{
    QHash<QString, QSplitter*> splitters;
    for (QSplitter* const splitter : window.findChildren<QSplitter*>()) {
        if (!splitter->objectName().isEmpty()) {
            splitters.insert(QString(SplitterKey).arg(splitter->objectName()), splitter);
        }
    }
    return splitters;
}

QString makeLogFile()
{
    const QString file =
        QStandardPaths::writableLocation(QStandardPaths::AppDataLocation) + QStringLiteral("/flightdesk.log");
    return Logger::instance().setLogFile(file) ? file : QString();
}

int showWindow(const QString& project, const QString& server, bool forDevelopers)
{
    MainWindow window(makeLogFile(), forDevelopers);
    QSettings memory(QStringLiteral("flightdesk"), QStringLiteral("flightdesk"));
    window.resize(QSize(1280, 800).boundedTo(QApplication::primaryScreen()->availableSize()));
    window.restoreGeometry(memory.value(GeometryKey).toByteArray());
    window.uploadPage()->setServer(server.isEmpty() ? memory.value(ServerKey).toString() : server);
    ConnectDialog* const links = window.recordPage()->links();
    links->setLinks(memory.value(LinksKey, links->links()).toString());
    links->setHeartbeat(memory.value(HeartbeatKey).toBool());
    QComboBox* const speed = window.recordPage()->speed();
    speed->setCurrentIndex(memory.value(SpeedKey, speed->currentIndex()).toInt());
    window.setRecentProjects(memory.value(RecentKey).toStringList());
    window.show();
    const QHash<QString, QSplitter*> splitters = splittersOf(window);
    for (auto it = splitters.begin(); it != splitters.end(); ++it) {
        it.value()->restoreState(memory.value(it.key()).toByteArray());
    }
    const QString folder = project.isEmpty() ? memory.value(ProjectKey).toString() : project;
    if (!folder.isEmpty()) {
        window.flightsPage()->open(folder, !project.isEmpty() && !QFileInfo::exists(project));
    }
    const QString token = qEnvironmentVariable("KV_TOKEN");
    qunsetenv("KV_TOKEN"); // no child process needs it
    if (!token.isEmpty() && window.session().hasProject()) {
        window.uploadPage()->signIn(token);
    }
    const EndSignals endSignals;
    const int exitCode = QApplication::exec();
    memory.setValue(ProjectKey, window.session().projectPath());
    memory.setValue(RecentKey, window.recentProjects());
    memory.setValue(ServerKey, window.uploadPage()->server());
    memory.setValue(LinksKey, links->links());
    memory.setValue(HeartbeatKey, links->hasHeartbeat());
    memory.setValue(SpeedKey, speed->currentIndex());
    memory.setValue(GeometryKey, window.saveGeometry());
    for (auto it = splitters.begin(); it != splitters.end(); ++it) {
        memory.setValue(it.key(), it.value()->saveState());
    }
    return exitCode;
}

bool hasDisplay()
{
    return qEnvironmentVariableIsSet("DISPLAY") || qEnvironmentVariableIsSet("WAYLAND_DISPLAY") ||
           qEnvironmentVariableIsSet("QT_QPA_PLATFORM");
}
} // namespace

Application makeWindowApplication(int& argc, char** argv)
{
    if (!hasDisplay()) {
        Console::printError(QStringLiteral("there is no display for the window; "
                                           "the commands need none (see flightdesk --help)"));
        return nullptr;
    }
#if QT_VERSION_MAJOR == 5
    QApplication::setAttribute(Qt::AA_UseHighDpiPixmaps); // as Qt 6 always does
#endif
    auto application = std::make_unique<QApplication>(argc, argv);
    // By which a desktop finds the window's icon and name.
    QApplication::setDesktopFileName(QStringLiteral("flightdesk"));
    QApplication::setStyle(new theme::Style);
    QApplication::setPalette(theme::palette(theme::isDark(QApplication::palette())));
    return application;
}

Application makePictureApplication(int& argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    return makeWindowApplication(argc, argv);
}

int runWindow(const QStringList& arguments)
{
    CommandLine line(
        QStringLiteral("Records, uploads and downloads in a window."),
        {{"project"_l1, "Folder of the project, made when it is missing."_l1, "DIR"_l1},
         {"server"_l1, "Address of the server; with KV_TOKEN set the upload starts."_l1, "URL"_l1},
         {"developer"_l1, "Show figures that are of use to developers only."_l1}},
        CommandLine::Scope::Window);
    if (const auto exitCode = line.read(arguments)) {
        return *exitCode;
    }
    return showWindow(line.project(), line.value(QStringLiteral("server")),
                      line.isSet(QStringLiteral("developer")));
}
