// SPDX-License-Identifier: MIT
#pragma once

#include "telemetry/Breakpoint.h"

#include <KvData.h>

#include <QtCore/QDateTime>
#include <QtCore/QHash>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVector>
#include <QtSql/QSqlError>

#include <functional>

/// What a mission file holds: a flight mission, or a video mission, which easy-fly makes.
struct MissionFormat {
    bool easyFly;
    QString suffix;
    QString missionTable;
    QStringList uploadKinds; ///< tables whose rows are uploaded, the mission's own first

    static const MissionFormat& flight();
    static const MissionFormat& video();
};

/// Why rows wait that no upload can help.
enum class Obstacle {
    None,
    NoMissionRow, ///< only rows of a mission with a row of its own are ever sent
    NotMarkable,  ///< the file, its folder or its disk is read-only, so that accepted rows cannot be marked
    DiskFull,     ///< nor when the disk is full
};
/// \param ofFile  what goes for all of its file
Obstacle obstacleOf(bool hasMissionRow, Obstacle ofFile);
/// Why, in words; empty for None.
QString obstacleWords(Obstacle obstacle);
/// The room below which a disk is taken to be full, in bytes: marks and records take some while they are
/// written.
constexpr qint64 LeastRoom = 1024LL * 1024;

/// Rows of one kind that one mission has in one file.
struct KindCount {
    QString kind; ///< table name
    qint64 recorded = 0;
    qint64 accepted = 0; ///< in the server's ledger; 0 without one
    qint64 marked = 0;   ///< as uploaded
    qint64 waiting = 0;

    KindCount& operator+=(const KindCount& other);
};

struct MissionCount {
    QString id;
    QString name;
    QString aircraft;
    QString startedAt;   ///< ISO 8601 in UTC
    bool hasRow = false; ///< rows of a mission without a row of its own are never sent
    std::optional<Breakpoint> breakpoint;
    double clockOffset = 0; ///< seconds from the recorder's clock to the vehicle's own
    QString completedAt;    ///< ISO 8601 in UTC; empty while it is recorded, or when that broke off
    QString result;
    QString logId;                 ///< of the content of the log that it was recorded from
    bool isIncomplete = false;     ///< it was not recorded to its end
    std::optional<qint64> seconds; ///< how long it is as far as it is stored
    qint64 wholeSeconds = 0;       ///< and as its log has it; 0 when that is not known
    qint64 skippedBytes = 0;       ///< of its log, which are no telemetry
    qint64 truncatedBytes = 0;     ///< of a last record that its log breaks off in
    QVector<KindCount> kinds;

    /// "incomplete (4 s of 22:57)"; empty for a flight that is whole.
    QString incompleteWords() const;
    /// "log cut off"; empty for a flight whose log is not.
    QString cutWords() const;
    /// What of its log was not recorded; empty when nothing is known to be missing.
    QString lostWords() const;
    /// When it began, in UTC and by the vehicle's clock, as all days and times that are shown; invalid when
    /// the mission does not tell.
    QDateTime begun() const;
};

/// `result` of a flight whose end nobody wrote: its recorder died.
const QString RecorderEnded = QStringLiteral("recorder ended");

/// What the document of a mission (flight_mission_data) tells of its recording. It goes to the server with
/// the mission.
namespace missionKeys
{
const QString Log = QStringLiteral("log");
const QString LogId = QStringLiteral("log_id");
const QString WholeSeconds = QStringLiteral("log_seconds");
const QString SkippedBytes = QStringLiteral("log_skipped_bytes");
const QString TruncatedBytes = QStringLiteral("log_truncated_bytes");
const QString Incomplete = QStringLiteral("incomplete");
} // namespace missionKeys

/// A short visit to a mission file that exists. Nothing is written.
class MissionFile
{
public:
    explicit MissionFile(const QString& path);

    /// Whether the file could be opened and every read so far went well.
    bool isReadable() const { return m_readable; }
    bool hasTable(const QString& table) const { return m_tables.contains(table); }
    /// Makes the tables of another database readable under the name "ledger".
    void attachLedger(const QString& path);

    using RowReader = std::function<void(const QSqlQuery&)>;
    void read(const QString& sql, const RowReader& row);
    /// Reads for as long as `row` returns true. An error leaves the file readable: other rows may be sound.
    QSqlError readSome(const QString& sql, const std::function<bool(const QSqlQuery&)>& row);
    QStringList columns(const QString& table);
    /// Of each table the row that was the last one at one and the same moment.
    QHash<QString, qint64> lastRows();

    /// Every mission's rows, kind by kind.
    /// \param withLedger  count accepted rows; attachLedger() has been called
    QVector<MissionCount> count(bool withLedger);
    /// The missions without their rows, of which there may be millions. One that has no row of its own is
    /// found where a table begins or ends with its rows.
    QVector<MissionCount> missions();
    /// Id of the message with which its next batch begins; empty when none waits.
    QString firstWaitingMessage(const QString& missionId);
    /// Rows of a mission that wait for upload.
    qint64 waiting(const QString& missionId);

    /// The breakpoint of a flight mission, if it has one.
    std::optional<Breakpoint> breakpoint(const QString& missionId);

    /// Column of a table with uploaded rows that names the mission.
    static QString missionColumn(const QString& kind);
    /// Why accepted rows cannot be marked: the file or its folder is read-only, or the disk is full.
    static Obstacle markObstacle(const QString& path);

private:
    /// Those with a row of their own, and how they ended.
    QVector<MissionCount> readMissions();
    void readRows(const QString& table, QVector<MissionCount>* missions);
    void readEnds(QVector<MissionCount>* missions);
    void readCompletions(QVector<MissionCount>* missions);
    void readLength(MissionCount* mission, bool isAlone);
    void countKind(const QString& kind, bool withLedger, QVector<MissionCount>* missions);

    CKvDataBase m_database;
    bool m_readable = false;
    QStringList m_tables;
};
