// SPDX-License-Identifier: MIT
#pragma once

#include "Ledger.h"
#include "SqliteFile.h"

#include <atomic>
#include <map>
#include <mutex>
#include <unordered_map>
#include <vector>

// Some of a delivery's rows, and what became of them.
struct Portion {
    Delivery* delivery;
    std::size_t first;
    std::size_t count;
    Result result;
};

// Owners and their tokens, as they were last read. For any thread.
class Directory
{
public:
    const Owner* owner(std::int64_t number, const std::string& name);
    std::optional<Sender> senderOf(const TokenHash& token) const;
    [[nodiscard]] bool knowsTokens() const { return m_knowsTokens; }
    // tokens: the good ones; known: whether there are others as well.
    void replaceTokens(const std::vector<std::pair<TokenHash, const Owner*>>& tokens, bool known);

private:
    mutable std::mutex m_mutex;
    std::atomic<bool> m_knowsTokens{false};
    std::map<std::int64_t, Owner> m_owners; // who once got a place keeps it
    std::unordered_multimap<std::uint64_t, std::pair<TokenHash, const Owner*>>
        m_tokens; // by their first bytes
};

// The rows of an SQLite ledger. For one thread, apart from directory().
class SqliteStore
{
public:
    explicit SqliteStore(const std::string& path);

    // Stores all portions in one transaction. One that makes it fail fails alone; an error of the disk fails
    // all.
    void store(std::vector<Portion>& portions);
    // Whether a write goes through, and others have room.
    bool probe();
    [[nodiscard]] bool hasRoom() const;

    Directory& directory() { return m_directory; }
    [[nodiscard]] const Directory& directory() const { return m_directory; }
    const Owner* ownerNamed(const std::string& name);
    [[nodiscard]] const std::string& path() const { return m_file.path(); }

private:
    struct Key {
        std::int64_t kind;
        const Record* record;
        Portion* portion;
    };
    void storeTogether(std::vector<Portion>& portions);
    void storeAlone(Portion& portion);
    void checkSenders(std::vector<Portion>& portions);
    bool isGood(Sender& sender) const;
    void insertSorted(std::vector<Portion>& portions);
    void insert(const Key& row);
    void readTokens();

    SqliteFile m_file;
    SqliteFile::Statement m_insertRow;
    SqliteFile::Statement m_insertMission;
    SqliteFile::Statement m_version;
    std::int64_t m_versionRead = -1;
    std::int64_t m_lastRow = 0;
    std::unordered_map<const Endpoint*, std::int64_t> m_kinds;
    std::vector<Key> m_rows; // kept for its room
    Directory m_directory;
};
