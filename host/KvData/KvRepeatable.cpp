// SPDX-License-Identifier: MIT
#include "KvRepeatable.h"

#include "KvData.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QMutex>
#include <QtCore/QStringList>

namespace
{
QMutex g_mutex;

QStringList& Places()
{
    static QStringList s_listPlace;
    return s_listPlace;
}
} // namespace

CKvRepeatable::CKvRepeatable(const QString& strFile)
    : m_strPlace(QDir::cleanPath(QFileInfo(strFile).absoluteFilePath()))
{
    const QMutexLocker lock(&g_mutex);
    Places().append(m_strPlace);
}

CKvRepeatable::~CKvRepeatable()
{
    const QMutexLocker lock(&g_mutex);
    Places().removeOne(m_strPlace);
}

bool IsRepeatable(const QString& strPlace)
{
    const QMutexLocker lock(&g_mutex);
    return Places().contains(QDir::cleanPath(strPlace));
}
