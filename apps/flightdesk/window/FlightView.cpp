// SPDX-License-Identifier: MIT
#include "window/FlightView.h"

#include "export/ExportFile.h"
#include "window/MissionModel.h"
#include "window/ProfileView.h"
#include "window/Rows.h"
#include "window/StateLabel.h"
#include "window/TableViews.h"
#include "window/Theme.h"
#include "window/TrackView.h"
#include "window/WindowSession.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QUrl>
#include <QtGui/QDesktopServices>
#include <QtWidgets/QFileDialog>
#include <QtWidgets/QHeaderView>
#include <QtWidgets/QPushButton>
#include <QtWidgets/QSplitter>

namespace
{
constexpr int MsecRole = Qt::UserRole;

QString formatText(const ExportFormat& format)
{
    const QString name = QLatin1String(format.name);
    const QString texts[] = {FlightView::tr("Telemetry log"), FlightView::tr("Map, KML"),
                             FlightView::tr("Track, GPX"), FlightView::tr("Map data, GeoJSON"),
                             FlightView::tr("Table, CSV")};
    const auto at = std::size_t(&format - ExportFormats);
    return QStringLiteral("%1 (*.%2)").arg(texts[at], name);
}
} // namespace

FlightView::FlightView(WindowSession& session, QWidget* parent)
    : QWidget(parent)
    , m_session(session)
    , m_name(new QLabel)
    , m_facts(new QLabel)
    , m_state(new StateLabel)
    , m_track(new TrackView)
    , m_profile(new ProfileView)
    , m_happened(new TableView(tr("Events"), tr("Modes, arming, messages of the vehicle and gaps of the link "
                                                "stand here.")))
    , m_parts(new QSplitter(Qt::Vertical))
    , m_readout(new StateLabel)
    , m_export(new QPushButton(tr("&Export...")))
    , m_folder(new QPushButton(tr("Show in fol&der")))
    , m_upload(new QPushButton(tr("&Upload now")))
{
    QFont font = m_name->font();
    font.setPointSizeF(font.pointSizeF() * 1.25);
    m_name->setFont(font);
    for (QLabel* const label : {m_name, m_facts}) {
        label->setWordWrap(true);
        label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    }
    m_events.setHorizontalHeaderLabels({tr("Time"), tr("What happened")});
    m_happened->setModel(&m_events);
    m_happened->setWidths({7});
    m_happened->header()->setSectionResizeMode(1, QHeaderView::Stretch);
    m_happened->setMinimumHeight(fontMetrics().height() * 4);
    for (QWidget* const part : std::initializer_list<QWidget*>{m_track, m_profile, m_happened}) {
        m_parts->addWidget(part);
    }
    m_parts->setChildrenCollapsible(false);
    m_parts->setSizes({230, 230, 170});
    m_parts->setObjectName(QStringLiteral("flight"));
    auto* const layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_name);
    layout->addWidget(m_facts);
    layout->addWidget(m_state);
    layout->addWidget(m_parts, 1);
    layout->addLayout(makeButtons());

    const FlightReader* const reader = session.reader();
    connect(reader, &FlightReader::profiled, this, &FlightView::showProfile);
    connect(reader, &FlightReader::happened, this, &FlightView::showEvents);
    connect(session.missions(), &MissionModel::dataChanged, this, &FlightView::showFacts);
    connect(m_track, &TrackView::pointedAt, this, &FlightView::pointAt);
    connect(m_profile, &ProfileView::pointedAt, this, &FlightView::pointAt);
    connect(
        m_happened->selectionModel(), &QItemSelectionModel::currentRowChanged, this,
        [this](const QModelIndex& event) { pointAt(event.siblingAtColumn(0).data(MsecRole).toLongLong()); });
    show(-1);
}

QLayout* FlightView::makeButtons()
{
    connect(m_export, &QPushButton::clicked, this, &FlightView::chooseExport);
    connect(m_folder, &QPushButton::clicked, this,
            [this] { QDesktopServices::openUrl(QUrl::fromLocalFile(QFileInfo(m_file).absolutePath())); });
    connect(m_upload, &QPushButton::clicked, this, &FlightView::uploadWanted);
    connect(m_session.reader(), &FlightReader::exported, m_readout, &StateLabel::say);
    QHBoxLayout* const row = sideBySide({{m_export, m_folder, m_upload}, {m_readout}});
    row->setStretchFactor(m_readout, 1);
    return row;
}

/// The row of the flight that is shown; rows move as files come and go.
int FlightView::row() const
{
    const MissionModel& missions = *m_session.missions();
    for (int row = 0; row < missions.rowCount(); ++row) {
        if (missions.record(row).file == m_file && missions.record(row).id == m_mission) {
            return row;
        }
    }
    return -1;
}

void FlightView::show(int row)
{
    const MissionRecord mission = row < 0 ? MissionRecord() : m_session.missions()->record(row);
    if (mission.file != m_file || mission.id != m_mission || row < 0) {
        m_file = mission.file;
        m_mission = mission.id;
        m_read.clear();
        showProfile(m_mission, {});
        showEvents(m_mission, {});
        pointAt(flightTime::Unknown);
    }
    for (QWidget* const part : std::initializer_list<QWidget*>{m_export, m_folder, m_upload}) {
        part->setEnabled(row >= 0);
    }
    showFacts();
}

QWidget* FlightView::charts() const
{
    return m_profile;
}

void FlightView::showFacts()
{
    const int row = this->row();
    if (row < 0) {
        m_name->setText(tr("No flight is selected."));
        m_facts->clear();
        m_state->clear();
        return;
    }
    const MissionModel& missions = *m_session.missions();
    const MissionRecord& mission = missions.record(row);
    if (m_read != mission.version() && mission.readable) { // it may be recorded just now
        m_read = mission.version();
        m_session.reader()->open(m_file, m_mission);
    }
    m_name->setText(mission.name.isEmpty() ? mission.id : mission.name);
    QStringList facts;
    if (missions.start(row).isValid()) {
        facts.append(missions.start(row).toString(QStringLiteral("yyyy-MM-dd hh:mm")) + tr(" UTC"));
    }
    facts.append(mission.aircraft);
    if (const FlightFigures* const figures = missions.figures(row)) {
        facts.append(tr("airborne %1").arg(MissionModel::durationText(std::llround(figures->airborne))));
        facts.append(MissionModel::distanceText(figures->distance));
        const std::pair<double, QString> known[] = {{figures->highest, tr("highest %1 m")},
                                                    {figures->fastest, tr("fastest %1 m/s")},
                                                    {figures->batteryUsed, tr("battery used %1 %")}};
        for (const auto& [number, text] : known) {
            facts.append(std::isnan(number) ? QString() : text.arg(number, 0, 'f', 0));
        }
        facts.append(words(figures->gaps, 1));
    }
    facts.append(mission.lostWords());
    facts.removeAll({});
    m_state->sayIn(missions.accent(row), missions.stateText(row));
    m_facts->setText(facts.join(QStringLiteral("  \u00b7  ")));
    m_track->setBreakpoint(mission.breakpoint);
    m_upload->setEnabled(mission.all().waiting > 0);
}

void FlightView::showProfile(const QString& mission, const FlightProfile& profile)
{
    if (mission == m_mission) {
        m_start = profile.isEmpty() ? flightTime::Unknown : profile.period().first;
        m_track->setTrack(profile.track);
        m_profile->setProfile(profile);
    }
}

void FlightView::showEvents(const QString& mission, const QVector<FlightEvent>& events)
{
    if (mission != m_mission) {
        return;
    }
    m_events.removeRows(0, m_events.rowCount());
    const QColor trouble = theme::accent(palette(), theme::Accent::Trouble);
    for (const FlightEvent& event : events) {
        const QString time =
            m_start == flightTime::Unknown ? QString() : ProfileView::clock(event.msec - m_start);
        const QList<QStandardItem*> cells{new QStandardItem(time), new QStandardItem(event.text)};
        for (QStandardItem* const cell : cells) {
            cell->setEditable(false);
            cell->setData(event.msec, MsecRole);
            cell->setToolTip(event.text);
            if (event.trouble) {
                cell->setForeground(trouble);
            }
        }
        m_events.appendRow(cells);
    }
}

void FlightView::pointAt(qint64 msec)
{
    m_track->setCursorTime(msec);
    m_profile->setCursorTime(msec);
    m_readout->say(m_profile->readout(), false);
}

void FlightView::chooseExport()
{
    if (row() < 0) {
        return;
    }
    QStringList filters;
    for (const ExportFormat& format : ExportFormats) {
        filters.append(formatText(format));
    }
    QString chosen = filters.at(1);
    const QString name = m_name->text().replace(QLatin1Char('/'), QLatin1Char('_'));
    const QString path =
        QFileDialog::getSaveFileName(this, tr("Export the flight"), QDir::home().filePath(name),
                                     filters.join(QStringLiteral(";;")), &chosen);
    if (path.isEmpty()) {
        return;
    }
    const ExportFormat* format = &ExportFormats[std::max<int>(0, filters.indexOf(chosen))];
    for (const ExportFormat& other : ExportFormats) {
        format = QFileInfo(path).suffix() == QLatin1String(other.name) ? &other : format;
    }
    const QString ending = QLatin1Char('.') + QLatin1String(format->name);
    m_readout->say(tr("Exporting..."), false);
    m_session.reader()->exportTo(path.endsWith(ending) ? path : path + ending, *format, m_file, m_mission);
}

/// Side by side where it is wide, else above each other.
void FlightView::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    const bool wide = width() > height() * 3 / 2;
    m_parts->setOrientation(wide ? Qt::Horizontal : Qt::Vertical);
}
