// SPDX-License-Identifier: MIT
#include "LedgerCommand.h"

#include "PgLedger.h"
#include "PgSchema.h"
#include "SqliteSchema.h"

#include <algorithm>
#include <iostream>

namespace
{
constexpr std::size_t MaxName = 64;

// Names stand in logs and lists.
void checkName(const std::string& name)
{
    const bool isPlain = std::all_of(name.begin(), name.end(), [](unsigned char character) {
        return std::isalnum(character) != 0 || character == '-' || character == '_' || character == '.';
    });
    if (name.empty() || name.size() > MaxName || !isPlain) {
        throw std::runtime_error("a name has up to 64 letters, digits, dots and dashes");
    }
}

int list(TokenBook& book)
{
    for (const TokenLine& line : book.list()) {
        std::cout << line.owner << "  given out " << line.created
                  << (line.revoked.empty() ? std::string() : "  revoked " + line.revoked) << '\n';
    }
    return 0;
}

int revoke(TokenBook& book, const std::string& name, bool allButNewest)
{
    const std::size_t revoked = book.revoke(name, allButNewest);
    std::cout << revoked << (revoked == 1 ? " token" : " tokens") << " revoked" << std::endl;
    return revoked > 0 ? 0 : 1;
}

int add(TokenBook& book, const std::string& name)
{
    const std::string token = makeToken();
    book.add(name, hashToken(token));
    std::cout << token << std::endl;
    std::cerr << "This is the only time that the token is shown: the ledger keeps a hash of it." << std::endl;
    return 0;
}
std::unique_ptr<TokenBook> openBook(const std::string& ledger, bool mayCreate)
{
    if (isDatabase(ledger)) {
        return std::make_unique<PgTokenBook>(ledger);
    }
    if (ledger == LedgerInMemory) {
        throw std::runtime_error("tokens need a --ledger in a file or a database");
    }
    return std::make_unique<SqliteTokenBook>(ledger, mayCreate ? SqliteFile::Opening::MayCreate
                                                               : SqliteFile::Opening::Existing);
}

int init(const std::string& ledger)
{
    if (!isDatabase(ledger)) {
        throw std::runtime_error("ledger init takes --ledger postgresql://...; a file is made by the server");
    }
    std::cout << initLedger(ledger) << std::endl;
    return 0;
}
} // namespace

int runLedgerCommand(const Options& options)
{
    const std::vector<std::string>& words = options.command;
    if (words == std::vector<std::string>{"ledger", "init"}) {
        return init(options.ledger);
    }
    const std::string verb = words.size() > 1 ? words[1] : "";
    const bool takesName = verb == "add" || verb == "revoke";
    if (words[0] != "token" || (!takesName && verb != "list") || words.size() != (takesName ? 3 : 2)) {
        throw std::runtime_error("expected token add NAME, token list, token revoke NAME or ledger init");
    }
    if (takesName) {
        checkName(words[2]);
    }
    const auto book = openBook(options.ledger, verb == "add");
    if (verb == "add") {
        return add(*book, words[2]);
    }
    return verb == "list" ? list(*book) : revoke(*book, words[2], options.allButNewest);
}
