// SPDX-License-Identifier: MIT
#include "KvTrouble.h"

#include "KvLog.h"

#include <QtCore/QMap>
#include <QtCore/QMutex>
#include <QtCore/QMutexLocker>

#include <utility>

namespace
{
struct STroubles {
    QMutex mutex;
    QMap<std::pair<ETrouble, QString>, QString> mapText;
};

STroubles& Troubles()
{
    static auto& troubles = *new STroubles; // connections may outlive main() on other threads
    return troubles;
}
} // namespace

void ReportTrouble(ETrouble eTrouble, const QString& strFile, const QString& strText)
{
    {
        const QMutexLocker lock(&Troubles().mutex);
        QString& strLast = Troubles().mapText[{eTrouble, strFile}];
        if (strLast == strText) {
            return;
        }
        strLast = strText;
    }
    Logger::instance().write(Level::Error, strFile + QStringLiteral(": ") + strText);
}

void ClearTrouble(ETrouble eTrouble, const QString& strFile)
{
    const QMutexLocker lock(&Troubles().mutex);
    Troubles().mapText.remove({eTrouble, strFile});
}

bool IsInTrouble(ETrouble eTrouble, const QString& strFile)
{
    const QMutexLocker lock(&Troubles().mutex);
    return Troubles().mapText.contains({eTrouble, strFile});
}
