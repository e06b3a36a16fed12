// SPDX-License-Identifier: MIT
#pragma once

#include "book/FlightEvents.h"
#include "book/FlightProfile.h"

#include <QtGui/QStandardItemModel>
#include <QtWidgets/QWidget>

class ProfileView;
class QLabel;
class QPushButton;
class QSplitter;
class StateLabel;
class TableView;
class TrackView;
class WindowSession;

/// A flight's page: its figures, its track, its values over time and what happened in it.
class FlightView : public QWidget
{
    Q_OBJECT

public:
    explicit FlightView(WindowSession& session, QWidget* parent = nullptr);

    /// \param row  of the missions; below 0 for none
    void show(int row);
    QWidget* charts() const;
    /// Asks where to, and writes the flight that is shown.
    void chooseExport();

Q_SIGNALS:
    void uploadWanted();

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    QLayout* makeButtons();
    void showFacts();
    void showProfile(const QString& mission, const FlightProfile& profile);
    void showEvents(const QString& mission, const QVector<FlightEvent>& events);
    void pointAt(qint64 msec);
    int row() const;

    WindowSession& m_session;
    QString m_file;
    QString m_mission;
    QString m_read; ///< version of the flight when it was read
    QLabel* m_name;
    QLabel* m_facts;
    StateLabel* m_state;
    TrackView* m_track;
    ProfileView* m_profile;
    QStandardItemModel m_events;
    TableView* m_happened;
    QSplitter* m_parts;
    StateLabel* m_readout;
    QPushButton* m_export;
    QPushButton* m_folder;
    QPushButton* m_upload;
    qint64 m_start = flightTime::Unknown;
};
