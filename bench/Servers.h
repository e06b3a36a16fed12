// SPDX-License-Identifier: MIT
#pragma once

#include "flightserver/ServerProcess.h"
#include "Report.h"

#include <QtCore/QByteArray>
#include <QtCore/QTemporaryDir>

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace httplib
{
class Server;
}

// Takes every post and forgets it, on a thread of this process.
class SinkServer
{
public:
    // An eager one acknowledges a request's header at once, as flightserver does.
    explicit SinkServer(bool eager = true);
    ~SinkServer();
    SinkServer(const SinkServer&) = delete;
    SinkServer& operator=(const SinkServer&) = delete;
    QByteArray url() const;
    qint64 largestBody() const { return m_largestBody; }
    // Bytes of all bodies that were posted to the path, or to any.
    qint64 received(const std::string& path = {});

private:
    std::unique_ptr<httplib::Server> m_server;
    std::atomic<qint64> m_largestBody{0};
    std::mutex m_mutex;
    std::map<std::string, qint64> m_received;
    int m_port = 0;
    std::thread m_thread;
};

// A flightserver process that has started, with an empty ledger in memory unless the arguments name one.
class FlightServer
{
public:
    explicit FlightServer(const QStringList& arguments = {}, const QString& program = {})
        : m_process(program.isEmpty() ? ServerProcess(arguments) : ServerProcess(arguments, program))
    {
        require(!m_process.url.isEmpty(),
                QString::fromUtf8("flightserver does not start: " + m_process.readAllStandardError()));
    }
    QByteArray url() const { return m_process.url.toLatin1(); }
    qint64 processId() const { return m_process.processId(); }

private:
    ServerProcess m_process;
};

// Its program in an earlier version, which scripts/bench builds; empty: none.
QString firstServer();

// One on a ledger on disk, with nothing in it.
class ServerOnDisk
{
public:
    explicit ServerOnDisk(const QString& program = {}, const QStringList& more = {});
    [[nodiscard]] QByteArray url() const { return m_server.url(); }
    // Bytes that are resident now, and that were at most.
    [[nodiscard]] double memory() const { return statusBytes("VmRSS:"); }
    [[nodiscard]] double peakMemory() const { return statusBytes("VmHWM:"); }
    // That the thread of the connections has worked.
    [[nodiscard]] double seconds() const;

private:
    [[nodiscard]] double statusBytes(const QByteArray& line) const;
    [[nodiscard]] QByteArray process(const QString& file) const;

    const QTemporaryDir m_folder;
    FlightServer m_server;
};
