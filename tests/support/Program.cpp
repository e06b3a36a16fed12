// SPDX-License-Identifier: MIT
#include "Program.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QEventLoop>

QString Program::path(const QString& name)
{
    return QCoreApplication::applicationDirPath() + '/' + name;
}

Program::SResult Program::run(const QString& name, const QStringList& arguments)
{
    Program program(name, arguments);
    QProcess& process = program.process();
    QEventLoop loop;
    QObject::connect(&process, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), &loop,
                     &QEventLoop::quit);
    if (process.state() != QProcess::NotRunning) {
        loop.exec();
    }
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            process.readAllStandardOutput(), process.readAllStandardError()};
}

Program::Program(const QString& name, const QStringList& arguments)
{
    m_process.start(path(name), arguments);
    if (!m_process.waitForStarted()) {
        qFatal("cannot start %s", qPrintable(path(name)));
    }
}

Program::~Program()
{
    m_process.terminate();
    if (!m_process.waitForFinished(10000)) {
        m_process.kill();
        m_process.waitForFinished();
    }
}

IngestServer::IngestServer(const QStringList& arguments) : Program("flightserver", arguments)
{
    QByteArray line;
    while (!line.endsWith('\n') && process().waitForReadyRead()) {
        line += process().readAllStandardOutput();
    }
    m_url = QString(line).section(' ', 3).trimmed();
    if (!m_url.startsWith("http")) {
        qFatal("flightserver said \"%s\"", line.constData());
    }
}
