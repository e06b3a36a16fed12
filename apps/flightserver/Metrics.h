// SPDX-License-Identifier: MIT
#pragma once

#include "Ledger.h"

#include <prometheus/counter.h>
#include <prometheus/gauge.h>
#include <prometheus/registry.h>

#include <map>
#include <string>

// What is counted, for whoever watches the server. For one thread.
class Metrics
{
public:
    Metrics();

    // A request that was answered.
    void countRequest(const Endpoint& endpoint, int status);
    // One that was not let in, or whose connection was given up.
    void countRefusal(const char* reason);
    // "reason number, ..." since the last call; empty: none.
    std::string takeRefusals();

    // In Prometheus' text format.
    std::string text(const LedgerCounts& ledger, const Bound& bound, std::size_t connections);

private:
    prometheus::Counter& counter(const char* name, const char* help);
    prometheus::Gauge& gauge(const char* name, const char* help);

    prometheus::Registry m_registry;
    prometheus::Family<prometheus::Counter>& m_requests;
    prometheus::Family<prometheus::Counter>& m_refusals;
    prometheus::Counter& m_rows;
    prometheus::Counter& m_again;
    prometheus::Counter& m_commits;
    prometheus::Counter& m_failures;
    prometheus::Counter& m_commitSeconds;
    prometheus::Gauge& m_reserved;
    prometheus::Gauge& m_limit;
    prometheus::Gauge& m_connections;
    std::map<std::pair<const Endpoint*, int>, prometheus::Counter*> m_byEndpoint;
    std::map<std::string, std::size_t> m_sinceLast; // refusals
};
