// SPDX-License-Identifier: MIT
#include "KvWarnings.h"

#include "KvLocks.h"
#include "KvLog.h"

#include <QtCore/QDeadlineTimer>
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
constexpr int MostRemembered = 1000;  // things that are wrong, and statements
constexpr qint64 Forgotten = 1200000; // milliseconds without a fault after which it is news
constexpr qint64 Hour = 3600000;
constexpr int MostWarnings = 3; // about one thing within an hour
constexpr int MostLines = MostWarnings + 1;

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

using Key = std::pair<QString, QString>;

struct SMemory {
    QMutex mutex;
    QMap<Key, SThing> mapThing;     // by name, and the kind of what is wrong with it
    QMap<Key, SRefusal> mapRefused; // by file, statement and words
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

/// Whether one more line about a thing is left within the hour; it counts as written then.
bool TakeLine(SThing& thing, int nMost, qint64 nNow)
{
    while (!thing.listLine.isEmpty() && thing.listLine.constFirst() <= nNow - Hour) {
        thing.listLine.removeFirst();
    }
    if (thing.listLine.size() >= nMost) {
        return false;
    }
    thing.listLine.append(nNow);
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
    if (!TakeLine(thing, MostWarnings, nNow)) {
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
    if (mapLeft.isEmpty() && !TakeLine(*thing, MostLines, nNow)) {
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

bool IsPowerOfTen(quint64 nTimes)
{
    while (nTimes % 10 == 0) {
        nTimes /= 10;
    }
    return nTimes == 1;
}
} // namespace

void WarnOnce(const QLoggingCategory& category, const QString& strAbout, const QString& strText,
              const QString& strWhole)
{
    // A whole is one thing whatever is wrong with it; anything else has each kind of trouble apart.
    const Key key = strWhole.isEmpty() ? Key(strAbout, strText.left(strText.indexOf(QLatin1Char('"'))))
                                       : Key(strWhole, QString());
    bool bNews = false;
    {
        const QMutexLocker lock(&Memory().mutex);
        bNews = IsNews(Remembered(Memory().mapThing, key), strAbout, strText);
    }
    if (bNews) {
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
    if (!strRecovery.isEmpty()) {
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
    quint64 nTimes = 0;
    {
        const QMutexLocker lock(&Memory().mutex);
        SRefusal& refusal = Remembered(
            Memory().mapRefused, {strFile, (bSame ? QString() : WithoutNumbers(strBeginning)) + strWords});
        const qint64 nNow = Now();
        refusal.nTimes = refusal.nSeen <= nNow - Forgotten ? 1 : refusal.nTimes + 1;
        refusal.nSeen = nNow;
        nTimes = refusal.nTimes;
    }
    if (IsPowerOfTen(nTimes)) {
        Tell(KvSql(), strFile,
             QStringLiteral("SQLite refuses \"%1\": %2").arg(strBeginning, strWords) +
                 (nTimes == 1 ? QString() : QStringLiteral(" (%1 times)").arg(nTimes)));
    }
}
