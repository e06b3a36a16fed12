// SPDX-License-Identifier: MIT
#include "IngestServer.h"

#include "Connections.h"

#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <iostream>
#include <limits>
#include <sys/socket.h>

namespace
{
using namespace std::chrono_literals;

constexpr int NotFound = 404;
constexpr int Forbidden = 403;
constexpr int ServerError = 500;
constexpr int NoStatus = -1; // of a faulty reply that names none

constexpr std::size_t Threads = 64; // one a connection, idle ones included
constexpr auto TransferTimeout = 300s;
constexpr time_t KeepAliveSeconds = 60;
constexpr auto StallPoll = 50ms;

constexpr const char* Json = "application/json";
constexpr const char* HalfReply = R"({"status":)";

std::string statusJson(int status, const std::string& message)
{
    const QJsonObject object{{"status", status}, {"message", QString::fromStdString(message)}};
    return QJsonDocument(object).toJson(QJsonDocument::Compact).toStdString();
}

// Announces a longer body than is sent; httplib closes the connection where its provider gives up.
void cutReply(httplib::Response& response)
{
    const std::string half = HalfReply;
    response.set_content_provider(
        2 * half.size(), Json,
        [half](std::size_t /*offset*/, std::size_t /*length*/, httplib::DataSink& sink) {
            sink.write(half.data(), half.size());
            return false;
        });
}

std::unique_ptr<httplib::Server> makeServer(const Options& options)
{
    if (options.tlsCertificate.empty()) {
        return std::make_unique<httplib::Server>();
    }
    auto server =
        std::make_unique<httplib::SSLServer>(options.tlsCertificate.c_str(), options.tlsKey.c_str());
    if (!server->is_valid()) {
        throw std::runtime_error("cannot use certificate " + options.tlsCertificate + " with key " +
                                 options.tlsKey);
    }
    return server;
}

// httplib would set SO_REUSEPORT, with which two servers share a port and neither hears of it.
void setSocketOptions(socket_t socket)
{
    const int yes = 1;
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
}

void answerFailure(const httplib::Request& /*request*/, httplib::Response& response,
                   std::exception_ptr failure)
{
    std::string words = "unknown error";
    try {
        std::rethrow_exception(failure);
    } catch (const std::exception& error) {
        words = error.what();
    } catch (...) { // the words above stay
    }
    std::cerr << "flightserver: " << words << std::endl;
    response.status = ServerError;
    response.set_content(statusJson(ServerError, words), Json);
}
} // namespace

IngestServer::IngestServer(const Options& options, Ledger& ledger)
    : m_ledger(ledger)
    , m_faults(options.faults)
    , m_token(options.token)
    , m_tls(!options.tlsCertificate.empty())
    , m_server(makeServer(options))
{
    setLimits();
    setHandlers();
}

void IngestServer::setLimits()
{
    m_server->new_task_queue = [] { return new httplib::ThreadPool(Threads); };
    m_server->set_keep_alive_max_count(std::numeric_limits<std::size_t>::max());
    m_server->set_keep_alive_timeout(KeepAliveSeconds);
    m_server->set_read_timeout(TransferTimeout);
    m_server->set_write_timeout(TransferTimeout);
    m_server->set_tcp_nodelay(true);
    m_server->set_socket_options(setSocketOptions);
}

void IngestServer::setHandlers()
{
    // With a reader of its own a form may be longer than the few kilobytes httplib allows.
    m_server->Post(R"([\s\S]*)", [this](const httplib::Request& request, httplib::Response& response,
                                        const httplib::ContentReader& read) {
        acknowledgeAtOnce(connectionFrom(m_port, request.remote_port));
        std::string body;
        const bool complete = read([&body](const char* data, std::size_t length) {
            body.append(data, length);
            return true;
        });
        if (complete) {
            handle(request, response, body);
        }
    });
    m_server->set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
        if (request.method == "POST") {
            return httplib::Server::HandlerResponse::Unhandled;
        }
        m_ledger.storeRefused({request.path, 0, NotFound});
        response.status = NotFound;
        response.set_content(statusJson(NotFound, "records are sent with POST"), Json);
        return httplib::Server::HandlerResponse::Handled;
    });
    m_server->set_exception_handler(answerFailure);
}

std::string IngestServer::bind(const std::string& host, int port)
{
    if (port == 0) {
        m_port = m_server->bind_to_any_port(host);
    } else if (m_server->bind_to_port(host, port)) {
        m_port = port;
    }
    if (m_port <= 0) {
        throw std::runtime_error("cannot listen on " + host + " port " + std::to_string(port) +
                                 ": in use, not permitted or no address of this machine");
    }
    const bool isIpv6 = host.find(':') != std::string::npos;
    return (m_tls ? "https://" : "http://") + (isIpv6 ? "[" + host + "]" : host) + ":" +
           std::to_string(m_port);
}

void IngestServer::stop()
{
    {
        const std::lock_guard lock(m_stopMutex);
        m_stopping = true;
    }
    m_stop.notify_all();
    m_server->stop();
    // Idle connections would hold their threads until the keep-alive time is over.
    for (const int connection : connectionsOf(m_port)) {
        shutdown(connection, SHUT_RD);
    }
}

void IngestServer::handle(const httplib::Request& request, httplib::Response& response,
                          const std::string& body)
{
    const Fault* const fault = m_faults.next();
    if (fault != nullptr && misbehave(*fault, request, response, body.size())) {
        return;
    }
    const Answer answer = ingest(request, body);
    if (fault != nullptr && fault->what == Fault::What::Drop) {
        cutReply(response);
        return;
    }
    if (answer.status == NotFound) {
        response.status = NotFound;
    }
    response.set_content(statusJson(answer.status, answer.message), Json);
}

// True when nothing else is to be done for the request.
bool IngestServer::misbehave(const Fault& fault, const httplib::Request& request, httplib::Response& response,
                             std::size_t bytes)
{
    int status = NoStatus;
    switch (fault.what) {
    case Fault::What::Drop:
        return false;
    case Fault::What::Delay:
        waitForStop(std::chrono::milliseconds(fault.value));
        return false;
    case Fault::What::Stall:
        stall(request);
        return true;
    case Fault::What::Http:
        response.status = status = fault.value;
        break;
    case Fault::What::Status:
        status = fault.value;
        response.set_content(statusJson(status, "fault"), Json);
        break;
    case Fault::What::Cut:
        cutReply(response);
        break;
    case Fault::What::Garbage:
        response.set_content("<html>no json</html>", "text/html");
        break;
    case Fault::What::Empty:
        response.set_content("{}", Json);
        break;
    }
    m_ledger.storeRefused({request.path, bytes, status});
    return true;
}

IngestServer::Answer IngestServer::ingest(const httplib::Request& request, const std::string& body)
{
    try {
        const Endpoint* const endpoint = findEndpoint(request.path);
        if (endpoint == nullptr) {
            throw Refusal(NotFound, "no such path: " + request.path);
        }
        checkToken(request);
        m_ledger.store({request.path, body.size(), 0}, *endpoint, parseBatch(*endpoint, body));
        return {0, ""};
    } catch (const Refusal& refusal) {
        m_ledger.storeRefused({request.path, body.size(), refusal.status()});
        return {refusal.status(), refusal.what()};
    }
}

void IngestServer::checkToken(const httplib::Request& request) const
{
    if (m_token && request.get_header_value("token") != *m_token) {
        throw Refusal(Forbidden, "the token is missing or not valid");
    }
}

void IngestServer::stall(const httplib::Request& request)
{
    const int connection = connectionFrom(m_port, request.remote_port);
    while (!waitForStop(StallPoll)) {
        if (isAbandoned(connection)) {
            break;
        }
    }
    // httplib is about to send a reply; it must not arrive.
    shutdown(connection, SHUT_RDWR);
}

bool IngestServer::waitForStop(std::chrono::milliseconds time)
{
    std::unique_lock lock(m_stopMutex);
    return m_stop.wait_for(lock, time, [this] { return m_stopping; });
}
