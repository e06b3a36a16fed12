// SPDX-License-Identifier: MIT
#include "project/MissionWatch.h"

#include <QtCore/QThread>
#include <QtCore/QTimer>

#include <algorithm>
#include <utility>

namespace
{
constexpr int Pause = 700;      // milliseconds between two looks
constexpr int FilesAtOnce = 10; // a table takes no more in one go without holding up the window

bool isEnding()
{
    return QThread::currentThread()->isInterruptionRequested();
}
} // namespace

MissionWatch::MissionWatch(Project project) : m_project(std::move(project)) {}

/// A disk that runs full, or has room again, changes nothing of the files.
void MissionWatch::noteDisk()
{
    const std::optional<Trouble> trouble = m_project.diskTrouble();
    if (trouble != std::exchange(m_diskTrouble, trouble)) {
        for (FileStamp& stamp : m_stamps) {
            stamp = FileStamp();
        }
    }
}

void MissionWatch::look()
{
    noteDisk();
    const QStringList files = m_project.missionFiles({QStringLiteral("*.kv"), QStringLiteral("*.db")});
    QVector<MissionsOfFile> changed;
    for (const QString& file : files) {
        if (isEnding()) {
            return;
        }
        const auto known = m_stamps.constFind(file);
        if (known == m_stamps.constEnd() || known->isOutdated(file)) {
            const FileStamp stamp(file);
            changed.append(MissionsOfFile::read(file));
            // The end of a lock changes nothing of the file.
            m_stamps.insert(file, changed.constLast().isReadable() ? stamp : FileStamp());
        }
        if (changed.size() >= FilesAtOnce) {
            Q_EMIT found(std::exchange(changed, {}));
        }
    }
    Q_EMIT found(changed);
    QStringList removed;
    const QStringList stamped = m_stamps.keys();
    for (const QString& known : stamped) {
        if (!std::binary_search(files.begin(), files.end(), known)) {
            m_stamps.remove(known);
            removed.append(known);
        }
    }
    Q_EMIT gone(removed);
    Q_EMIT looked(CKvControl::GetInstance(false, EPlaneType::Multirotor)->IsNetWorkConnected());
    QTimer::singleShot(Pause, this, &MissionWatch::look);
}
