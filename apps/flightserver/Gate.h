// SPDX-License-Identifier: MIT
#pragma once

#include "Ledger.h"

// Tells who may send.
class Gate
{
public:
    // token: of the command line; empty: none. open: whoever comes may send as long as no token is known.
    Gate(Ledger& ledger, const std::string& token, bool open);

    // nobody: refused.
    std::optional<Sender> senderOf(std::string_view token);
    // Whether it lets in whoever comes; the first token that is given out ends that for good.
    [[nodiscard]] bool isOpen() const { return m_open && !m_ledger.knowsTokens(); }

private:
    Ledger& m_ledger;
    const Owner* const m_demo;
    std::optional<TokenHash> m_token;
    const bool m_open;
};
