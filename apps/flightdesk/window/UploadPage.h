// SPDX-License-Identifier: MIT
#pragma once

#include <QtWidgets/QWidget>

class QCheckBox;
class QLabel;
class QComboBox;
class QLineEdit;
class QPushButton;
class QSpinBox;
class StateLabel;
class TableView;
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
    /// A bar for each kind of row.
    void showDetails(bool show);
    /// Asks for a token.
    void askForToken();

private:
    QLayout* makeSignIn();
    QWidget* makeFields();
    void changeServer();
    QLayout* makePipeline();
    QWidget* makeTable();
    void togglePause();
    void setNetwork(int choice);
    void showState();

    WindowSession& m_session;
    QLineEdit* m_server;
    QLineEdit* m_token;
    QLabel* m_who;
    QPushButton* m_change;
    QWidget* m_fields;
    bool m_changing = false; ///< another server is being entered while one is used
    StateLabel* m_state;
    StateLabel* m_note;
    QPushButton* m_pause;
    QPushButton* m_reset;
    QSpinBox* m_interval;
    TableView* m_table;
    QCheckBox* m_easyFly;
    QComboBox* m_network;
};
