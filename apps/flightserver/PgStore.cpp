// SPDX-License-Identifier: MIT
#include "PgStore.h"

#include "PgSchema.h"

#include <algorithm>

namespace
{
// Rows that are there already are counted, and a mission's newest row counts. Nothing is written where
// tokens have changed since they were read, nor without a standby that is asked for.
constexpr const char* Insert =
    "WITH written AS (INSERT INTO record AS r (owner,kind,id,times,mission,json) "
    "SELECT owner, kind, id, times, mission, json FROM unnest($1::bigint[], $2::bigint[], $3::text[], "
    "$4::bigint[], $5::text[], $6::text[]) AS u(owner,kind,id,times,mission,json) "
    "WHERE (SELECT tokens FROM ledger)=$7::bigint "
    "AND ($8::bigint=0 OR current_setting('synchronous_standby_names')<>'') "
    "ON CONFLICT (owner,kind,id) DO UPDATE SET times=r.times+excluded.times, "
    "json=CASE WHEN excluded.kind=ANY($9::bigint[]) THEN excluded.json ELSE r.json END "
    "RETURNING xmax<>0 AS again) "
    "SELECT count(*), count(*) FILTER (WHERE again) FROM written";
constexpr const char* SelectTokens =
    "SELECT encode(t.hash,'hex'), o.id, o.name FROM token t JOIN owner o ON o.id=t.owner "
    "WHERE t.revoked IS NULL";
constexpr const char* SelectChange = "SELECT tokens, EXISTS(SELECT 1 FROM token)::int FROM ledger";
constexpr const char* SelectStandby = "SELECT 1 WHERE current_setting('synchronous_standby_names')<>''";
// Changes nothing, but waits for a commit as rows do.
constexpr const char* Touch = "UPDATE ledger SET version=version";
constexpr int Attempts = 3; // tokens change seldom

std::vector<std::int64_t> missionKinds()
{
    std::vector<std::int64_t> kinds;
    for (const Endpoint& endpoint : Endpoints) {
        if (!endpoint.isBatch) {
            kinds.push_back(&endpoint - Endpoints);
        }
    }
    return kinds;
}
TokenHash fromHex(const std::string& digits)
{
    TokenHash hash{};
    for (std::size_t i = 0; i < hash.size() && 2 * i + 1 < digits.size(); ++i) {
        hash[i] = static_cast<unsigned char>(std::stoul(digits.substr(2 * i, 2), nullptr, 16));
    }
    return hash;
}
} // namespace

// The rows as the statement takes them: sorted by their key, so that no two servers wait for each other's
// rows, and each key once.
struct PgStore::Columns {
    std::vector<std::int64_t> owners, kinds, times;
    std::vector<std::string_view> ids, missions, jsons;
    std::size_t twins = 0; // rows whose key came before
};

PgStore::PgStore(const std::string& uri, Directory& directory, bool requiresSync)
    : Store(directory), m_connection(uri), m_requiresSync(requiresSync)
{
}

void PgStore::open()
{
    if (!m_connection.isOpen()) {
        try {
            openLedger(m_connection);
            readTokens();
        } catch (...) {
            m_connection.close();
            throw;
        }
    }
}

void PgStore::storeTogether(std::vector<Portion>& portions)
{
    open();
    for (int attempt = 0; attempt < Attempts; ++attempt) {
        confirmSenders(portions);
        const Columns columns = merge(sortRows(portions));
        if (columns.ids.empty() || write(columns, portions)) {
            return;
        }
        readTokens();
    }
    throw PgError("tokens change all the time", {});
}

PgStore::Columns PgStore::merge(const std::vector<Row>& rows) const
{
    const auto ownerOf = [](const Row& row) { return row.portion->delivery->sender.owner->number; };
    std::vector<const Row*> sorted;
    sorted.reserve(rows.size());
    for (const Row& row : rows) {
        sorted.push_back(&row);
    }
    std::stable_sort(sorted.begin(), sorted.end(),
                     [&](const Row* one, const Row* other) { return ownerOf(*one) < ownerOf(*other); });
    Columns columns;
    for (const Row* row : sorted) {
        const bool isTwin = !columns.ids.empty() && columns.ids.back() == row->record->id() &&
                            columns.kinds.back() == row->kind && columns.owners.back() == ownerOf(*row);
        if (isTwin) {
            ++columns.times.back();
            ++columns.twins;
            if (!row->portion->delivery->batch.endpoint().isBatch) {
                columns.jsons.back() = row->record->json();
            }
            continue;
        }
        columns.owners.push_back(ownerOf(*row));
        columns.kinds.push_back(row->kind);
        columns.ids.push_back(row->record->id());
        columns.times.push_back(1);
        columns.missions.push_back(missionOf(*row));
        columns.jsons.push_back(row->record->json());
    }
    return columns;
}

// False where tokens have changed since they were read.
bool PgStore::write(const Columns& columns, std::vector<Portion>& portions)
{
    static const std::vector<std::int64_t> MissionKinds = missionKinds();
    PgValues values;
    values.addArray(columns.owners);
    values.addArray(columns.kinds);
    values.addArray(columns.ids);
    values.addArray(columns.times);
    values.addArray(columns.missions);
    values.addArray(columns.jsons);
    values.add(m_tokensRead);
    values.add(std::int64_t{m_requiresSync});
    values.addArray(MissionKinds);
    const PgRows counts = m_connection.run(Insert, values);
    if (!m_connection.warning().empty()) {
        throw PgError(m_connection.warning(), {}); // committed here, and perhaps nowhere else
    }
    if (counts.number(0, 0) == 0) {
        checkStandby();
        return false;
    }
    const auto first = std::find_if(portions.begin(), portions.end(), [](const Portion& portion) {
        return portion.result.outcome == Result::Outcome::Stored;
    });
    first->result.again = static_cast<std::size_t>(counts.number(0, 1)) + columns.twins;
    return true;
}

void PgStore::checkStandby()
{
    if (m_requiresSync && m_connection.run(SelectStandby).count() == 0) {
        throw PgError("no synchronous standby (synchronous_standby_names is empty)", {});
    }
}

void PgStore::readTokens()
{
    const PgRows change = m_connection.run(SelectChange);
    const PgRows rows = m_connection.run(SelectTokens);
    std::vector<std::pair<TokenHash, const Owner*>> tokens;
    tokens.reserve(static_cast<std::size_t>(rows.count()));
    for (int row = 0; row < rows.count(); ++row) {
        tokens.emplace_back(fromHex(rows.text(row, 0)),
                            m_directory.owner(rows.number(row, 1), rows.text(row, 2)));
    }
    m_directory.replaceTokens(tokens, change.number(0, 1) != 0);
    m_tokensRead = change.number(0, 0);
}

void PgStore::idle()
{
    try {
        open();
        if (m_connection.run(SelectChange).number(0, 0) != m_tokensRead) {
            readTokens();
        }
    } catch (const PgError&) { // told when rows come
        m_connection.close();
    }
}

bool PgStore::probe()
{
    try {
        open();
        checkStandby();
        m_connection.execute(Touch);
        return m_connection.warning().empty();
    } catch (const PgError&) {
        return false;
    }
}

const Owner* PgStore::ownerNamed(const std::string& name)
{
    open();
    return m_directory.owner(ownerNumber(m_connection, name), name);
}
