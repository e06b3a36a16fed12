// SPDX-License-Identifier: MIT
#pragma once

#include <QtWidgets/QDialog>

class QCheckBox;
class QPlainTextEdit;
class QPushButton;
class StateLabel;
class WindowSession;

/// Asks for the links on which vehicles are heard, and stays open until a station listens to them.
class ConnectDialog : public QDialog
{
    Q_OBJECT

public:
    explicit ConnectDialog(WindowSession& session, QWidget* parent = nullptr);

    /// As they are written, one in each line.
    QString links() const;
    void setLinks(const QString& links);
    bool hasHeartbeat() const;
    void setHeartbeat(bool heartbeat);

protected:
    void showEvent(QShowEvent* event) override;

private:
    QWidget* makeExamples();
    void connectLinks();
    void showState();

    WindowSession& m_session;
    QPlainTextEdit* m_links;
    QCheckBox* m_heartbeat;
    StateLabel* m_text;
    QPushButton* m_connect;
};
