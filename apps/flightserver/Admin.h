// SPDX-License-Identifier: MIT
#pragma once

#include "Front.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>

// For those who watch the server, on an address of its own: GET /health, /ready, /metrics.
class Admin
{
public:
    Admin(boost::asio::io_context& io, Ledger& ledger, Front& front, Metrics& metrics);

    // Returns the address.
    std::string listen(const std::string& host, int port);

private:
    struct Visit;
    void accept();
    void read(const std::shared_ptr<Visit>& visit);
    void answer(const std::shared_ptr<Visit>& visit);
    void answerReady(const std::shared_ptr<Visit>& visit);
    static void write(const std::shared_ptr<Visit>& visit, unsigned int status, std::string text);

    boost::asio::io_context& m_io;
    Ledger& m_ledger;
    Front& m_front;
    Metrics& m_metrics;
    boost::asio::ip::tcp::acceptor m_acceptor;
};
