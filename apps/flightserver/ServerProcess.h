// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QCoreApplication>
#include <QtCore/QProcess>
#include <QtCore/QStandardPaths>

/// A flightserver beside a program that needs one, a child process that goes with the object: the one that is
/// named, the one in the program's folder, or else the installed one.
class ServerProcess : public QProcess
{
public:
    explicit ServerProcess(const QStringList& arguments, const QString& program = find())
    {
        start(program, arguments);
        url = address(QStringLiteral("flightserver listening on "));
    }
    ~ServerProcess() override
    {
        terminate();
        waitForFinished(10000); // killed if it still runs then
    }

    /// What follows these words in a line that the server prints.
    QString address(const QString& words)
    {
        while (!m_said.section(words, 1).contains(QLatin1Char('\n')) && waitForReadyRead()) {
            m_said += QString::fromUtf8(readAllStandardOutput());
        }
        return m_said.section(words, 1).section(QLatin1Char('\n'), 0, 0);
    }

    QString url; ///< empty when it has not started

private:
    static QString find()
    {
        const QString name = QStringLiteral("flightserver");
        const QString beside = QStandardPaths::findExecutable(name, {QCoreApplication::applicationDirPath()});
        return beside.isEmpty() ? QStandardPaths::findExecutable(name) : beside;
    }

    QString m_said;
};
