// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

#include <chrono>
#include <functional>
#include <stdexcept>
#include <utility>
#include <vector>

struct Pair {
    double ours;
    double baseline;
};

enum class Unit { Seconds, Bytes, PerSecond };

// The table that is printed in the end.
class Report
{
public:
    // reach: the ratio not to exceed; 0 for a row that only informs.
    void add(const QString& what, const Pair& pair, Unit unit, double reach = 0);
    void print() const;

private:
    struct Row {
        QString what;
        QString ours;
        QString baseline;
        double ratio;
        double reach;
    };
    std::vector<Row> m_rows;
};

// Of whatever is compared with an earlier server, as KV_ROUNDS says, or 5.
int rounds();

// Medians of both, measured in turn so that a busy machine is equally busy for the two.
Pair interleave(int rounds, const std::function<double()>& ours, const std::function<double()>& baseline);

template<class Function>
double seconds(Function&& function)
{
    const auto start = std::chrono::steady_clock::now();
    std::forward<Function>(function)();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// A figure counts only if the work was done.
inline void require(bool condition, const QString& otherwise)
{
    if (!condition) {
        throw std::runtime_error(otherwise.toStdString());
    }
}
