// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>

/// Progress reports on standard output: a three-character prefix, received bytes, ",", total bytes.
class Progress
{
public:
    /// Reports now and then; says nothing while the total is unknown (negative).
    void update(std::int64_t received, std::int64_t total);
    /// The last report: everything is there.
    void finish(std::int64_t total);

private:
    void report(std::int64_t received, std::int64_t total);

    std::int64_t m_reported = -1;
    std::chrono::steady_clock::time_point m_nextReport;
};
