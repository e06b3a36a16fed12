// SPDX-License-Identifier: MIT
#include "IngestServer.h"
#include "Ledger.h"
#include "Options.h"

#include <QtCore/QCoreApplication>

#include <chrono>
#include <csignal>
#include <iostream>
#include <thread>
#include <unistd.h>

namespace
{
// Blocked before the first thread starts, so that every thread inherits it and only sigwait sees them.
sigset_t blockEndSignals()
{
    sigset_t endSignals;
    sigemptyset(&endSignals);
    sigaddset(&endSignals, SIGINT);
    sigaddset(&endSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &endSignals, nullptr);
    return endSignals;
}

// Serves until a signal ends it; false: the server failed by itself.
bool serve(IngestServer& server, const std::string& address, const sigset_t& endSignals)
{
    std::atomic<bool> failed{false};
    std::thread listener([&server, &failed] {
        if (!server.listen()) {
            failed = true;
            kill(getpid(), SIGTERM); // wakes sigwait below
        }
    });
    // A stop before the listener runs would be lost.
    while (!server.isRunning() && !failed) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    std::cout << "flightserver listening on " << address << std::endl;

    int signal = 0;
    sigwait(&endSignals, &signal);
    const bool ok = !failed;
    server.stop();
    listener.join();
    return ok;
}
} // namespace

int main(int argc, char* argv[])
{
    constexpr int UsageError = 2;
    const sigset_t endSignals = blockEndSignals();
    const QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName("flightserver");
    QCoreApplication::setApplicationVersion(KV_VERSION);
    try {
        const Options options = parseOptions(application);
        Ledger ledger(options.ledger);
        IngestServer server(options, ledger);
        const std::string address = server.bind(options.host, options.port);
        if (serve(server, address, endSignals)) {
            return 0;
        }
        std::cerr << "flightserver: the listening socket failed" << std::endl;
        return 1;
    } catch (const std::exception& error) {
        std::cerr << "flightserver: " << error.what() << std::endl;
        return UsageError;
    }
}
