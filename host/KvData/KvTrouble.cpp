// SPDX-License-Identifier: MIT
#include "KvTrouble.h"

#include "KvCrowd.h"
#include "KvLog.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QMap>
#include <QtCore/QMutex>
#include <QtCore/QMutexLocker>

#include <utility>

namespace
{
constexpr qint64 Calm = Forgotten; // between two lines with the same words

struct STold {
    QElapsedTimer since;
    int nTimes = 0; ///< that nothing was said of
};

struct STrouble {
    QString strText; ///< empty while the file is well
    qint64 nSince = 0;
    bool bTold = false; ///< since then
    QMap<QString, STold> mapTold;
};

struct STroubles {
    QMutex mutex;
    QMap<std::pair<ETrouble, QString>, STrouble> map;
};

STroubles& Troubles()
{
    static auto& troubles = *new STroubles; // connections may outlive main() on other threads
    return troubles;
}

/// How often the trouble has come since it was told; 0 when there is nothing to tell.
int TimesToTell(STrouble& trouble, const QString& strText)
{
    if (trouble.strText.isEmpty()) {
        trouble.nSince = Now();
    }
    if (std::exchange(trouble.strText, strText) == strText) {
        return 0;
    }
    STold& told = trouble.mapTold[strText];
    ++told.nTimes;
    if (told.since.isValid() && !told.since.hasExpired(Calm)) {
        return 0;
    }
    told.since.start();
    trouble.bTold = true;
    return std::exchange(told.nTimes, 0);
}

QString News(ETrouble eTrouble)
{
    switch (eTrouble) {
    case ETrouble::Opening:
        return QStringLiteral("can be opened again");
    case ETrouble::Writing:
        return QStringLiteral("can be written again");
    case ETrouble::Reading:
        break;
    }
    return QStringLiteral("can be read again");
}
} // namespace

void ReportTrouble(ETrouble eTrouble, const QString& strFile, const QString& strText)
{
    int nTimes = 0;
    {
        const QMutexLocker lock(&Troubles().mutex);
        nTimes = TimesToTell(Troubles().map[{eTrouble, strFile}], strText);
    }
    JoinCrowd(strFile, News(eTrouble));
    const auto beside = nTimes > 0 ? AmongFiles(strFile, strText) : std::nullopt;
    if (beside) {
        Logger::instance().write(eTrouble == ETrouble::Reading ? Level::Warn : Level::Error,
                                 strFile + QStringLiteral(": ") + strText +
                                     (nTimes > 1 ? QStringLiteral(" (%1 times)").arg(nTimes) : QString()) +
                                     *beside);
    }
}

void ClearTrouble(ETrouble eTrouble, const QString& strFile)
{
    qint64 nTook = 0;
    {
        const QMutexLocker lock(&Troubles().mutex);
        const auto trouble = Troubles().map.find({eTrouble, strFile});
        if (trouble == Troubles().map.end() || trouble->strText.isEmpty()) {
            return;
        }
        nTook = trouble->bTold ? Now() - trouble->nSince : -1;
        trouble->strText.clear();
        trouble->bTold = false;
    }
    const bool bLast = LeaveCrowd(strFile, News(eTrouble));
    const auto beside = nTook >= 0 ? AmongFiles(strFile, News(eTrouble), bLast) : std::nullopt;
    if (beside) {
        Logger::instance().write(Level::Warn,
                                 strFile + QStringLiteral(": ") + News(eTrouble) + After(nTook) + *beside);
    }
}

bool IsInTrouble(ETrouble eTrouble, const QString& strFile)
{
    const QMutexLocker lock(&Troubles().mutex);
    return !Troubles().map.value({eTrouble, strFile}).strText.isEmpty();
}
