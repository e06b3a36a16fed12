// SPDX-License-Identifier: MIT
#include "window/UploadPage.h"

#include "Failure.h"

#include "window/StateLabel.h"
#include "window/TableViews.h"
#include "window/WindowSession.h"

#include <QtCore/QLocale>
#include <QtWidgets/QCheckBox>
#include <QtWidgets/QComboBox>
#include <QtWidgets/QHBoxLayout>
#include <QtWidgets/QHeaderView>
#include <QtWidgets/QLabel>
#include <QtWidgets/QLineEdit>
#include <QtWidgets/QPushButton>
#include <QtWidgets/QSpinBox>
#include <QtWidgets/QVBoxLayout>

namespace
{
enum NetworkChoice { AsDetected, Connected, Disconnected };

/// Rows accepted of all rows of the kind.
ProgressDelegate::Progress accepted(const QModelIndex& index)
{
    const qint64 all = index.data(MissionModel::AllRole).toLongLong();
    const qint64 marked = index.data(MissionModel::MarkedRole).toLongLong();
    if (all == 0) {
        return {};
    }
    return {int(100 * marked / all),
            QStringLiteral("%1 / %2").arg(QLocale().toString(marked), QLocale().toString(all))};
}
} // namespace

UploadPage::UploadPage(WindowSession& session, QWidget* parent)
    : QWidget(parent)
    , m_session(session)
    , m_server(new QLineEdit)
    , m_token(new QLineEdit)
    , m_state(new StateLabel)
    , m_note(new StateLabel)
    , m_pause(new QPushButton)
    , m_reset(new QPushButton(tr("R&estart round")))
    , m_interval(new QSpinBox)
    , m_easyFly(new QCheckBox(tr("Eas&y-fly missions")))
    , m_network(new QComboBox)
{
    auto* const layout = new QVBoxLayout(this);
    layout->addWidget(makeSignIn());
    layout->addWidget(makePipeline());
    layout->addWidget(makeTable(), 1);
    connect(session.uploader(), &Uploader::changed, this, &UploadPage::showState);
    connect(session.uploader(), &Uploader::rearmed, this,
            [this](const QString& text) { m_note->say(text, true); });
    connect(session.uploader(), &Uploader::unmarkable, this, [this](const QString& file) {
        m_note->say(
            tr("accepted rows cannot be marked in %1: make the file and its folder writable").arg(file),
            true);
    });
    connect(&session, &WindowSession::projectOpened, this, &UploadPage::showState);
    showState();
}

QWidget* UploadPage::makeSignIn()
{
    m_server->setPlaceholderText(tr("https://fly.example"));
    m_token->setEchoMode(QLineEdit::Password);
    m_token->setPlaceholderText(tr("kept in memory only"));
    auto* const button = new QPushButton(tr("S&ign in"));
    connect(button, &QPushButton::clicked, this, &UploadPage::signInAsEntered);
    connect(m_server, &QLineEdit::returnPressed, this, &UploadPage::signInAsEntered);
    connect(m_token, &QLineEdit::returnPressed, this, &UploadPage::signInAsEntered);
    auto* const box = new QWidget;
    auto* const row = new QHBoxLayout(box);
    row->setContentsMargins(0, 0, 0, 0);
    row->addWidget(labelFor(tr("Ser&ver:"), m_server));
    row->addWidget(m_server, 2);
    row->addWidget(labelFor(tr("To&ken:"), m_token));
    row->addWidget(m_token, 1);
    row->addWidget(button);
    return box;
}

QWidget* UploadPage::makePipeline()
{
    QFont font = m_state->font();
    font.setPointSizeF(font.pointSizeF() * 1.25);
    m_state->setFont(font);
    m_reset->setToolTip(tr("Ends the round after the batch in flight and begins a new one."));
    m_interval->setRange(1, 3600);
    m_interval->setValue(3);
    m_interval->setSuffix(tr(" s"));
    m_network->addItems({tr("as detected"), tr("connected"), tr("disconnected")});
    connect(m_pause, &QPushButton::clicked, this, &UploadPage::togglePause);
    connect(m_reset, &QPushButton::clicked, m_session.uploader(), &Uploader::reset);
    connect(m_interval, QOverload<int>::of(&QSpinBox::valueChanged), m_session.uploader(),
            [this](int seconds) { m_session.uploader()->setInterval(seconds * 1000); });
    connect(m_easyFly, &QCheckBox::toggled, m_session.uploader(), &Uploader::setEasyFly);
    connect(m_network, QOverload<int>::of(&QComboBox::currentIndexChanged), this, &UploadPage::setNetwork);

    auto* const box = new QWidget;
    auto* const rows = new QVBoxLayout(box);
    rows->setContentsMargins(0, 8, 0, 8);
    rows->addWidget(m_state);
    rows->addWidget(m_note);
    auto* const row = new QHBoxLayout;
    row->addWidget(m_pause);
    row->addWidget(m_reset);
    row->addSpacing(16);
    row->addWidget(labelFor(tr("Retry a&fter:"), m_interval));
    row->addWidget(m_interval);
    row->addSpacing(16);
    row->addWidget(labelFor(tr("Net&work:"), m_network));
    row->addWidget(m_network);
    row->addSpacing(16);
    row->addWidget(m_easyFly);
    row->addStretch();
    rows->addLayout(row);
    return box;
}

QWidget* UploadPage::makeTable()
{
    auto* const table = new TableView(tr("Upload progress"), tr("Nothing waits for upload."));
    table->setModel(new MissionProxy(m_session.missions(), true, this));
    table->setSortingEnabled(true);
    table->sortByColumn(MissionModel::Start, Qt::DescendingOrder);
    table->setWidths({0, 24, 0, 20, 0, 12, 18, 16, 20, 10});
    for (const int column : {MissionModel::File, MissionModel::Aircraft, MissionModel::Duration,
                             MissionModel::Oldest, MissionModel::BreakpointAt}) {
        table->hideColumn(column);
    }
    table->header()->setStretchLastSection(false);
    auto* const bars = new ProgressDelegate(accepted, table);
    for (int column = MissionModel::MissionRow; column <= MissionModel::Messages; ++column) {
        table->setItemDelegateForColumn(column, bars);
        table->header()->setSectionResizeMode(column, QHeaderView::Stretch);
    }
    return table;
}

QString UploadPage::server() const
{
    return m_server->text();
}

void UploadPage::setServer(const QString& server)
{
    m_server->setText(server);
}

void UploadPage::signInAsEntered()
{
    signIn(m_token->text());
}

void UploadPage::signIn(const QString& token)
{
    QString wrong;
    try {
        m_session.signIn(m_server->text(), token);
        m_token->clear();
    } catch (const Failure& failure) {
        wrong = failure.words();
    }
    m_note->say(wrong, true);
    showState();
}

void UploadPage::askForToken()
{
    m_token->clear();
    m_token->setFocus();
}

void UploadPage::togglePause()
{
    if (m_session.uploader()->state() == Uploader::State::Running) {
        m_session.uploader()->pause();
    } else {
        m_session.uploader()->resume();
    }
}

void UploadPage::setNetwork(int choice)
{
    CKvControl* const control = CKvControl::GetInstance(false, EPlaneType::Multirotor);
    if (choice == AsDetected) {
        control->ResetNetWorkConnected();
    } else {
        control->SetNetWorkConnected(choice == Connected);
    }
}

void UploadPage::showState()
{
    const Uploader::State state = m_session.uploader()->state();
    const bool running = state == Uploader::State::Running;
    const bool trouble = state == Uploader::State::TokenRejected || m_session.uploader()->hasFailed();
    m_state->say(m_session.hasProject() ? m_session.uploadText() : tr("Open a project first."), trouble);
    m_pause->setText(running ? tr("&Pause") : tr("&Start"));
    m_pause->setEnabled(running || state == Uploader::State::Paused);
    m_reset->setEnabled(running);
    m_note->setVisible(!m_note->text().isEmpty());
}
