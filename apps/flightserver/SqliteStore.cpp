// SPDX-License-Identifier: MIT
#include "SqliteStore.h"

#include "SqliteSchema.h"

#include <algorithm>

namespace
{
constexpr const char* InsertRow =
    "INSERT INTO record(kind,id,owner,times,mission,json) VALUES(?1,?2,?3,1,?4,?5) "
    "ON CONFLICT(kind,id,owner) DO UPDATE SET times=times+1";
// A mission changes while it is flown: the newest counts.
constexpr const char* InsertMission =
    "INSERT INTO record(kind,id,owner,times,mission,json) VALUES(?1,?2,?3,1,?4,?5) "
    "ON CONFLICT(kind,id,owner) DO UPDATE SET times=times+1, json=excluded.json";
constexpr const char* SelectTokens =
    "SELECT t.hash, o.id, o.name FROM token t JOIN owner o ON o.id=t.owner WHERE t.revoked IS NULL";
// Changes nothing, but writes a page.
constexpr const char* Touch = "UPDATE kind SET name=name WHERE id=1";
// As long as the longest row: a page more may find room in a log where rows find none.
constexpr std::size_t LeastRoom = 4 << 20;

} // namespace

SqliteStore::SqliteStore(const std::string& path, Directory& directory)
    : Store(directory)
    , m_file(openLedger(path))
    , m_insertRow(m_file.prepare(InsertRow))
    , m_insertMission(m_file.prepare(InsertMission))
    , m_version(m_file.prepare("PRAGMA data_version"))
{
    SqliteFile::Statement kind = m_file.prepare("SELECT id FROM kind WHERE name=?1");
    for (const Endpoint& endpoint : Endpoints) {
        kind.bind(1, endpoint.kind);
        m_kinds[&endpoint] = kind.step() ? kind.number(0) : 0;
        kind.run();
    }
    readTokens();
}

void SqliteStore::storeTogether(std::vector<Portion>& portions)
{
    if (m_file.isGone()) {
        throw StoreError(StoreError::Fault::Store, "the file has been moved or deleted");
    }
    m_file.transaction([&] {
        readChanges();
        confirmSenders(portions);
        // In the order of the key pages are touched once each.
        m_lastRow = 0;
        m_file.forgetLastRow();
        for (const Row& row : sortRows(portions)) {
            insert(row);
        }
    });
}

// Another process has changed something where the version differs; only tokens are changed that way.
void SqliteStore::readChanges()
{
    m_version.step();
    const std::int64_t version = m_version.number(0);
    m_version.run();
    if (version != m_versionRead) {
        readTokens();
        m_versionRead = version;
    }
}

void SqliteStore::readTokens()
{
    std::vector<std::pair<TokenHash, const Owner*>> tokens;
    SqliteFile::Statement select = m_file.prepare(SelectTokens);
    while (select.step()) {
        const std::string hash = select.text(0);
        TokenHash token{};
        std::copy_n(hash.begin(), std::min(hash.size(), token.size()), token.begin());
        tokens.emplace_back(token, m_directory.owner(select.number(1), select.text(2)));
    }
    m_directory.replaceTokens(tokens, m_file.number("SELECT EXISTS(SELECT 1 FROM token)") != 0);
}

void SqliteStore::insert(const Row& row)
{
    const Delivery& delivery = *row.portion->delivery;
    SqliteFile::Statement& statement = delivery.batch.endpoint().isBatch ? m_insertRow : m_insertMission;
    statement.bind(1, row.kind);
    statement.bind(2, row.record->id());
    statement.bind(3, delivery.sender.owner->number);
    statement.bind(4, missionOf(row));
    statement.bind(5, row.record->json());
    statement.run();
    const std::int64_t lastRow = m_file.lastRow(); // stays where a row was only changed
    row.portion->result.again += lastRow == m_lastRow ? 1 : 0;
    m_lastRow = lastRow;
}

bool SqliteStore::hasRoom() const
{
    return m_file.hasRoomFor(LeastRoom);
}

bool SqliteStore::probe()
{
    try {
        m_file.transaction([this] { m_file.execute(Touch); });
        return !m_file.isGone() && hasRoom();
    } catch (const StoreError&) {
        return false;
    }
}

const Owner* SqliteStore::ownerNamed(const std::string& name)
{
    std::int64_t number = 0;
    m_file.transaction([&] { number = ownerNumber(m_file, name); });
    return m_directory.owner(number, name);
}
