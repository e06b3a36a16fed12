// SPDX-License-Identifier: MIT
#include "window/LogModel.h"

#include <utility>

namespace
{
constexpr int ShowInterval = 100; // milliseconds; line by line a busy log would keep the views busy
constexpr int DropAtOnce = 2000;
} // namespace

LogModel::LogModel(QObject* parent) : TableModel({tr("Time"), tr("Level"), tr("What happened")}, parent)
{
    m_timer.setSingleShot(true);
    m_timer.setInterval(ShowInterval);
    connect(&m_timer, &QTimer::timeout, this, &LogModel::showPending);
}

void LogModel::append(const QString& text, int level)
{
    const bool cut = text.size() > LongestLine;
    add({QTime::currentTime(), level, cut ? text.left(LongestLine) + QStringLiteral(" ...") : text, false});
}

void LogModel::note(const QString& text, int level)
{
    add({QTime::currentTime(), level, text, true});
}

void LogModel::add(const Line& line)
{
    m_pending.append(line);
    if (!m_timer.isActive()) {
        m_timer.start();
    }
}

void LogModel::showPending()
{
    QVector<Line> lines = std::exchange(m_pending, {});
    lines.remove(0, qMax(0, lines.size() - MostLines));
    const int over = m_lines.size() + lines.size() - MostLines;
    if (over > 0) {
        dropOldest(qMin(m_lines.size(), qMax(over, DropAtOnce)));
    }
    beginInsertRows({}, m_lines.size(), m_lines.size() + lines.size() - 1);
    m_lines += lines;
    endInsertRows();
}

void LogModel::dropOldest(int lines)
{
    beginRemoveRows({}, 0, lines - 1);
    m_lines.remove(0, lines);
    endRemoveRows();
}

QVariant LogModel::data(const QModelIndex& index, int role) const
{
    const Line& line = m_lines[index.row()];
    if (role == LevelRole) {
        return line.level;
    }
    if (role == PlainRole) {
        return line.plain;
    }
    if (role == Qt::ToolTipRole && index.column() == Text) {
        return line.text;
    }
    if (role != Qt::DisplayRole) {
        return {};
    }
    switch (index.column()) {
    case Time:
        return line.time.toString(QStringLiteral("hh:mm:ss.zzz"));
    case Severity:
        return levelName(line.level);
    default:
        return line.text;
    }
}

QString LogModel::levelName(int level)
{
    const char* const names[] = {"Trace", "Debug", "Info", "Warning", "Error"};
    return QString::fromLatin1(names[qBound(0, level, 4)]);
}
