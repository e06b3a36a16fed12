// SPDX-License-Identifier: MIT
#include "KvTrouble.h"

#include "KvLog.h"
#include "KvWarnings.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QMap>
#include <QtCore/QMutex>
#include <QtCore/QMutexLocker>

#include <utility>

namespace
{
constexpr qint64 Calm = 1200000; // milliseconds between two lines with the same words

struct STold {
    QElapsedTimer since;
    int nTimes = 0; ///< that nothing was said of
};

struct STrouble {
    QString strText; ///< empty while the file is well
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
    if (std::exchange(trouble.strText, strText) == strText) {
        return 0;
    }
    STold& told = trouble.mapTold[strText];
    ++told.nTimes;
    if (told.since.isValid() && !told.since.hasExpired(Calm)) {
        return 0;
    }
    told.since.start();
    return std::exchange(told.nTimes, 0);
}
} // namespace

void ReportTrouble(ETrouble eTrouble, const QString& strFile, const QString& strText)
{
    int nTimes = 0;
    {
        const QMutexLocker lock(&Troubles().mutex);
        nTimes = TimesToTell(Troubles().map[{eTrouble, strFile}], strText);
    }
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
    const QMutexLocker lock(&Troubles().mutex);
    const auto trouble = Troubles().map.find({eTrouble, strFile});
    if (trouble != Troubles().map.end()) {
        trouble->strText.clear();
    }
}

bool IsInTrouble(ETrouble eTrouble, const QString& strFile)
{
    const QMutexLocker lock(&Troubles().mutex);
    return !Troubles().map.value({eTrouble, strFile}).strText.isEmpty();
}
