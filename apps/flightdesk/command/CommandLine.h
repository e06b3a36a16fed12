// SPDX-License-Identifier: MIT
#pragma once

#include "command/Console.h"
#include "operator/LogFeed.h"

#include <QtCore/QCommandLineParser>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <optional>

/// The command line of one command: its own options and those that all commands share.
class CommandLine
{
public:
    enum class Scope {
        Project,
        NoProject,
        Window, ///< the project may be missing, and nothing is printed that --json and --log could be about
    };

    CommandLine(const QString& description, const QList<QCommandLineOption>& options,
                Scope scope = Scope::Project);
    ~CommandLine();

    /// What stands behind the options, as in "LOG...".
    void takes(const QString& name, const QString& description, const QString& syntax);
    /// The same where it may be left out, as in "[MISSION...]".
    void mayTake(const QString& name, const QString& description, const QString& syntax);

    /// Reads the arguments and sets up the log.
    /// \return the exit code when the command ends here, after its help or an error
    std::optional<int> read(const QStringList& arguments);

    QString project() const { return value(QStringLiteral("project")); }
    bool isSet(const QString& option) const { return m_parser.isSet(option); }
    QString value(const QString& option) const { return m_parser.value(option); }
    QStringList values(const QString& option) const { return m_parser.values(option); }
    /// A number in the range; otherwise an error is printed and nothing returned.
    std::optional<qint64> number(const QString& option, qint64 least, qint64 most) const;
    QStringList positionals() const { return m_parser.positionalArguments(); }
    const LogFeed& log() const { return m_log; }
    /// Once the arguments have been read.
    Console& console() { return *m_console; }

private:
    int refuse(const QString& text) const;
    std::optional<int> setUpLog();

    const Scope m_scope;
    QCommandLineParser m_parser;
    LogFeed m_log;
    std::optional<Console> m_console;
    QObject m_mainThread; ///< lines of the log from other threads wait here for their turn
    QString m_positional; ///< name of what stands behind the options, empty when nothing does
    bool m_positionalNeeded = false;
};
