// SPDX-License-Identifier: MIT
#pragma once

#include "Handler.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/thread_pool.hpp>

// Puts the rows of requests into the ledger, and answers once they are there.
class Ingest : public Handler
{
public:
    Ingest(boost::asio::io_context& io, Ledger& ledger) : m_io(io), m_ledger(ledger) {}

    void handle(Request request, Reply reply) override;

private:
    void take(Request request, const Reply& reply);

    boost::asio::io_context& m_io;
    Ledger& m_ledger;
    boost::asio::thread_pool m_parser{1}; // of large bodies, for which the others would have to wait
};
