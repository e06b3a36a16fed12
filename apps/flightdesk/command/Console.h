// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QElapsedTimer>
#include <QtCore/QJsonObject>
#include <QtCore/QString>

/// What the commands print: results on standard output, progress and errors on standard error. Used on the
/// main thread only, so that nothing runs into a bar.
class Console
{
public:
    /// \param json  print JSON instead of result lines
    explicit Console(bool json);

    /// A line of the result.
    void line(const QString& text);
    /// A remark on what is going on.
    void note(const QString& text);
    void error(const QString& text);
    /// A bar on a terminal, otherwise a line now and then.
    void progress(const QString& label, qint64 done, qint64 all);
    /// How things stand: a line on a terminal that the next one replaces, otherwise one every ten seconds.
    void status(const QString& text);
    /// The whole result for scripts; printed in JSON mode only.
    void document(const QJsonObject& object);
    /// One object of many for scripts, on a line of its own; printed in JSON mode only.
    void record(const QJsonObject& object);

    /// Prints a document with the last error where a command has failed without one of its own: a script that
    /// asked for JSON gets some in every case.
    static void printMissingDocument();
    /// Prints an error in the program's name, where there is no console yet.
    static void printError(const QString& text);
    static void printUsageError(const QString& text, const char* help = "flightdesk --help");

private:
    void clearBar();

    const bool m_json;
    const bool m_terminal;
    bool m_barShown = false;
    QString m_label;
    int m_step = -1; ///< last one shown
    QElapsedTimer m_sinceStatus;
};
