// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>

#include <atomic>
#include <chrono>
#include <functional>
#include <vector>

// What many clients do at once, on one thread of this process.
struct Load {
    QByteArray url;
    int connections = 1;
    double seconds = 3;    // then nothing new is sent
    int rows = 1;          // in each request
    double retryAfter = 3; // seconds after a refusal, as the library does it
    double retryUntil = 0; // where it is later: drawn at random between the two
    double period = 0;     // seconds from one request of a client to its next; 0: at once
    int backlog = 0;       // requests of each client, who begin somewhere in their wait; 0: no end
    bool keepsIds = false; // of what is accepted
    // Each connection is served once, one after the other, before the time begins: a server with a short
    // queue of those who want to connect has some of them try again for half a minute.
    bool warm = false;
};

struct LoadResult {
    double seconds = 0; // until the last answer
    qint64 accepted = 0;
    qint64 refused = 0;             // answered with another status
    qint64 broken = 0;              // connections that ended without an answer
    int unserved = 0;               // connections of which nothing was accepted
    std::vector<double> accepting;  // seconds from the first byte to the answer
    double slowest = 0;             // of all answers
    std::vector<double> acceptedAt; // seconds since the start
    std::vector<int> attempts;      // in each second
    std::vector<QByteArray> ids;    // accepted, where they are kept

    [[nodiscard]] double perSecond() const { return static_cast<double>(accepted) / seconds; }
    [[nodiscard]] double percentile(double part) const;
    // The longest time without an accepted request after this second.
    [[nodiscard]] double longestGap(double from) const;
    [[nodiscard]] int peakAttempts() const;
};

LoadResult run(const Load& load);

// Connections that say nothing.
class IdleConnections
{
public:
    IdleConnections(const QByteArray& url, int count);
    IdleConnections(const IdleConnections&) = delete;
    IdleConnections& operator=(const IdleConnections&) = delete;
    ~IdleConnections();

private:
    std::vector<int> m_sockets;
};

// Seconds until one request is answered: its header, with a length, and what there is of a body.
double timeAnswer(const QByteArray& url, const QByteArray& request);
