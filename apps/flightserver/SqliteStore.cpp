// SPDX-License-Identifier: MIT
#include "SqliteStore.h"

#include "SqliteSchema.h"

#include <algorithm>
#include <cstring>
#include <tuple>

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

std::uint64_t firstBytes(const TokenHash& token)
{
    std::uint64_t number = 0;
    std::memcpy(&number, token.data(), sizeof(number));
    return number;
}

void setAll(std::vector<Portion>& portions, Result::Outcome outcome, const char* words)
{
    for (Portion& portion : portions) {
        portion.result = {outcome, words, 0};
    }
}
} // namespace

const Owner* Directory::owner(std::int64_t number, const std::string& name)
{
    const std::lock_guard lock(m_mutex);
    return &m_owners.try_emplace(number, Owner{number, name}).first->second;
}

std::optional<Sender> Directory::senderOf(const TokenHash& token) const
{
    const std::lock_guard lock(m_mutex);
    const auto [begin, end] = m_tokens.equal_range(firstBytes(token));
    for (auto entry = begin; entry != end; ++entry) {
        if (isSame(entry->second.first, token)) {
            return Sender{entry->second.second, token};
        }
    }
    return std::nullopt;
}

void Directory::replaceTokens(const std::vector<std::pair<TokenHash, const Owner*>>& tokens, bool known)
{
    const std::lock_guard lock(m_mutex);
    m_knowsTokens = known;
    m_tokens.clear();
    for (const auto& token : tokens) {
        m_tokens.emplace(firstBytes(token.first), token);
    }
}

SqliteStore::SqliteStore(const std::string& path)
    : m_file(openLedger(path))
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

void SqliteStore::store(std::vector<Portion>& portions)
{
    try {
        storeTogether(portions);
    } catch (const SqliteError& error) {
        if (error.isOfDisk()) {
            setAll(portions, Result::Outcome::Failed, error.what());
        } else if (portions.size() == 1) {
            setAll(portions, Result::Outcome::Refused, error.what());
        } else {
            std::for_each(portions.begin(), portions.end(),
                          [this](Portion& portion) { storeAlone(portion); });
        }
    }
}

void SqliteStore::storeAlone(Portion& portion)
{
    std::vector<Portion> alone{portion};
    store(alone);
    portion.result = std::move(alone.front().result);
}

void SqliteStore::storeTogether(std::vector<Portion>& portions)
{
    if (m_file.isGone()) {
        setAll(portions, Result::Outcome::Failed, "the file has been moved or deleted");
        return;
    }
    m_file.transaction([&] {
        checkSenders(portions);
        insertSorted(portions);
    });
}

// Another process has changed something where the version differs; only tokens are changed that way.
void SqliteStore::checkSenders(std::vector<Portion>& portions)
{
    m_version.step();
    const std::int64_t version = m_version.number(0);
    m_version.run();
    if (version != m_versionRead) {
        readTokens();
        m_versionRead = version;
    }
    for (Portion& portion : portions) {
        const bool good = isGood(portion.delivery->sender);
        portion.result = {good ? Result::Outcome::Stored : Result::Outcome::Revoked, {}, 0};
    }
}

// Who was let in unknown gets his rows under his name where his token is known by now.
bool SqliteStore::isGood(Sender& sender) const
{
    if (!sender.token) {
        return true;
    }
    if (const std::optional<Sender> known = m_directory.senderOf(*sender.token)) {
        sender = *known;
        return true;
    }
    return sender.mayBeUnknown && !m_directory.knowsTokens();
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

// In the order of the key pages are touched once each. Rows of one key stay in the order in which they came.
void SqliteStore::insertSorted(std::vector<Portion>& portions)
{
    m_rows.clear();
    for (Portion& portion : portions) {
        if (portion.result.outcome == Result::Outcome::Stored) {
            const Batch& batch = portion.delivery->batch;
            const std::int64_t kind = m_kinds[&batch.endpoint()];
            for (std::size_t i = portion.first; i < portion.first + portion.count; ++i) {
                m_rows.push_back({kind, &batch.records()[i], &portion});
            }
        }
    }
    std::stable_sort(m_rows.begin(), m_rows.end(), [](const Key& one, const Key& other) {
        return one.kind != other.kind ? one.kind < other.kind : one.record->id() < other.record->id();
    });
    m_lastRow = 0;
    m_file.forgetLastRow();
    for (const Key& row : m_rows) {
        insert(row);
    }
}

void SqliteStore::insert(const Key& row)
{
    const Delivery& delivery = *row.portion->delivery;
    SqliteFile::Statement& statement = delivery.batch.endpoint().isBatch ? m_insertRow : m_insertMission;
    statement.bind(1, row.kind);
    statement.bind(2, row.record->id());
    statement.bind(3, delivery.sender.owner->number);
    statement.bind(4, delivery.batch.endpoint().isBatch ? delivery.batch.mission() : row.record->id());
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
    } catch (const SqliteError&) {
        return false;
    }
}

const Owner* SqliteStore::ownerNamed(const std::string& name)
{
    std::int64_t number = 0;
    m_file.transaction([&] { number = ownerNumber(m_file, name); });
    return m_directory.owner(number, name);
}
