// SPDX-License-Identifier: MIT
#pragma once

#include "flightdesk/words/Latin1.h"
#include "flightserver/PgConnection.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QDebug>
#include <QtCore/QFile>
#include <QtCore/QProcess>
#include <QtCore/QStandardPaths>
#include <QtCore/QTemporaryDir>
#include <QtNetwork/QTcpServer>

#include <csignal>
#include <memory>
#include <unistd.h>

/// On loopback; somebody else may take it.
inline int freePort()
{
    QTcpServer server;
    server.listen(QHostAddress::LocalHost);
    return server.serverPort();
}

/// A PostgreSQL server of a program's own, on a loopback port. It does not run as root, so where the test
/// does, it is the user "postgres".
class Postgres
{
public:
    /// A primary in a folder of its own; where another one is named, its standby.
    explicit Postgres(const Postgres* primary = nullptr) : m_port(freePort())
    {
        QFile::setPermissions(m_folder.path(), QFile::Permissions(0x7777));
        const QStringList from{"-h"_l1, "127.0.0.1"_l1, "-p"_l1,
                               QString::number(primary ? primary->m_port : 0)};
        const QStringList mine{"-D"_l1, data(), "-U"_l1, "fleet"_l1};
        const QStringList anew{"-A"_l1, "trust"_l1, "--no-locale"_l1, "-E"_l1, "UTF8"_l1, "--no-sync"_l1};
        const QStringList copied{"-R"_l1, "-c"_l1, "fast"_l1};
        if (!(primary ? run("pg_basebackup"_l1, mine + copied + from) : run("initdb"_l1, mine + anew))) {
            qWarning() << "no PostgreSQL server here";
        } else if (start() && !primary) {
            execute("CREATE DATABASE flights", "postgres"_l1);
        }
    }
    ~Postgres() { kill(SIGKILL); }

    bool isRunning() const { return m_process && m_process->state() == QProcess::Running; }
    /// Whether it takes connections.
    bool start()
    {
        m_process = std::make_unique<QProcess>();
        const QStringList command =
            asUser("postgres"_l1) + QStringList{"-D"_l1, data(),
                                                "-k"_l1, m_folder.path(),
                                                "-p"_l1, QString::number(m_port),
                                                "-c"_l1, "listen_addresses=127.0.0.1"_l1,
                                                "-c"_l1, "max_connections=50"_l1,
                                                "-c"_l1, "wal_level=replica"_l1};
        m_process->setStandardErrorFile(m_folder.filePath("log"_l1));
        m_process->start(command.first(), command.mid(1));
        const QDeadlineTimer patience(20000);
        while (!patience.hasExpired() && !m_process->waitForFinished(10)) {
            if (run("pg_isready"_l1, {"-q"_l1, "-h"_l1, "127.0.0.1"_l1, "-p"_l1, QString::number(m_port)})) {
                return true;
            }
        }
        return false;
    }
    /// SIGKILL takes the whole server along at once, SIGSTOP and SIGCONT each of its processes.
    void kill(int signal)
    {
        const qint64 pid = m_process ? m_process->processId() : 0;
        if (pid == 0) {
            return;
        }
        QFile children(QStringLiteral("/proc/%1/task/%1/children").arg(pid));
        children.open(QIODevice::ReadOnly);
        const QByteArrayList pids = children.readAll().simplified().split(' ');
        for (const QByteArray& child : pids) {
            if (child.toInt() > 0) {
                ::kill(child.toInt(), signal);
            }
        }
        ::kill(static_cast<pid_t>(pid), signal);
        if (signal == SIGKILL) {
            m_process->waitForFinished();
        }
    }
    void execute(const char* sql, const QString& database = "flights"_l1)
    {
        PgConnection connection = open(database);
        connection.execute(sql);
    }
    PgRows select(const char* sql)
    {
        PgConnection connection = open();
        return connection.run(sql);
    }
    PgConnection open(const QString& database = "flights"_l1) const
    {
        PgConnection connection(uri(database).toStdString());
        connection.open();
        return connection;
    }
    /// The first standby that is heard holds every commit up until it has it as well.
    void followSynchronously(const char* names = "*")
    {
        const std::string sql = std::string("ALTER SYSTEM SET synchronous_standby_names='") + names + '\'';
        execute(sql.c_str());
        execute("SELECT pg_reload_conf()");
    }
    void promote() { run("pg_ctl"_l1, {"promote"_l1, "-D"_l1, data()}); }
    QString place() const { return QStringLiteral("127.0.0.1:%1").arg(m_port); }
    QString uri(const QString& database = "flights"_l1) const
    {
        return QStringLiteral("postgresql://fleet@%1/%2").arg(place(), database);
    }

private:
    static QStringList asUser(const QString& program)
    {
        const QString path = QStandardPaths::findExecutable(program, {"/usr/lib/postgresql/15/bin"_l1,
                                                                      "/usr/lib/postgresql/16/bin"_l1,
                                                                      "/usr/lib/postgresql/17/bin"_l1});
        const QStringList goesAlong{"setpriv"_l1, "--pdeathsig"_l1, "INT"_l1}; // where this program is killed
        const QStringList user{"--reuid"_l1, "postgres"_l1, "--regid"_l1, "postgres"_l1, "--clear-groups"_l1};
        return goesAlong + (geteuid() == 0 ? user : QStringList()) + QStringList{path};
    }
    bool run(const QString& program, const QStringList& arguments) const
    {
        const QStringList command = asUser(program) + arguments;
        QProcess process;
        process.start(command.first(), command.mid(1));
        return process.waitForFinished(60000) && process.exitCode() == 0;
    }
    QString data() const { return m_folder.filePath("data"_l1); }

    const QTemporaryDir m_folder;
    const int m_port;
    std::unique_ptr<QProcess> m_process;
};
