// SPDX-License-Identifier: MIT
#include "project/ProjectLock.h"

#include <QtCore/QFileInfo>

ProjectLock::ProjectLock(const Project& project, Use use)
    : m_use(use)
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

QString ProjectLock::take()
{
    if (m_file.isLocked() || m_file.tryLock(0)) {
        return {};
    }
    qint64 process = 0;
    QString host;
    QString program;
    if (!m_file.getLockInfo(&process, &host, &program)) {
        return QStringLiteral("cannot write %1").arg(m_path);
    }
    const QString doing =
        m_use == Use::Recording ? QStringLiteral("records into") : QStringLiteral("uploads from");
    return troubleWords(Trouble::InUse, {doing, QString::number(process), host});
}
