// SPDX-License-Identifier: MIT
#include "KvWarnings.h"

#include "KvLocks.h"
#include "KvLog.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QHash>
#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QMutex>
#include <QtCore/QMutexLocker>
#include <QtSql/QSqlError>

#include <algorithm>
#include <iterator>
#include <utility>

Q_LOGGING_CATEGORY(KvHost, "kv.host", QtWarningMsg)
Q_LOGGING_CATEGORY(KvNetwork, "kv.network", QtWarningMsg)
Q_LOGGING_CATEGORY(KvSql, "kv.sql", QtWarningMsg)

namespace
{
constexpr int MostRemembered = 20000; // things that are wrong, and statements
constexpr qint64 Forgotten = 1200000; // milliseconds without a fault after which it is news
constexpr qint64 Hour = 3600000;
constexpr int MostWarnings = 3; // about one thing within an hour
constexpr int MostLines = MostWarnings + 1;
constexpr int Named = 3;         // files of a project that are told of with the same
constexpr int MostOfOneSort = 9; // lines about a project's files, within an hour

/// The monotonic clock, in milliseconds.
qint64 Now()
{
    return QDeadlineTimer::current().deadline();
}

struct STrouble {
    QString strAbout;
    qint64 nSeen = 0;
};

struct SThing {
    QMap<QString, STrouble> mapTrouble; // told, and not over; by text
    QList<qint64> listLine;             // when a line about it was written
    qint64 nSince = 0;                  // its first trouble
};

struct SRefusal {
    quint64 nTimes = 0;
    qint64 nSeen = 0;
};

struct SCrowd {
    QHash<QString, int> mapPlace; // of each file, from 1 on, in the order in which they came
    QList<qint64> listLine;       // when one was told of
    qint64 nSince = 0;            // the first of them
};

using Key = std::pair<QString, QString>;

struct SMemory {
    QMutex mutex;
    QMap<Key, SThing> mapThing;     // by name, and the kind of what is wrong with it
    QMap<Key, SRefusal> mapRefused; // by file, statement and words
    QMap<Key, SCrowd> mapCrowd;     // by project, and what is told of its files
};

SMemory& Memory()
{
    static auto& memory = *new SMemory; // objects may outlive main() on other threads
    return memory;
}

template<typename Map>
typename Map::mapped_type& Remembered(Map& map, const Key& key)
{
    if (map.size() >= MostRemembered) {
        map.clear();
    }
    return map[key];
}

/// Whether one more line is left within the hour; it counts as written then.
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

bool IsNews(SThing& thing, const QString& strAbout, const QString& strText)
{
    const qint64 nNow = Now();
    for (auto trouble = thing.mapTrouble.begin(); trouble != thing.mapTrouble.end();) {
        trouble = trouble->nSeen <= nNow - Forgotten ? thing.mapTrouble.erase(trouble) : std::next(trouble);
    }
    const auto known = thing.mapTrouble.find(strText);
    if (known != thing.mapTrouble.end()) {
        known->nSeen = nNow;
        return false;
    }
    if (!TakeLine(thing.listLine, MostWarnings, nNow)) {
        return false;
    }
    if (thing.mapTrouble.isEmpty()) {
        thing.nSince = nNow;
    }
    thing.mapTrouble.insert(strText, {strAbout, nNow});
    return true;
}

/// Takes out what was wrong with a part, or with the whole of it; empty where nothing was or something still
/// is, or where too much was told already: then the log's last word stays that something is wrong.
QString Recovery(const QString& strWhole, const QString& strAbout, const QString& strNews)
{
    const QMutexLocker lock(&Memory().mutex);
    const auto thing = Memory().mapThing.find({strWhole, {}});
    if (thing == Memory().mapThing.end() || thing->mapTrouble.isEmpty()) {
        return {};
    }
    QMap<QString, STrouble> mapLeft = thing->mapTrouble;
    for (auto trouble = mapLeft.begin(); trouble != mapLeft.end();) {
        const bool bOver = trouble->strAbout == strAbout || trouble->strAbout == strWhole;
        trouble = bOver ? mapLeft.erase(trouble) : std::next(trouble);
    }
    const qint64 nNow = Now();
    if (mapLeft.isEmpty() && !TakeLine(thing->listLine, MostLines, nNow)) {
        return {};
    }
    thing->mapTrouble = mapLeft;
    if (!mapLeft.isEmpty()) {
        return {};
    }
    constexpr int Second = 1000;
    constexpr int Minute = 60 * Second;
    const qint64 nTook = nNow - thing->nSince;
    return QStringLiteral("%1, after %2 %3")
        .arg(strNews)
        .arg(nTook / (nTook < Minute ? Second : Minute))
        .arg(nTook < Minute ? QLatin1String("s") : QLatin1String("min"));
}

void Tell(const QLoggingCategory& category, const QString& strAbout, const QString& strText)
{
    Logger::instance(); // listens from now on
    qCWarning(category, "%s: %s", qUtf8Printable(strAbout), qUtf8Printable(strText));
}

bool IsPowerOfTen(quint64 nTimes)
{
    while (nTimes % 10 == 0) {
        nTimes /= 10;
    }
    return nTimes == 1;
}

/// What comes before the first of what differs from file to file.
QString Kind(const QString& strText)
{
    return strText.left(strText.indexOf(QLatin1Char('"')));
}

/// The folder of a mission file's folder.
QString ProjectOf(const QString& strFile)
{
    return strFile.section(QLatin1Char('/'), 0, -3);
}

/// The crowd of a file, in which it has a place then; it begins anew every hour.
SCrowd& Crowd(const QString& strFile, const QString& strKind, qint64 nNow)
{
    SCrowd& crowd = Remembered(Memory().mapCrowd, {ProjectOf(strFile), strKind});
    if (crowd.mapPlace.isEmpty() || crowd.nSince <= nNow - Hour) {
        crowd.mapPlace.clear();
        crowd.nSince = nNow;
    }
    return crowd;
}

/// How many other files of the project something is the matter with now.
int OthersInTrouble(const QString& strFile, qint64 nNow)
{
    const QString strProject = ProjectOf(strFile);
    const auto& mapThing = Memory().mapThing;
    int nOthers = 0;
    for (auto thing = mapThing.lowerBound({strProject, {}});
         thing != mapThing.end() && thing.key().first.startsWith(strProject); ++thing) {
        const bool bNow =
            std::any_of(thing->mapTrouble.cbegin(), thing->mapTrouble.cend(),
                        [nNow](const STrouble& trouble) { return trouble.nSeen > nNow - Forgotten; });
        const bool bWhole = thing.key().second.isEmpty();
        nOthers +=
            bNow && bWhole && thing.key().first != strFile && ProjectOf(thing.key().first) == strProject;
    }
    return nOthers;
}

/// Tells the end of what was wrong with a file: of the first ones by name, and then once all of them are
/// well.
void TellEnd(const QString& strFile, const QString& strKind, const QString& strText)
{
    QString strBeside;
    {
        const QMutexLocker lock(&Memory().mutex);
        const qint64 nNow = Now();
        SCrowd& crowd = Crowd(strFile, strKind, nNow);
        if (!crowd.mapPlace.contains(strFile)) {
            crowd.mapPlace.insert(strFile, crowd.mapPlace.size() + 1);
        }
        const bool bNamed = crowd.mapPlace.value(strFile) <= Named;
        if ((!bNamed && OthersInTrouble(strFile, nNow) > 0) ||
            !TakeLine(crowd.listLine, MostOfOneSort, nNow)) {
            return;
        }
        strBeside = bNamed ? QString() : QStringLiteral(" (the last of %1 files)").arg(crowd.mapPlace.size());
    }
    Tell(KvSql(), strFile, strText + strBeside);
}

/// Statements that differ in their values alone are the same.
QString Beginning(const QString& strSql)
{
    constexpr int Longest = 100;
    return strSql.left(strSql.indexOf(QLatin1Char('\''))).left(Longest);
}

/// What is the same for statements that differ in their numbers alone.
QString WithoutNumbers(const QString& strText)
{
    QString strRest;
    std::copy_if(strText.begin(), strText.end(), std::back_inserter(strRest),
                 [](QChar c) { return !c.isDigit(); });
    return strRest;
}

/// Inserts of a description that names none, or that ends within a pair.
bool NamesNoColumns(const QString& strSql)
{
    return strSql.endsWith(QLatin1String("()VALUES()")) || strSql.endsWith(QLatin1String(",)"));
}

void TellOfFile(const QString& strFile, const QString& strKind, const QString& strText)
{
    if (const std::optional<QString> beside = AmongFiles(strFile, strKind)) {
        Tell(KvSql(), strFile, strText + *beside);
    }
}
} // namespace

std::optional<QString> AmongFiles(const QString& strFile, const QString& strKind)
{
    const QMutexLocker lock(&Memory().mutex);
    const qint64 nNow = Now();
    SCrowd& crowd = Crowd(strFile, strKind, nNow);
    const bool bNew = !crowd.mapPlace.contains(strFile);
    if (bNew) {
        crowd.mapPlace.insert(strFile, crowd.mapPlace.size() + 1);
    }
    const int nPlace = crowd.mapPlace.value(strFile);
    const bool bSum = bNew && (nPlace == Named + 1 || IsPowerOfTen(static_cast<quint64>(nPlace)));
    if ((nPlace > Named && !bSum) || !TakeLine(crowd.listLine, MostOfOneSort, nNow)) {
        return std::nullopt;
    }
    return nPlace > Named ? QStringLiteral(" (as %1 other files; more are only counted)").arg(nPlace - 1)
                          : QString();
}

void WarnOnce(const QLoggingCategory& category, const QString& strAbout, const QString& strText,
              const QString& strWhole)
{
    // A whole is one thing whatever is wrong with it; anything else has each kind of trouble apart.
    const Key key = strWhole.isEmpty() ? Key(strAbout, Kind(strText)) : Key(strWhole, QString());
    bool bNews = false;
    {
        const QMutexLocker lock(&Memory().mutex);
        bNews = IsNews(Remembered(Memory().mapThing, key), strAbout, strText);
    }
    if (bNews && &category == &KvSql()) {
        TellOfFile(strAbout, Kind(strText), strText);
    } else if (bNews) {
        Tell(category, strAbout, strText);
    }
}

void WellAgain(const QString& strAbout)
{
    const QMutexLocker lock(&Memory().mutex);
    auto& mapThing = Memory().mapThing;
    for (auto thing = mapThing.lowerBound({strAbout, {}});
         thing != mapThing.end() && thing.key().first == strAbout; ++thing) {
        thing->mapTrouble.clear();
    }
}

void TellWellAgain(const QLoggingCategory& category, const QString& strWhole, const QString& strAbout,
                   const QString& strNews)
{
    const QString strRecovery = Recovery(strWhole, strAbout, strNews);
    if (!strRecovery.isEmpty() && &category == &KvSql()) {
        TellEnd(strWhole, strNews, strRecovery);
    } else if (!strRecovery.isEmpty()) {
        Tell(category, strWhole, strRecovery);
    }
}

void WarnRefused(const QString& strFile, const QString& strSql, const QSqlError& error)
{
    constexpr int Locked = 6;
    if (!error.isValid() || IsBusy(error) || ResultCode(error) == Locked || NamesNoColumns(strSql)) {
        return;
    }
    const QString strWords = error.databaseText();
    const QString strBeginning = Beginning(strSql);
    // Whatever looks for a table that is not there meets the same fault.
    const bool bSame = strWords.startsWith(QLatin1String("no such table"));
    const QString strKind = (bSame ? QString() : WithoutNumbers(strBeginning)) + strWords;
    quint64 nTimes = 0;
    {
        const QMutexLocker lock(&Memory().mutex);
        SRefusal& refusal = Remembered(Memory().mapRefused, {strFile, strKind});
        const qint64 nNow = Now();
        refusal.nTimes = refusal.nSeen <= nNow - Forgotten ? 1 : refusal.nTimes + 1;
        refusal.nSeen = nNow;
        nTimes = refusal.nTimes;
    }
    if (IsPowerOfTen(nTimes)) {
        TellOfFile(strFile, strKind,
                   QStringLiteral("SQLite refuses \"%1\": %2").arg(strBeginning, strWords) +
                       (nTimes == 1 ? QString() : QStringLiteral(" (%1 times)").arg(nTimes)));
    }
}
