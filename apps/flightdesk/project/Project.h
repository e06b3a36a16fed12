// SPDX-License-Identifier: MIT
#pragma once

#include "project/MissionFile.h"
#include "words/Trouble.h"

#include <QtCore/QString>
#include <QtCore/QStringList>

/// The project folder: one folder for each flight, in it the flight's mission file, and the project's id.
class Project
{
public:
    /// Whether a folder is a project: it holds project.ini, or another host's flights in its folders.
    static bool isProject(const QString& path);
    /// Whether a folder is missing or empty.
    static bool isNewFolder(const QString& path);
    /// Opens a project, which is made of any folder that is none, and makes it the current one of the
    /// process. Throws Failure.
    static Project make(const QString& path);
    /// The same, but of a folder that holds other things no project is made: it may be the wrong one.
    static Project makeInNewFolder(const QString& path);
    /// Opens a project that must exist, and makes it the current one of the process. Throws Failure, with
    /// Trouble::NoProject for a folder that is none.
    static Project open(const QString& path);

    QString path() const { return m_path; }
    /// Stable id, kept in project.ini and made on first use; empty when it cannot be stored.
    QString id() const;

    /// Makes the mission file of a flight, with its tables; only the folder for a video mission, whose file
    /// the operator makes. Throws Failure.
    /// \return the file's path
    QString createMissionFile(const MissionFormat& format, const QString& missionId, qint64 startUsec) const;
    /// Removes a mission file and its folder with all that lies in it, if that is the flight's own.
    void removeMissionFile(const QString& file) const;

    /// Why nothing can be recorded into it or marked in it; empty for one that can be written.
    QString readOnlyWords() const;
    /// Why nothing can be stored now: the disk is full, or read-only.
    std::optional<Trouble> diskTrouble() const;

    /// Files in the folders of the project folder, sorted.
    QStringList missionFiles(const QStringList& patterns) const;

private:
    explicit Project(QString path);

    QString m_path;
};
