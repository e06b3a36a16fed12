// SPDX-License-Identifier: MIT
#include "TableViews.h"

#include <QtGui/QPainter>
#include <QtWidgets/QApplication>
#include <QtWidgets/QHeaderView>

#include <utility>

ProgressDelegate::ProgressDelegate(Reader reader, QObject* parent)
    : QStyledItemDelegate(parent), m_reader(std::move(reader))
{
}

void ProgressDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                             const QModelIndex& index) const
{
    const Progress progress = m_reader(index);
    QStyleOptionViewItem cell = option;
    initStyleOption(&cell, index);
    cell.text.clear();
    QStyle* const style = cell.widget ? cell.widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &cell, painter, cell.widget);
    if (progress.percent < 0) {
        return;
    }
    QStyleOptionProgressBar bar;
    bar.initFrom(cell.widget);
    bar.state |= QStyle::State_Horizontal;
    bar.rect = cell.rect.adjusted(2, 2, -2, -2);
    bar.maximum = 100;
    bar.progress = progress.percent;
    bar.text = progress.text;
    bar.textAlignment = Qt::AlignCenter;
    bar.textVisible = true;
    style->drawControl(QStyle::CE_ProgressBar, &bar, painter, cell.widget);
}

QSize ProgressDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    constexpr int RoomForBar = 8;
    return QStyledItemDelegate::sizeHint(option, index) + QSize(0, RoomForBar);
}

TableView::TableView(const QString& name, QString whenEmpty, QWidget* parent)
    : QTreeView(parent), m_whenEmpty(std::move(whenEmpty))
{
    setAccessibleName(name);
    setObjectName(name);
    setRootIsDecorated(false);
    setUniformRowHeights(true);
    setAlternatingRowColors(true);
    setSelectionBehavior(SelectRows);
    setAllColumnsShowFocus(true);
    setTabKeyNavigation(false);
}

void TableView::setWidths(const QVector<int>& characters)
{
    for (int column = 0; column < characters.size(); ++column) {
        setColumnWidth(column, characters[column] * fontMetrics().averageCharWidth() + 12);
    }
}

void TableView::paintEvent(QPaintEvent* event)
{
    QTreeView::paintEvent(event);
    if (model() && model()->rowCount() == 0) {
        QPainter painter(viewport());
        painter.setPen(palette().color(QPalette::PlaceholderText));
        painter.drawText(viewport()->rect().adjusted(20, 20, -20, -20), Qt::AlignCenter | Qt::TextWordWrap,
                         m_whenEmpty);
    }
}
