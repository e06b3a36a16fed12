// SPDX-License-Identifier: MIT
#include "project/ProjectLock.h"

#include "project/MissionFile.h"

#include <QtCore/QFileInfo>

ProjectLock::ProjectLock(const Project& project, Use use)
    : m_project(project)
    , m_use(use)
    , m_path(project.path() +
             (use == Use::Recording ? QStringLiteral("/station.lock") : QStringLiteral("/upload.lock")))
    , m_file(m_path)
{
    m_file.setStaleLockTime(0); // only that of a process that is gone
}

QString ProjectLock::holder()
{
    if (isTaken() || !QFileInfo::exists(m_path)) {
        return {};
    }
    QString words = take(); // what a process that is gone has left is nobody's
    release();
    return words;
}

QString ProjectLock::whyNotWritable() const
{
    const QString full =
        m_project.diskTrouble() == Trouble::NoRoom ? obstacleWords(Obstacle::DiskFull) : QString();
    if (m_use == Use::Uploading && !full.isEmpty()) {
        return troubleWords(Trouble::NotSendable, {full});
    }
    return QStringLiteral("cannot write %1").arg(m_path) +
           (full.isEmpty() ? full : QLatin1String(": ") + full);
}

QString ProjectLock::take()
{
    if (m_file.isLocked() || m_file.tryLock(0)) {
        return {};
    }
    qint64 process = 0;
    QString host;
    QString program;
    if (!m_file.getLockInfo(&process, &host, &program)) {
        return whyNotWritable();
    }
    const QString doing =
        m_use == Use::Recording ? QStringLiteral("records into") : QStringLiteral("uploads from");
    return troubleWords(Trouble::InUse, {doing, QString::number(process), host});
}
