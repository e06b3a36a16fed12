// SPDX-License-Identifier: MIT
#pragma once

#include "MissionFile.h"
#include "Project.h"

#include <QtCore/QDateTime>
#include <QtCore/QMap>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVector>

/// Why rows wait that no upload can help.
enum class Obstacle {
    None,
    NoMissionRow, ///< only rows of a mission with a row of its own are ever sent
    NotMarkable,  ///< the file or its folder is read-only, so that accepted rows cannot be marked
};

/// Rows of one kind that wait for upload.
struct WaitingRows {
    QString file;
    QString mission;
    QString kind;
    qint64 rows = 0;
    Obstacle obstacle = Obstacle::None;
};

/// Counts the rows of a project that wait for upload. Files are opened for a moment only, beside whoever
/// writes them, and only files that still wait are remembered.
class Backlog
{
public:
    explicit Backlog(Project project, const MissionFormat& format = MissionFormat::flight());

    /// Counts every mission file of the project that has the format.
    void countAll();
    /// Counts those files again that waited and have changed since.
    void recount();

    qint64 waiting() const;
    /// Waiting rows that nothing keeps from being sent and marked.
    qint64 sendable() const;
    /// Rows that have ceased to wait since the first count.
    qint64 settled() const { return m_settled; }
    QVector<WaitingRows> rows() const;
    QStringList unreadable() const;
    /// Some rows that can be sent, always the same ones until they no longer wait; without a file when there
    /// are none.
    WaitingRows firstSendable() const;
    /// The file in which rows of the mission wait; empty when there is none.
    QString fileOf(const QString& mission) const;

private:
    struct File {
        QDateTime countedAt;
        bool readable = true;
        QVector<WaitingRows> rows;
    };
    File count(const QString& path) const;
    void settle(const QString& path, const File& now);

    Project m_project;
    const MissionFormat& m_format;
    QMap<QString, File> m_files;
    qint64 m_settled = 0;
};
