// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>

// Tells whether the ledger could keep up with more: bytes that wait for it, against how fast it has taken
// them. A server that falls behind must refuse at once; an answer that comes too late costs the client the
// whole request.
class Pace
{
public:
    explicit Pace(std::chrono::milliseconds longestWait) : m_longestWait(longestWait) {}

    void begin(std::size_t bytes) { m_waiting += bytes; }
    void end(std::size_t bytes)
    {
        m_waiting -= bytes;
        m_ended += bytes;
    }
    [[nodiscard]] bool isBehind() const
    {
        return static_cast<double>(m_waiting) >
               m_bytesPerSecond * std::chrono::duration<double>(m_longestWait).count();
    }
    // From time to time. An idle ledger says nothing about its speed.
    void measure(std::chrono::steady_clock::time_point now)
    {
        const std::chrono::duration<double> time = now - m_measured;
        if (m_wasBusy && m_waiting > 0 && time.count() > 0) {
            const double speed = static_cast<double>(m_ended) / time.count();
            m_bytesPerSecond = std::max(Slowest, (m_bytesPerSecond + speed) / 2);
        }
        m_wasBusy = m_waiting > 0;
        m_ended = 0;
        m_measured = now;
    }

private:
    static constexpr double Slowest = 256 << 10; // or nothing would ever be taken again

    const std::chrono::milliseconds m_longestWait;
    std::size_t m_waiting = 0;
    std::size_t m_ended = 0; // since it was measured
    double m_bytesPerSecond = 8 << 20;
    bool m_wasBusy = false;
    std::chrono::steady_clock::time_point m_measured = std::chrono::steady_clock::now();
};
