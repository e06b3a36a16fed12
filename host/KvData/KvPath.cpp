// SPDX-License-Identifier: MIT
#include "KvPath.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#ifdef Q_OS_UNIX
#include <sys/stat.h>
#endif

QString Obstacle(const QString& strFile)
{
    const QFileInfo info(strFile);
    if (strFile.isEmpty()) {
        return QStringLiteral("no file is named");
    }
    if (info.isFile() || strFile.startsWith(QLatin1Char(':'))) { // ":memory:"
        return {};
    }
    if (info.exists()) {
        return info.isDir() ? QStringLiteral("it is a folder") : QStringLiteral("it is a device");
    }
    if (info.isSymLink()) {
        return QStringLiteral("it is a link that leads nowhere");
    }
    return info.dir().exists() ? QString() : QStringLiteral("its folder does not exist");
}

bool IsForbidden(const QString& strFile)
{
    for (const char* const suffix : {"", "-journal", "-wal", "-shm"}) {
        const QFileInfo info(strFile + QLatin1String(suffix));
        if (info.exists() && !info.isReadable()) {
            return true;
        }
    }
    // Where the journal, or the file itself, is to be made
    const QFileInfo folder(QFileInfo(strFile).path());
    return !folder.isWritable() || !folder.isExecutable();
}

FileIdentity IdentityOf(const QString& strFile)
{
#ifdef Q_OS_UNIX
    struct stat status = {};
    if (stat(QFile::encodeName(strFile).constData(), &status) == 0) {
        return {status.st_dev, status.st_ino};
    }
#else
    Q_UNUSED(strFile)
#endif
    return {};
}
