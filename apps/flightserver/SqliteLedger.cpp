// SPDX-License-Identifier: MIT
#include "SqliteLedger.h"

#include <algorithm>
#include <chrono>
#include <iostream>

namespace
{
// A transaction takes so many; what a larger request has more waits for its next turn, behind the others.
constexpr std::size_t MaxRows = 20000;

constexpr const char* SelectOwner = "SELECT o.id, o.name FROM token t JOIN owner o ON o.id=t.owner "
                                    "WHERE t.hash=?1 AND t.revoked IS NULL";
} // namespace

SqliteLedger::SqliteLedger(const std::string& path) : m_store(path)
{
    if (path != LedgerInMemory) {
        m_reader = std::make_unique<SqliteFile>(path);
        m_selectOwner = m_reader->prepare(SelectOwner);
    }
    m_thread = std::thread([this] { run(); });
}

SqliteLedger::~SqliteLedger()
{
    {
        const std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    m_wake.notify_one();
    m_thread.join();
}

void SqliteLedger::store(Delivery delivery)
{
    {
        const std::lock_guard lock(m_mutex);
        m_queue.push_back(std::make_unique<Open>(Open{std::move(delivery)}));
    }
    m_wake.notify_one();
}

void SqliteLedger::probe(std::function<void(bool)> done)
{
    {
        const std::lock_guard lock(m_mutex);
        m_probes.push_back(std::move(done));
    }
    m_wake.notify_one();
}

// A token that was given out since the last transaction is looked up in the file.
std::optional<Sender> SqliteLedger::senderOf(const TokenHash& token)
{
    std::optional<Sender> known = m_store.directory().senderOf(token);
    if (!known && m_reader != nullptr) {
        m_selectOwner.bindBlob(1, token.data(), token.size());
        while (m_selectOwner.step()) {
            known = Sender{m_store.directory().owner(m_selectOwner.number(0), m_selectOwner.text(1)), token};
        }
    }
    return known;
}

LedgerCounts SqliteLedger::counts() const
{
    const std::lock_guard lock(m_mutex);
    return m_counts;
}

void SqliteLedger::run()
{
    while (waitForWork()) {
        answerProbes();
        Queue taken = takeSome();
        if (!taken.empty()) {
            storeSome(std::move(taken));
        }
    }
}

// False when nothing waits and nothing more will come.
bool SqliteLedger::waitForWork()
{
    std::unique_lock lock(m_mutex);
    m_wake.wait(lock, [this] { return m_stopping || !m_queue.empty() || !m_probes.empty(); });
    return !m_queue.empty() || !m_probes.empty();
}

void SqliteLedger::answerProbes()
{
    std::vector<std::function<void(bool)>> probes;
    {
        const std::lock_guard lock(m_mutex);
        probes.swap(m_probes);
    }
    const bool ok = !probes.empty() && m_store.probe();
    if (ok) {
        noteSuccess();
    }
    for (const auto& done : probes) {
        done(ok);
    }
}

SqliteLedger::Queue SqliteLedger::takeSome()
{
    const std::lock_guard lock(m_mutex);
    Queue taken;
    for (std::size_t rows = 0; !m_queue.empty() && rows < MaxRows;) {
        const Open& next = *m_queue.front();
        rows += next.delivery.batch.records().size() - next.stored;
        taken.push_back(std::move(m_queue.front()));
        m_queue.pop_front();
    }
    return taken;
}

void SqliteLedger::storeSome(Queue taken)
{
    std::vector<Portion> portions;
    std::size_t room = MaxRows;
    for (const auto& open : taken) {
        const std::size_t rows = std::min(room, open->delivery.batch.records().size() - open->stored);
        portions.push_back({&open->delivery, open->stored, rows, {}});
        room -= rows;
    }
    const auto start = std::chrono::steady_clock::now();
    m_store.store(portions);
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    const auto failed = std::find_if(portions.begin(), portions.end(), [](const Portion& portion) {
        return portion.result.outcome == Result::Outcome::Failed;
    });
    const bool ok = failed == portions.end();
    {
        const std::lock_guard lock(m_mutex);
        ++(ok ? m_counts.commits : m_counts.failures);
        m_counts.commitSeconds += ok ? time.count() : 0;
    }
    if (ok) {
        noteSuccess();
    } else {
        noteTrouble(failed->result.words);
    }
    for (std::size_t i = 0; i < taken.size(); ++i) {
        settle(std::move(taken[i]), portions[i]);
    }
}

void SqliteLedger::settle(std::unique_ptr<Open> open, Portion& portion)
{
    Result& result = portion.result;
    if (result.outcome != Result::Outcome::Stored) {
        open->delivery.done(std::move(result));
        return;
    }
    open->stored += portion.count;
    open->again += result.again;
    const bool isWhole = open->stored == open->delivery.batch.records().size();
    {
        const std::lock_guard lock(m_mutex);
        m_counts.rows += portion.count;
        m_counts.again += result.again;
        if (!isWhole) {
            m_queue.push_back(std::move(open));
            return;
        }
    }
    result.again = open->again;
    open->delivery.done(std::move(result));
}

// Told once when it begins and once when it is over.
void SqliteLedger::noteTrouble(const std::string& words)
{
    if (!m_inTrouble) {
        std::cerr << "flightserver: ledger " << m_store.path() << ": " << words
                  << "; nothing is accepted until it can be written again" << std::endl;
    }
    m_inTrouble = true;
}

// On a full disk the one or the other small request may still pass: that is not the end of it.
void SqliteLedger::noteSuccess()
{
    if (m_inTrouble && m_store.hasRoom()) {
        std::cerr << "flightserver: ledger " << m_store.path() << ": can be written again" << std::endl;
        m_inTrouble = false;
    }
}
