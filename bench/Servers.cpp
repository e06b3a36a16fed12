// SPDX-License-Identifier: MIT
#include "Servers.h"

#include "Connections.h"
#include "flightdesk/words/Latin1.h"
#include "MissionFile.h"
#include "Report.h"

#include <httplib.h>

#include <QtCore/QFile>

#include <unistd.h>

SinkServer::SinkServer(bool eager) : m_server(std::make_unique<httplib::Server>())
{
    m_server->set_tcp_nodelay(true);
    m_server->set_keep_alive_max_count(std::numeric_limits<std::size_t>::max());
    m_server->set_keep_alive_timeout(1);
    m_server->Post(".*", [this, eager](const httplib::Request& request, httplib::Response& response,
                                       const httplib::ContentReader& read) {
        if (eager) {
            acknowledgeAtOnce(connectionFrom(m_port, request.remote_port));
        }
        qint64 bytes = 0;
        read([&bytes](const char* /*data*/, std::size_t length) {
            bytes += static_cast<qint64>(length);
            return true;
        });
        m_largestBody = std::max<qint64>(m_largestBody, bytes);
        const std::lock_guard lock(m_mutex);
        m_received[request.path] += bytes;
        response.set_content(R"({"status":0,"message":""})", "application/json");
    });
    m_port = m_server->bind_to_any_port("127.0.0.1"); // takes over what is set above
    require(m_port > 0, "the sink cannot listen"_l1);
    m_thread = std::thread([this] { m_server->listen_after_bind(); });
    while (!m_server->is_running()) { // a stop before it runs would be lost
        std::this_thread::yield();
    }
}

SinkServer::~SinkServer()
{
    m_server->stop();
    m_thread.join();
}

QByteArray SinkServer::url() const
{
    return "http://127.0.0.1:" + QByteArray::number(m_port);
}

qint64 SinkServer::received(const std::string& path)
{
    const std::lock_guard lock(m_mutex);
    qint64 bytes = 0;
    for (const auto& [of, received] : m_received) {
        bytes += path.empty() || of == path ? received : 0;
    }
    return bytes;
}

QString firstServer()
{
    return qEnvironmentVariable("KV_FIRST_SERVER");
}

ServerOnDisk::ServerOnDisk(const QString& program, const QStringList& more)
    : m_folder(diskFolder())
    , m_server(QStringList{"--ledger"_l1, m_folder.filePath("ledger.db"_l1)} + more, program)
{
}

double ServerOnDisk::seconds() const
{
    constexpr int UserTime = 11; // fields behind the name in brackets; the system's follows
    const QByteArray stat = process(QStringLiteral("task/%1/stat").arg(m_server.processId()));
    const QByteArrayList fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
    return (fields.value(UserTime).toDouble() + fields.value(UserTime + 1).toDouble()) /
           static_cast<double>(sysconf(_SC_CLK_TCK));
}

double ServerOnDisk::statusBytes(const QByteArray& line) const
{
    const QByteArray text = process("status"_l1);
    return text.mid(text.indexOf(line) + line.size()).trimmed().split(' ')[0].toDouble() * 1024;
}

QByteArray ServerOnDisk::process(const QString& file) const
{
    QFile of(QStringLiteral("/proc/%1/%2").arg(m_server.processId()).arg(file));
    require(of.open(QIODevice::ReadOnly), "no /proc of the server"_l1);
    return of.readAll();
}
