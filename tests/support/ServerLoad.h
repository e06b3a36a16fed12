// SPDX-License-Identifier: MIT
#pragma once

#include "Crowd.h"
#include "Programs.h"
#include "RawClient.h"
#include "SqliteFile.h"

#include <algorithm>
#include <memory>
#include <mutex>
#include <vector>

const QByteArray Secret = "secret";
const QByteArray LogPath = "/flight/detailupload";

/// A flightserver on a ledger in a folder of its own.
struct ServerOnDisk {
    explicit ServerOnDisk(QStringList more = {"--token", Secret}) : options(std::move(more)) { start(); }
    void start()
    {
        program.reset();
        program = std::make_unique<IngestServer>(QStringList{"--ledger", ledger} + options);
    }
    QString url() const { return program->url; }
    ProgramResult token(const QStringList& words) const
    {
        return runProgram("flightserver", QStringList{"token"} + words + QStringList{"--ledger", ledger});
    }
    QByteArray addToken(const QString& owner) const { return token({"add", owner}).out.trimmed(); }
    SqliteFile open() const { return SqliteFile(ledger.toStdString()); }
    QString text(const char* sql) const { return QString::fromStdString(open().text(sql)); }
    QSet<QByteArray> ids() const
    {
        const QByteArrayList ids = text("SELECT group_concat(id) FROM record").toUtf8().split(',');
        return {ids.cbegin(), ids.cend()};
    }

    const TestProject folder;
    const QString ledger = folder.path("ledger.db");
    const QStringList options;
    std::unique_ptr<IngestServer> program;
};

/// Clients that send rows one by one until they are told to end; what was acknowledged is remembered.
class Senders
{
public:
    Senders(const QString& url, int count, const QByteArray& name)
    {
        for (int i = 0; i < count; ++i) {
            m_crowd.add([this, url, mine = name + '-' + QByteArray::number(i) + '-', n = 0,
                         client = std::unique_ptr<RawClient>()]() mutable {
                if (!client) {
                    client = std::make_unique<RawClient>(url);
                }
                QElapsedTimer time;
                time.start();
                const QByteArray id = mine + QByteArray::number(n++);
                const int status = client->post(LogPath, Secret, logBody(logRow(id)));
                const std::lock_guard lock(m_mutex);
                if (status == 0) {
                    m_acknowledged.insert(id);
                    m_times.push_back(time.elapsed());
                } else {
                    client.reset();
                    ++m_failed;
                }
            });
        }
    }
    void end() { m_crowd.end(); }
    QSet<QByteArray> acknowledged()
    {
        const std::lock_guard lock(m_mutex);
        return m_acknowledged;
    }
    int count()
    {
        const std::lock_guard lock(m_mutex);
        return m_acknowledged.size();
    }
    /// Requests that were not acknowledged.
    int failed() const { return m_failed; }
    /// After the end: the milliseconds in which 99 of 100 others were.
    qint64 p99()
    {
        std::sort(m_times.begin(), m_times.end());
        return m_times.at(m_times.size() * 99 / 100);
    }

private:
    std::mutex m_mutex;
    QSet<QByteArray> m_acknowledged;
    std::vector<qint64> m_times;
    std::atomic<int> m_failed{0};
    Crowd m_crowd;
};
