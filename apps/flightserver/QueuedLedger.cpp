// SPDX-License-Identifier: MIT
#include "QueuedLedger.h"

#include <algorithm>
#include <iostream>

QueuedLedger::~QueuedLedger()
{
    finish();
}

void QueuedLedger::serve(Store& store, std::chrono::milliseconds idle)
{
    m_threads.emplace_back([this, &store, idle] { run(store, idle); });
}

void QueuedLedger::finish()
{
    {
        const std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    m_wake.notify_all();
    for (std::thread& thread : m_threads) {
        thread.join();
    }
    m_threads.clear();
}

void QueuedLedger::store(Delivery delivery)
{
    queue(std::make_unique<Open>(Open{std::move(delivery)}));
}

void QueuedLedger::queue(std::unique_ptr<Open> open)
{
    {
        const std::lock_guard lock(m_mutex);
        m_queue.push_back(std::move(open));
    }
    m_wake.notify_one();
}

void QueuedLedger::probe(std::function<void(bool)> done)
{
    {
        const std::lock_guard lock(m_mutex);
        m_probes.push_back(std::move(done));
    }
    m_wake.notify_one();
}

LedgerCounts QueuedLedger::counts() const
{
    const std::lock_guard lock(m_mutex);
    return m_counts;
}

void QueuedLedger::run(Store& store, std::chrono::milliseconds idle)
{
    while (waitForWork(store, idle)) {
        answerProbes(store);
        storeSome(store);
    }
}

// False when nothing waits and nothing more will come.
bool QueuedLedger::waitForWork(Store& store, std::chrono::milliseconds idle)
{
    std::unique_lock lock(m_mutex);
    while (!m_wake.wait_for(lock, idle, [this] { return m_stopping || hasWork(); })) {
        lock.unlock();
        store.idle();
        lock.lock();
    }
    return hasWork();
}

void QueuedLedger::answerProbes(Store& store)
{
    std::vector<std::function<void(bool)>> probes;
    {
        const std::lock_guard lock(m_mutex);
        probes.swap(m_probes);
    }
    const bool ok = !probes.empty() && store.probe();
    if (ok) {
        noteSuccess(store);
    }
    for (const auto& done : probes) {
        done(ok);
    }
}

std::vector<Portion> QueuedLedger::takeSome(Queue& taken)
{
    const std::lock_guard lock(m_mutex);
    std::vector<Portion> portions;
    Turn room = m_turn;
    while (!m_queue.empty() && room.rows > 0 && room.bytes > 0) {
        portions.push_back(portionOf(*m_queue.front(), room));
        taken.push_back(std::move(m_queue.front()));
        m_queue.pop_front();
    }
    return portions;
}

// At least one row, whatever its length.
Portion QueuedLedger::portionOf(Open& open, Turn& room) const
{
    const std::deque<Record>& records = open.delivery.batch.records();
    std::size_t end = open.stored;
    while (end < records.size() && room.rows > 0 && room.bytes > 0) {
        --room.rows;
        room.bytes -= std::min<std::size_t>(room.bytes, records[end].jsonLength);
        ++end;
    }
    return {&open.delivery, open.stored, end - open.stored, {}};
}

void QueuedLedger::storeSome(Store& store)
{
    Queue taken;
    std::vector<Portion> portions = takeSome(taken);
    if (portions.empty()) {
        return;
    }
    const auto start = std::chrono::steady_clock::now();
    store.store(portions);
    note(store, portions, std::chrono::steady_clock::now() - start);
    for (std::size_t i = 0; i < taken.size(); ++i) {
        settle(std::move(taken[i]), portions[i]);
    }
}

void QueuedLedger::note(const Store& store, const std::vector<Portion>& portions,
                        std::chrono::duration<double> time)
{
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
        noteSuccess(store);
    } else {
        noteTrouble(failed->result.words);
    }
}

void QueuedLedger::settle(std::unique_ptr<Open> open, Portion& portion)
{
    Result& result = portion.result;
    if (result.outcome != Result::Outcome::Stored) {
        open->delivery.done(std::move(result));
        return;
    }
    open->stored += portion.count;
    open->again += result.again;
    {
        const std::lock_guard lock(m_mutex);
        m_counts.rows += portion.count;
        m_counts.again += result.again;
    }
    if (open->stored < open->delivery.batch.records().size()) {
        queue(std::move(open));
        return;
    }
    result.again = open->again;
    open->delivery.done(std::move(result));
}

// Told once when it begins and once when it is over.
void QueuedLedger::noteTrouble(const std::string& words)
{
    const std::lock_guard lock(m_mutex);
    if (!m_inTrouble) {
        std::cerr << "flightserver: ledger " << m_place << ": " << words
                  << "; nothing is accepted until it can be written again" << std::endl;
    }
    m_inTrouble = true;
}

// On a full disk the one or the other small request may still pass: that is not the end of it.
void QueuedLedger::noteSuccess(const Store& store)
{
    const std::lock_guard lock(m_mutex);
    if (m_inTrouble && store.hasRoom()) {
        std::cerr << "flightserver: ledger " << m_place << ": can be written again" << std::endl;
        m_inTrouble = false;
    }
}
