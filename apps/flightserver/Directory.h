// SPDX-License-Identifier: MIT
#pragma once

#include "Ledger.h"

#include <atomic>
#include <map>
#include <mutex>
#include <unordered_map>
#include <vector>

// Owners and their tokens, as they were last read. For any thread.
class Directory
{
public:
    const Owner* owner(std::int64_t number, const std::string& name);
    std::optional<Sender> senderOf(const TokenHash& token) const;
    [[nodiscard]] bool knowsTokens() const { return m_knowsTokens; }
    // tokens: the good ones; known: whether there are others as well.
    void replaceTokens(const std::vector<std::pair<TokenHash, const Owner*>>& tokens, bool known);
    // False where the sender's token is good no longer. Who was let in unknown gets his rows under his name
    // where his token is known by now.
    bool confirm(Sender& sender) const;

private:
    mutable std::mutex m_mutex;
    std::atomic<bool> m_knowsTokens{false};
    std::map<std::int64_t, Owner> m_owners; // who once got a place keeps it
    std::unordered_multimap<std::uint64_t, std::pair<TokenHash, const Owner*>>
        m_tokens; // by their first bytes
};
