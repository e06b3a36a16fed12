// SPDX-License-Identifier: MIT
#pragma once

#include "SqliteStore.h"

#include <condition_variable>
#include <deque>
#include <thread>

// The ledger in one file. A thread of its own takes whatever waits into one transaction: the sync of a
// commit, which costs the most, is shared by all requests that came during the one before.
class SqliteLedger : public Ledger
{
public:
    explicit SqliteLedger(const std::string& path);
    // Stores what waits.
    ~SqliteLedger() override;

    void store(Delivery delivery) override;
    void probe(std::function<void(bool)> done) override;
    std::optional<Sender> senderOf(const TokenHash& token) override;
    [[nodiscard]] bool knowsTokens() const override { return m_store.directory().knowsTokens(); }
    const Owner* ownerNamed(const std::string& name) override { return m_store.ownerNamed(name); }
    [[nodiscard]] LedgerCounts counts() const override;

private:
    struct Open {
        Delivery delivery;
        std::size_t stored = 0; // rows
        std::size_t again = 0;
    };
    using Queue = std::deque<std::unique_ptr<Open>>;

    void run();
    bool waitForWork();
    Queue takeSome();
    void storeSome(Queue taken);
    void settle(std::unique_ptr<Open> open, Portion& portion);
    void answerProbes();
    void noteTrouble(const std::string& words);
    void noteSuccess();

    SqliteStore m_store;                  // of the thread, once it runs
    std::unique_ptr<SqliteFile> m_reader; // of the asking thread; none for a ledger in memory
    SqliteFile::Statement m_selectOwner;
    std::vector<std::function<void(bool)>> m_probes;
    Queue m_queue;
    bool m_stopping = false;
    bool m_inTrouble = false;
    LedgerCounts m_counts;
    mutable std::mutex m_mutex;
    std::condition_variable m_wake;
    std::thread m_thread;
};
