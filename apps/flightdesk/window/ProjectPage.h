// SPDX-License-Identifier: MIT
#pragma once

#include <QtWidgets/QWidget>

class QLabel;
class TableView;
class WindowSession;

/// The project's folder and its missions.
class ProjectPage : public QWidget
{
    Q_OBJECT

public:
    explicit ProjectPage(WindowSession& session, QWidget* parent = nullptr);

    /// Opens a project, or says why it cannot be opened.
    void open(const QString& path, bool make);

private:
    QLayout* makeHead();
    void choose(bool make);
    void showTotals();

    WindowSession& m_session;
    QLabel* m_path;
    QLabel* m_totals;
    TableView* m_table;
};
