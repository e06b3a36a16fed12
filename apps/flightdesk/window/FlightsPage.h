// SPDX-License-Identifier: MIT
#pragma once

#include <QtWidgets/QWidget>

class FlightView;
class MissionProxy;
class QBoxLayout;
class QDateEdit;
class QLabel;
class QLineEdit;
class QPushButton;
class QSplitter;
class QStackedWidget;
class StateLabel;
class TableView;
class WindowSession;

/// The flight book: the project's flights, and the one that is selected beside them.
class FlightsPage : public QWidget
{
    Q_OBJECT

public:
    explicit FlightsPage(WindowSession& session, QWidget* parent = nullptr);

    /// Opens a project, or says why it cannot be opened.
    /// \param make  make the folder when it is missing
    void open(const QString& path, bool make);
    /// Asks for a project's folder, and where it is none whether to make one there.
    void choose();
    /// Asks for a name and a place.
    void chooseNew();
    /// To the field that finds flights.
    void find();
    QWidget* table() const;
    /// Columns that count what is in the files.
    void showDetails(bool show);
    FlightView* flightView() const { return m_view; }

Q_SIGNALS:
    void logsWanted();
    void simulationWanted();

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    QWidget* makeEmpty();
    QLayout* makeSearchRow();
    void makeTable();
    void filter();
    void showSelected();
    void showSums();

    WindowSession& m_session;
    QStackedWidget* m_stack;
    QLabel* m_hint;
    QPushButton* m_first;
    QPushButton* m_second;
    MissionProxy* m_proxy;
    TableView* m_table;
    QLineEdit* m_search;
    QDateEdit* m_from;
    QDateEdit* m_to;
    QLabel* m_sums;
    StateLabel* m_notice;
    FlightView* m_view;
    QSplitter* m_splitter;
};
