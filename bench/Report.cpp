// SPDX-License-Identifier: MIT
#include "Report.h"
#include "flightdesk/words/Latin1.h"

#include <algorithm>
#include <iostream>

namespace
{
double median(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

QString scaled(double value, double step, std::initializer_list<const char*> units)
{
    const auto* unit = units.begin();
    while (value >= step && unit + 1 != units.end()) {
        value /= step;
        ++unit;
    }
    return QString::number(value, 'f', value < 10 ? 2 : 1) + u' ' + QLatin1String(*unit);
}

QString text(double value, Unit unit)
{
    switch (unit) {
    case Unit::Bytes:
        return scaled(value, 1024, {"B", "KiB", "MiB", "GiB"});
    case Unit::PerSecond:
        return scaled(value, 1e9, {"/s"});
    case Unit::Seconds:
        break;
    }
    return scaled(value * 1e6, 1000, {"us", "ms", "s"});
}
} // namespace

void Report::add(const QString& what, const Pair& pair, Unit unit, double reach)
{
    const double ratio = unit == Unit::PerSecond ? pair.baseline / pair.ours : pair.ours / pair.baseline;
    m_rows.push_back({what, text(pair.ours, unit), text(pair.baseline, unit), ratio, reach});
    std::cerr << "  " << qPrintable(what) << ": " << ratio << " x" << std::endl;
}

void Report::print() const
{
    const auto line = [](const QString& what, const QString& ours, const QString& baseline,
                         const QString& ratio, const QString& reach, const char* verdict) {
        std::cout << qPrintable(what.leftJustified(66)) << qPrintable(ours.rightJustified(11))
                  << qPrintable(baseline.rightJustified(11)) << qPrintable(ratio.rightJustified(8))
                  << qPrintable(reach.rightJustified(7)) << "  " << verdict << '\n';
    };
    line("what / against what"_l1, "ours"_l1, "baseline"_l1, "ratio"_l1, "reach"_l1, "");
    for (const Row& row : m_rows) {
        const bool judged = row.reach > 0;
        line(row.what, row.ours, row.baseline, QString::number(row.ratio, 'f', 2),
             judged ? QString::number(row.reach, 'g', 3) : "-"_l1,
             !judged                  ? ""
             : row.ratio <= row.reach ? "ok"
                                      : "over");
    }
}

int rounds()
{
    constexpr int Usual = 5;
    bool isSet = false;
    const int wanted = qEnvironmentVariableIntValue("KV_ROUNDS", &isSet);
    return isSet ? std::max(wanted, 1) : Usual;
}

Pair interleave(int rounds, const std::function<double()>& ours, const std::function<double()>& baseline)
{
    std::vector<double> oursAll;
    std::vector<double> baselineAll;
    for (int i = 0; i < rounds; ++i) {
        oursAll.push_back(ours());
        baselineAll.push_back(baseline());
    }
    return {median(oursAll), median(baselineAll)};
}
