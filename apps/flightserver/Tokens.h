// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// What is kept of a token. Nobody finds the token from it.
using TokenHash = std::array<unsigned char, 32>;

TokenHash hashToken(std::string_view token);

// 256 random bits as text.
std::string makeToken();

// Takes as long whatever differs.
bool isSame(const TokenHash& one, const TokenHash& other);

// Whose rows they are.
struct Owner {
    std::int64_t number;
    std::string name;
};

// Of all who use the token of the command line, or none.
constexpr const char* DemoOwner = "demo";

// A token as it is shown: times are UTC.
struct TokenLine {
    std::string owner;
    std::string created;
    std::string revoked; // empty: still good
};

// The tokens that a ledger knows. Every member throws std::runtime_error.
class TokenBook
{
public:
    TokenBook() = default;
    TokenBook(const TokenBook&) = delete;
    TokenBook& operator=(const TokenBook&) = delete;
    virtual ~TokenBook() = default;

    virtual void add(const std::string& owner, const TokenHash& token) = 0;
    virtual std::vector<TokenLine> list() = 0;
    // All tokens of an owner, or all that came before his newest; the number of those that were still good.
    virtual std::size_t revoke(const std::string& owner, bool allButNewest) = 0;
};
