// SPDX-License-Identifier: MIT
#pragma once

#include "project/MissionFile.h"

#include <QtCore/QString>
#include <QtCore/QStringList>

/// The project folder: one folder for each flight, in it the flight's mission file, and the project's id.
class Project
{
public:
    /// Opens a project, made when it is missing, and makes it the current one of the process. Throws Failure.
    static Project make(const QString& path);
    /// Opens a project that must exist, and makes it the current one of the process. Throws Failure.
    static Project open(const QString& path);

    /// Whether a folder is one: it has a project's id, or flights.
    static bool isProject(const QString& path);

    QString path() const { return m_path; }
    /// Stable id, kept in project.ini and made on first use; empty when it cannot be stored.
    QString id() const;

    /// Makes the mission file of a flight, with its tables; only the folder for a video mission, whose file
    /// the operator makes. Throws Failure.
    /// \return the file's path
    QString createMissionFile(const MissionFormat& format, const QString& missionId, qint64 startUsec) const;
    /// Removes a mission file and its folder with all that lies in it, if that is the flight's own.
    void removeMissionFile(const QString& file) const;

    /// Files in the folders of the project folder, sorted.
    QStringList missionFiles(const QStringList& patterns) const;

private:
    explicit Project(QString path);

    QString m_path;
};
