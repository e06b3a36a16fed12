// SPDX-License-Identifier: MIT
#include "Window.h"

#include "Commands.h"
#include "Console.h"
#include "EndSignals.h"
#include "MainWindow.h"
#include "ProjectPage.h"
#include "ScreenshotTour.h"
#include "Theme.h"
#include "UploadPage.h"

#include <QtCore/QCommandLineParser>
#include <QtCore/QSettings>
#include <QtCore/QStandardPaths>
#include <QtWidgets/QApplication>

#include <cstdio>

namespace
{
const QString WindowCommand = QStringLiteral("window");
const QString ScreenshotOption = QStringLiteral("--screenshot");

/// Folder of the project, server address and place of the window; never the token.
class Memory
{
public:
    QString project() { return m_settings.value(QStringLiteral("project")).toString(); }
    QString server() { return m_settings.value(QStringLiteral("server")).toString(); }
    void restore(MainWindow& window)
    {
        window.restoreGeometry(m_settings.value(QStringLiteral("geometry")).toByteArray());
    }
    void keep(MainWindow& window)
    {
        m_settings.setValue(QStringLiteral("project"), window.session().projectPath());
        m_settings.setValue(QStringLiteral("server"), window.uploadPage()->server());
        m_settings.setValue(QStringLiteral("geometry"), window.saveGeometry());
    }

private:
    QSettings m_settings{QStringLiteral("flightdesk"), QStringLiteral("flightdesk")};
};

QString makeLogFile()
{
    const QString file =
        QStandardPaths::writableLocation(QStandardPaths::AppDataLocation) + QStringLiteral("/flightdesk.log");
    return Logger::instance().setLogFile(file) ? file : QString();
}

int showWindow(const QString& project, const QString& server)
{
    MainWindow window(makeLogFile());
    Memory memory;
    window.resize(1280, 800);
    memory.restore(window);
    window.uploadPage()->setServer(server.isEmpty() ? memory.server() : server);
    window.show();
    const QString folder = project.isEmpty() ? memory.project() : project;
    if (!folder.isEmpty()) {
        window.projectPage()->open(folder, !project.isEmpty());
    }
    const QString token = qEnvironmentVariable("KV_TOKEN");
    qunsetenv("KV_TOKEN"); // no child process needs it
    if (!token.isEmpty() && window.session().hasProject()) {
        window.uploadPage()->signIn(token);
    }
    const EndSignals endSignals;
    const int exitCode = QApplication::exec();
    memory.keep(window);
    return exitCode;
}

int runWithArguments(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Records, uploads and downloads in a window."));
    parser.addOption({{"h", "help"}, "Show this help."});
    parser.addOption({"project", "Folder of the project, made when it is missing.", "DIR"});
    parser.addOption({"server", "Address of the server; with KV_TOKEN set the upload starts.", "URL"});
    if (!parser.parse(arguments) || !parser.positionalArguments().isEmpty()) {
        Console::printError(QStringLiteral("flightdesk: %1 (see flightdesk window --help)")
                                .arg(parser.errorText().isEmpty() ? QStringLiteral("unexpected argument")
                                                                  : parser.errorText()));
        return BadUsage;
    }
    if (parser.isSet(QStringLiteral("help"))) {
        std::fputs(qPrintable(parser.helpText()), stdout);
        return Done;
    }
    return showWindow(parser.value(QStringLiteral("project")), parser.value(QStringLiteral("server")));
}

bool hasDisplay()
{
    return qEnvironmentVariableIsSet("DISPLAY") || qEnvironmentVariableIsSet("WAYLAND_DISPLAY") ||
           qEnvironmentVariableIsSet("QT_QPA_PLATFORM");
}
} // namespace

bool wantsWindow(const QStringList& arguments)
{
    const QString first = arguments.value(1);
    return first.isEmpty() || first == WindowCommand || first == ScreenshotOption;
}

int runWindow(int argc, char* argv[])
{
    const bool pictures = argc > 1 && ScreenshotOption == QLatin1String(argv[1]);
    if (pictures && argc != 3) {
        Console::printError(QStringLiteral("flightdesk: --screenshot takes a folder"));
        return BadUsage;
    }
    if (pictures) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    } else if (!hasDisplay()) {
        Console::printError(QStringLiteral("flightdesk: there is no display for the window; "
                                           "the commands need none (see flightdesk --help)"));
        return NotDone;
    }
    QApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
    QApplication application(argc, argv);
    QApplication::setStyle(new theme::Style);
    QApplication::setPalette(theme::palette(theme::isDark(QApplication::palette())));
    const QStringList arguments = QApplication::arguments();
    if (!pictures) {
        return runWithArguments(arguments.mid(0, 1) + arguments.mid(2)); // without the command's name
    }
    return takeScreenshots(arguments.at(2));
}
