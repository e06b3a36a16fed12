// SPDX-License-Identifier: MIT
#include "KvWarnings.h"

#include "KvCrowd.h"
#include "KvLocks.h"
#include "KvLog.h"

#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QMutex>
#include <QtCore/QMutexLocker>
#include <QtSql/QSqlError>

#include <algorithm>
#include <atomic>
#include <iterator>
#include <utility>

Q_LOGGING_CATEGORY(KvHost, "kv.host", QtWarningMsg)
Q_LOGGING_CATEGORY(KvNetwork, "kv.network", QtWarningMsg)
Q_LOGGING_CATEGORY(KvSql, "kv.sql", QtWarningMsg)

namespace
{
constexpr int MostRemembered = 20000; // things that are wrong, and statements
constexpr int MostWarnings = 3;       // about one thing within an hour
constexpr int MostLines = MostWarnings + 1;

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

/// A statement that a file refuses for want of a table or a column.
struct SWant {
    QString strKind;
    qint64 nSince = 0;
    bool bTold = false;
};

using Key = std::pair<QString, QString>;

struct SMemory {
    QMutex mutex;
    QMap<Key, SThing> mapThing;     // by name, and the kind of what is wrong with it
    QMap<Key, SRefusal> mapRefused; // by file, statement and words
    QMap<Key, SWant> mapWant;       // by file and statement
    std::atomic<bool> bWant{false}; // whether there are any
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
QString Recovery(const Key& whole, const QString& strAbout, const QString& strNews)
{
    const QMutexLocker lock(&Memory().mutex);
    const auto thing = Memory().mapThing.find(whole);
    if (thing == Memory().mapThing.end() || thing->mapTrouble.isEmpty()) {
        return {};
    }
    QMap<QString, STrouble> mapLeft = thing->mapTrouble;
    for (auto trouble = mapLeft.begin(); trouble != mapLeft.end();) {
        const bool bOver = trouble->strAbout == strAbout || trouble->strAbout == whole.first;
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
    return strNews + After(nNow - thing->nSince);
}

void Tell(const QLoggingCategory& category, const QString& strAbout, const QString& strText)
{
    Logger::instance(); // listens from now on
    qCWarning(category, "%s: %s", qUtf8Printable(strAbout), qUtf8Printable(strText));
}

/// What comes before the first of what differs from file to file.
QString Kind(const QString& strText)
{
    return strText.left(strText.indexOf(QLatin1Char('"')));
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

/// Whether it is the file that has to be mended, not a value or the statement.
bool IsWant(const QString& strWords)
{
    return strWords.startsWith(QLatin1String("no such ")) ||
           strWords.contains(QLatin1String("has no column named"));
}

void TellOfFile(const QString& strFile, const QString& strKind, const QString& strText, bool bLast = false)
{
    if (const std::optional<QString> beside = AmongFiles(strFile, strKind, bLast)) {
        Tell(KvSql(), strFile, strText + *beside);
    }
}

/// Tells the end of what was wrong with a file.
void TellEnd(const QString& strFile, const QString& strKind, const QString& strNews, const QString& strText)
{
    if (!strText.isEmpty()) {
        TellOfFile(strFile, strNews, strText, LeaveCrowd(strFile, strKind));
    }
}

/// Tells that a file takes a statement which it refused for want of something.
void TellTaken(const QString& strFile, const QString& strSql)
{
    const QString strBeginning = Beginning(strSql);
    SWant want;
    {
        const QMutexLocker lock(&Memory().mutex);
        want = Memory().mapWant.take({strFile, WithoutNumbers(strBeginning)});
        Memory().bWant = !Memory().mapWant.isEmpty();
    }
    if (want.bTold) {
        const QString strNews = QStringLiteral("SQLite takes \"%1\" again").arg(strBeginning);
        TellEnd(strFile, want.strKind, strNews, strNews + After(Now() - want.nSince));
    }
}
} // namespace

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
    if (&category == &KvSql()) {
        JoinCrowd(key.first, key.second);
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
    const QString strRecovery = Recovery({strWhole, {}}, strAbout, strNews);
    if (&category == &KvSql()) {
        TellEnd(strWhole, {}, strNews, strRecovery);
    } else if (!strRecovery.isEmpty()) {
        Tell(category, strWhole, strRecovery);
    }
}

void TellOver(const QString& strFile, const QString& strText, const QString& strNews)
{
    const QString strKind = Kind(strText);
    TellEnd(strFile, strKind, strNews, Recovery({strFile, strKind}, strFile, strNews));
}

void TellLoss(const QString& strFile, const QString& strKind, const QString& strText)
{
    if (const std::optional<QString> beside = AmongFiles(strFile, strKind)) {
        Logger::instance(); // listens from now on
        qCCritical(KvSql, "%s: %s", qUtf8Printable(strFile), qUtf8Printable(strText + *beside));
    }
}

bool AwaitsTaking()
{
    return Memory().bWant;
}

void WarnRefused(const QString& strFile, const QString& strSql, const QSqlError& error)
{
    constexpr int Locked = 6;
    if (!error.isValid() && AwaitsTaking()) {
        TellTaken(strFile, strSql);
    }
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
        if (IsWant(strWords)) {
            SWant& want = Remembered(Memory().mapWant, {strFile, WithoutNumbers(strBeginning)});
            want = {strKind, want.strKind.isEmpty() ? nNow : want.nSince, want.bTold || IsPowerOfTen(nTimes)};
            Memory().bWant = true;
            JoinCrowd(strFile, strKind);
        }
    }
    if (IsPowerOfTen(nTimes)) {
        TellOfFile(strFile, strKind,
                   QStringLiteral("SQLite refuses \"%1\": %2").arg(strBeginning, strWords) +
                       (nTimes == 1 ? QString() : QStringLiteral(" (%1 times)").arg(nTimes)));
    }
}
