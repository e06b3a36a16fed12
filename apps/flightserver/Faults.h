// SPDX-License-Identifier: MIT
#pragma once

#include "Handler.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>

#include <QtCore/QString>

#include <cstdint>
#include <list>
#include <vector>

// One way to misbehave, for the requests numbered after < n <= after + count.
struct Fault {
    enum class What { Http, Status, Delay, Stall, Cut, Garbage, Empty, Drop };

    What what = What::Http;
    int value = 0; // HTTP status, reply status or milliseconds
    std::uint64_t after = 0;
    std::uint64_t count = UINT64_MAX;
};

// Reads "WHAT[:AFTER[:COUNT]]"; throws std::runtime_error with words for the user.
Fault parseFault(const QString& text);

// Counts the requests, and misbehaves for those that a fault strikes; the first one given wins.
class FaultyHandler : public Handler
{
public:
    FaultyHandler(boost::asio::io_context& io, Handler& handler, std::vector<Fault> faults)
        : m_io(io), m_handler(handler), m_faults(std::move(faults))
    {
    }

    void handle(Request request, Reply reply) override;
    // Delays end now.
    void stop();

private:
    void delay(int ms, Request request, Reply reply);

    boost::asio::io_context& m_io;
    Handler& m_handler;
    const std::vector<Fault> m_faults;
    std::uint64_t m_requests = 0;
    std::list<boost::asio::steady_timer> m_delays;
};
