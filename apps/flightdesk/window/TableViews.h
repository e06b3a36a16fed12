// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QPersistentModelIndex>
#include <QtWidgets/QStyledItemDelegate>
#include <QtWidgets/QTreeView>

#include <functional>

/// Cells as progress bars.
class ProgressDelegate : public QStyledItemDelegate
{
    Q_OBJECT

public:
    struct Progress {
        int percent = -1; ///< below 0: no bar
        QString text;
    };
    using Reader = std::function<Progress(const QModelIndex& index)>;

    ProgressDelegate(Reader reader, QObject* parent);

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;

private:
    const Reader m_reader;
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
