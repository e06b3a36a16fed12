// SPDX-License-Identifier: MIT
#include "Admin.h"
#include "Faults.h"
#include "Ingest.h"
#include "LedgerCommand.h"
#include "Options.h"
#include "PgLedger.h"
#include "SqliteLedger.h"
#include "Tls.h"

#include <boost/asio/signal_set.hpp>

#include <QtCore/QCoreApplication>

#include <algorithm>
#include <csignal>
#include <iostream>
#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

namespace
{
namespace asio = boost::asio;

constexpr unsigned int EndSeconds = 9; // a disk that hangs must not hold the end
constexpr std::size_t OtherFiles = 64; // beside connections

// As many connections as the system lets one process have.
void raiseConnectionLimit(Limits& limits)
{
    rlimit files{};
    if (getrlimit(RLIMIT_NOFILE, &files) != 0) {
        return;
    }
    files.rlim_cur = files.rlim_max;
    setrlimit(RLIMIT_NOFILE, &files);
    const std::size_t most = files.rlim_max > 2 * OtherFiles ? files.rlim_max - OtherFiles : OtherFiles;
    if (limits.maxConnections > most) {
        limits.maxConnections = most;
        std::cerr << "flightserver: no more than " << most
                  << " connections: the system allows no more open files (ulimit -Hn)" << std::endl;
    }
}

// What large bodies leave behind goes back to the system, however large the last one was.
void keepHeapSmall()
{
    mallopt(M_MMAP_THRESHOLD, 4 << 20);
    mallopt(M_TRIM_THRESHOLD, 4 << 20);
    mallopt(M_ARENA_MAX, 2);
}

std::unique_ptr<Ledger> openLedger(const Options& options)
{
    if (isDatabase(options.ledger)) {
        return std::make_unique<PgLedger>(options.ledger, options.requireSync);
    }
    return std::make_unique<SqliteLedger>(options.ledger);
}

// The server with everything that belongs to it.
class Service
{
public:
    explicit Service(const Options& options)
        : m_options(options)
        , m_accessLog(options.accessLog)
        , m_ledger(openLedger(options))
        , m_gate(*m_ledger, options.token, !options.requireToken && isLoopback(options.place.host))
        , m_ingest(m_io, *m_ledger)
        , m_faulty(m_io, m_ingest, options.faults)
    {
        if (!options.tlsCertificate.empty()) {
            m_tls = std::make_unique<Tls>(options.tlsCertificate, options.tlsKey);
        }
        Handler* handler = &m_ingest;
        if (!options.faults.empty()) {
            handler = &m_faulty;
        }
        m_front = std::make_unique<Front>(m_io, options.limits,
                                          Backing{*handler, m_gate, m_metrics, m_accessLog}, m_tls.get());
        m_admin = std::make_unique<Admin>(m_io, *m_ledger, *m_front, m_metrics);
    }

    void run()
    {
        waitForSignal();
        tellRisks();
        const std::string address = m_front->listen(m_options.place.host, m_options.place.port);
        std::string admin;
        if (m_options.admin) {
            admin = m_admin->listen(m_options.admin->host, m_options.admin->port);
        }
        std::cout << "flightserver listening on " << address << std::endl;
        if (!admin.empty()) {
            std::cout << "flightserver watched on " << admin << std::endl;
        }
        m_io.run();
    }

private:
    // What suits a demo and nothing else.
    void tellRisks() const
    {
        if (m_options.ledger == LedgerInMemory) {
            std::cerr << "flightserver: no --ledger: what is accepted is gone when the server ends"
                      << std::endl;
        }
        if (m_gate.isOpen()) {
            std::cerr << "flightserver: takes rows from everybody on this machine until a token is given out"
                      << std::endl;
        }
    }

    static bool isLoopback(const std::string& host)
    {
        boost::system::error_code error;
        const auto address = asio::ip::make_address(host, error);
        return host == "localhost" || (!error && address.is_loopback());
    }

    void waitForSignal()
    {
        m_signals.async_wait([this](boost::system::error_code error, int signal) {
            if (error) {
                return;
            }
            if (signal == SIGHUP) {
                reload();
                waitForSignal();
                return;
            }
            alarm(EndSeconds);
            m_front->stop([this] { m_io.stop(); }); // until then it is watched
            m_faulty.stop();
        });
    }

    void reload()
    {
        orKeep([this] { m_accessLog.reopen(); });
        if (m_tls) {
            orKeep([this] {
                m_tls->reload();
                std::cerr << "flightserver: certificate read again" << std::endl;
            });
        }
    }

    template<class Function>
    static void orKeep(Function&& renew)
    {
        try {
            std::forward<Function>(renew)();
        } catch (const std::exception& error) {
            std::cerr << "flightserver: " << error.what() << "; the old one stays" << std::endl;
        }
    }

    const Options& m_options;
    asio::io_context m_io{1};
    asio::signal_set m_signals{m_io, SIGINT, SIGTERM, SIGHUP};
    std::unique_ptr<Tls> m_tls;
    AccessLog m_accessLog;
    Metrics m_metrics;
    std::unique_ptr<Front> m_front;
    std::unique_ptr<Admin> m_admin;
    std::unique_ptr<Ledger> m_ledger; // goes before what its answers are for
    Gate m_gate;
    Ingest m_ingest;
    FaultyHandler m_faulty;
};
} // namespace

int main(int argc, char* argv[])
{
    constexpr int UsageError = 2;
    const QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("flightserver"));
    QCoreApplication::setApplicationVersion(QStringLiteral(KV_VERSION));
    try {
        Options options = parseOptions(application);
        if (!options.command.empty()) {
            return runLedgerCommand(options);
        }
        std::signal(SIGPIPE, SIG_IGN);
        std::signal(SIGALRM, [](int) { _exit(1); });
        raiseConnectionLimit(options.limits);
        keepHeapSmall();
        Service(options).run();
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "flightserver: " << error.what() << std::endl;
        return UsageError;
    }
}
