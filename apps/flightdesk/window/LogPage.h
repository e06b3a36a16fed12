// SPDX-License-Identifier: MIT
#pragma once

#include <QtWidgets/QWidget>

class TableView;
class WindowSession;

/// The log's latest lines, and where its file is.
class LogPage : public QWidget
{
    Q_OBJECT

public:
    /// \param file  empty when the log has no file
    LogPage(WindowSession& session, const QString& file, QWidget* parent = nullptr);

private:
    QLayout* makeFilter(WindowSession& session);
    void followEnd();
    QLayout* makePlace(const QString& file);

    TableView* m_table;
    bool m_atEnd = true; ///< new lines are followed
};
