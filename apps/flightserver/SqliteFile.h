// SPDX-License-Identifier: MIT
#pragma once

#include "Store.h"

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

// SQLite's words for what went wrong.
class SqliteError : public StoreError
{
public:
    SqliteError(int code, const std::string& words);
};

// A database for one thread. Every member throws SqliteError.
class SqliteFile
{
public:
    class Statement
    {
    public:
        Statement() = default;
        void bind(int index, std::int64_t number);
        // The bytes must stay until the statement has run.
        void bind(int index, std::string_view text);
        void bindBlob(int index, const void* bytes, std::size_t size);
        // True while there is a row; afterwards the statement is ready to run again.
        bool step();
        void run();
        [[nodiscard]] std::int64_t number(int column) const;
        [[nodiscard]] std::string text(int column) const;

    private:
        friend class SqliteFile;
        struct Finalize {
            void operator()(sqlite3_stmt* statement) const;
        };
        std::unique_ptr<sqlite3_stmt, Finalize> m_statement;
    };

    enum class Opening { MayCreate, Existing };
    explicit SqliteFile(std::string path, Opening opening = Opening::MayCreate);

    void execute(const char* sql);
    Statement prepare(const char* sql);
    std::int64_t number(const char* sql);
    std::string text(const char* sql);

    // Runs it as one transaction.
    template<class Function>
    void transaction(Function&& function)
    {
        execute("BEGIN IMMEDIATE");
        try {
            std::forward<Function>(function)();
            execute("COMMIT");
        } catch (...) {
            rollBack();
            throw;
        }
    }

    // Of the last row that was inserted and not merely changed.
    [[nodiscard]] std::int64_t lastRow() const;
    void forgetLastRow();
    // From now on isGone() is true when another file, or none, lies in its place: what is written would be
    // lost.
    void rememberPlace();
    [[nodiscard]] bool isGone() const;
    // Opened so because the system allows no more; it stays so, whatever is allowed later.
    [[nodiscard]] bool isReadOnly() const;
    // Whether its disk has room for so many bytes, as far as the system tells.
    [[nodiscard]] bool hasRoomFor(std::size_t bytes) const;
    [[nodiscard]] const std::string& path() const { return m_path; }

private:
    struct Close {
        void operator()(sqlite3* database) const;
    };
    void rollBack();
    [[noreturn]] void fail() const;

    const std::string m_path;
    std::unique_ptr<sqlite3, Close> m_database;
    std::uint64_t m_device = 0;
    std::uint64_t m_inode = 0;
};
