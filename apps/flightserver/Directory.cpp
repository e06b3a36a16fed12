// SPDX-License-Identifier: MIT
#include "Directory.h"

#include <cstring>

namespace
{
std::uint64_t firstBytes(const TokenHash& token)
{
    std::uint64_t number = 0;
    std::memcpy(&number, token.data(), sizeof(number));
    return number;
}
} // namespace

const Owner* Directory::owner(std::int64_t number, const std::string& name)
{
    const std::lock_guard lock(m_mutex);
    return &m_owners.try_emplace(number, Owner{number, name}).first->second;
}

std::optional<Sender> Directory::senderOf(const TokenHash& token) const
{
    const std::lock_guard lock(m_mutex);
    const auto [begin, end] = m_tokens.equal_range(firstBytes(token));
    for (auto entry = begin; entry != end; ++entry) {
        if (isSame(entry->second.first, token)) {
            return Sender{entry->second.second, token};
        }
    }
    return std::nullopt;
}

void Directory::replaceTokens(const std::vector<std::pair<TokenHash, const Owner*>>& tokens, bool known)
{
    const std::lock_guard lock(m_mutex);
    m_knowsTokens = known;
    m_tokens.clear();
    for (const auto& token : tokens) {
        m_tokens.emplace(firstBytes(token.first), token);
    }
}

bool Directory::confirm(Sender& sender) const
{
    if (!sender.token) {
        return true;
    }
    if (const std::optional<Sender> known = senderOf(*sender.token)) {
        sender = *known;
        return true;
    }
    return sender.mayBeUnknown && !m_knowsTokens;
}
