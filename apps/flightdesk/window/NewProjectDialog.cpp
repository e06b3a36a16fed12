// SPDX-License-Identifier: MIT
#include "window/NewProjectDialog.h"

#include "window/Rows.h"
#include "window/StateLabel.h"

#include <QtCore/QDir>
#include <QtWidgets/QDialogButtonBox>
#include <QtWidgets/QFileDialog>
#include <QtWidgets/QFormLayout>
#include <QtWidgets/QPushButton>

NewProjectDialog::NewProjectDialog(const QString& place, QWidget* parent)
    : QDialog(parent), m_name(new QLineEdit), m_place(new QLineEdit(place)), m_text(new StateLabel)
{
    setWindowTitle(tr("New project"));
    auto* const choose = new QPushButton(tr("Ch&oose..."));
    auto* const buttons = new QDialogButtonBox(QDialogButtonBox::Cancel);
    m_make = buttons->addButton(tr("&Make"), QDialogButtonBox::AcceptRole);
    m_name->setPlaceholderText(tr("Fields 2026"));
    auto* const form = new QFormLayout(this);
    form->addRow(tr("&Name:"), m_name);
    form->addRow(labelFor(tr("&Place:"), m_place), sideBySide({{m_place, choose}}));
    form->addRow(m_text);
    form->addRow(buttons);
    connect(choose, &QPushButton::clicked, this, [this] {
        const QString chosen =
            QFileDialog::getExistingDirectory(this, tr("Place of the project"), m_place->text());
        m_place->setText(chosen.isEmpty() ? m_place->text() : chosen);
    });
    connect(m_name, &QLineEdit::textChanged, this, &NewProjectDialog::showPath);
    connect(m_place, &QLineEdit::textChanged, this, &NewProjectDialog::showPath);
    connect(buttons, &QDialogButtonBox::accepted, this, &NewProjectDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &NewProjectDialog::reject);
    setMinimumWidth(fontMetrics().averageCharWidth() * 60);
    showPath();
}

QString NewProjectDialog::path() const
{
    return QDir(m_place->text()).filePath(m_name->text().trimmed());
}

/// The folder that would be made, or why it cannot be.
void NewProjectDialog::showPath()
{
    const bool named = !m_name->text().trimmed().isEmpty();
    const bool taken = named && QDir(path()).exists() && !QDir(path()).isEmpty();
    m_text->say(!named  ? tr("Give the project a name.")
                : taken ? tr("%1 is there already. Take another name, or open that project.").arg(path())
                        : tr("The folder %1 is made.").arg(path()),
                taken);
    m_make->setEnabled(named && !taken);
}
