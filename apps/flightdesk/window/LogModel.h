// SPDX-License-Identifier: MIT
#pragma once

#include "window/TableModel.h"

#include <QtCore/QTime>
#include <QtCore/QTimer>
#include <QtCore/QVector>

/// The latest lines of the log.
class LogModel : public TableModel
{
    Q_OBJECT

public:
    enum Column { Time, Severity, Text, ColumnCount };
    enum OwnRole {
        LevelRole = FirstRole,
        PlainRole, ///< whether it was written for the user
    };
    static constexpr int MostLines = 20000;
    static constexpr int LongestLine = 400; ///< a line that lists a thousand ids is cut

    explicit LogModel(QObject* parent = nullptr);

    /// Shown with the next lot, a tenth of a second later at most.
    void append(const QString& text, int level);
    /// What a user wants to know, in plain words.
    void note(const QString& text, int level);

    QVariant data(const QModelIndex& index, int role) const override;

    static QString levelName(int level);

private:
    int rows() const override { return m_lines.size(); }
    struct Line {
        QTime time;
        int level;
        QString text;
        bool plain;
    };
    void add(const Line& line);
    void showPending();
    void dropOldest(int lines);

    QVector<Line> m_lines;
    QVector<Line> m_pending;
    QTimer m_timer;
};
