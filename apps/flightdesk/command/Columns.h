// SPDX-License-Identifier: MIT
#pragma once

#include "command/Console.h"

#include <QtCore/QStringList>
#include <QtCore/QVector>

#include <algorithm>

/// Lines of texts in columns as wide as they have to be.
class Columns
{
public:
    void add(const QStringList& line)
    {
        m_lines.append(line);
        m_widths.resize(std::max(m_widths.size(), line.size()));
        for (int i = 0; i < line.size(); ++i) {
            m_widths[i] = std::max<int>(m_widths.at(i), line.at(i).size());
        }
    }

    void print(Console& console) const
    {
        for (const QStringList& line : m_lines) {
            QString text;
            for (int i = 0; i < line.size(); ++i) {
                text += line.at(i).leftJustified(m_widths.at(i) + 2);
            }
            console.line(text.trimmed());
        }
    }

private:
    QVector<QStringList> m_lines;
    QVector<int> m_widths;
};
