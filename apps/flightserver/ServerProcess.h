// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QCoreApplication>
#include <QtCore/QProcess>
#include <QtCore/QStandardPaths>

/// A flightserver beside a program that needs one, a child process that goes with the object: the one in the
/// program's folder, or else the installed one.
class ServerProcess : public QProcess
{
public:
    explicit ServerProcess(const QStringList& arguments)
    {
        const QString name = QStringLiteral("flightserver");
        const QString beside = QStandardPaths::findExecutable(name, {QCoreApplication::applicationDirPath()});
        start(beside.isEmpty() ? QStandardPaths::findExecutable(name) : beside, arguments);
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
    QString m_said;
};
