// SPDX-License-Identifier: MIT
#include "window/UploadPage.h"

#include "operator/ServerAddress.h"
#include "window/Rows.h"
#include "window/StateLabel.h"
#include "window/TableViews.h"
#include "window/WindowSession.h"
#include "words/Failure.h"

#include <QtWidgets/QCheckBox>
#include <QtWidgets/QComboBox>
#include <QtWidgets/QHeaderView>
#include <QtWidgets/QPushButton>
#include <QtWidgets/QSpinBox>

namespace
{
enum NetworkChoice { AsDetected, Connected, Disconnected };
} // namespace

UploadPage::UploadPage(WindowSession& session, QWidget* parent)
    : QWidget(parent)
    , m_session(session)
    , m_server(new QLineEdit)
    , m_token(new QLineEdit)
    , m_who(new QLabel)
    , m_change(new QPushButton)
    , m_fields(makeFields())
    , m_state(new StateLabel)
    , m_note(new StateLabel)
    , m_pause(new QPushButton)
    , m_reset(new QPushButton(tr("R&estart round")))
    , m_interval(new QSpinBox)
    , m_table(new TableView(tr("Upload progress"), tr("Nothing waits for upload.")))
    , m_easyFly(new QCheckBox(tr("Eas&y-fly missions")))
    , m_network(new QComboBox)
{
    auto* const layout = new QVBoxLayout(this);
    layout->addLayout(makeSignIn());
    layout->addLayout(makePipeline());
    layout->addWidget(makeTable(), 1);
    connect(session.uploader(), &Uploader::changed, this, &UploadPage::showState);
    connect(session.uploader(), &Uploader::rearmed, this,
            [this](const QString& text) { m_note->say(text, true); });
    connect(session.uploader(), &Uploader::unmarkable, this,
            [this](const QString&, const QString& words) { m_note->say(words, true); });
    connect(&session, &WindowSession::projectOpened, this, [this] {
        m_note->say({}, false); // what was said of another one
        showState();
    });
    showState();
}

/// What is used stands in a line of its own; the fields are there only to enter something else.
QLayout* UploadPage::makeSignIn()
{
    m_who->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_who->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    connect(m_change, &QPushButton::clicked, this, &UploadPage::changeServer);
    QHBoxLayout* const row = sideBySide({{m_who, m_change}});
    row->setStretchFactor(m_who, 1);
    auto* const rows = new QVBoxLayout;
    rows->addLayout(row);
    rows->addWidget(m_fields);
    return rows;
}

QWidget* UploadPage::makeFields()
{
    m_server->setPlaceholderText(tr("https://fly.example"));
    m_token->setEchoMode(QLineEdit::Password);
    m_token->setPlaceholderText(tr("kept in memory only"));
    auto* const button = new QPushButton(tr("S&ign in"));
    connect(button, &QPushButton::clicked, this, [this] { signIn(m_token->text()); });
    connect(m_server, &QLineEdit::returnPressed, button, &QPushButton::click);
    connect(m_token, &QLineEdit::returnPressed, button, &QPushButton::click);
    QHBoxLayout* const row = sideBySide(
        {{labelFor(tr("Serve&r:"), m_server), m_server, labelFor(tr("T&oken:"), m_token), m_token, button}});
    row->setStretchFactor(m_server, 2);
    row->setStretchFactor(m_token, 1);
    row->setContentsMargins(0, 0, 0, 0);
    auto* const fields = new QWidget;
    fields->setLayout(row);
    return fields;
}

void UploadPage::changeServer()
{
    m_changing = !m_changing;
    m_server->setText(m_session.server());
    showState();
    if (m_changing) {
        m_server->setFocus();
    }
}

QLayout* UploadPage::makePipeline()
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

    auto* const rows = new QVBoxLayout;
    rows->setContentsMargins(0, 8, 0, 8);
    rows->addWidget(m_state);
    rows->addWidget(m_note);
    rows->addLayout(sideBySide({{m_pause, m_reset, m_easyFly, nullptr}}));
    rows->addLayout(sideBySide({{labelFor(tr("Retry &after:"), m_interval), m_interval},
                                {labelFor(tr("Net&work:"), m_network), m_network, nullptr}}));
    return rows;
}

QWidget* UploadPage::makeTable()
{
    m_table->setModel(new MissionProxy(m_session.missions(), true, this));
    m_table->setSortingEnabled(true);
    m_table->sortByColumn(MissionModel::Start, Qt::DescendingOrder);
    m_table->setWidths({0, 20, 0, 20, 0, 11, 13, 13, 15, 11});
    m_table->header()->moveSection(MissionModel::Uploaded, MissionModel::MissionRow);
    m_table->header()->setStretchLastSection(false);
    m_table->header()->setMinimumSectionSize(fontMetrics().averageCharWidth() * 9);
    auto* const bars = new ProgressDelegate(m_table);
    for (const int column :
         {int(MissionModel::MissionRow), int(MissionModel::Positions), int(MissionModel::Statuses),
          int(MissionModel::Messages), int(MissionModel::Uploaded)}) {
        m_table->setItemDelegateForColumn(column, bars);
        m_table->header()->setSectionResizeMode(column, QHeaderView::Stretch);
    }
    showDetails(false);
    return m_table;
}

void UploadPage::showDetails(bool show)
{
    for (int column = 0; column < MissionModel::ColumnCount; ++column) {
        const bool kind = column >= MissionModel::MissionRow && column <= MissionModel::Messages;
        const bool plain = column == MissionModel::Mission || column == MissionModel::Start ||
                           column == MissionModel::Waiting || (column == MissionModel::Uploaded && !show);
        m_table->setColumnHidden(column, !plain && !(kind && show));
    }
}

QString UploadPage::server() const
{
    return m_server->text();
}

void UploadPage::setServer(const QString& server)
{
    m_server->setText(server);
}

void UploadPage::signIn(const QString& token)
{
    QString wrong;
    try {
        m_session.signIn(m_server->text(), token);
        m_token->clear();
        m_changing = false;
    } catch (const Failure& failure) {
        wrong = failure.words();
        if (failure.is(Trouble::NoScheme)) {
            m_server->setText(addressWithScheme(m_server->text()));
            m_server->setFocus();
        }
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
    const bool used = m_session.isUploading();
    m_who->setText(used ? tr("Signed in to %1").arg(m_session.server())
                        : tr("Not signed in. Enter the server and the token that you have been given."));
    m_who->setToolTip(m_who->text());
    m_change->setVisible(used);
    m_change->setText(m_changing ? tr("&Keep this server") : tr("Chan&ge server..."));
    m_fields->setVisible(!used || m_changing);
    const bool running = state == Uploader::State::Running;
    const bool trouble =
        state == Uploader::State::TokenRejected || m_session.uploader()->trouble().has_value();
    m_state->say(m_session.hasProject() ? m_session.uploadText() : tr("Open a project first."), trouble);
    m_pause->setText(running ? tr("&Pause") : tr("&Start"));
    m_pause->setEnabled(running || state == Uploader::State::Paused);
    m_reset->setEnabled(running);
    m_note->setVisible(!m_note->text().isEmpty());
}
