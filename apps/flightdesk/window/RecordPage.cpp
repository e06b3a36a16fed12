// SPDX-License-Identifier: MIT
#include "window/RecordPage.h"

#include "window/ConnectDialog.h"
#include "window/ProfileView.h"
#include "window/Rows.h"
#include "window/StateLabel.h"
#include "window/TableViews.h"
#include "window/TrackView.h"
#include "window/WindowSession.h"

#include <QtCore/QFileInfo>
#include <QtCore/QMimeData>
#include <QtCore/QRandomGenerator>
#include <QtGui/QDropEvent>
#include <QtWidgets/QCheckBox>
#include <QtWidgets/QComboBox>
#include <QtWidgets/QFileDialog>
#include <QtWidgets/QHeaderView>
#include <QtWidgets/QMessageBox>
#include <QtWidgets/QPushButton>
#include <QtWidgets/QSpinBox>
#include <QtWidgets/QSplitter>

namespace
{
constexpr int RedrawInterval = 100; // milliseconds

QStringList logsIn(const QMimeData& data)
{
    QStringList paths;
    for (const QUrl& url : data.urls()) {
        if (url.isLocalFile() && url.path().endsWith(QLatin1String(".tlog"), Qt::CaseInsensitive)) {
            paths.append(url.toLocalFile());
        }
    }
    return paths;
}
} // namespace

RecordPage::RecordPage(WindowSession& session, QWidget* parent)
    : QWidget(parent)
    , m_session(session)
    , m_speed(new QComboBox)
    , m_easyFly(new QCheckBox(tr("&Easy-fly")))
    , m_minutes(new QSpinBox)
    , m_interrupted(new QCheckBox(tr("&breaks off in the air")))
    , m_cancel(new QPushButton(tr("S&top...")))
    , m_connect(new QPushButton)
    , m_station(new StateLabel)
    , m_links(new ConnectDialog(session, this))
    , m_table(new TableView(tr("Recordings"), tr("Drop telemetry logs (.tlog) here, connect to vehicles, or "
                                                 "simulate a flight.")))
{
    setAcceptDrops(true);
    m_table->setModel(session.flights());
    m_table->setWidths({24, 16, 40});
    m_table->setItemDelegateForColumn(FlightModel::Progress, new ProgressDelegate(this));
    auto* const splitter = new QSplitter(Qt::Vertical);
    splitter->addWidget(m_table);
    splitter->addWidget(makePlots());
    splitter->setStretchFactor(1, 1);
    splitter->setSizes({150, 500});
    splitter->setChildrenCollapsible(false);
    splitter->setObjectName(QStringLiteral("recordings"));
    auto* const layout = new QVBoxLayout(this);
    layout->addLayout(makeControls());
    layout->addWidget(m_station);
    // Always one line: with more or less room for them all plots would be drawn at once.
    m_station->setWordWrap(false);
    m_station->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
    layout->addWidget(splitter, 1);

    connect(m_table->selectionModel(), &QItemSelectionModel::currentRowChanged, this,
            &RecordPage::showFlight);
    connect(session.flights(), &FlightModel::rowsInserted, this, [this](const QModelIndex&, int row) {
        if (selectedRow() < 0 || m_session.flights()->isRunning(row)) { // vehicles come by themselves
            select(row);
        }
    });
    connect(&session, &WindowSession::sampled, this, &RecordPage::noteSamples);
    connect(&session, &WindowSession::projectOpened, this, [this] { setEnabled(true); });
    connect(&session, &WindowSession::knownLogFound, this, &RecordPage::askToRecordAgain);
    connect(session.station(), &LiveStation::changed, this, &RecordPage::showStation);
    m_redraw.setSingleShot(true);
    m_redraw.setInterval(RedrawInterval);
    connect(&m_redraw, &QTimer::timeout, this, &RecordPage::drawFlight);
    setEnabled(session.hasProject());
    showStation();
    showFlight();
}

QLayout* RecordPage::makeControls()
{
    m_speed->addItem(tr("flight speed"), 1.0);
    m_speed->addItem(tr("10 times"), 10.0);
    m_speed->addItem(tr("as fast as possible"), 0.0);
    m_speed->setCurrentIndex(2);
    connect(m_speed, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
            [this] { m_session.setSpeed(m_speed->currentData().toDouble()); });
    m_easyFly->setToolTip(tr("Record video missions instead of flight missions."));
    auto* const add = new QPushButton(tr("&Add logs..."));
    connect(add, &QPushButton::clicked, this, &RecordPage::chooseLogs);
    connect(m_connect, &QPushButton::clicked, this, &RecordPage::toggleStation);
    connect(m_cancel, &QPushButton::clicked, this, &RecordPage::askToStop);
    m_minutes->setRange(1, 1440);
    m_minutes->setValue(5);
    m_minutes->setSuffix(tr(" min"));
    m_minutes->setAccessibleName(tr("Length of the simulated flight"));
    auto* const start = new QPushButton(tr("&Simulate"));
    connect(start, &QPushButton::clicked, this, &RecordPage::simulate);
    auto* const rows = new QVBoxLayout;
    rows->addLayout(
        sideBySide({{add, m_connect}, {labelFor(tr("S&peed:"), m_speed), m_speed, nullptr, m_cancel}}));
    rows->addLayout(sideBySide({{start, m_minutes, m_interrupted}, {m_easyFly, nullptr}}));
    return rows;
}

QWidget* RecordPage::makePlots()
{
    m_track = new TrackView;
    m_profile = new ProfileView;
    auto* const plots = new QSplitter;
    plots->addWidget(m_track);
    plots->addWidget(m_profile);
    plots->setSizes({500, 500});
    plots->setChildrenCollapsible(false);
    plots->setObjectName(QStringLiteral("plots"));
    connect(m_profile, &ProfileView::pointedAt, this, [this](qint64 msec) {
        m_track->setCursorTime(msec);
        m_profile->setCursorTime(msec);
    });
    return plots;
}

FlightTask RecordPage::makeTask(const QString& name) const
{
    FlightTask task;
    task.name = name;
    task.easyFly = m_easyFly->isChecked();
    task.speed = m_speed->currentData().toDouble();
    return task;
}

void RecordPage::chooseLogs()
{
    recordLogs(QFileDialog::getOpenFileNames(this, tr("Telemetry logs"), {},
                                             tr("Telemetry logs (*.tlog);;All files (*)")));
}

void RecordPage::toggleStation()
{
    if (m_session.station()->state() == LiveStation::State::On) {
        m_session.station()->end();
    } else {
        m_links->open();
    }
}

void RecordPage::askToRecordAgain(FlightTask task)
{
    task.anyway = true;
    auto* const question =
        new QMessageBox(QMessageBox::Question, tr("Add logs"),
                        tr("%1 is in this project already. Record it again?").arg(task.name),
                        QMessageBox::Yes | QMessageBox::No, this);
    question->setDefaultButton(QMessageBox::No);
    question->setAttribute(Qt::WA_DeleteOnClose);
    connect(question->button(QMessageBox::Yes), &QPushButton::clicked, this,
            [this, task] { m_session.record(task); });
    question->open();
}

void RecordPage::askToStop()
{
    const int row = selectedRow();
    const int flight = m_session.flights()->flightAt(row);
    auto* const question = new QMessageBox(
        QMessageBox::Question, tr("Stop recording"),
        tr("Stop recording %1, and what to do with the part that is recorded?")
                .arg(m_session.flights()->index(row, FlightModel::Name).data().toString()) +
            (m_session.isUploading() ? tr("\n\nWhat the server has accepted of it stays there.") : QString()),
        QMessageBox::NoButton, this);
    question->setAttribute(Qt::WA_DeleteOnClose);
    const auto offer = [&](const QString& text, QMessageBox::ButtonRole role, bool keep) {
        connect(question->addButton(text, role), &QPushButton::clicked, this, [this, flight, keep] {
            for (int at = 0; at < m_session.flights()->rowCount(); ++at) {
                if (m_session.flights()->flightAt(at) == flight && m_session.flights()->isRunning(at)) {
                    m_session.stopRecording(at, keep);
                }
            }
        });
    };
    offer(tr("&Keep it"), QMessageBox::AcceptRole, true);
    offer(tr("&Discard it"), QMessageBox::DestructiveRole, false);
    question->addButton(tr("&Go on recording"), QMessageBox::RejectRole);
    question->open();
}

void RecordPage::showStation()
{
    const LiveStation& station = *m_session.station();
    const bool isOff = station.state() == LiveStation::State::Off;
    m_connect->setText(isOff ? tr("C&onnect...") : tr("Disc&onnect"));
    m_connect->setEnabled(isOff || station.state() == LiveStation::State::On);
    m_station->say(station.text(), station.hasTrouble());
    m_station->setToolTip(station.text());
}

void RecordPage::recordLogs(const QStringList& paths)
{
    for (const QString& path : paths) {
        FlightTask task = makeTask(QFileInfo(path).completeBaseName());
        task.log = path;
        m_session.record(task);
    }
}

void RecordPage::simulate()
{
    const quint32 seed = QRandomGenerator::global()->bounded(10000U);
    FlightTask task = makeTask(tr("simulated-%1").arg(seed));
    task.seed = seed;
    task.minutes = m_minutes->value();
    task.interrupted = m_interrupted->isChecked();
    m_session.record(task);
}

void RecordPage::dragEnterEvent(QDragEnterEvent* event)
{
    if (!logsIn(*event->mimeData()).isEmpty()) {
        event->acceptProposedAction();
    }
}

void RecordPage::dropEvent(QDropEvent* event)
{
    recordLogs(logsIn(*event->mimeData()));
    event->acceptProposedAction();
}

void RecordPage::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    showFlight();
}

int RecordPage::selectedRow() const
{
    return m_table->currentIndex().row();
}

void RecordPage::select(int row)
{
    m_table->setCurrentIndex(m_session.flights()->index(row, 0));
}

void RecordPage::noteSamples(int flight)
{
    if (selectedRow() >= 0 && m_session.flights()->flightAt(selectedRow()) == flight) {
        showFlight();
    }
}

void RecordPage::showFlight()
{
    const int row = selectedRow();
    m_cancel->setEnabled(row >= 0 && m_session.flights()->isRunning(row));
    if (isVisible() && !m_redraw.isActive()) {
        m_redraw.start();
    }
}

void RecordPage::drawFlight()
{
    const int row = selectedRow();
    const FlightProfile profile =
        row < 0 ? FlightProfile() : FlightProfile::of(m_session.flights()->track(row).samples());
    m_track->setTrack(profile.track);
    m_track->setBreakpoint(row < 0 ? std::nullopt : m_session.flights()->breakpoint(row));
    m_track->setCursorTime(profile.period().second);
    m_profile->setProfile(profile);
}
