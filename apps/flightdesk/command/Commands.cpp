// SPDX-License-Identifier: MIT
#include "command/Commands.h"

#include "command/Console.h"
#include "words/Failure.h"

#include <algorithm>
#include <cstdio>

namespace
{
void printHelp(const QVector<Command>& commands)
{
    std::puts("Usage: flightdesk [COMMAND [OPTION...]]\n"
              "Records flights of unmanned aircraft and uploads the records; without a command in a window."
              "\n\nCommands:");
    for (const Command& command : commands) {
        if (command.summary) {
            std::printf("  %-10s %s\n", command.name, command.summary);
        }
    }
    std::puts("\nflightdesk --screenshot DIR saves pictures of the window.\n"
              "flightdesk COMMAND --help tells the options of a command.");
}

/// What stands behind the command.
QStringList argumentsOf(int argc, char** argv)
{
    QStringList arguments;
    for (int i = 2; i < argc; ++i) {
        arguments.append(QString::fromLocal8Bit(argv[i]));
    }
    return arguments;
}

int run(const Command& command)
{
    QStringList arguments = QCoreApplication::arguments().mid(2);
    arguments.prepend(QStringLiteral("flightdesk ") + QLatin1String(command.name));
    try {
        return command.run(arguments);
    } catch (const Failure& failure) {
        Console::printError(failure.words());
        return NotDone;
    }
}
} // namespace

Application makePlainApplication(int& argc, char** argv)
{
    return std::make_unique<QCoreApplication>(argc, argv);
}

int runFlightdesk(int argc, char** argv, const QVector<Command>& commands)
{
    const QString name = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QString();
    if (name == QLatin1String("--help") || name == QLatin1String("-h")) {
        printHelp(commands);
        return Done;
    }
    if (name == QLatin1String("--version")) {
        std::printf("flightdesk %s\n", qPrintable(QCoreApplication::applicationVersion()));
        return Done;
    }
    const auto command = name.isEmpty()
                             ? commands.begin()
                             : std::find_if(commands.begin(), commands.end(),
                                            [&](const Command& c) { return name == QLatin1String(c.name); });
    if (command == commands.end()) {
        Console::printUsageError(QStringLiteral("unknown command \"%1\"").arg(name));
        return BadUsage;
    }
    const QStringList given = argumentsOf(argc, argv);
    const bool wantsHelp = given.contains(QStringLiteral("--help")) || given.contains(QStringLiteral("-h"));
    const Application application =
        wantsHelp ? makePlainApplication(argc, argv) : command->makeApplication(argc, argv);
    const int exitCode = application ? run(*command) : NotDone;
    if (exitCode != Done && given.contains(QStringLiteral("--json"))) {
        Console::printMissingDocument();
    }
    return exitCode;
}
