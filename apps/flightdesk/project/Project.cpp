// SPDX-License-Identifier: MIT
#include "project/Project.h"

#include "words/Failure.h"

#include <KvAlgorthm.h>

#include <QtCore/QDateTime>
#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QSettings>
#include <QtCore/QStorageInfo>

#include <utility>

namespace
{
const QString IniFile = QStringLiteral("project.ini");
const QStringList FlightFiles{QStringLiteral("*.kv")};

/// Files in the folders of a folder.
QStringList filesIn(const QString& path, const QStringList& patterns)
{
    QStringList files;
    const QDir project(path);
    for (const QString& name : project.entryList(QDir::AllDirs | QDir::NoDotAndDotDot, QDir::Name)) {
        const QDir folder(project.absoluteFilePath(name));
        for (const QString& file : folder.entryList(patterns, QDir::Files, QDir::Name)) {
            files.append(folder.absoluteFilePath(file));
        }
    }
    return files;
}
} // namespace

Project::Project(QString path) : m_path(std::move(path))
{
    CKvControl::GetInstance(true, EPlaneType::Multirotor)->SetProjectDirPath(m_path);
}

bool Project::isProject(const QString& path)
{
    if (path.isEmpty() || !QFileInfo(path).isDir()) {
        return false;
    }
    return QFileInfo::exists(path + QLatin1Char('/') + IniFile) || !filesIn(path, FlightFiles).isEmpty();
}

Project Project::make(const QString& path)
{
    if (path.isEmpty() || !QDir().mkpath(path)) {
        throw Failure(QStringLiteral("cannot make the project folder \"%1\"").arg(path));
    }
    const bool isNew = !isProject(path);
    Project project(QDir(path).absolutePath());
    if (isNew && project.id().isEmpty()) {
        throw Failure(QStringLiteral("cannot write %1/%2").arg(project.path(), IniFile));
    }
    return project;
}

bool Project::isNewFolder(const QString& path)
{
    const QDir folder(path);
    return path.isEmpty() || !folder.exists() || folder.isEmpty();
}

Project Project::makeInNewFolder(const QString& path)
{
    return isNewFolder(path) ? make(path) : open(path);
}

Project Project::open(const QString& path)
{
    if (path.isEmpty() || !QDir(path).exists()) {
        throw Failure(QStringLiteral("there is no project folder \"%1\"").arg(path));
    }
    if (!isProject(path)) {
        throw Failure(Trouble::NoProject, {QDir(path).absolutePath()});
    }
    return Project(QDir(path).absolutePath());
}

QString Project::readOnlyWords() const
{
    const bool isReadOnly = !QFileInfo(m_path).isWritable() || QStorageInfo(m_path).isReadOnly();
    return isReadOnly ? troubleWords(Trouble::ReadOnlyProject, {m_path}) : QString();
}

QString Project::id() const
{
    const QString key = QStringLiteral("project/id");
    QSettings settings(m_path + QLatin1Char('/') + IniFile, QSettings::IniFormat);
    QUuid id(settings.value(key).toString());
    if (id.isNull()) {
        id = QUuid(UidToString(QUuid::createUuid()));
        settings.setValue(key, id.toString(QUuid::WithoutBraces));
        settings.sync();
    }
    return settings.status() == QSettings::NoError ? id.toString(QUuid::WithoutBraces) : QString();
}

QString Project::createMissionFile(const MissionFormat& format, const QString& missionId,
                                   qint64 startUsec) const
{
    const QString start =
        QDateTime::fromMSecsSinceEpoch(startUsec / 1000, Qt::UTC).toString(QStringLiteral("yyyyMMdd-hhmmss"));
    // The end of an id is random; its beginning, the time, is that of another flight recorded just now.
    const QString folder = QStringLiteral("%1/%2_%3").arg(m_path, start, missionId.right(8));
    QString file = folder + QStringLiteral("/flight") + format.suffix;
    if (!QDir().mkpath(folder) || !(format.easyFly || CreateMissionFile(file))) {
        removeMissionFile(file); // or tries on a full disk would leave one after another
        throw Failure(QStringLiteral("cannot make the mission file %1").arg(file));
    }
    return file;
}

void Project::removeMissionFile(const QString& file) const
{
    QDir folder = QFileInfo(file).dir();
    if (folder.absolutePath() != m_path) {
        folder.removeRecursively();
    }
}

std::optional<Trouble> Project::diskTrouble() const
{
    const QStorageInfo disk(m_path);
    if (disk.isReadOnly()) {
        return Trouble::DiskReadOnly;
    }
    return disk.bytesAvailable() < LeastRoom ? std::optional(Trouble::NoRoom) : std::nullopt;
}

QStringList Project::missionFiles(const QStringList& patterns) const
{
    return filesIn(m_path, patterns);
}
