// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QSortFilterProxyModel>
#include <QtWidgets/QBoxLayout>
#include <QtWidgets/QLabel>
#include <QtWidgets/QLineEdit>

/// What stands before a field, and leads to it with its key.
QLabel* labelFor(const QString& text, QWidget* buddy);

/// Groups of widgets in a row, with room between the groups; a null pointer takes the room that is left.
QHBoxLayout* sideBySide(std::initializer_list<QWidgetList> groups);

/// A field whose text is looked for in a table.
QLineEdit* makeSearch(const QString& placeholder, const QSortFilterProxyModel* table);
