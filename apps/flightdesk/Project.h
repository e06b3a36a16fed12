// SPDX-License-Identifier: MIT
#pragma once

#include "MissionFile.h"

#include <QtCore/QString>
#include <QtCore/QStringList>

#include <optional>

/// The project folder: one folder for each flight, in it the flight's mission file, and the project's id.
class Project
{
public:
    /// Opens a project, made when it is missing, and makes it the current one of the process.
    static std::optional<Project> make(const QString& path, QString* error);
    /// Opens a project that must exist, and makes it the current one of the process.
    static std::optional<Project> open(const QString& path, QString* error);

    QString path() const { return m_path; }
    /// Stable id, kept in project.ini and made on first use; empty when it cannot be stored.
    QString id() const;

    /// Makes the mission file of a flight, with its tables; only the folder for a video mission, whose file
    /// the operator makes.
    /// \return the file's path; empty, with words in `error`, when that fails
    QString createMissionFile(const MissionFormat& format, const QString& missionId, qint64 startUsec,
                              QString* error) const;

    /// Files in the folders of the project folder, sorted.
    QStringList missionFiles(const QStringList& patterns) const;

private:
    explicit Project(QString path);

    QString m_path;
};
