// SPDX-License-Identifier: MIT
#include "command/CommandLine.h"

#include "command/Commands.h"
#include "words/Latin1.h"

#include <QtCore/QCoreApplication>

#include <cstdio>

CommandLine::CommandLine(const QString& description, const QList<QCommandLineOption>& options, Scope scope)
    : m_scope(scope)
{
    m_parser.setApplicationDescription(description);
    m_parser.addOption({{"h"_l1, "help"_l1}, "Show this help."_l1});
    if (m_scope == Scope::Project) {
        m_parser.addOption({"project"_l1, "Folder of the project."_l1, "DIR"_l1});
    }
    m_parser.addOptions(options);
    if (m_scope == Scope::Window) {
        return;
    }
    m_parser.addOption({"json"_l1, "Print one JSON document, for scripts."_l1});
    m_parser.addOption({"log"_l1, "Write the log to FILE."_l1, "FILE"_l1});
    m_parser.addOption({"verbose"_l1, "Print the log's lines on standard error."_l1});
}

CommandLine::~CommandLine()
{
    QCoreApplication::sendPostedEvents(&m_mainThread);
    Logger::instance().setStandardError(true);
}

void CommandLine::takes(const QString& name, const QString& description, const QString& syntax)
{
    mayTake(name, description, syntax);
    m_positionalNeeded = true;
}

void CommandLine::mayTake(const QString& name, const QString& description, const QString& syntax)
{
    m_parser.addPositionalArgument(name, description, syntax);
    m_positional = name;
}

std::optional<int> CommandLine::read(const QStringList& arguments)
{
    if (!m_parser.parse(arguments)) {
        return refuse(m_parser.errorText());
    }
    if (m_parser.isSet(QStringLiteral("help"))) {
        const QString program = QCoreApplication::arguments().constFirst();
        std::fputs(qPrintable(m_parser.helpText().replace(program, arguments.first())), stdout);
        return Done;
    }
    if (m_scope == Scope::Project && project().isEmpty()) {
        return refuse(QStringLiteral("--project is missing"));
    }
    if (m_positional.isEmpty() && !positionals().isEmpty()) {
        return refuse(QStringLiteral("unexpected argument: %1").arg(positionals().constFirst()));
    }
    if (m_positionalNeeded && positionals().isEmpty()) {
        return refuse(QStringLiteral("%1 is missing").arg(m_positional));
    }
    return m_scope == Scope::Window ? std::nullopt : setUpLog();
}

int CommandLine::refuse(const QString& text) const
{
    Console::printUsageError(text,
                             m_scope == Scope::Window ? "flightdesk window --help" : "flightdesk --help");
    return BadUsage;
}

std::optional<int> CommandLine::setUpLog()
{
    const QString file = value(QStringLiteral("log"));
    if (isSet(QStringLiteral("log")) && !Logger::instance().setLogFile(file)) {
        Console::printError(QStringLiteral("cannot write the log file %1").arg(file));
        return NotDone;
    }
    const bool verbose = isSet(QStringLiteral("verbose"));
    if (verbose || isSet(QStringLiteral("log"))) {
        Logger::instance().setLoggingLevel(Level::Info);
    }
    m_console.emplace(isSet(QStringLiteral("json")));
    if (verbose || file.isEmpty()) {
        // What the log would print by itself as well, from any thread and into a progress bar.
        Logger::instance().setStandardError(false);
        QObject::connect(&m_log, &LogFeed::line, &m_mainThread,
                         [this, verbose](const QString& text, int level) {
                             if (verbose || level >= int(Level::Warn)) {
                                 m_console->note(text);
                             }
                         });
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
    refuse(QStringLiteral("--%1 takes a number from %2 to %3").arg(option).arg(least).arg(most));
    return std::nullopt;
}
