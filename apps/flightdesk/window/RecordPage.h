// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QTimer>
#include <QtWidgets/QWidget>

#include <array>

class ConnectDialog;
class Plot;
class QCheckBox;
class QComboBox;
class QPushButton;
class QSpinBox;
class StateLabel;
class TableView;
class TrackPlot;
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
    void showStation();
    void noteSamples(int flight);
    void showFlight();
    void showNextPlot();
    void showPlot(std::size_t plot);
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
    TrackPlot* m_track;
    Plot* m_height;
    Plot* m_speedPlot;
    Plot* m_battery;
    QTimer m_redraw;
    std::array<bool, 4> m_outdated{}; ///< the track and the three values over time
    std::size_t m_nextPlot = 0;
};
