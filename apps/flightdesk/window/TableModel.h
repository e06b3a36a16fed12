// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QAbstractTableModel>
#include <QtCore/QSortFilterProxyModel>
#include <QtCore/QStringList>

#include <functional>
#include <utility>

/// A flat table with titles.
class TableModel : public QAbstractTableModel
{
public:
    enum Role {
        PercentRole = Qt::UserRole, ///< how full the cell's bar is; below 0 where there is none
        BarTextRole,                ///< what stands on the bar
        FirstRole                   ///< that a table has for itself
    };

    TableModel(const QStringList& titles, QObject* parent) : QAbstractTableModel(parent), m_titles(titles) {}

    int rowCount(const QModelIndex& parent = {}) const override { return parent.isValid() ? 0 : rows(); }
    int columnCount(const QModelIndex& parent = {}) const override
    {
        return parent.isValid() ? 0 : m_titles.size();
    }
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override
    {
        const bool title = orientation == Qt::Horizontal && role == Qt::DisplayRole;
        return title ? m_titles.value(section) : QVariant();
    }

private:
    virtual int rows() const = 0;

    const QStringList m_titles;
};

/// The rows of a table that meet a condition and hold a text.
class RowFilter : public QSortFilterProxyModel
{
public:
    /// \param column  where the text is looked for; -1 for all
    RowFilter(TableModel* model, int column, QObject* parent) : QSortFilterProxyModel(parent)
    {
        setFilterKeyColumn(column);
        setFilterCaseSensitivity(Qt::CaseInsensitive);
        setSourceModel(model);
    }

    void setCondition(std::function<bool(const QModelIndex& row)> condition)
    {
        m_condition = std::move(condition);
        invalidateFilter();
    }

protected:
    bool filterAcceptsRow(int row, const QModelIndex& parent) const override
    {
        const bool wanted = !m_condition || m_condition(sourceModel()->index(row, 0, parent));
        return wanted && QSortFilterProxyModel::filterAcceptsRow(row, parent);
    }

private:
    std::function<bool(const QModelIndex& row)> m_condition;
};
