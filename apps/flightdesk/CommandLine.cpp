// SPDX-License-Identifier: MIT
#include "CommandLine.h"

#include "Commands.h"

#include <QtCore/QCoreApplication>

#include <cstdio>

void printUsageError(const QString& text)
{
    Console::printError(QStringLiteral("flightdesk: %1 (see flightdesk --help)").arg(text));
}

CommandLine::CommandLine(const QString& description, const QList<QCommandLineOption>& options, Scope scope)
    : m_scope(scope)
{
    m_parser.setApplicationDescription(description);
    m_parser.addOption({{"h", "help"}, "Show this help."});
    if (m_scope == Scope::Project) {
        m_parser.addOption({"project", "Folder of the project.", "DIR"});
    }
    m_parser.addOptions(options);
    m_parser.addOption({"json", "Print one JSON document, for scripts."});
    m_parser.addOption({"log", "Write the log to FILE.", "FILE"});
    m_parser.addOption({"verbose", "Print the log's lines on standard error."});
}

void CommandLine::takes(const QString& name, const QString& description, const QString& syntax)
{
    m_parser.addPositionalArgument(name, description, syntax);
    m_positional = name;
}

std::optional<int> CommandLine::read(const QStringList& arguments)
{
    if (!m_parser.parse(arguments)) {
        printUsageError(m_parser.errorText());
        return BadUsage;
    }
    if (m_parser.isSet(QStringLiteral("help"))) {
        const QString program = QCoreApplication::arguments().constFirst();
        std::fputs(qPrintable(m_parser.helpText().replace(program, arguments.first())), stdout);
        return Done;
    }
    if (m_scope == Scope::Project && project().isEmpty()) {
        printUsageError(QStringLiteral("--project is missing"));
        return BadUsage;
    }
    if (m_positional.isEmpty() != positionals().isEmpty()) {
        printUsageError(m_positional.isEmpty()
                            ? QStringLiteral("unexpected argument: %1").arg(positionals().constFirst())
                            : QStringLiteral("%1 is missing").arg(m_positional));
        return BadUsage;
    }
    return setUpLog();
}

std::optional<int> CommandLine::setUpLog()
{
    const QString file = value(QStringLiteral("log"));
    if (isSet(QStringLiteral("log")) && !Logger::instance().setLogFile(file)) {
        Console::printError(QStringLiteral("flightdesk: cannot write the log file %1").arg(file));
        return NotDone;
    }
    const bool verbose = isSet(QStringLiteral("verbose"));
    if (verbose || isSet(QStringLiteral("log"))) {
        Logger::instance().setLoggingLevel(Level::Info);
    }
    if (verbose) {
        QObject::connect(&m_log, &LogFeed::line, Console::printError);
    }
    return std::nullopt;
}

std::optional<qint64> CommandLine::number(const QString& option, qint64 least, qint64 most) const
{
    bool isNumber = false;
    const qint64 number = value(option).toLongLong(&isNumber);
    if (isNumber && number >= least && number <= most) {
        return number;
    }
    printUsageError(QStringLiteral("--%1 takes a number from %2 to %3").arg(option).arg(least).arg(most));
    return std::nullopt;
}
