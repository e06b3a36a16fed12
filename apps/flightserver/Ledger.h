// SPDX-License-Identifier: MIT
#pragma once

#include "Records.h"

#include <memory>
#include <mutex>
#include <string>

struct sqlite3;
struct sqlite3_stmt;

// One answered request.
struct RequestLine {
    const std::string& path;
    std::size_t bytes;
    int status;
};

// What the server has received, in an SQLite file that others may read meanwhile. Every member throws
// std::runtime_error with SQLite's words.
class Ledger
{
public:
    explicit Ledger(const std::string& file);

    // Returns once the request, and the batch that it brought, is committed.
    void store(const RequestLine& request, const Endpoint& endpoint, const Batch& batch);
    void storeRefused(const RequestLine& request);

private:
    struct Close {
        void operator()(sqlite3* database) const;
        void operator()(sqlite3_stmt* statement) const;
    };
    using Statement = std::unique_ptr<sqlite3_stmt, Close>;

    void execute(const char* sql);
    [[nodiscard]] Statement prepare(const char* sql) const;
    void run(const Statement& statement);
    void insertRecords(const Endpoint& endpoint, const Batch& batch);
    void insertRequest(const RequestLine& request, const Batch& batch);
    [[noreturn]] void fail() const;

    const std::string m_file;
    std::mutex m_mutex;
    std::unique_ptr<sqlite3, Close> m_database;
    Statement m_insertRow;
    Statement m_insertRequest;
};
