// SPDX-License-Identifier: MIT
#include "window/ProjectPage.h"

#include "window/MissionModel.h"
#include "window/Rows.h"
#include "window/TableViews.h"
#include "window/WindowSession.h"
#include "words/Failure.h"

#include <QtCore/QLocale>
#include <QtWidgets/QFileDialog>
#include <QtWidgets/QHeaderView>
#include <QtWidgets/QMessageBox>
#include <QtWidgets/QPushButton>

ProjectPage::ProjectPage(WindowSession& session, QWidget* parent)
    : QWidget(parent)
    , m_session(session)
    , m_path(new QLabel(tr("No project is open.")))
    , m_totals(new QLabel)
    , m_table(new TableView(tr("Missions"), tr("No missions yet. Open a project, and record a flight.")))
{
    auto* const proxy = new MissionProxy(session.missions(), false, this);
    m_table->setModel(proxy);
    m_table->setSortingEnabled(true);
    m_table->sortByColumn(MissionModel::Start, Qt::DescendingOrder);
    m_table->setWidths({0, 15, 22, 20, 9, 0, 9, 7, 8, 8, 8, 13});
    m_table->hideColumn(MissionModel::MissionRow);
    m_table->header()->setStretchLastSection(false);
    m_table->header()->setSectionResizeMode(MissionModel::File, QHeaderView::Stretch);
    m_table->setTextElideMode(Qt::ElideMiddle); // both ends of a file's name tell files apart

    auto* const layout = new QVBoxLayout(this);
    layout->addLayout(makeHead());
    layout->addWidget(m_table);
    layout->addLayout(sideBySide({{makeSearch(tr("Find a mission"), proxy), nullptr, m_totals}}));
    connect(&session, &WindowSession::looked, this, &ProjectPage::showTotals);
}

QLayout* ProjectPage::makeHead()
{
    m_path->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto* const openButton = new QPushButton(tr("&Open project..."));
    auto* const newButton = new QPushButton(tr("&New project..."));
    connect(openButton, &QPushButton::clicked, this, [this] { choose(false); });
    connect(newButton, &QPushButton::clicked, this, [this] { choose(true); });
    return sideBySide({{m_path, nullptr, openButton, newButton}});
}

void ProjectPage::choose(bool make)
{
    const QString title = make ? tr("Folder of the new project") : tr("Folder of the project");
    const QString path = QFileDialog::getExistingDirectory(this, title, m_session.projectPath());
    if (!path.isEmpty()) {
        open(path, make);
    }
}

void ProjectPage::open(const QString& path, bool make)
{
    try {
        m_session.openProject(path, make);
        m_path->setText(m_session.projectPath());
    } catch (const Failure& failure) {
        QMessageBox::warning(this, tr("Project"), failure.words());
    }
}

void ProjectPage::showTotals()
{
    const int missions = m_session.missions()->rowCount();
    const qint64 waiting =
        m_session.missions()->backlog(false).waiting() + m_session.missions()->backlog(true).waiting();
    m_totals->setText(
        tr("%1 missions, %2 rows wait").arg(QLocale().toString(missions), QLocale().toString(waiting)));
    m_table->viewport()->update(); // rows grow older without a change
}
