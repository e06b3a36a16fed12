// SPDX-License-Identifier: MIT
#include "window/TableViews.h"

#include "window/TableModel.h"

#include <QtGui/QPainter>
#include <QtWidgets/QApplication>
#include <QtWidgets/QHeaderView>

#include <utility>

void ProgressDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                             const QModelIndex& index) const
{
    const int percent = index.data(TableModel::PercentRole).toInt();
    QStyleOptionViewItem cell = option;
    initStyleOption(&cell, index);
    cell.text.clear();
    QStyle* const style = cell.widget ? cell.widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &cell, painter, cell.widget);
    if (percent < 0) {
        return;
    }
    const QRect bar = cell.rect.adjusted(3, 3, -3, -3);
    const QRect done(bar.topLeft(), QSize(bar.width() * percent / 100, bar.height()));
    const auto paintPart = [&](const QRect& part, QPalette::ColorRole ground, QPalette::ColorRole text) {
        painter->setClipRect(part);
        painter->fillRect(part, cell.palette.color(ground));
        painter->setPen(cell.palette.color(text));
        painter->drawText(bar, Qt::AlignCenter, index.data(TableModel::BarTextRole).toString());
    };
    painter->save();
    paintPart(bar, QPalette::Base, QPalette::Text);
    paintPart(done, QPalette::Highlight, QPalette::HighlightedText);
    painter->setClipping(false);
    painter->setPen(cell.palette.color(QPalette::Mid));
    painter->drawRect(bar.adjusted(0, 0, -1, -1));
    painter->restore();
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
        setColumnWidth(column, characters[column] * fontMetrics().averageCharWidth() + 14);
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
