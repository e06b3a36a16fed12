// SPDX-License-Identifier: MIT
#include "Metrics.h"

#include <prometheus/text_serializer.h>

namespace
{
prometheus::Family<prometheus::Counter>& family(prometheus::Registry& registry, const char* name,
                                                const char* help)
{
    return prometheus::BuildCounter().Name(name).Help(help).Register(registry);
}

void raise(prometheus::Counter& counter, double value)
{
    counter.Increment(value - counter.Value());
}
} // namespace

Metrics::Metrics()
    : m_requests(family(m_registry, "flightserver_requests_total", "Answered requests by path and status"))
    , m_refusals(
          family(m_registry, "flightserver_refusals_total", "Requests and connections given up by reason"))
    , m_rows(counter("flightserver_rows_total", "Rows stored, those that came again among them"))
    , m_again(counter("flightserver_rows_again_total", "Rows that were there already"))
    , m_commits(counter("flightserver_commits_total", "Transactions of the ledger that went through"))
    , m_failures(counter("flightserver_failed_commits_total",
                         "Transactions that failed for the disk or the file; nothing of them was accepted"))
    , m_commitSeconds(counter("flightserver_commit_seconds_total", "Time that the transactions took"))
    , m_reserved(gauge("flightserver_reserved_bytes", "Bytes reserved for requests"))
    , m_limit(gauge("flightserver_reserved_bytes_limit", "Bytes that may be reserved"))
    , m_connections(gauge("flightserver_connections", "Open connections"))
{
}

prometheus::Counter& Metrics::counter(const char* name, const char* help)
{
    return family(m_registry, name, help).Add({});
}

prometheus::Gauge& Metrics::gauge(const char* name, const char* help)
{
    return prometheus::BuildGauge().Name(name).Help(help).Register(m_registry).Add({});
}

void Metrics::countRequest(const Endpoint& endpoint, int status)
{
    prometheus::Counter*& counter = m_byEndpoint[{&endpoint, status}];
    if (counter == nullptr) {
        counter = &m_requests.Add({{"path", endpoint.path}, {"status", std::to_string(status)}});
    }
    counter->Increment();
}

void Metrics::countRefusal(const char* reason)
{
    m_refusals.Add({{"reason", reason}}).Increment();
    ++m_sinceLast[reason];
}

std::string Metrics::takeRefusals()
{
    std::string text;
    for (const auto& [reason, count] : m_sinceLast) {
        text += (text.empty() ? "" : ", ") + reason + ' ' + std::to_string(count);
    }
    m_sinceLast.clear();
    return text;
}

std::string Metrics::text(const LedgerCounts& ledger, const Bound& bound, std::size_t connections)
{
    raise(m_rows, static_cast<double>(ledger.rows));
    raise(m_again, static_cast<double>(ledger.again));
    raise(m_commits, static_cast<double>(ledger.commits));
    raise(m_failures, static_cast<double>(ledger.failures));
    raise(m_commitSeconds, ledger.commitSeconds);
    m_reserved.Set(static_cast<double>(bound.used()));
    m_limit.Set(static_cast<double>(bound.limit()));
    m_connections.Set(static_cast<double>(connections));
    return prometheus::TextSerializer().Serialize(m_registry.Collect());
}
