// SPDX-License-Identifier: MIT
#include "Gate.h"

Gate::Gate(Ledger& ledger, const std::string& token, bool open)
    : m_ledger(ledger), m_demo(ledger.ownerNamed(DemoOwner)), m_open(open && token.empty())
{
    if (!token.empty()) {
        m_token = hashToken(token);
    }
}

std::optional<Sender> Gate::senderOf(std::string_view token)
{
    const TokenHash hash = hashToken(token);
    if (m_token && isSame(*m_token, hash)) {
        return Sender{m_demo, std::nullopt};
    }
    if (isOpen()) {
        return Sender{m_demo, hash, true};
    }
    return m_ledger.senderOf(hash);
}
