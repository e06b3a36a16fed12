// SPDX-License-Identifier: MIT
#pragma once

#include "Faults.h"
#include "Ledger.h"
#include "Options.h"

#include <httplib.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

// Takes flight records over HTTP and answers once they are in the ledger.
class IngestServer
{
public:
    // Throws std::runtime_error when the certificate or its key cannot be used.
    IngestServer(const Options& options, Ledger& ledger);

    // Binds the socket and returns the server's address; throws std::runtime_error.
    std::string bind(const std::string& host, int port);

    // Serves until stop() or a failure; false: failure.
    bool listen() { return m_server->listen_after_bind(); }
    [[nodiscard]] bool isRunning() const { return m_server->is_running(); }

    // Lets the requests that have arrived finish, and takes no more.
    void stop();

private:
    struct Answer {
        int status;
        std::string message;
    };

    void setLimits();
    void setHandlers();
    void handle(const httplib::Request& request, httplib::Response& response, const std::string& body);
    bool misbehave(const Fault& fault, const httplib::Request& request, httplib::Response& response,
                   std::size_t bytes);
    Answer ingest(const httplib::Request& request, const std::string& body);
    void checkToken(const httplib::Request& request) const;
    void stall(const httplib::Request& request);
    // True when the server is to end before the time is over.
    bool waitForStop(std::chrono::milliseconds time);

    Ledger& m_ledger;
    Faults m_faults;
    const std::optional<std::string> m_token;
    const bool m_tls;
    std::unique_ptr<httplib::Server> m_server;
    int m_port = 0;

    std::mutex m_stopMutex;
    std::condition_variable m_stop;
    bool m_stopping = false;
};
