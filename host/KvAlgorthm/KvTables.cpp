// SPDX-License-Identifier: MIT
#include "KvAlgorthm.h"

const QString FlightMissionTableName = QStringLiteral("flight_mission");
const QString FlightLogTableName = QStringLiteral("flight_monitor_detail_log");
const QString UasStatusTableName = QStringLiteral("uas_status");
const QString PosDataTableName = QStringLiteral("pos_data");
const QString FlightVideoTableName = QStringLiteral("flight_video_mission");
const QString FlightCompleteTableName = QStringLiteral("flight_complete");

namespace
{
// A writer that leaves a column out, or binds NULL to it, must not make a row that is never uploaded (no
// is_uploaded), uploaded for ever (no id to mark it by) or undated; so NULL is replaced by the default.
// Ids are text so that 7 and '7' are one id, and unique because a record that comes again is the same one.
// The default has the form of UidToString(): milliseconds since 1970, version and variant, random digits.
QString Id()
{
    const QString ms = QStringLiteral("strftime('%s', 'now') * 1000 + substr(strftime('%f', 'now'), 4)");
    return QStringLiteral("id TEXT PRIMARY KEY NOT NULL ON CONFLICT REPLACE DEFAULT (lower(printf("
                          "'%08x-%04x-7%.3s-8%.3s-%s', (") +
           ms + QStringLiteral(") >> 16, (") + ms +
           QStringLiteral(") & 65535, hex(randomblob(2)), hex(randomblob(2)), hex(randomblob(6))))), ");
}

QString CreatedAt()
{
    return QStringLiteral(", created_at TEXT NOT NULL ON CONFLICT REPLACE"
                          " DEFAULT (strftime('%Y-%m-%d %H:%M:%f', 'now', 'localtime'))");
}

QString IsUploaded()
{
    return QStringLiteral(", is_uploaded INTEGER NOT NULL ON CONFLICT REPLACE DEFAULT 0");
}

QString UploadTable(const char* columns)
{
    return Id() + QLatin1String(columns) + CreatedAt() + IsUploaded();
}

// Breakpoint columns are text: they keep the digits that were recorded.
constexpr char FlightMissionColumns[] =
    "project_id TEXT, mission_id TEXT, name TEXT, aircraft TEXT, "
    "started_at TEXT, flight_mission_data TEXT, "
    "last_waypoint_index TEXT, break_point_lng TEXT, break_point_lat TEXT, clock_offset REAL";
} // namespace

QString GetFlightMissionTableContents()
{
    return UploadTable(FlightMissionColumns);
}

QString GetFlightVideoTableContents()
{
    return UploadTable((QByteArray(FlightMissionColumns) + ", video_file TEXT").constData());
}

QString GetFlightLogTableContents()
{
    return UploadTable("flight_mission_id TEXT, message BLOB");
}

QString GetPosDataTableContents()
{
    return UploadTable("flight_mission_id TEXT, time TEXT, lng REAL, lat REAL, alt REAL, relative_alt REAL, "
                       "speed REAL, heading REAL");
}

QString GetUasStatusTableContents()
{
    return UploadTable("flight_mission_id TEXT, mission_id TEXT, time TEXT, battery_voltage REAL, "
                       "battery_remaining INTEGER, flight_mode TEXT, armed INTEGER, satellites INTEGER, "
                       "fix_type INTEGER, roll REAL, pitch REAL, yaw REAL");
}

QString GetFlightCompleteTableContents()
{
    return Id() + QStringLiteral("flight_mission_id TEXT, completed_at TEXT, result TEXT") + CreatedAt();
}
