// SPDX-License-Identifier: MIT
#include "PgConnection.h"

#include <algorithm>
#include <boost/endian/conversion.hpp>
#include <libpq-fe.h>
#include <poll.h>

namespace
{
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto ConnectTime = 2s;
constexpr auto StatementTime = 3s;
constexpr int Binary = 1;
constexpr std::int32_t TextType = 25; // of the database's own types
constexpr std::int32_t NumberType = 20;

template<class Number>
void append(std::string& bytes, Number number)
{
    boost::endian::native_to_big_inplace(number);
    bytes.append(reinterpret_cast<const char*>(&number), sizeof(number));
}

// An array of one dimension that holds no NULL, without its elements.
std::string arrayHead(std::size_t size, std::int32_t type)
{
    std::string bytes;
    for (const std::int32_t number : {1, 0, type, static_cast<std::int32_t>(size), 1}) {
        append(bytes, number);
    }
    return bytes;
}

std::string firstLine(const char* words)
{
    const std::string text(words);
    return text.substr(0, text.find('\n'));
}

// What a row of its own can cause: values that are out of range, too long, no text, against a constraint.
StoreError::Fault faultOf(std::string_view state)
{
    const std::string_view kind = state.substr(0, 2);
    return kind == "22" || kind == "23" || kind == "54" || kind == "P0" ? StoreError::Fault::Row
                                                                        : StoreError::Fault::Store;
}

std::vector<std::string> split(const char* list)
{
    std::vector<std::string> parts(1);
    for (const char* at = list != nullptr ? list : ""; *at != '\0'; ++at) {
        if (*at == ',') {
            parts.emplace_back();
        } else {
            parts.back() += *at;
        }
    }
    return parts;
}

struct FreeOptions {
    void operator()(PQconninfoOption* options) const { PQconninfoFree(options); }
};
using ConnectOptions = std::unique_ptr<PQconninfoOption, FreeOptions>;

ConnectOptions parse(const std::string& uri)
{
    char* words = nullptr;
    ConnectOptions options(PQconninfoParse(uri.c_str(), &words));
    if (options == nullptr) {
        const std::string text = firstLine(words != nullptr ? words : "out of memory");
        PQfreemem(words);
        throw PgError("--ledger is no address of a database: " + text, {});
    }
    return options;
}

const char* optionOf(const ConnectOptions& options, std::string_view name)
{
    const PQconninfoOption* option = options.get();
    while (option->keyword != nullptr && name != option->keyword) {
        ++option;
    }
    return option->val;
}
} // namespace

PgError::PgError(const std::string& words, std::string_view state) : StoreError(faultOf(state), words) {}

void PgValues::add(std::int64_t number)
{
    append(m_values.emplace_back(), number);
}

void PgValues::add(std::string_view text)
{
    m_values.emplace_back(text);
}

void PgValues::addArray(const std::vector<std::string_view>& texts)
{
    std::string& bytes = m_values.emplace_back(arrayHead(texts.size(), TextType));
    std::size_t size = bytes.size();
    for (const std::string_view text : texts) {
        size += sizeof(std::int32_t) + text.size();
    }
    bytes.reserve(size);
    for (const std::string_view text : texts) {
        append(bytes, static_cast<std::int32_t>(text.size()));
        bytes += text;
    }
}

void PgValues::addArray(const std::vector<std::int64_t>& numbers)
{
    std::string& bytes = m_values.emplace_back(arrayHead(numbers.size(), NumberType));
    for (const std::int64_t number : numbers) {
        append(bytes, static_cast<std::int32_t>(sizeof(number)));
        append(bytes, number);
    }
}

int PgRows::count() const
{
    return PQntuples(m_result.get());
}

std::int64_t PgRows::number(int row, int column) const
{
    return std::stoll(text(row, column));
}

std::string PgRows::text(int row, int column) const
{
    return {PQgetvalue(m_result.get(), row, column),
            static_cast<std::size_t>(PQgetlength(m_result.get(), row, column))};
}

void PgRows::Clear::operator()(pg_result* result) const
{
    PQclear(result);
}

void PgConnection::Finish::operator()(pg_conn* connection) const
{
    PQfinish(connection);
}

PgConnection::PgConnection(std::string uri) : m_uri(std::move(uri))
{
    readHosts();
}

PgConnection::PgConnection(PgConnection&& other) noexcept = default;
PgConnection::~PgConnection() = default;

// libpq tries several hosts by itself, but waits for the first that says nothing as long as for all.
void PgConnection::readHosts()
{
    const ConnectOptions options = parse(m_uri);
    const std::vector<std::string> names = split(optionOf(options, "host"));
    const std::vector<std::string> addresses = split(optionOf(options, "hostaddr"));
    const std::vector<std::string> ports = split(optionOf(options, "port"));
    const auto nth = [](const std::vector<std::string>& list, std::size_t n) {
        return n < list.size() ? list[n] : list.back();
    };
    for (std::size_t n = 0; n < std::max(names.size(), addresses.size()); ++n) {
        m_hosts.push_back({nth(names, n), nth(addresses, n), nth(ports, n)});
        const Host& host = m_hosts.back();
        m_place += m_place.empty() ? "" : ",";
        m_place += host.name.empty() ? host.address : host.name;
        m_place += host.port.empty() ? "" : ":" + host.port;
    }
    const char* const name = optionOf(options, "dbname");
    m_place += name != nullptr ? "/" + std::string(name) : std::string();
}

void PgConnection::open()
{
    std::string words;
    for (std::size_t tried = 0; tried < m_hosts.size(); ++tried) {
        const Host& host = m_hosts[m_next];
        try {
            openHost(host);
            return;
        } catch (const PgError& error) {
            words += (words.empty() ? "" : "; ") + std::string(error.what());
            m_next = (m_next + 1) % m_hosts.size();
        }
    }
    throw PgError(words, {});
}

void PgConnection::openHost(const Host& host)
{
    const char* const names[] = {"dbname", "host", "hostaddr", "port", "client_encoding", nullptr};
    const char* const values[] = {
        m_uri.c_str(), host.name.c_str(), host.address.c_str(), host.port.c_str(), "UTF8", nullptr};
    const Time end = Clock::now() + ConnectTime;
    m_connection.reset(PQconnectStartParams(names, values, 1));
    m_prepared.clear();
    for (PostgresPollingStatusType state = PGRES_POLLING_WRITING; state != PGRES_POLLING_OK;
         state = PQconnectPoll(m_connection.get())) {
        if (state == PGRES_POLLING_FAILED || PQstatus(m_connection.get()) == CONNECTION_BAD) {
            failConnection(firstLine(PQerrorMessage(m_connection.get())));
        }
        waitFor(state == PGRES_POLLING_READING ? POLLIN : POLLOUT, end);
    }
    PQsetnonblocking(m_connection.get(), 1);
    PQsetNoticeReceiver(m_connection.get(), noteWarning, this);
}

void PgConnection::close()
{
    m_connection.reset();
}

void PgConnection::noteWarning(void* self, const pg_result* result)
{
    const char* const severity = PQresultErrorField(result, PG_DIAG_SEVERITY_NONLOCALIZED);
    if (severity != nullptr && std::string_view(severity) == "WARNING") {
        const char* const words = PQresultErrorField(result, PG_DIAG_MESSAGE_PRIMARY);
        static_cast<PgConnection*>(self)->m_warning = words != nullptr ? words : "warning";
    }
}

void PgConnection::waitFor(int events, Time end)
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
    pollfd socket{PQsocket(m_connection.get()), static_cast<short>(events), 0};
    if (left.count() <= 0 || poll(&socket, 1, static_cast<int>(left.count())) == 0) {
        failConnection("no answer in time");
    }
}

void PgConnection::failConnection(const std::string& words)
{
    const char* const host = m_connection ? PQhost(m_connection.get()) : nullptr;
    const char* const port = m_connection ? PQport(m_connection.get()) : nullptr;
    std::string text = words;
    if (host != nullptr && *host != '\0' && words.find(host) == std::string::npos) {
        text = std::string(host) + ":" + (port != nullptr ? port : "") + ": " + words;
    }
    close();
    throw PgError(text, {});
}

void PgConnection::flush(Time end)
{
    for (int left = 1; left != 0;) {
        left = PQflush(m_connection.get());
        if (left < 0) {
            failConnection(firstLine(PQerrorMessage(m_connection.get())));
        }
        if (left > 0) {
            waitFor(POLLIN | POLLOUT, end);
            PQconsumeInput(m_connection.get());
        }
    }
}

// The last result, as several statements may have been sent.
PgRows PgConnection::finishStatement(Time end)
{
    flush(end);
    PgRows rows;
    std::unique_ptr<pg_result, PgRows::Clear> failed;
    for (;;) {
        while (PQisBusy(m_connection.get()) != 0) {
            waitFor(POLLIN, end);
            if (PQconsumeInput(m_connection.get()) == 0) {
                failConnection(firstLine(PQerrorMessage(m_connection.get())));
            }
        }
        std::unique_ptr<pg_result, PgRows::Clear> result(PQgetResult(m_connection.get()));
        if (result == nullptr) {
            break;
        }
        (PQresultStatus(result.get()) == PGRES_FATAL_ERROR ? failed : rows.m_result) = std::move(result);
    }
    if (PQstatus(m_connection.get()) == CONNECTION_BAD) {
        failConnection(firstLine(PQerrorMessage(m_connection.get())));
    }
    if (failed != nullptr) {
        const char* const state = PQresultErrorField(failed.get(), PG_DIAG_SQLSTATE);
        const char* const words = PQresultErrorField(failed.get(), PG_DIAG_MESSAGE_PRIMARY);
        throw PgError(words != nullptr ? words : firstLine(PQresultErrorMessage(failed.get())),
                      state != nullptr ? state : "");
    }
    return rows;
}

void PgConnection::execute(const char* sql)
{
    m_warning.clear();
    if (PQsendQuery(m_connection.get(), sql) == 0) {
        failConnection(firstLine(PQerrorMessage(m_connection.get())));
    }
    finishStatement(Clock::now() + StatementTime);
}

void PgConnection::prepare(const char* sql, Time end)
{
    const std::string name = std::to_string(m_prepared.size());
    if (PQsendPrepare(m_connection.get(), name.c_str(), sql, 0, nullptr) == 0) {
        failConnection(firstLine(PQerrorMessage(m_connection.get())));
    }
    finishStatement(end);
    m_prepared.push_back(sql);
}

PgRows PgConnection::run(const char* sql, const PgValues& values)
{
    const Time end = Clock::now() + StatementTime;
    const auto found = std::find(m_prepared.begin(), m_prepared.end(), sql);
    const std::string name = std::to_string(found - m_prepared.begin());
    if (found == m_prepared.end()) {
        prepare(sql, end);
    }
    std::vector<const char*> bytes;
    std::vector<int> lengths;
    for (const std::string& value : values.m_values) {
        bytes.push_back(value.data());
        lengths.push_back(static_cast<int>(value.size()));
    }
    const std::vector<int> formats(bytes.size(), Binary);
    m_warning.clear();
    if (PQsendQueryPrepared(m_connection.get(), name.c_str(), static_cast<int>(bytes.size()), bytes.data(),
                            lengths.data(), formats.data(), 0) == 0) {
        failConnection(firstLine(PQerrorMessage(m_connection.get())));
    }
    return finishStatement(end);
}
