// SPDX-License-Identifier: MIT
#include "Admin.h"

#include <boost/asio/post.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/http/write.hpp>

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using boost::system::error_code;
using namespace std::chrono_literals;

namespace
{
constexpr auto Patience = 5s;
constexpr std::size_t MaxHeader = 4096;
// Room that a server which is ready has left: one request of the library's largest kind of batch.
constexpr std::size_t LeastRoom = 1 << 20;

constexpr unsigned int Ok = 200;
constexpr unsigned int NotFound = 404;
constexpr unsigned int MethodNotAllowed = 405;
constexpr unsigned int NotReady = 503;
} // namespace

struct Admin::Visit {
    explicit Visit(asio::ip::tcp::socket socket) : stream(std::move(socket)) {}
    beast::tcp_stream stream;
    beast::flat_buffer buffer{MaxHeader};
    http::request<http::empty_body> request;
    http::response<http::string_body> response;
};

Admin::Admin(asio::io_context& io, Ledger& ledger, Front& front, Metrics& metrics)
    : m_io(io), m_ledger(ledger), m_front(front), m_metrics(metrics), m_acceptor(io)
{
}

std::string Admin::listen(const std::string& host, int port)
{
    m_acceptor = listenOn(m_io, host, port);
    accept();
    return "http://" + addressOf(m_acceptor.local_endpoint());
}

void Admin::accept()
{
    m_acceptor.async_accept([this](error_code error, asio::ip::tcp::socket socket) {
        if (!error) {
            read(std::make_shared<Visit>(std::move(socket)));
        }
        accept();
    });
}

void Admin::read(const std::shared_ptr<Visit>& visit)
{
    visit->stream.expires_after(Patience);
    http::async_read(visit->stream, visit->buffer, visit->request,
                     [this, visit](error_code error, std::size_t) {
                         if (!error || error == http::error::unexpected_body) { // not that of a GET
                             answer(visit);
                         }
                     });
}

void Admin::answer(const std::shared_ptr<Visit>& visit)
{
    const auto whole = visit->request.target();
    const auto target = whole.substr(0, whole.find('?'));
    const http::verb method = visit->request.method();
    if (method != http::verb::get && method != http::verb::head) {
        write(visit, MethodNotAllowed, "only GET and HEAD are served here\n");
    } else if (target == "/health") {
        write(visit, Ok, "alive\n");
    } else if (target == "/ready") {
        answerReady(visit);
    } else if (target == "/metrics") {
        write(visit, Ok, m_metrics.text(m_ledger.counts(), m_front.bound(), m_front.connections()));
    } else {
        write(visit, NotFound, "there are /health, /ready and /metrics\n");
    }
}

void Admin::answerReady(const std::shared_ptr<Visit>& visit)
{
    if (m_front.isStopping()) {
        write(visit, NotReady, "the server ends\n");
        return;
    }
    const Bound& bound = m_front.bound();
    if (bound.limit() - bound.used() < LeastRoom) {
        write(visit, NotReady, "no room for requests\n");
        return;
    }
    m_ledger.probe([this, visit](bool ok) {
        asio::post(m_io, [visit, ok] {
            write(visit, ok ? Ok : NotReady,
                  ok ? "ready\n" : "the ledger takes no writes, or its disk has no room\n");
        });
    });
}

void Admin::write(const std::shared_ptr<Visit>& visit, unsigned int status, std::string text)
{
    visit->response.result(status);
    visit->response.set(http::field::content_type, "text/plain; version=0.0.4");
    visit->response.body() = std::move(text);
    visit->response.keep_alive(false);
    visit->response.prepare_payload();
    if (visit->request.method() == http::verb::head) {
        visit->response.body().clear(); // its length stays
    }
    visit->stream.expires_after(Patience);
    http::async_write(visit->stream, visit->response, [visit](error_code, std::size_t) {
        error_code ignored;
        visit->stream.socket().shutdown(asio::ip::tcp::socket::shutdown_send, ignored);
    });
}
