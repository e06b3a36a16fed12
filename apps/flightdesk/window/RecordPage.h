// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QTimer>
#include <QtWidgets/QWidget>

class ConnectDialog;
class ProfileView;
class QCheckBox;
class QComboBox;
class QPushButton;
class QSpinBox;
class StateLabel;
class TableView;
class TrackView;
class WindowSession;
struct FlightTask;

/// Records telemetry logs, simulated flights and vehicles that are heard, and shows the one that is selected.
class RecordPage : public QWidget
{
    Q_OBJECT

public:
    explicit RecordPage(WindowSession& session, QWidget* parent = nullptr);

    void recordLogs(const QStringList& paths);
    void chooseLogs();
    void simulate();
    /// Shows the flight of a row.
    void select(int row);
    QComboBox* speed() const { return m_speed; }
    /// Where the links are entered.
    ConnectDialog* links() const { return m_links; }

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void showEvent(QShowEvent* event) override;

private:
    QLayout* makeControls();
    QWidget* makePlots();
    void toggleStation();
    void askToStop();
    void askToRecordAgain(FlightTask task);
    void showStation();
    void noteSamples(int flight);
    void showFlight();
    void drawFlight();
    int selectedRow() const;
    FlightTask makeTask(const QString& name) const;

    WindowSession& m_session;
    QComboBox* m_speed;
    QCheckBox* m_easyFly;
    QSpinBox* m_minutes;
    QCheckBox* m_interrupted;
    QPushButton* m_cancel;
    QPushButton* m_connect;
    StateLabel* m_station;
    ConnectDialog* m_links;
    TableView* m_table;
    TrackView* m_track;
    ProfileView* m_profile;
    QTimer m_redraw;
};
