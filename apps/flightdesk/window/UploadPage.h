// SPDX-License-Identifier: MIT
#pragma once

#include <QtWidgets/QWidget>

class QCheckBox;
class QComboBox;
class QLineEdit;
class QPushButton;
class QSpinBox;
class StateLabel;
class WindowSession;

/// Signs in, and shows and steers the upload.
class UploadPage : public QWidget
{
    Q_OBJECT

public:
    explicit UploadPage(WindowSession& session, QWidget* parent = nullptr);

    QString server() const;
    void setServer(const QString& server);
    void signIn(const QString& token);
    /// Asks for a token.
    void askForToken();

private:
    QLayout* makeSignIn();
    QLayout* makePipeline();
    QWidget* makeTable();
    void togglePause();
    void setNetwork(int choice);
    void showState();

    WindowSession& m_session;
    QLineEdit* m_server;
    QLineEdit* m_token;
    StateLabel* m_state;
    StateLabel* m_note;
    QPushButton* m_pause;
    QPushButton* m_reset;
    QSpinBox* m_interval;
    QCheckBox* m_easyFly;
    QComboBox* m_network;
};
