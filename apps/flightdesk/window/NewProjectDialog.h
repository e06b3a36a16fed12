// SPDX-License-Identifier: MIT
#pragma once

#include <QtWidgets/QDialog>

class QLineEdit;
class QPushButton;
class StateLabel;

/// Asks for the name of a new project and where its folder is to be.
class NewProjectDialog : public QDialog
{
    Q_OBJECT

public:
    explicit NewProjectDialog(const QString& place, QWidget* parent = nullptr);

    QString path() const;

private:
    void showPath();

    QLineEdit* m_name;
    QLineEdit* m_place;
    StateLabel* m_text;
    QPushButton* m_make;
};
