// SPDX-License-Identifier: MIT
#pragma once

#include "Store.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <thread>

// A ledger whose stores, each with a thread of its own, take whatever waits into one transaction: the wait of
// a commit, which costs the most, is shared by all requests that came during the one before.
class QueuedLedger : public Ledger
{
public:
    ~QueuedLedger() override;

    void store(Delivery delivery) override;
    void probe(std::function<void(bool)> done) override;
    std::optional<Sender> senderOf(const TokenHash& token) override { return m_directory.senderOf(token); }
    [[nodiscard]] bool knowsTokens() const override { return m_directory.knowsTokens(); }
    [[nodiscard]] LedgerCounts counts() const override;

protected:
    // What one transaction takes; what a request has more waits for its next turn, behind the others.
    struct Turn {
        std::size_t rows;
        std::size_t bytes;
    };
    // place: what the ledger is called in words for the operator.
    QueuedLedger(std::string place, Turn turn) : m_place(std::move(place)), m_turn(turn) {}

    // From now on the store's rows are written; it must live as long as the ledger runs.
    void serve(Store& store, std::chrono::milliseconds idle = std::chrono::hours(1));
    // Stores what waits. To be called before the stores go.
    void finish();
    Directory& directory() { return m_directory; }

private:
    struct Open {
        Delivery delivery;
        std::size_t stored = 0; // rows
        std::size_t again = 0;
    };
    using Queue = std::deque<std::unique_ptr<Open>>;

    void queue(std::unique_ptr<Open> open);
    void run(Store& store, std::chrono::milliseconds idle);
    bool waitForWork(Store& store, std::chrono::milliseconds idle);
    [[nodiscard]] bool hasWork() const { return !m_queue.empty() || !m_probes.empty(); }
    void storeSome(Store& store);
    std::vector<Portion> takeSome(Queue& taken);
    Portion portionOf(Open& open, Turn& room) const;
    void note(const Store& store, const std::vector<Portion>& portions, std::chrono::duration<double> time);
    void settle(std::unique_ptr<Open> open, Portion& portion);
    void answerProbes(Store& store);
    void noteTrouble(const std::string& words);
    void noteSuccess(const Store& store);

    const std::string m_place;
    const Turn m_turn;
    Directory m_directory;
    std::vector<std::function<void(bool)>> m_probes;
    Queue m_queue;
    bool m_stopping = false;
    bool m_inTrouble = false;
    LedgerCounts m_counts;
    mutable std::mutex m_mutex;
    std::condition_variable m_wake;
    std::vector<std::thread> m_threads;
};
