// SPDX-License-Identifier: MIT
#include "window/ConnectDialog.h"

#include "window/Rows.h"
#include "window/StateLabel.h"
#include "window/WindowSession.h"
#include "words/Failure.h"

#include <QtCore/QDir>
#include <QtWidgets/QCheckBox>
#include <QtWidgets/QComboBox>
#include <QtWidgets/QDialogButtonBox>
#include <QtWidgets/QPlainTextEdit>
#include <QtWidgets/QPushButton>

namespace
{
const QString UsualLink = QStringLiteral("udp::14550");
const QString SerialForm = QStringLiteral("serial:%1:57600");

/// Links as they are written; radios that are plugged in by the names that stay theirs.
QStringList examples()
{
    QStringList links{UsualLink, QStringLiteral("tcp:192.168.4.1:5760")};
    const QDir radios(QStringLiteral("/dev/serial/by-id"));
    for (const QString& radio : radios.entryList(QDir::System)) {
        links.append(SerialForm.arg(radios.filePath(radio)));
    }
    return links.size() > 2 ? links : links << SerialForm.arg(QStringLiteral("/dev/ttyUSB0"));
}
} // namespace

ConnectDialog::ConnectDialog(WindowSession& session, QWidget* parent)
    : QDialog(parent)
    , m_session(session)
    , m_links(new QPlainTextEdit(UsualLink))
    , m_heartbeat(new QCheckBox(tr("Send a ground station's &heartbeat")))
    , m_text(new StateLabel)
{
    setWindowTitle(tr("Connect"));
    m_links->setTabChangesFocus(true);
    m_links->setMinimumWidth(56 * fontMetrics().averageCharWidth());
    m_heartbeat->setToolTip(tr("Some autopilots stay silent without."));
    auto* const buttons = new QDialogButtonBox(QDialogButtonBox::Cancel);
    m_connect = buttons->addButton(tr("C&onnect"), QDialogButtonBox::AcceptRole);
    auto* const layout = new QVBoxLayout(this);
    layout->addWidget(labelFor(tr("&Links, one in each line:"), m_links));
    layout->addWidget(m_links);
    layout->addWidget(m_text);
    layout->addWidget(makeExamples());
    layout->addWidget(m_heartbeat);
    layout->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::accepted, this, &ConnectDialog::connectLinks);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(session.station(), &LiveStation::changed, this, &ConnectDialog::showState);
    connect(session.station(), &LiveStation::failed, this,
            [this](const QString& words) { m_text->say(words, true); });
}

/// What a link looks like, to be taken over into the list.
QWidget* ConnectDialog::makeExamples()
{
    auto* const choice = new QComboBox;
    choice->addItem(tr("Add a link..."));
    choice->addItems(examples());
    choice->setAccessibleName(tr("Links to add"));
    connect(choice, QOverload<int>::of(&QComboBox::activated), this, [this, choice](int row) {
        if (row > 0) {
            m_links->appendPlainText(choice->itemText(row));
            choice->setCurrentIndex(0);
        }
    });
    return choice;
}

QString ConnectDialog::links() const
{
    return m_links->toPlainText();
}

void ConnectDialog::setLinks(const QString& links)
{
    m_links->setPlainText(links);
}

bool ConnectDialog::hasHeartbeat() const
{
    return m_heartbeat->isChecked();
}

void ConnectDialog::setHeartbeat(bool heartbeat)
{
    m_heartbeat->setChecked(heartbeat);
}

void ConnectDialog::showEvent(QShowEvent* event)
{
    QDialog::showEvent(event);
    m_text->say({}, false);
    m_links->setFocus();
}

void ConnectDialog::connectLinks()
{
    QStringList links;
    for (const QString& line : m_links->toPlainText().split(QLatin1Char('\n'))) {
        links.append(line.trimmed());
    }
    links.removeAll({});
    m_text->say({}, false);
    try {
        m_session.connectLinks(links, m_heartbeat->isChecked());
    } catch (const Failure& failure) {
        m_text->say(failure.words(), true);
    }
}

void ConnectDialog::showState()
{
    const LiveStation::State state = m_session.station()->state();
    m_connect->setEnabled(state == LiveStation::State::Off);
    if (isVisible() && state == LiveStation::State::On) {
        accept();
    }
}
