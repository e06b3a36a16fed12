// SPDX-License-Identifier: MIT
#include "KvAlgorthm.h"

#include <atomic>
#include <chrono>
#include <limits>

namespace
{
using std::chrono::duration_cast;
using std::chrono::microseconds;

constexpr ushort VersionOfTime = 0x7000;
constexpr ushort BesideVersion = 0x0fff;

template<class Clock>
qint64 Now()
{
    return duration_cast<microseconds>(Clock::now().time_since_epoch()).count();
}

/// Milliseconds since 1970 by a clock that follows the system's clock ahead, never back, and always runs.
quint64 AdvancingTime()
{
    static std::atomic<qint64> ahead{std::numeric_limits<qint64>::min()}; // of the clock that always runs
    // In this order: what passes between the two makes the difference smaller, and it is made up for.
    const qint64 system = Now<std::chrono::system_clock>();
    const qint64 running = Now<std::chrono::steady_clock>();
    const qint64 difference = system - running;
    qint64 furthest = ahead.load();
    while (difference > furthest && !ahead.compare_exchange_weak(furthest, difference)) {
    }
    return static_cast<quint64>(running + qMax(difference, furthest)) / 1000;
}
} // namespace

QString UidToString(const QUuid& uid)
{
    QUuid stamped = uid;
    if (uid.version() == QUuid::Random) {
        const quint64 time = AdvancingTime();
        stamped.data1 = static_cast<uint>(time >> 16);
        stamped.data2 = static_cast<ushort>(time);
        stamped.data3 = VersionOfTime | (uid.data3 & BesideVersion);
    }
    return stamped.toString(QUuid::WithoutBraces);
}
