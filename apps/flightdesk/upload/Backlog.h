// SPDX-License-Identifier: MIT
#pragma once

#include "project/FileStamp.h"
#include "project/Project.h"

#include <QtCore/QMap>
#include <QtCore/QSet>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVector>

#include <optional>

/// Rows that wait for upload, of one mission in one file.
struct WaitingRows {
    QString file;
    QString mission;
    QString kind;
    qint64 rows = 0;
    Obstacle obstacle = Obstacle::None;
};

/// What of a project waits for upload, as it was when somebody looked.
struct Backlog {
    QVector<WaitingRows> rows;
    QStringList unreadable; ///< files that hid what they hold
    qint64 settled = 0;     ///< counts rows that have ceased to wait; only its changes mean anything

    qint64 waiting() const;
    /// Waiting rows of the same mission in the same file.
    qint64 waiting(const WaitingRows& like) const;
    /// Waiting rows that nothing keeps from being sent and marked.
    qint64 sendable() const;
    /// In words what keeps rows from being sent.
    QStringList obstacles() const;
    /// Rows that can be sent: of the file behind the given rows' file, or of the first one behind the last;
    /// without a file when there are none.
    /// \param eachMission  step from mission to mission within a file as well
    WaitingRows after(const WaitingRows& current, bool eachMission = false) const;
    /// Whether rows like the given ones, of the same mission in the same file, can still be sent.
    bool holds(const WaitingRows& some) const;
    /// How many missions of a file have rows that can be sent.
    int missionsIn(const QString& file) const;
};

/// Counts the rows of a project that wait for upload. Files are opened for a moment only, beside whoever
/// writes them, and only files that still wait are remembered.
class BacklogCounter
{
public:
    explicit BacklogCounter(Project project, const MissionFormat& format = MissionFormat::flight());

    /// Counts every mission file of the project that has the format.
    void countAll();
    /// Counts a file that is being recorded, and goes on with it even when nothing of it waits.
    void follow(const QString& path);
    /// Counts those files again that waited and have changed since; all that waited when the disk has run
    /// full since, or has room again.
    void recount();

    Backlog backlog() const;

private:
    struct File {
        FileStamp stamp;
        bool readable = true;
        QVector<WaitingRows> rows;
    };
    File count(const QString& path) const;
    void settle(const QString& path, const File& now);

    Project m_project;
    const MissionFormat& m_format;
    std::optional<Trouble> m_diskTrouble; ///< of the last count
    QMap<QString, File> m_files;
    QSet<QString> m_followed;
    qint64 m_settled = 0;
};
