// SPDX-License-Identifier: MIT
#pragma once

#include "AccessLog.h"
#include "Gate.h"
#include "Limits.h"
#include "Metrics.h"
#include "Pace.h"
#include "Session.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>

#include <array>

// What stands behind the front.
struct Backing {
    Handler& handler;
    Gate& gate;
    Metrics& metrics;
    AccessLog& accessLog;
};

// A listening socket on a host's address; throws std::runtime_error with words for the user.
boost::asio::ip::tcp::acceptor listenOn(boost::asio::io_context& io, const std::string& host, int port);
std::string addressOf(const boost::asio::ip::tcp::endpoint& endpoint);

// Listens, and keeps the connections and the times they are given.
class Front
{
public:
    // tls: nullptr for plain HTTP.
    Front(boost::asio::io_context& io, const Limits& limits, const Backing& backing, const Tls* tls);

    // Returns the server's address.
    std::string listen(const std::string& host, int port);
    // Takes no more, and lets the requests that have arrived finish; then it calls ended.
    void stop(std::function<void()> ended = [] {});
    [[nodiscard]] bool isStopping() const { return m_stopping; }

    Bound& bound() { return m_bound; }
    [[nodiscard]] std::size_t connections() const { return m_idle.size() + m_busy.size(); }

private:
    friend class Session;
    void accept();
    void welcome(boost::asio::ip::tcp::socket socket);
    void tick();
    void checkTimes(Session::Clock::time_point now);
    void tellRefusals(Session::Clock::time_point now);
    void giveBackMemory();

    boost::asio::io_context& m_io;
    const Limits m_limits;
    const Backing m_backing;
    const Tls* const m_tls;
    Bound m_bound;
    Pace m_pace;
    boost::asio::ip::tcp::acceptor m_acceptor;
    boost::asio::steady_timer m_timer;
    boost::asio::steady_timer m_acceptLater;
    Session::List m_idle; // the longest idle first
    Session::List m_busy;
    bool m_wasFull = false;
    bool m_stopping = false;
    std::function<void()> m_ended;
    Session::Clock::time_point m_stopTime;
    Session::Clock::time_point m_toldAt;
    std::array<char, 64 << 10> m_scratch; // what is being read; not kept between two turns of a session
};
