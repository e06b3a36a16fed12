// SPDX-License-Identifier: MIT
#include "PgLedger.h"

namespace
{
using namespace std::chrono_literals;

constexpr std::size_t MaxRows = 2000;
constexpr std::size_t MaxBytes = 16 << 20; // of rows; they are copied once more on their way
constexpr auto LookForTokens = 1s;
} // namespace

PgLedger::PgLedger(const std::string& uri, bool requiresSync)
    : QueuedLedger(PgConnection(uri).place(), {MaxRows, MaxBytes})
    , m_uri(uri)
    , m_stores{{uri, directory(), requiresSync}, {uri, directory(), requiresSync}}
{
    for (PgStore& store : m_stores) {
        store.open();
        serve(store, LookForTokens);
    }
}

PgLedger::~PgLedger()
{
    finish();
}

// On a connection of its own, as the stores' belong to their threads.
const Owner* PgLedger::ownerNamed(const std::string& name)
{
    return PgStore(m_uri, directory(), false).ownerNamed(name);
}

bool isDatabase(const std::string& ledger)
{
    return ledger.rfind("postgresql://", 0) == 0 || ledger.rfind("postgres://", 0) == 0;
}
