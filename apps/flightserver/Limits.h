// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstddef>

// What a client may cost.
struct Limits {
    std::size_t memory = std::size_t{256} << 20;  // of all requests together
    std::size_t maxBody = std::size_t{512} << 20; // never above memory
    std::size_t maxHeader = 16 << 10;
    std::size_t maxConnections = 16384;
    std::chrono::milliseconds idle{60000};
    std::chrono::milliseconds slowWindow{20000}; // in which a sender must bring so many bytes
    std::size_t slowBytes = 20000;
    std::chrono::milliseconds drain{2000};
    std::chrono::milliseconds longestWait{
        8000}; // for the ledger; a client gives up after 20 s and sends all again
    std::chrono::milliseconds end{
        5000}; // for requests that are still arriving when the server is told to end
    std::chrono::milliseconds tick{500}; // between two looks at these times
};
