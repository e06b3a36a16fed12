// SPDX-License-Identifier: MIT
#include "Commands.h"

#include "CommandLine.h"

#include <QtCore/QCoreApplication>

#include <algorithm>
#include <cstdio>

// Outside any namespace, as the macro asks.
void initFlightdeskResources()
{
    Q_INIT_RESOURCE(flightdesk);
}

namespace
{
struct Command {
    const char* name;
    const char* summary;
    int (*run)(const QStringList&);
};

constexpr Command Commands[] = {
    {"record", "Record telemetry logs, one mission each.", runRecord},
    {"simulate", "Record simulated flights.", runSimulate},
    {"upload", "Upload all that waits.", runUpload},
    {"status", "Show what is recorded, uploaded and waiting.", runStatus},
    {"fetch", "Download a file.", runFetch},
};

void printHelp()
{
    std::puts("Usage: flightdesk [COMMAND [OPTION...]]\n"
              "Records flights of unmanned aircraft and uploads the records; without a command in a window."
              "\n\nCommands:\n"
              "  window     Open the window, on a project if one is named.");
    for (const Command& command : Commands) {
        std::printf("  %-10s %s\n", command.name, command.summary);
    }
    std::puts("\nflightdesk --screenshot DIR saves pictures of the window.\n"
              "flightdesk COMMAND --help tells the options of a command.");
}
} // namespace

int runFlightdesk(const QStringList& arguments)
{
    const QString name = arguments.value(1);
    if (name == QLatin1String("--help") || name == QLatin1String("-h")) {
        printHelp();
        return Done;
    }
    if (name == QLatin1String("--version")) {
        std::printf("flightdesk %s\n", qPrintable(QCoreApplication::applicationVersion()));
        return Done;
    }
    const auto* const command = std::find_if(std::begin(Commands), std::end(Commands),
                                             [&](const Command& c) { return name == QLatin1String(c.name); });
    if (command == std::end(Commands)) {
        printUsageError(QStringLiteral("unknown command \"%1\"").arg(name));
        return BadUsage;
    }
    QStringList rest = arguments.mid(2);
    rest.prepend(QStringLiteral("flightdesk ") + name);
    return command->run(rest);
}
