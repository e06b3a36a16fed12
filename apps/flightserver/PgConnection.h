// SPDX-License-Identifier: MIT
#pragma once

#include "Store.h"

#include <chrono>
#include <memory>
#include <string_view>

struct pg_conn;
struct pg_result;

// PostgreSQL's words for what went wrong.
class PgError : public StoreError
{
public:
    // state: SQLSTATE, empty where the database said nothing.
    PgError(const std::string& words, std::string_view state);
};

// Values of a statement, in the binary format.
class PgValues
{
public:
    void add(std::int64_t number);
    void add(std::string_view text);
    // One value that is an array of texts or numbers.
    void addArray(const std::vector<std::string_view>& texts);
    void addArray(const std::vector<std::int64_t>& numbers);

private:
    friend class PgConnection;
    std::vector<std::string> m_values;
};

// What a statement gave.
class PgRows
{
public:
    [[nodiscard]] int count() const;
    [[nodiscard]] std::int64_t number(int row, int column) const;
    [[nodiscard]] std::string text(int row, int column) const;

private:
    friend class PgConnection;
    struct Clear {
        void operator()(pg_result* result) const;
    };
    std::unique_ptr<pg_result, Clear> m_result;
};

// A connection to a PostgreSQL database for one thread, which never waits longer than it is given: a server
// that hangs answers no statement, no cancel and no farewell. Every member throws PgError.
class PgConnection
{
public:
    // uri: libpq's own, also with several hosts. Nothing is connected yet.
    explicit PgConnection(std::string uri);
    PgConnection(PgConnection&& other) noexcept;
    ~PgConnection();

    // Connected, one host after the other is tried, beginning behind the one that failed last; what opened()
    // does is part of it.
    void open();
    [[nodiscard]] bool isOpen() const { return m_connection != nullptr; }
    void close();

    // Prepared when it is first run on a connection. An error of the connection closes it.
    PgRows run(const char* sql, const PgValues& values = {});
    // Several statements without values, as they are.
    void execute(const char* sql);
    // Whether the database warned while the last statement ran: one that ends the wait for the standby is
    // told in no other way.
    [[nodiscard]] const std::string& warning() const { return m_warning; }

    // Host, port and name of the database; never a password.
    [[nodiscard]] const std::string& place() const { return m_place; }

private:
    struct Finish {
        void operator()(pg_conn* connection) const;
    };
    using Time = std::chrono::steady_clock::time_point;
    struct Host {
        std::string name;
        std::string address;
        std::string port;
    };
    void openHost(const Host& host);
    void readHosts();
    void waitFor(int events, Time end);
    void prepare(const char* sql, Time end);
    PgRows finishStatement(Time end);
    void flush(Time end);
    [[noreturn]] void failConnection(const std::string& words);
    static void noteWarning(void* self, const pg_result* result);

    std::string m_uri;
    std::string m_place;
    std::vector<Host> m_hosts;
    std::size_t m_next = 0; // of the hosts
    std::unique_ptr<pg_conn, Finish> m_connection;
    std::vector<const char*> m_prepared; // by their number
    std::string m_warning;
};
