// SPDX-License-Identifier: MIT
#pragma once

#include "download/FileDownload.h"

#include <QtWidgets/QGroupBox>

class QLineEdit;
class QProgressBar;
class QPushButton;
class StateLabel;
class WindowSession;

/// One of the two ways to download a file.
class DownloadPanel : public QGroupBox
{
    Q_OBJECT

public:
    DownloadPanel(WindowSession& session, FileDownload::Way way, const QString& title, const QString& what);

    void start(const QString& url, const QString& path);

private:
    void startAsEntered();
    void choosePath();
    void showProgress(qint64 received, qint64 total);
    void showEnd(qint64 bytes, const QString& error);
    void setRunning(bool running);

    WindowSession& m_session;
    const FileDownload::Way m_way;
    QLineEdit* m_url;
    QLineEdit* m_path;
    QProgressBar* m_progress;
    StateLabel* m_text;
    QPushButton* m_start;
    QPushButton* m_stop;
};

/// Downloads files, in the program itself and through the download program.
class DownloadPage : public QWidget
{
    Q_OBJECT

public:
    explicit DownloadPage(WindowSession& session, QWidget* parent = nullptr);

    DownloadPanel* panel(FileDownload::Way way) const;

private:
    DownloadPanel* m_direct;
    DownloadPanel* m_program;
};
