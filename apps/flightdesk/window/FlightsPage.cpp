// SPDX-License-Identifier: MIT
#include "window/FlightsPage.h"

#include "window/FlightView.h"
#include "window/MissionModel.h"
#include "window/NewProjectDialog.h"
#include "window/Rows.h"
#include "window/StateLabel.h"
#include "window/TableViews.h"
#include "window/WindowSession.h"
#include "words/Failure.h"

#include <QtCore/QDir>
#include <QtCore/QLocale>
#include <QtWidgets/QCalendarWidget>
#include <QtWidgets/QDateEdit>
#include <QtWidgets/QFileDialog>
#include <QtWidgets/QHeaderView>
#include <QtWidgets/QMessageBox>
#include <QtWidgets/QPushButton>
#include <QtWidgets/QSplitter>
#include <QtWidgets/QStackedWidget>

#include <cmath>

namespace
{
const QDate AnyDay(1999, 12, 31);

/// Its calendar opens at today as long as no day is chosen.
class DayEdit : public QDateEdit
{
public:
    DayEdit() : QDateEdit(AnyDay) {}

protected:
    void mousePressEvent(QMouseEvent* event) override
    {
        QDateEdit::mousePressEvent(event);
        if (date() == AnyDay) {
            const QDate today = QDate::currentDate();
            calendarWidget()->setCurrentPage(today.year(), today.month());
        }
    }
};

QDateEdit* makeDay(const QString& name)
{
    auto* const day = new DayEdit;
    day->setMinimumDate(AnyDay);
    day->setSpecialValueText(FlightsPage::tr("any day"));
    day->setDisplayFormat(QStringLiteral("yyyy-MM-dd"));
    day->setCalendarPopup(true);
    day->setAccessibleName(name);
    return day;
}

bool isDetail(int column)
{
    return column == MissionModel::File || column == MissionModel::BreakpointAt ||
           column == MissionModel::Uploaded ||
           (column >= MissionModel::MissionRow && column <= MissionModel::Oldest);
}
} // namespace

FlightsPage::FlightsPage(WindowSession& session, QWidget* parent)
    : QWidget(parent)
    , m_session(session)
    , m_stack(new QStackedWidget)
    , m_hint(new QLabel)
    , m_first(new QPushButton)
    , m_second(new QPushButton)
    , m_proxy(new MissionProxy(session.missions(), false, this))
    , m_table(new TableView(tr("Flights"), tr("No flight is found. Change the text or the days.")))
    , m_from(makeDay(tr("From")))
    , m_to(makeDay(tr("To")))
    , m_sums(new QLabel)
    , m_notice(new StateLabel)
    , m_view(new FlightView(session))
    , m_splitter(new QSplitter)
{
    makeTable();
    auto* const book = new QWidget;
    auto* const layout = new QVBoxLayout(book);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addLayout(makeSearchRow());
    layout->addWidget(m_table, 1);
    m_sums->setWordWrap(true);
    layout->addWidget(m_sums);
    m_splitter->addWidget(book);
    m_splitter->addWidget(m_view);
    m_splitter->setChildrenCollapsible(false);
    m_splitter->setStretchFactor(0, 2);
    m_splitter->setStretchFactor(1, 1);
    m_splitter->setObjectName(QStringLiteral("book"));
    m_splitter->setHandleWidth(9);
    m_stack->addWidget(makeEmpty());
    m_stack->addWidget(m_splitter);
    auto* const all = new QVBoxLayout(this);
    all->addWidget(m_notice);
    all->addWidget(m_stack);
    connect(&session, &WindowSession::looked, this, &FlightsPage::showSums);
    connect(&session, &WindowSession::projectOpened, this, &FlightsPage::showSums);
    connect(m_table->selectionModel(), &QItemSelectionModel::currentRowChanged, this,
            &FlightsPage::showSelected);
    showSums();
}

void FlightsPage::makeTable()
{
    m_table->setModel(m_proxy);
    m_table->setSortingEnabled(true);
    m_table->sortByColumn(MissionModel::Start, Qt::DescendingOrder);
    m_table->setWidths({20, 15, 9, 19, 10, 0, 9, 7, 8, 8, 8, 13, 9, 38, 0});
    m_table->header()->moveSection(MissionModel::Start, 0);
    // What a pilot looks for first has all the room that is left.
    int place = 1;
    for (const int column :
         {int(MissionModel::Mission), int(MissionModel::State), int(MissionModel::Duration),
          int(MissionModel::Distance), int(MissionModel::Aircraft)}) {
        m_table->header()->moveSection(m_table->header()->visualIndex(column), place++);
    }
    m_table->header()->setStretchLastSection(false);
    m_table->header()->setSectionResizeMode(MissionModel::State, QHeaderView::Stretch);
    m_table->header()->setMinimumSectionSize(fontMetrics().averageCharWidth() * 7);
    m_table->setMinimumHeight(fontMetrics().height() * 5);
    showDetails(false);
}

void FlightsPage::showDetails(bool show)
{
    for (int column = 0; column < MissionModel::ColumnCount; ++column) {
        m_table->setColumnHidden(column, isDetail(column) && (!show || column == MissionModel::MissionRow ||
                                                              column == MissionModel::Uploaded));
    }
}

QLayout* FlightsPage::makeSearchRow()
{
    m_search = makeSearch(tr("Find a flight"), m_proxy);
    m_search->setMinimumWidth(fontMetrics().averageCharWidth() * 8);
    connect(m_search, &QLineEdit::textChanged, this, &FlightsPage::showSums);
    connect(m_from, &QDateEdit::dateChanged, this, &FlightsPage::filter);
    connect(m_to, &QDateEdit::dateChanged, this, &FlightsPage::filter);
    return sideBySide(
        {{m_search}, {labelFor(tr("F&rom:"), m_from), m_from, labelFor(tr("&To:"), m_to), m_to}});
}

void FlightsPage::filter()
{
    const QDate from = m_from->date();
    const QDate to = m_to->date() == AnyDay ? QDate(9999, 12, 31) : m_to->date();
    const MissionModel* const missions = m_session.missions();
    m_proxy->setCondition([missions, from, to](const QModelIndex& row) {
        const QDate day = missions->start(row.row()).date();
        return from == AnyDay && to.year() == 9999 ? true : day >= from && day <= to;
    });
    showSums();
}

/// What to do first.
QWidget* FlightsPage::makeEmpty()
{
    auto* const empty = new QWidget;
    m_hint->setAlignment(Qt::AlignCenter);
    m_hint->setWordWrap(true);
    auto* const layout = new QVBoxLayout(empty);
    layout->addStretch(2);
    layout->addWidget(m_hint);
    layout->addSpacing(12);
    layout->addLayout(sideBySide({{nullptr, m_first, m_second, nullptr}}));
    layout->addStretch(3);
    connect(m_first, &QPushButton::clicked, this,
            [this] { m_session.hasProject() ? Q_EMIT logsWanted() : chooseNew(); });
    connect(m_second, &QPushButton::clicked, this,
            [this] { m_session.hasProject() ? Q_EMIT simulationWanted() : choose(); });
    return empty;
}

void FlightsPage::choose()
{
    // Beside the project, where others are.
    const QString near =
        m_session.hasProject() ? QFileInfo(m_session.projectPath()).absolutePath() : QString();
    const QString path = QFileDialog::getExistingDirectory(this, tr("Open project"), near);
    if (!path.isEmpty()) {
        open(path, false);
    }
}

void FlightsPage::chooseNew()
{
    auto* const dialog = new NewProjectDialog(
        m_session.hasProject() ? QFileInfo(m_session.projectPath()).absolutePath() : QDir::homePath(), this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    connect(dialog, &NewProjectDialog::accepted, this, [this, dialog] { open(dialog->path(), true); });
    dialog->open();
}

void FlightsPage::open(const QString& path, bool make)
{
    if (!make && QDir(path).exists() && !Project::isProject(path)) {
        const bool isEmpty = QDir(path).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
        const QString holds = isEmpty ? QString() : tr(" Other files are in it.");
        auto* const question =
            new QMessageBox(QMessageBox::Question, tr("Open project"),
                            tr("This folder is no project.%1 Make one here?\n\n%2").arg(holds, path),
                            QMessageBox::Yes | QMessageBox::No, this);
        question->setDefaultButton(isEmpty ? QMessageBox::Yes : QMessageBox::No);
        question->setAttribute(Qt::WA_DeleteOnClose);
        connect(question->button(QMessageBox::Yes), &QPushButton::clicked, this,
                [this, path] { open(path, true); });
        question->open();
        return;
    }
    try {
        m_session.openProject(path, make);
    } catch (const Failure& failure) {
        QMessageBox::warning(this, tr("Project"), failure.words());
    }
}

QWidget* FlightsPage::table() const
{
    return m_table;
}

void FlightsPage::find()
{
    m_search->setFocus();
    m_search->selectAll();
}

void FlightsPage::showSelected()
{
    const QModelIndex current = m_proxy->mapToSource(m_table->currentIndex());
    m_view->show(current.isValid() ? current.row() : -1);
}

void FlightsPage::showSums()
{
    const MissionModel& missions = *m_session.missions();
    const bool open = m_session.hasProject();
    const bool looking = open && !m_session.hasLooked();
    m_first->setVisible(!looking);
    m_second->setVisible(!looking);
    m_hint->setText(
        looking ? tr("Looking through the project's files.")
        : open  ? tr("There are no flights in this project yet.\nAdd the logs of flights, or "
                      "simulate one to see how it works.")
                : tr("A project is a folder that keeps your flights.\nMake one, or open one that you have."));
    m_first->setText(open ? tr("&Add logs...") : tr("&New project..."));
    m_second->setText(open ? tr("&Simulate") : tr("&Open project..."));
    m_stack->setCurrentIndex(open && missions.rowCount() > 0 ? 1 : 0);
    m_notice->say(m_session.noticeText(), true);
    m_notice->setVisible(!m_notice->text().isEmpty());
    double airborne = 0;
    double distance = 0;
    qint64 waiting = 0;
    int unknown = 0;
    for (int i = 0; i < m_proxy->rowCount(); ++i) {
        const int row = m_proxy->mapToSource(m_proxy->index(i, 0)).row();
        waiting += missions.record(row).all().waiting;
        if (const FlightFigures* const figures = missions.figures(row)) {
            airborne += figures->airborne;
            distance += figures->distance;
        } else {
            unknown += missions.record(row).readable ? 1 : 0;
        }
    }
    const QString flights = m_proxy->rowCount() == 1
                                ? tr("1 flight")
                                : tr("%1 flights").arg(QLocale().toString(m_proxy->rowCount()));
    m_sums->setText(
        tr("%1, %2 airborne, %3, %4 records wait")
            .arg(flights, MissionModel::durationText(std::llround(airborne)),
                 MissionModel::distanceText(distance), QLocale().toString(waiting)) +
        (unknown > 0 ? tr(" (%1 still being read)").arg(QLocale().toString(unknown)) : QString()));
    if (!m_table->currentIndex().isValid() && m_proxy->rowCount() > 0) {
        m_table->setCurrentIndex(m_proxy->index(0, MissionModel::Start));
    }
}

/// The flight stands beside the table, or below where there is no room.
void FlightsPage::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    const int character = fontMetrics().averageCharWidth();
    const bool wide = width() > character * 120;
    m_table->setColumnWidth(MissionModel::Aircraft, character * (width() > character * 220 ? 22 : 11));
    const Qt::Orientation way = wide ? Qt::Horizontal : Qt::Vertical;
    if (m_splitter->orientation() != way || m_splitter->sizes().constFirst() == 0) {
        m_splitter->setOrientation(way);
        m_splitter->setSizes(wide ? QList<int>{660, 340} : QList<int>{350, 650});
    }
}
