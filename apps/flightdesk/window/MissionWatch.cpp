// SPDX-License-Identifier: MIT
#include "MissionWatch.h"

#include <QtCore/QFileInfo>
#include <QtCore/QThread>
#include <QtCore/QTimer>

#include <algorithm>
#include <utility>

namespace
{
constexpr int Pause = 700;      // milliseconds between two looks
constexpr int FilesAtOnce = 10; // a table takes no more in one go without holding up the window
constexpr int StampSeconds = 2; // a file's time stamp may stand still for that long while the file changes

bool isEnding()
{
    return QThread::currentThread()->isInterruptionRequested();
}
} // namespace

MissionWatch::MissionWatch(Project project) : m_project(std::move(project)) {}

void MissionWatch::look()
{
    const QStringList files = m_project.missionFiles({QStringLiteral("*.kv"), QStringLiteral("*.db")});
    QVector<MissionsOfFile> changed;
    for (const QString& file : files) {
        if (isEnding()) {
            return;
        }
        if (hasChanged(file)) {
            const Stamp stamp{QFileInfo(file).lastModified(), QDateTime::currentDateTime()};
            changed.append(MissionsOfFile::read(file));
            m_stamps.insert(file, stamp);
        }
        if (changed.size() >= FilesAtOnce) {
            emit found(std::exchange(changed, {}));
        }
    }
    emit found(changed);
    QStringList removed;
    const QStringList stamped = m_stamps.keys();
    for (const QString& known : stamped) {
        if (!std::binary_search(files.begin(), files.end(), known)) {
            m_stamps.remove(known);
            removed.append(known);
        }
    }
    emit gone(removed);
    emit looked(CKvControl::GetInstance(false, EPlaneType::Multirotor)->IsNetWorkConnected());
    QTimer::singleShot(Pause, this, &MissionWatch::look);
}

bool MissionWatch::hasChanged(const QString& path) const
{
    const auto known = m_stamps.constFind(path);
    if (known == m_stamps.constEnd()) {
        return true;
    }
    const QDateTime changed = QFileInfo(path).lastModified();
    return changed != known->changed || changed.addSecs(StampSeconds) >= known->readAt;
}
