// SPDX-License-Identifier: MIT
#pragma once

#include <QtWidgets/QStyledItemDelegate>
#include <QtWidgets/QTreeView>

/// Cells as the bars of a TableModel.
class ProgressDelegate : public QStyledItemDelegate
{
    Q_OBJECT

public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
};

/// A flat table whose rows are looked at and sorted, with words in place of rows when it is empty.
class TableView : public QTreeView
{
    Q_OBJECT

public:
    TableView(const QString& name, QString whenEmpty, QWidget* parent = nullptr);

    void setWidths(const QVector<int>& characters);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    const QString m_whenEmpty;
};
