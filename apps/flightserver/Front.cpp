// SPDX-License-Identifier: MIT
#include "Front.h"

#include "Tls.h"

#include <iostream>
#include <malloc.h>

namespace asio = boost::asio;
using boost::system::error_code;
using tcp = asio::ip::tcp;
using namespace std::chrono_literals;

namespace
{
constexpr int Backlog = 4096;
constexpr auto AcceptAgain = 100ms;
constexpr std::chrono::milliseconds TickAtEnd{20};
constexpr auto TellInterval = 60s;
constexpr std::size_t MuchMemory = 8 << 20;
} // namespace

tcp::acceptor listenOn(asio::io_context& io, const std::string& host, int port)
{
    error_code error;
    tcp::resolver resolver(io); // a name, or an address
    const auto found = resolver.resolve(host, std::to_string(port), tcp::resolver::passive, error);
    if (!error && !found.empty()) {
        const tcp::endpoint endpoint = found.begin()->endpoint();
        tcp::acceptor acceptor(io, endpoint.protocol());
        acceptor.set_option(asio::socket_base::reuse_address(true));
        acceptor.bind(endpoint, error);
        if (!error) {
            acceptor.listen(Backlog, error);
        }
        if (!error) {
            return acceptor;
        }
    }
    throw std::runtime_error("cannot listen on " + host + " port " + std::to_string(port) + ": " +
                             error.message());
}

std::string addressOf(const tcp::endpoint& endpoint)
{
    const std::string host = endpoint.address().to_string();
    return (endpoint.address().is_v6() ? "[" + host + "]" : host) + ":" + std::to_string(endpoint.port());
}

Front::Front(asio::io_context& io, const Limits& limits, const Backing& backing, const Tls* tls)
    : m_io(io)
    , m_limits(limits)
    , m_backing(backing)
    , m_tls(tls)
    , m_bound(limits.memory)
    , m_pace(limits.longestWait)
    , m_acceptor(io)
    , m_timer(io)
    , m_acceptLater(io)
    , m_toldAt(Session::Clock::now())
{
}

std::string Front::listen(const std::string& host, int port)
{
    m_acceptor = listenOn(m_io, host, port);
    accept();
    tick();
    return (m_tls != nullptr ? "https://" : "http://") + addressOf(m_acceptor.local_endpoint());
}

void Front::accept()
{
    m_acceptor.async_accept([this](error_code error, tcp::socket socket) {
        if (m_stopping) {
            return; // whoever came just now sees his connection end
        }
        if (!error) {
            welcome(std::move(socket));
        } else if (error != asio::error::connection_aborted) { // no descriptors, no memory
            m_acceptLater.expires_after(AcceptAgain);
            m_acceptLater.async_wait([this](error_code cancelled) {
                if (!cancelled && !m_stopping) {
                    accept();
                }
            });
            return;
        }
        accept();
    });
}

// Where all places are taken the client that has said nothing for the longest time gives up his.
void Front::welcome(tcp::socket socket)
{
    if (connections() >= m_limits.maxConnections) {
        if (m_idle.empty()) {
            m_backing.metrics.countRefusal("connections");
            return; // closes it
        }
        m_idle.front()->close("connections");
    }
    try {
        const auto place =
            m_idle.insert(m_idle.end(), std::make_shared<Session>(*this, Stream(std::move(socket), m_tls)));
        const std::shared_ptr<Session> session = *place;
        session->start(place);
    } catch (const std::bad_alloc&) {
        m_backing.metrics.countRefusal("memory");
    }
}

void Front::stop(std::function<void()> ended)
{
    m_ended = std::move(ended);
    m_stopping = true;
    m_stopTime = Session::Clock::now();
    m_acceptor.close();
    m_acceptLater.cancel();
    m_timer.cancel(); // ticks at once
}

void Front::tick()
{
    const auto now = Session::Clock::now();
    m_pace.measure(now);
    checkTimes(now);
    tellRefusals(now);
    giveBackMemory();
    if (m_stopping && connections() == 0) {
        m_ended();
        return;
    }
    m_timer.expires_after(m_stopping ? TickAtEnd : m_limits.tick);
    m_timer.async_wait([this](error_code) { tick(); });
}

void Front::checkTimes(Session::Clock::time_point now)
{
    while (!m_idle.empty() && (m_stopping || now - m_idle.front()->since() > m_limits.idle)) {
        m_idle.front()->close(m_stopping ? nullptr : "idle");
    }
    for (auto next = m_busy.begin(); next != m_busy.end();) {
        const std::shared_ptr<Session> session = *next++; // which may take itself out of the list
        session->checkTime(now);
        if (m_stopping) {
            session->checkEnd(now - m_stopTime < m_limits.end);
        }
    }
}

// What many requests at once leave in the heap lies between pieces that stay: it does not go by itself.
void Front::giveBackMemory()
{
    const bool isFull = m_bound.used() > MuchMemory;
    if (m_wasFull && !isFull) {
        malloc_trim(0);
    }
    m_wasFull = isFull;
}

void Front::tellRefusals(Session::Clock::time_point now)
{
    if (now - m_toldAt < TellInterval && !m_stopping) {
        return;
    }
    m_toldAt = now;
    const std::string refusals = m_backing.metrics.takeRefusals();
    if (!refusals.empty()) {
        std::cerr << "flightserver: refused: " << refusals << std::endl;
    }
}
