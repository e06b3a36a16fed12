// SPDX-License-Identifier: MIT
#include "KvWarnings.h"

#include "KvLog.h"

#include <QtCore/QElapsedTimer>
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
constexpr int MostRemembered = 1000; // things that are wrong, and statements
constexpr qint64 Calm = 1200000;     // milliseconds
constexpr int MostTexts = 3;         // about one thing within that time

struct STold {
    QElapsedTimer since;
    bool bStill = false;
};

struct SMemory {
    QMutex mutex;
    QMap<std::pair<QString, QString>, STold> mapTold;      // by what it is about and text
    QMap<std::pair<QString, QString>, quint64> mapRefused; // by file, statement and words
};

SMemory& Memory()
{
    static auto& memory = *new SMemory; // objects may outlive main() on other threads
    return memory;
}

template<typename Map>
typename Map::mapped_type& Remembered(Map& map, const QString& first, const QString& second)
{
    if (map.size() >= MostRemembered) {
        map.clear();
    }
    return map[{first, second}];
}

bool IsNews(const QString& strAbout, const QString& strText)
{
    const QMutexLocker lock(&Memory().mutex);
    const auto isFresh = [](const STold& told) {
        return told.since.isValid() && told.since.elapsed() < Calm;
    };
    auto& mapTold = Memory().mapTold;
    int nTexts = 0;
    for (auto i = mapTold.lowerBound({strAbout, {}}); i != mapTold.end() && i.key().first == strAbout; ++i) {
        nTexts += isFresh(*i) ? 1 : 0;
    }
    STold& told = Remembered(mapTold, strAbout, strText);
    if (nTexts >= MostTexts || std::exchange(told.bStill, true) || isFresh(told)) {
        return false;
    }
    told.since.start();
    return true;
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

bool IsPowerOfTen(quint64 nTimes)
{
    while (nTimes % 10 == 0) {
        nTimes /= 10;
    }
    return nTimes == 1;
}
} // namespace

void WarnOnce(const QLoggingCategory& category, const QString& strAbout, const QString& strText)
{
    if (IsNews(strAbout, strText)) {
        Logger::instance(); // listens from now on
        qCWarning(category, "%s: %s", qUtf8Printable(strAbout), qUtf8Printable(strText));
    }
}

void WellAgain(const QString& strAbout)
{
    const QMutexLocker lock(&Memory().mutex);
    auto& mapTold = Memory().mapTold;
    for (auto told = mapTold.lowerBound({strAbout, {}});
         told != mapTold.end() && told.key().first == strAbout; ++told) {
        told->bStill = false;
    }
}

void WarnRefused(const QString& strFile, const QString& strSql, const QSqlError& error)
{
    constexpr int Busy = 5;
    constexpr int Locked = 6;
    const int nCode = error.nativeErrorCode().toInt() & 0xff;
    if (!error.isValid() || nCode == Busy || nCode == Locked) {
        return;
    }
    const QString strBeginning = Beginning(strSql);
    quint64 nTimes = 0;
    {
        const QMutexLocker lock(&Memory().mutex);
        nTimes =
            ++Remembered(Memory().mapRefused, strFile, WithoutNumbers(strBeginning) + error.databaseText());
    }
    if (IsPowerOfTen(nTimes)) {
        Logger::instance();
        qCWarning(KvSql, "%s: SQLite refuses \"%s\": %s%s", qUtf8Printable(strFile),
                  qUtf8Printable(strBeginning), qUtf8Printable(error.databaseText()),
                  nTimes == 1 ? "" : qPrintable(QStringLiteral(" (%1 times)").arg(nTimes)));
    }
}
