// SPDX-License-Identifier: MIT
#pragma once

#include "Programs.h"
#include "RawClient.h"
#include "SqliteFile.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

const QByteArray Secret = "secret";
const QByteArray LogPath = "/flight/detailupload";

/// A flightserver on a ledger in a folder of its own.
struct SServer {
    explicit SServer(QStringList more = {"--token", Secret}) : options(std::move(more)) { start(); }
    void start()
    {
        program.reset();
        program = std::make_unique<IngestServer>(QStringList{"--ledger", ledger} + options);
    }
    QString url() const { return program->url; }
    SResult token(const QStringList& words) const
    {
        return runProgram("flightserver", QStringList{"token"} + words + QStringList{"--ledger", ledger});
    }
    QByteArray addToken(const QString& owner) const { return token({"add", owner}).out.trimmed(); }
    SqliteFile open() const { return SqliteFile(ledger.toStdString()); }
    QString text(const char* sql) const { return QString::fromStdString(open().text(sql)); }

    const TestProject folder;
    const QString ledger = folder.path("ledger.db");
    const QStringList options;
    std::unique_ptr<IngestServer> program;
};

/// Clients that send rows one by one until they are told to end; what was acknowledged is remembered.
class Senders
{
public:
    Senders(const QString& url, int count, int seed)
    {
        for (int i = 0; i < count; ++i) {
            m_threads.emplace_back(
                [this, url, i, seed] { send(url, QByteArray::number(seed) + '-' + QByteArray::number(i)); });
        }
    }
    ~Senders() { end(); }
    void end()
    {
        m_end = true;
        for (std::thread& thread : m_threads) {
            thread.join();
        }
        m_threads.clear();
    }
    int acknowledgedCount() const { return m_count; }
    /// After the end: milliseconds until each answer, in order, and the rows.
    std::vector<qint64>& times()
    {
        std::sort(m_times.begin(), m_times.end());
        return m_times;
    }
    QSet<QByteArray>& acknowledged() { return m_acknowledged; }

private:
    void send(const QString& url, const QByteArray& name)
    {
        std::unique_ptr<RawClient> client;
        QSet<QByteArray> mine;
        std::vector<qint64> times;
        for (int i = 0; !m_end; ++i) {
            if (!client) {
                client = std::make_unique<RawClient>(url);
            }
            const QByteArray id = name + '-' + QByteArray::number(i);
            QElapsedTimer time;
            time.start();
            if (client->post(LogPath, Secret, logBody(logRow(id))) == 0) {
                mine.insert(id);
                ++m_count;
                times.push_back(time.elapsed());
            } else {
                client.reset();
            }
        }
        const std::lock_guard lock(m_mutex);
        m_acknowledged += mine;
        m_times.insert(m_times.end(), times.begin(), times.end());
    }
    std::atomic<bool> m_end{false};
    std::atomic<int> m_count{0};
    std::mutex m_mutex;
    QSet<QByteArray> m_acknowledged;
    std::vector<qint64> m_times;
    std::vector<std::thread> m_threads;
};
