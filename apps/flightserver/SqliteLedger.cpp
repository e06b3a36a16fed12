// SPDX-License-Identifier: MIT
#include "SqliteLedger.h"

#include <limits>

namespace
{
constexpr std::size_t MaxRows = 20000;

constexpr const char* SelectOwner = "SELECT o.id, o.name FROM token t JOIN owner o ON o.id=t.owner "
                                    "WHERE t.hash=?1 AND t.revoked IS NULL";
} // namespace

SqliteLedger::SqliteLedger(const std::string& path)
    : QueuedLedger(path, {MaxRows, std::numeric_limits<std::size_t>::max()}), m_store(path, directory())
{
    if (path != LedgerInMemory) {
        m_reader = std::make_unique<SqliteFile>(path);
        m_selectOwner = m_reader->prepare(SelectOwner);
    }
    serve(m_store);
}

SqliteLedger::~SqliteLedger()
{
    finish();
}

// A token that was given out since the last transaction is looked up in the file.
std::optional<Sender> SqliteLedger::senderOf(const TokenHash& token)
{
    std::optional<Sender> known = directory().senderOf(token);
    if (!known && m_reader != nullptr) {
        m_selectOwner.bindBlob(1, token.data(), token.size());
        while (m_selectOwner.step()) {
            known = Sender{directory().owner(m_selectOwner.number(0), m_selectOwner.text(1)), token};
        }
    }
    return known;
}
