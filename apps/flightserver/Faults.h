// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

#include <atomic>
#include <cstdint>
#include <vector>

// One way to misbehave, for the POST requests numbered after < n <= after + count.
struct Fault {
    enum class What { Http, Status, Delay, Stall, Cut, Garbage, Empty, Drop };

    What what = What::Http;
    int value = 0; // HTTP status, reply status or milliseconds
    std::uint64_t after = 0;
    std::uint64_t count = UINT64_MAX;
};

// Reads "WHAT[:AFTER[:COUNT]]"; throws std::runtime_error with words for the user.
Fault parseFault(const QString& text);

// Counts the requests and says which fault strikes; the first one given wins.
class Faults
{
public:
    explicit Faults(std::vector<Fault> faults) : m_faults(std::move(faults)) {}

    // nullptr: this request is served as it should be.
    const Fault* next();

private:
    std::vector<Fault> m_faults;
    std::atomic<std::uint64_t> m_requests{0};
};
