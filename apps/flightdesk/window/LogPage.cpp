// SPDX-License-Identifier: MIT
#include "window/LogPage.h"

#include "window/LogModel.h"
#include "window/Rows.h"
#include "window/TableViews.h"
#include "window/WindowSession.h"

#include <QtCore/QFileInfo>
#include <QtCore/QUrl>
#include <QtGui/QDesktopServices>
#include <QtWidgets/QCheckBox>
#include <QtWidgets/QComboBox>
#include <QtWidgets/QPushButton>
#include <QtWidgets/QScrollBar>

LogPage::LogPage(WindowSession& session, const QString& file, QWidget* parent)
    : QWidget(parent), m_table(new TableView(tr("Log lines"), tr("Nothing has happened yet.")))
{
    auto* const layout = new QVBoxLayout(this);
    layout->addLayout(makeFilter(session));
    layout->addWidget(m_table);
    layout->addLayout(makePlace(file));
}

QLayout* LogPage::makeFilter(WindowSession& session)
{
    auto* const filter = new RowFilter(session.log(), LogModel::Text, this);
    auto* const details = new QCheckBox(tr("&Details"));
    details->setToolTip(tr("What the program's parts have written, for developers"));
    m_table->setModel(filter);
    m_table->setWidths({14, 10, 0});
    auto* const text = makeSearch(tr("Show lines that hold this text"), filter);
    auto* const level = new QComboBox;
    for (const int least : {int(Level::Debug), int(Level::Info), int(Level::Warn), int(Level::Error)}) {
        level->addItem(LogModel::levelName(least), least);
    }
    level->setCurrentIndex(1);
    const auto show = [this, filter, details, level] {
        const int least = level->currentData().toInt();
        const bool plain = !details->isChecked();
        level->setEnabled(!plain);
        filter->setCondition([least, plain](const QModelIndex& line) {
            return line.data(LogModel::PlainRole).toBool() == plain &&
                   (plain || line.data(LogModel::LevelRole).toInt() >= least);
        });
        m_table->setColumnHidden(LogModel::Severity, plain);
    };
    show();
    connect(details, &QCheckBox::toggled, this, show);
    // Debug lines are written only on request: the library's host has many.
    connect(level, QOverload<int>::of(&QComboBox::currentIndexChanged), this, [show, level] {
        const int least = level->currentData().toInt();
        Logger::instance().setLoggingLevel(static_cast<Level>(qMin(least, int(Level::Info))));
        show();
    });
    followEnd();
    return sideBySide({{labelFor(tr("&Text:"), text), text, details, labelFor(tr("&Level:"), level), level}});
}

/// The newest line stays in view, whatever changes the range, until the user scrolls away from it.
void LogPage::followEnd()
{
    QScrollBar* const bar = m_table->verticalScrollBar();
    connect(bar, &QScrollBar::valueChanged, this, [this, bar] { m_atEnd = bar->value() == bar->maximum(); });
    connect(bar, &QScrollBar::rangeChanged, this, [this, bar] {
        if (m_atEnd) {
            bar->setValue(bar->maximum());
        }
    });
}

QLayout* LogPage::makePlace(const QString& file)
{
    auto* const place =
        new QLabel(file.isEmpty() ? tr("The log is not kept in a file.") : tr("File: %1").arg(file));
    place->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto* const show = new QPushButton(tr("&Open folder"));
    show->setEnabled(!file.isEmpty());
    connect(show, &QPushButton::clicked, this,
            [file] { QDesktopServices::openUrl(QUrl::fromLocalFile(QFileInfo(file).absolutePath())); });
    return sideBySide({{place, nullptr, show}});
}
