// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QProcess>
#include <QtCore/QStringList>

/// One of the project's programs as a child process, ended with the object.
class Program
{
public:
    /// Path of a program beside the test program.
    static QString path(const QString& name);

    struct SResult {
        int exitCode = -1;
        QByteArray out;
        QByteArray err;
    };
    /// Runs to the end, keeping this thread's events going.
    static SResult run(const QString& name, const QStringList& arguments);

    Program(const QString& name, const QStringList& arguments);
    ~Program();
    QProcess& process() { return m_process; }

private:
    QProcess m_process;
};

/// A flightserver that has told its address.
class IngestServer : public Program
{
public:
    explicit IngestServer(const QStringList& arguments);
    QString url() const { return m_url; }

private:
    QString m_url;
};
