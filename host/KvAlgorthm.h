// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QJsonObject>
#include <QtCore/QJsonValue>
#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QtGlobal>
#include <QtCore/QUuid>
#include <QtCore/QVariant>

class QSqlQuery;

#if defined(KVALGORTHM_LIBRARY)
#define KVALGORTHM_EXPORT Q_DECL_EXPORT
#else
#define KVALGORTHM_EXPORT Q_DECL_IMPORT
#endif

/// \file
/// The host application's settings, table definitions and record formats.
///
/// Settings live in memory for the life of the process and may be read and set from any thread.

/// The signed-in user.
struct KVALGORTHM_EXPORT SKvUserInfo {
    QString m_strToken;    ///< access token; sent as the request header "token", kept in memory only
    QString m_strUserName; ///< name under which the user signed in

    SKvUserInfo();                                  ///< nobody: all fields empty
    SKvUserInfo(const SKvUserInfo&);                ///< copies all fields
    SKvUserInfo(SKvUserInfo&&) noexcept;            ///< takes the fields over
    SKvUserInfo& operator=(const SKvUserInfo&);     ///< copies all fields
    SKvUserInfo& operator=(SKvUserInfo&&) noexcept; ///< takes the fields over
    ~SKvUserInfo();                                 ///< forgets them
};

/// \name Table names
/// Tables of a mission database file. Statements name the first four literally, so these values are fixed.
/// @{
KVALGORTHM_EXPORT extern const QString FlightMissionTableName;  ///< "flight_mission"
KVALGORTHM_EXPORT extern const QString FlightLogTableName;      ///< "flight_monitor_detail_log"
KVALGORTHM_EXPORT extern const QString UasStatusTableName;      ///< "uas_status"
KVALGORTHM_EXPORT extern const QString PosDataTableName;        ///< "pos_data"
KVALGORTHM_EXPORT extern const QString FlightVideoTableName;    ///< "flight_video_mission"
KVALGORTHM_EXPORT extern const QString FlightCompleteTableName; ///< "flight_complete"
/// @}

/// \name Settings names
/// Where a host that stores the user's token keeps it: QSettings(OrganizationName, CloundApplicationName),
/// group UserInfoGroupName, key UserInfoToken. These libraries only ever read it.
/// @{
KVALGORTHM_EXPORT extern QString OrganizationName; ///< may be changed by the host before the first use
KVALGORTHM_EXPORT extern const QString CloundApplicationName; ///< application name of the settings
KVALGORTHM_EXPORT extern const QString UserInfoGroupName;     ///< group of the signed-in user
KVALGORTHM_EXPORT extern const QString UserInfoToken;         ///< key of the token
/// @}

/// QDateTime format of "created_at": "yyyy-MM-dd hh:mm:ss.zzz", local time.
KVALGORTHM_EXPORT extern const QString DateTimeMSFormat;

/// Base address of the upload server, an absolute http or https URL without a trailing "/"; empty until
/// SetServerIP() has been called.
KVALGORTHM_EXPORT QByteArray GetServerIP();

/// Sets the base address of the upload server.
///
/// \param address  absolute http or https URL with a host, optionally a port and a path; no user name,
///                 query or fragment. Trailing "/" are removed.
/// \return false, with a warning in the log, when the address is anything else; the old one then stays
KVALGORTHM_EXPORT bool SetServerIP(const QByteArray& address);

/// The signed-in user; an empty record until SetCurUserInfo() has been called.
KVALGORTHM_EXPORT SKvUserInfo GetCurUserInfo();

/// Sets the signed-in user, whose token is kept out of the log from now on (Logger::addSecret()).
///
/// \return false, with a warning in the log that does not repeat the token, when the token holds a
///         character that cannot stand in a request header (anything but printable Latin-1); the old
///         record then stays
KVALGORTHM_EXPORT bool SetCurUserInfo(const SKvUserInfo& user);

/// Text that describes this client: product, version and operating system. Sent as User-Agent.
KVALGORTHM_EXPORT QString GetSysinfo();

/// Whether requests go through a debugging proxy at 127.0.0.1 port 8888; false at the start.
KVALGORTHM_EXPORT bool EnabledFiddler();
/// Sets the answer of EnabledFiddler(). Transfer objects ask it when they are constructed.
KVALGORTHM_EXPORT void SetEnabledFiddler(bool enabled);

/// Whether the server is a test server; false at the start.
KVALGORTHM_EXPORT bool IsTestServer();
/// Sets the answer of IsTestServer().
KVALGORTHM_EXPORT void SetTestServer(bool testServer);

/// The host's home folder, ending with "/"; the user's application data folder until SetHomeDir().
KVALGORTHM_EXPORT QString GetHomeDir();
/// Sets the home folder; a missing trailing "/" is added.
///
/// \return false, with a warning in the log, when the path is not absolute; the old one then stays
KVALGORTHM_EXPORT bool SetHomeDir(const QString& path);

/// Splits a JSON array into its elements: one QVariant for each, in order, holding a QJsonObject (an empty
/// one for an element that is not an object). Anything but an array gives an empty list.
KVALGORTHM_EXPORT QList<QVariant> ReadJsonArray(const QJsonValue& value);

/// \name JSON records
/// The object that the server expects for the row on which the query stands: one member for each column
/// but "is_uploaded", under the column's name. The query is only read, never moved.
///
/// Positions, status records and monitor messages travel many to a request, which names their mission: their
/// objects leave out every column that is NULL, and "flight_mission_id" unless its text holds what a form
/// would change: a "%", "&", "+", "=" or ";", or anything but ASCII.
///
/// Bodies are posted as form data without further encoding, so the values are safe there: after a form
/// decoder has worked on the body, a JSON reader gives
/// - a text column's exact text (in the object, characters with a meaning in forms stand as %XX);
/// - a number as a number; as text where JSON or a form would change it: integers beyond 2^53, and numbers
///   whose notation needs a "+";
/// - NULL as null, or as no member (above);
/// - a BLOB, and the flight log's "message" whatever its type, as base64url without padding.
/// @{
KVALGORTHM_EXPORT QJsonObject FlightMissionComboJsonInfo(QSqlQuery* query); ///< a flight or video mission
KVALGORTHM_EXPORT QJsonObject PosDataComboJsonInfo(QSqlQuery* query);       ///< a position
KVALGORTHM_EXPORT QJsonObject UasStatusComboJsonInfo(QSqlQuery* query);     ///< an aircraft status
KVALGORTHM_EXPORT QJsonObject FlightLogComboJsonInfo(QSqlQuery* query);     ///< a flight monitor message
KVALGORTHM_EXPORT QJsonObject FlightVideoMissionComboJsonInfo(QSqlQuery* query); ///< a video mission
/// @}

/// \name Table contents
/// Column definitions (SQLite) in the form that CreateTable() of KvData takes.
/// @{
KVALGORTHM_EXPORT QString GetFlightMissionTableContents();  ///< of FlightMissionTableName
KVALGORTHM_EXPORT QString GetFlightLogTableContents();      ///< of FlightLogTableName
KVALGORTHM_EXPORT QString GetUasStatusTableContents();      ///< of UasStatusTableName
KVALGORTHM_EXPORT QString GetPosDataTableContents();        ///< of PosDataTableName
KVALGORTHM_EXPORT QString GetFlightVideoTableContents();    ///< of FlightVideoTableName
KVALGORTHM_EXPORT QString GetFlightCompleteTableContents(); ///< of FlightCompleteTableName
/// @}

/// Text of a freshly created UUID for use as an id: lower case, with hyphens, without braces.
///
/// A random UUID (version 4), as QUuid::createUuid() makes it, becomes version 7 of RFC 9562: 48 bits of
/// milliseconds since 1970 UTC, then 74 of its random bits. So ids sort by the time at which they were made,
/// and an index on them grows at its end instead of all over. The time never goes back within a process,
/// whatever its threads and the system's clock do. Each call stamps anew: to keep an id, keep its text.
///
/// Every other UUID is a fixed one (made from a name, stamped already, null) and keeps its value.
KVALGORTHM_EXPORT QString UidToString(const QUuid& uid);
