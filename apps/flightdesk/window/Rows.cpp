// SPDX-License-Identifier: MIT
#include "window/Rows.h"

QLabel* labelFor(const QString& text, QWidget* buddy)
{
    auto* const label = new QLabel(text);
    label->setBuddy(buddy);
    return label;
}

QHBoxLayout* sideBySide(std::initializer_list<QWidgetList> groups)
{
    constexpr int Space = 16;
    auto* const row = new QHBoxLayout;
    for (const QWidgetList& group : groups) {
        if (row->count() > 0) {
            row->addSpacing(Space);
        }
        for (QWidget* const widget : group) {
            widget ? row->addWidget(widget) : row->addStretch();
        }
    }
    return row;
}

QLineEdit* makeSearch(const QString& placeholder, const QSortFilterProxyModel* table)
{
    auto* const search = new QLineEdit;
    search->setPlaceholderText(placeholder);
    search->setAccessibleName(placeholder);
    search->setClearButtonEnabled(true);
    QObject::connect(search, &QLineEdit::textChanged, table, &QSortFilterProxyModel::setFilterFixedString);
    return search;
}
