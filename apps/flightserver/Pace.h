// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>

// Tells whether the ledger could keep up with more: bytes that wait for it, against how fast it has taken
// them. Memory alone is no measure: what a slow disk needs for it may be more than a client's patience, and
// an answer that comes too late costs the client the whole request.
class Pace
{
public:
    using Time = std::chrono::steady_clock::time_point;

    explicit Pace(std::chrono::milliseconds longestWait) : m_longestWait(longestWait) {}

    void begin(std::size_t bytes, Time now)
    {
        if (m_waiting == 0) {
            restart(now);
        }
        m_waiting += bytes;
        m_most = std::max(m_most, m_waiting);
    }
    void end(std::size_t bytes, Time now)
    {
        m_waiting -= bytes;
        m_ended += bytes;
        if (m_waiting == 0) {
            learn(now);
        }
    }
    [[nodiscard]] bool isBehind() const
    {
        return static_cast<double>(m_waiting) > m_bytesPerSecond * m_longestWait.count();
    }
    // To be called from time to time. A time in which nothing ended is part of the next one, or else the
    // speed would swing with the length of a commit.
    void measure(Time now)
    {
        if (m_waiting > 0 && (m_ended > 0 || now - m_start > m_longestWait)) {
            learn(now);
            restart(now);
        }
    }

private:
    static constexpr double Slowest = 256 << 10; // or nothing would ever be taken again
    static constexpr std::size_t Enough = 1 << 20;

    void restart(Time now)
    {
        m_start = now;
        m_ended = 0;
        m_most = m_waiting;
    }
    // Only much that waits together tells how fast a ledger is: a commit takes nearly as long for one row as
    // for a thousand.
    void learn(Time now)
    {
        const std::chrono::duration<double> time = now - m_start;
        if (m_most >= Enough && time.count() > 0) {
            const double speed = static_cast<double>(m_ended) / time.count();
            m_bytesPerSecond = std::max(Slowest, (m_bytesPerSecond + speed) / 2);
        }
    }

    const std::chrono::duration<double> m_longestWait;
    std::size_t m_waiting = 0;
    double m_bytesPerSecond = 8 << 20;
    Time m_start;            // of the time that is measured, in which something waits always
    std::size_t m_ended = 0; // in it
    std::size_t m_most = 0;  // that waited in it
};
