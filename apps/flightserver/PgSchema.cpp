// SPDX-License-Identifier: MIT
#include "PgSchema.h"

namespace
{
constexpr std::int64_t Version = 1;

// Two that make it at once: one waits, and finds it made. "times" counts up at every delivery, and room in
// the page for that spares the index. Ids are compared as bytes, in the order in which they are written.
constexpr const char* CreateTables = R"(
CREATE TABLE owner(id bigserial PRIMARY KEY, name text NOT NULL UNIQUE);
CREATE TABLE token(id bigserial PRIMARY KEY, owner bigint NOT NULL REFERENCES owner(id), hash bytea NOT NULL UNIQUE,
    created timestamptz NOT NULL DEFAULT now(), revoked timestamptz);
CREATE TABLE kind(id smallint PRIMARY KEY, name text NOT NULL UNIQUE);
CREATE TABLE record(owner bigint NOT NULL, kind smallint NOT NULL, id text COLLATE "C" NOT NULL,
    times bigint NOT NULL, mission text NOT NULL, json text NOT NULL, PRIMARY KEY(owner, kind, id))
    WITH (fillfactor=90);
CREATE VIEW "row"(owner,kind,id,mission,json,times) AS
    SELECT o.name, k.name, r.id, r.mission, r.json, r.times
    FROM record r JOIN kind k ON k.id=r.kind JOIN owner o ON o.id=r.owner;
CREATE TABLE ledger(version bigint NOT NULL, tokens bigint NOT NULL);
INSERT INTO ledger VALUES(1, 1);)";

constexpr const char* LockSchema = "SELECT pg_advisory_xact_lock(4920731)";
constexpr const char* IsThere = "SELECT count(*) FROM pg_class WHERE oid=to_regclass('ledger')";
constexpr const char* CountTables = "SELECT count(*) FROM pg_class WHERE "
                                    "relnamespace=current_schema()::regnamespace AND relkind IN ('r','v')";
constexpr const char* SelectVersion = "SELECT version FROM ledger";
constexpr const char* InsertKind = "INSERT INTO kind VALUES($1::bigint, $2::text)";
// Whatever a role's settings say: what is acknowledged is on the disk, and where there is a synchronous
// standby on that one's as well.
constexpr const char* SetUp = "SET synchronous_commit=on; SET idle_in_transaction_session_timeout='10s'";

// Servers read the tokens again where the number differs from the one that they have seen.
constexpr const char* TellTokens = "UPDATE ledger SET tokens=tokens+1";
constexpr const char* InsertOwner = "INSERT INTO owner(name) VALUES($1::text) ON CONFLICT DO NOTHING";
constexpr const char* SelectOwner = "SELECT id FROM owner WHERE name=$1::text";
constexpr const char* InsertToken = "INSERT INTO token(owner,hash) VALUES($1::bigint, $2::bytea)";
constexpr const char* SelectTokens =
    "SELECT o.name, to_char(t.created AT TIME ZONE 'UTC','YYYY-MM-DD HH24:MI:SS'), "
    "coalesce(to_char(t.revoked AT TIME ZONE 'UTC','YYYY-MM-DD HH24:MI:SS'),'') "
    "FROM token t JOIN owner o ON o.id=t.owner ORDER BY o.name, t.id";
constexpr const char* Revoke =
    "UPDATE token SET revoked=now() WHERE revoked IS NULL AND owner=(SELECT id FROM owner WHERE "
    "name=$1::text) "
    "AND ($2::bigint=0 OR id<(SELECT max(id) FROM token t WHERE t.owner=token.owner)) RETURNING 1";

[[noreturn]] void refuse(const PgConnection& connection, const std::string& why)
{
    throw PgError("ledger " + connection.place() + ": " + why, {});
}

std::int64_t numberOf(PgConnection& connection, const char* sql)
{
    return connection.run(sql).number(0, 0);
}

template<class Function>
void transaction(PgConnection& connection, Function&& function)
{
    connection.execute("BEGIN");
    std::forward<Function>(function)(); // an error ends the connection's use, and with it the transaction
    connection.execute("COMMIT");
}

void checkVersion(PgConnection& connection)
{
    if (numberOf(connection, IsThere) == 0) {
        refuse(connection, "holds no ledger; \"flightserver ledger init --ledger URI\" makes one");
    }
    const std::int64_t version = numberOf(connection, SelectVersion);
    if (version != Version) {
        refuse(connection, version > Version ? "made by a newer flightserver"
                                             : "made by an older flightserver; \"ledger init\" brings it up");
    }
}

// With words for the operator in place of those that tell no way out.
void connect(PgConnection& connection)
{
    try {
        connection.open();
    } catch (const PgError& error) {
        const std::string words = error.what();
        const bool isStandby = words.find("read-only") != std::string::npos;
        refuse(connection, isStandby ? "only a standby is named; name the primary as well" : words);
    }
    connection.execute(SetUp);
}
} // namespace

std::string initLedger(const std::string& uri)
{
    PgConnection connection(uri);
    connect(connection);
    std::string done = "is one already";
    try {
        transaction(connection, [&] {
            connection.run(LockSchema);
            if (numberOf(connection, IsThere) != 0) {
                return;
            }
            if (numberOf(connection, CountTables) != 0) {
                refuse(connection, "a database of something else");
            }
            connection.execute(CreateTables);
            for (const Endpoint& endpoint : Endpoints) {
                PgValues values;
                values.add(std::int64_t{&endpoint - Endpoints});
                values.add(endpoint.kind);
                connection.run(InsertKind, values);
            }
            done = "made";
        });
        checkVersion(connection);
    } catch (const PgError& error) {
        const std::string words = error.what();
        const bool mayNot = words.find("permission denied") != std::string::npos;
        refuse(connection,
               mayNot ? words + "; its owner, or GRANT CREATE ON SCHEMA, may make tables" : words);
    }
    return "ledger " + connection.place() + ": " + done;
}

void openLedger(PgConnection& connection)
{
    connect(connection);
    checkVersion(connection);
    if (connection
            .run("SELECT 1 WHERE current_setting('fsync')='off' OR "
                 "current_setting('full_page_writes')='off'")
            .count() != 0) {
        refuse(connection, "fsync or full_page_writes is off there: a loss of power would take rows along");
    }
}

std::int64_t ownerNumber(PgConnection& connection, const std::string& name)
{
    PgValues values;
    values.add(name);
    PgRows found = connection.run(SelectOwner, values);
    if (found.count() == 0) {
        connection.run(InsertOwner, values);
        found = connection.run(SelectOwner, values);
    }
    return found.number(0, 0);
}

PgTokenBook::PgTokenBook(const std::string& uri) : m_connection(uri)
{
    openLedger(m_connection);
}

void PgTokenBook::add(const std::string& owner, const TokenHash& token)
{
    transaction(m_connection, [&] {
        PgValues values;
        values.add(ownerNumber(m_connection, owner));
        values.add(std::string_view(reinterpret_cast<const char*>(token.data()), token.size()));
        m_connection.run(InsertToken, values);
        m_connection.execute(TellTokens);
    });
}

std::vector<TokenLine> PgTokenBook::list()
{
    const PgRows rows = m_connection.run(SelectTokens);
    std::vector<TokenLine> lines;
    lines.reserve(static_cast<std::size_t>(rows.count()));
    for (int row = 0; row < rows.count(); ++row) {
        lines.push_back({rows.text(row, 0), rows.text(row, 1), rows.text(row, 2)});
    }
    return lines;
}

std::size_t PgTokenBook::revoke(const std::string& owner, bool allButNewest)
{
    std::size_t revoked = 0;
    transaction(m_connection, [&] {
        PgValues values;
        values.add(owner);
        values.add(std::int64_t{allButNewest});
        revoked = static_cast<std::size_t>(m_connection.run(Revoke, values).count());
        m_connection.execute(TellTokens);
    });
    return revoked;
}
