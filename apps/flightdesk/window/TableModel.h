// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QAbstractTableModel>
#include <QtCore/QStringList>

/// A flat table with titles.
class TableModel : public QAbstractTableModel
{
public:
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
