// SPDX-License-Identifier: MIT
#include "KvCrowd.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QHash>
#include <QtCore/QMap>
#include <QtCore/QMutex>
#include <QtCore/QMutexLocker>

#include <utility>

namespace
{
constexpr qint64 Hour = 3600000;      // milliseconds
constexpr int MostRemembered = 20000; // kinds of trouble
constexpr int Named = 3;              // files of a project that are told of with the same
constexpr int MostOfOneSort = 9;      // lines about a project's files, within an hour

struct SCrowd {
    QHash<QString, int> mapPlace; // of each file, from 1 on, in the order in which they were told of
    QList<qint64> listLine;       // when one was told of
    qint64 nSince = 0;            // the first of them
    QMap<QString, qint64> mapNow; // those for which it goes, and when that was seen
};

struct SCrowds {
    QMutex mutex;
    QMap<std::pair<QString, QString>, SCrowd> map; // by project, and what is told of its files
};

SCrowds& Crowds()
{
    static auto& crowds = *new SCrowds; // objects may outlive main() on other threads
    return crowds;
}

/// The crowd of a mission file, whose project is the folder of its folder.
SCrowd& CrowdOf(const QString& strFile, const QString& strKind)
{
    if (Crowds().map.size() >= MostRemembered) {
        Crowds().map.clear();
    }
    return Crowds().map[{strFile.section(QLatin1Char('/'), 0, -3), strKind}];
}
} // namespace

qint64 Now()
{
    return QDeadlineTimer::current().deadline();
}

bool TakeLine(QList<qint64>& listLine, int nMost, qint64 nNow)
{
    while (!listLine.isEmpty() && listLine.constFirst() <= nNow - Hour) {
        listLine.removeFirst();
    }
    if (listLine.size() >= nMost) {
        return false;
    }
    listLine.append(nNow);
    return true;
}

bool IsPowerOfTen(quint64 nTimes)
{
    while (nTimes % 10 == 0) {
        nTimes /= 10;
    }
    return nTimes == 1;
}

QString After(qint64 nMilliseconds)
{
    constexpr int Second = 1000;
    constexpr int Minute = 60 * Second;
    return nMilliseconds < Minute ? QStringLiteral(", after %1 s").arg(nMilliseconds / Second)
                                  : QStringLiteral(", after %1 min").arg(nMilliseconds / Minute);
}

std::optional<QString> AmongFiles(const QString& strFile, const QString& strKind, bool bLast)
{
    const QMutexLocker lock(&Crowds().mutex);
    const qint64 nNow = Now();
    SCrowd& crowd = CrowdOf(strFile, strKind);
    if (crowd.mapPlace.isEmpty() || crowd.nSince <= nNow - Hour) { // it begins anew every hour
        crowd.mapPlace.clear();
        crowd.nSince = nNow;
    }
    const bool bNew = !crowd.mapPlace.contains(strFile);
    if (bNew) {
        crowd.mapPlace.insert(strFile, crowd.mapPlace.size() + 1);
    }
    const int nPlace = crowd.mapPlace.value(strFile);
    const bool bSum = bNew && (nPlace == Named + 1 || IsPowerOfTen(static_cast<quint64>(nPlace)));
    if (!(nPlace <= Named || bSum || bLast) || !TakeLine(crowd.listLine, MostOfOneSort, nNow)) {
        return std::nullopt;
    }
    if (nPlace <= Named) {
        return QString();
    }
    return bLast ? QStringLiteral(" (the last of %1 files)").arg(crowd.mapPlace.size())
                 : QStringLiteral(" (as %1 other files; more are only counted)").arg(nPlace - 1);
}

void JoinCrowd(const QString& strFile, const QString& strKind)
{
    const QMutexLocker lock(&Crowds().mutex);
    CrowdOf(strFile, strKind).mapNow.insert(strFile, Now());
}

bool LeaveCrowd(const QString& strFile, const QString& strKind)
{
    const QMutexLocker lock(&Crowds().mutex);
    auto& mapNow = CrowdOf(strFile, strKind).mapNow;
    mapNow.remove(strFile);
    const qint64 nForgotten = Now() - Forgotten;
    while (!mapNow.isEmpty() && mapNow.first() <= nForgotten) { // nobody has looked at it since
        mapNow.erase(mapNow.begin());
    }
    return mapNow.isEmpty();
}
