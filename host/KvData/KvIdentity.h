// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QFile>
#include <QtCore/QString>

#include <utility>

#ifdef Q_OS_UNIX
#include <sys/stat.h>
#endif

/// The file that a path leads to now, by the numbers of its device and its own; none where there is no file,
/// and on a system that lets nobody take an open file away.
using FileIdentity = std::pair<quint64, quint64>;
inline FileIdentity IdentityOf(const QString& strFile)
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
