// SPDX-License-Identifier: MIT
#include "Baseline.h"
#include "flightdesk/words/Latin1.h"
#include "Host.h"
#include "KvAlgorthm.h"
#include "MissionFile.h"
#include "Suites.h"

#include <QtCore/QTemporaryDir>
#include <QtCore/QUuid>

#include <array>
#include <ctime>

namespace
{
constexpr int Texts = 3;
constexpr int Numbers = 6;
constexpr const char* Columns[] = {"id",  "flight_mission_id", "time",  "lng",    "lat",
                                   "alt", "relative_alt",      "speed", "heading"};
constexpr const char* InsertPosition =
    "INSERT INTO pos_data(id,flight_mission_id,time,lng,lat,alt,relative_alt,speed,heading)"
    "VALUES(?,?,?,?,?,?,?,?,?)";
constexpr const char* InsertMessage =
    "INSERT INTO flight_monitor_detail_log(id,flight_mission_id,message,created_at,is_uploaded)"
    "VALUES(?,?,?,?,?)";
const QString PositionColumns = ":/pos_data.txt"_l1;

QByteArray newId()
{
    return UidToString(QUuid::createUuid()).toLatin1();
}

struct Position {
    std::array<QByteArray, Texts> texts;
    std::array<double, Numbers> numbers;
    std::array<QByteArray, Numbers> numbersAsText;
};
using Positions = std::vector<Position>;

Positions newPositions(int count)
{
    Positions positions;
    for (int i = 0; i < count; ++i) {
        Position position{{newId(), MissionId, "2026-04-12 10:20:30.125"},
                          {8.545 + i * 1e-6, 47.397 + i * 1e-6, 488.5, i % 120 + 0.25, 12.5, i % 360 + 0.5},
                          {}};
        for (std::size_t k = 0; k < Numbers; ++k) {
            position.numbersAsText[k] = QByteArray::number(position.numbers[k], 'g', 12);
        }
        positions.push_back(position);
    }
    return positions;
}

QJsonArray toJson(const Positions& positions, bool asText)
{
    QJsonArray array;
    for (const Position& position : positions) {
        QJsonObject object;
        for (std::size_t k = 0; k < Texts; ++k) {
            object.insert(QLatin1String(Columns[k]), QString::fromUtf8(position.texts[k]));
        }
        for (std::size_t k = 0; k < Numbers; ++k) {
            object.insert(QLatin1String(Columns[Texts + k]),
                          asText ? QJsonValue(QString::fromUtf8(position.numbersAsText[k]))
                                 : position.numbers[k]);
        }
        array.append(object);
    }
    return array;
}

void insertPositions(Database& database, const Positions& positions, bool asText)
{
    database.run("BEGIN IMMEDIATE");
    {
        const Database::Statement insert = database.prepare(InsertPosition);
        for (const Position& position : positions) {
            int index = 1;
            for (const QByteArray& text : position.texts) {
                bindText(insert, index++, text);
            }
            for (std::size_t k = 0; k < Numbers; ++k, ++index) {
                if (asText) {
                    bindText(insert, index, position.numbersAsText[k]);
                } else {
                    sqlite3_bind_double(insert.get(), index, position.numbers[k]);
                }
            }
            database.insert(insert);
        }
    }
    database.run("COMMIT");
}

void requireAlike(const QString& ours, const QString& baseline, const char* table)
{
    require(countRows(ours, table) == countRows(baseline, table),
            "rows are missing in "_l1 + QLatin1String(table));
}

// A file for each of the two, both grow alike.
struct Files {
    explicit Files(const QTemporaryDir& folder, const char* name)
        : ours(folder.filePath(QLatin1String(name) + "-ours.kv"_l1))
        , baseline(folder.filePath(QLatin1String(name) + "-baseline.kv"_l1))
    {
        makeMissionFile(ours);
        makeMissionFile(baseline);
    }
    QString ours;
    QString baseline;
};

Pair fiveArguments(const QTemporaryDir& folder, int records, int rounds)
{
    const Files files(folder, "five");
    Host host(EUploadEnv::None);
    const Pair pair = interleave(
        rounds,
        [&] {
            const QJsonArray array = toJson(newPositions(records), true);
            return seconds([&] {
                host.op.slotParseJson(array, PositionColumns, QString::fromUtf8(MissionId), 1, files.ours);
            });
        },
        [&] {
            const Positions positions = newPositions(records);
            return seconds([&] {
                Database database(files.baseline);
                insertPositions(database, positions, true);
            });
        });
    requireAlike(files.ours, files.baseline, "pos_data");
    return pair;
}

Pair threeArguments(const QTemporaryDir& folder, int records, int rounds)
{
    const Files files(folder, "three");
    Host host(EUploadEnv::None, files.ours);
    Database database(files.baseline);
    const Pair pair = interleave(
        rounds,
        [&] {
            const QJsonArray array = toJson(newPositions(records), false);
            return seconds(
                [&] { Q_EMIT host.positions(array, PositionColumns, QString::fromUtf8(MissionId)); });
        },
        [&] {
            const Positions positions = newPositions(records);
            return seconds([&] { insertPositions(database, positions, false); });
        });
    requireAlike(files.ours, files.baseline, "pos_data");
    return pair;
}

QByteArray now()
{
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    tm parts{};
    localtime_r(&time.tv_sec, &parts);
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02d %02d:%02d:%02d.%03ld", parts.tm_year + 1900,
                  parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                  time.tv_nsec / 1000000);
    return text.data();
}

void insertMessages(Database& database, const Database::Statement& insert, const QByteArray& message,
                    int count)
{
    database.run("BEGIN IMMEDIATE");
    for (int i = 0; i < count; ++i) {
        const QByteArray id = newId();
        const QByteArray time = now();
        bindText(insert, 1, id);
        bindText(insert, 2, MissionId);
        sqlite3_bind_blob(insert.get(), 3, message.constData(), message.size(), SQLITE_STATIC);
        bindText(insert, 4, time);
        sqlite3_bind_int(insert.get(), 5, 0);
        database.insert(insert);
    }
    database.run("COMMIT");
}

Pair monitor(const QTemporaryDir& folder, int rounds)
{
    constexpr int Messages = 2000;
    constexpr int Batch = 50;
    const Files files(folder, "monitor");
    const QByteArray message(MessageBytes, '\xfd');
    Host host(EUploadEnv::None, files.ours);
    host.op.SetFilghtMissionID(QString::fromUtf8(MissionId));
    Database database(files.baseline);
    const Database::Statement insert = database.prepare(InsertMessage);
    Pair pair = interleave(
        rounds,
        [&] {
            return seconds([&] {
                for (int i = 0; i < Messages; ++i) {
                    Q_EMIT host.message(message);
                }
            });
        },
        [&] {
            return seconds([&] {
                for (int i = 0; i < Messages; i += Batch) {
                    insertMessages(database, insert, message, Batch);
                }
            });
        });
    requireAlike(files.ours, files.baseline, "flight_monitor_detail_log");
    pair.ours /= Messages;
    pair.baseline /= Messages;
    return pair;
}

// A flight that goes on in a file that holds a long one already, beside one in a file of its own.
Pair monitorInFullFile(const QTemporaryDir& folder, int rounds)
{
    constexpr int Messages = 2000;
    constexpr int Rows = 1000000;
    const Files files(folder, "long");
    addLog(files.ours, Rows);
    const QByteArray message(MessageBytes, '\xfd');
    const auto record = [&](const QString& file) {
        Host host(EUploadEnv::None, file);
        host.op.SetFilghtMissionID(QString::fromUtf8(MissionId));
        return seconds([&] {
                   for (int i = 0; i < Messages; ++i) {
                       Q_EMIT host.message(message);
                   }
               }) /
               Messages;
    };
    const Pair pair = interleave(
        rounds, [&] { return record(files.ours); }, [&] { return record(files.baseline); });
    const qint64 recorded = countRows(files.baseline, "flight_monitor_detail_log");
    require(recorded == qint64(rounds) * Messages &&
                countRows(files.ours, "flight_monitor_detail_log") == Rows + recorded,
            "messages are missing"_l1);
    return pair;
}
} // namespace

// In memory only the work shows; on disk the syncs of a commit do as well.
void benchStore(Report& report)
{
    constexpr int Rounds = 15;
    const auto both = [&report](const QString& what, double reachInMemory, double reach, const auto& bench) {
        report.add(what + ", in memory"_l1, bench(QTemporaryDir(memoryFolder()), 3 * Rounds), Unit::Seconds,
                   reachInMemory);
        report.add(what + ", on disk"_l1, bench(QTemporaryDir(diskFolder()), Rounds), Unit::Seconds, reach);
    };
    both("slotParseJson, 5 arguments, 1000 records"_l1, 1.6, 1.6,
         [](const QTemporaryDir& folder, int rounds) { return fiveArguments(folder, 1000, rounds); });
    // In memory there is no commit to speak of, just statements that Qt prepares more slowly.
    both("slotParseJson, 5 arguments, 1 record"_l1, 0, 1.2,
         [](const QTemporaryDir& folder, int rounds) { return fiveArguments(folder, 1, 5 * rounds); });
    both("slotParseJson, 3 arguments, 1000 records"_l1, 2.5, 2.5,
         [](const QTemporaryDir& folder, int rounds) { return threeArguments(folder, 1000, rounds); });
    both("slotWriteFlightMonitor, a 200-byte message"_l1, 1.8, 1.8,
         [](const QTemporaryDir& folder, int rounds) { return monitor(folder, rounds); });
    both("the same into 1,000,000 rows / an empty file"_l1, 1.15, 1.15,
         [](const QTemporaryDir& folder, int rounds) { return monitorInFullFile(folder, rounds); });
}
