// SPDX-License-Identifier: MIT
#include "Project.h"

#include <KvAlgorthm.h>

#include <QtCore/QDateTime>
#include <QtCore/QDir>
#include <QtCore/QSettings>

#include <utility>

namespace
{
bool createTables(CKvDataBase& database)
{
    const std::pair<QString, QString> tables[] = {
        {FlightMissionTableName, GetFlightMissionTableContents()},
        {FlightLogTableName, GetFlightLogTableContents()},
        {UasStatusTableName, GetUasStatusTableContents()},
        {PosDataTableName, GetPosDataTableContents()},
        {FlightCompleteTableName, GetFlightCompleteTableContents()},
    };
    bool created = true;
    for (const auto& [table, contents] : tables) {
        created = CreateTable(table, contents, database.DBInstance()) && created;
    }
    return created;
}
} // namespace

Project::Project(QString path) : m_path(std::move(path))
{
    CKvControl::GetInstance(true, EPlaneType::Multirotor)->SetProjectDirPath(m_path);
}

std::optional<Project> Project::make(const QString& path, QString* error)
{
    if (path.isEmpty() || !QDir().mkpath(path)) {
        *error = QStringLiteral("cannot make the project folder \"%1\"").arg(path);
        return std::nullopt;
    }
    return open(path, error);
}

std::optional<Project> Project::open(const QString& path, QString* error)
{
    if (path.isEmpty() || !QDir(path).exists()) {
        *error = QStringLiteral("there is no project folder \"%1\"").arg(path);
        return std::nullopt;
    }
    return Project(QDir(path).absolutePath());
}

QString Project::id() const
{
    const QString key = QStringLiteral("project/id");
    QSettings settings(m_path + QStringLiteral("/project.ini"), QSettings::IniFormat);
    QUuid id(settings.value(key).toString());
    if (id.isNull()) {
        id = QUuid::createUuid();
        settings.setValue(key, UidToString(id));
        settings.sync();
    }
    return settings.status() == QSettings::NoError ? UidToString(id) : QString();
}

QString Project::createMissionFile(const MissionFormat& format, const QString& missionId, qint64 startUsec,
                                   QString* error) const
{
    const QString start =
        QDateTime::fromMSecsSinceEpoch(startUsec / 1000, Qt::UTC).toString(QStringLiteral("yyyyMMdd-hhmmss"));
    const QString folder = QStringLiteral("%1/%2_%3").arg(m_path, start, missionId.left(8));
    QString file = folder + QStringLiteral("/flight") + format.suffix;
    if (QDir().mkpath(folder)) {
        if (format.easyFly) {
            return file;
        }
        CKvDataBase database(file);
        if (database.open() && createTables(database)) {
            return file;
        }
    }
    *error = QStringLiteral("cannot make the mission file %1").arg(file);
    return {};
}

QStringList Project::missionFiles(const QStringList& patterns) const
{
    QStringList files;
    const QDir project(m_path);
    for (const QString& name : project.entryList(QDir::AllDirs | QDir::NoDotAndDotDot, QDir::Name)) {
        const QDir folder(project.absoluteFilePath(name));
        for (const QString& file : folder.entryList(patterns, QDir::Files, QDir::Name)) {
            files.append(folder.absoluteFilePath(file));
        }
    }
    return files;
}
