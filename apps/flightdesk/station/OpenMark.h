// SPDX-License-Identifier: MIT
#pragma once

#include "project/Project.h"

#include <QtCore/QFile>

/// Beside the mission file of a flight that has not ended yet lies an empty file, by which a station that
/// starts finds what another one was killed over. What it means for the disk: its name is stored with the
/// folder's other names when the first rows are committed.
namespace OpenMark
{
inline QString of(const QString& missionFile)
{
    return missionFile + QStringLiteral(".open");
}
inline void set(const QString& missionFile)
{
    QFile(of(missionFile)).open(QIODevice::WriteOnly);
}
inline void clear(const QString& missionFile)
{
    QFile::remove(of(missionFile));
}
/// Mission files of a project that have one.
inline QStringList all(const Project& project)
{
    QStringList files = project.missionFiles({of(QStringLiteral("*.kv"))});
    for (QString& file : files) {
        file.chop(of({}).size());
    }
    return files;
}
} // namespace OpenMark
