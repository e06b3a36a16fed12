// SPDX-License-Identifier: MIT
#include "window/DownloadPage.h"

#include "window/Rows.h"
#include "window/StateLabel.h"
#include "window/WindowSession.h"

#include <QtCore/QDir>
#include <QtCore/QLocale>
#include <QtCore/QStandardPaths>
#include <QtCore/QUrl>
#include <QtWidgets/QFileDialog>
#include <QtWidgets/QFormLayout>
#include <QtWidgets/QProgressBar>
#include <QtWidgets/QPushButton>

namespace
{
constexpr int Steps = 1000;
}

DownloadPanel::DownloadPanel(WindowSession& session, FileDownload::Way way, const QString& title,
                             const QString& what)
    : QGroupBox(title)
    , m_session(session)
    , m_way(way)
    , m_url(new QLineEdit)
    , m_path(new QLineEdit)
    , m_progress(new QProgressBar)
    , m_text(new StateLabel(what))
    , m_start(new QPushButton(tr("Download")))
    , m_stop(new QPushButton(tr("Stop")))
{
    m_url->setPlaceholderText(tr("https://fly.example/map.zip"));
    m_path->setPlaceholderText(QDir::homePath() + tr("/map.zip"));
    m_path->setAccessibleName(tr("Save as"));
    m_progress->setAccessibleName(title);
    m_progress->setRange(0, Steps);
    m_progress->setValue(0);
    auto* const choose = new QPushButton(tr("Choose..."));
    auto* const form = new QFormLayout(this);
    form->addRow(tr("Address:"), m_url);
    form->addRow(tr("Save as:"), sideBySide({{m_path, choose}}));
    form->addRow(sideBySide({{m_progress, m_start, m_stop}}));
    form->addRow(m_text);
    connect(choose, &QPushButton::clicked, this, &DownloadPanel::choosePath);
    connect(m_start, &QPushButton::clicked, this, &DownloadPanel::startAsEntered);
    connect(m_url, &QLineEdit::returnPressed, m_start, &QPushButton::click);
    connect(m_path, &QLineEdit::returnPressed, m_start, &QPushButton::click);
    m_stop->setObjectName(QStringLiteral("stop"));
    setRunning(false);
}

void DownloadPanel::choosePath()
{
    const QString name = QUrl(m_url->text()).fileName();
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::DownloadLocation);
    const QString path = QFileDialog::getSaveFileName(this, tr("Save as"), folder + QLatin1Char('/') + name);
    if (!path.isEmpty()) {
        m_path->setText(path);
    }
}

void DownloadPanel::start(const QString& url, const QString& path)
{
    m_url->setText(url);
    m_path->setText(path);
    m_start->click();
}

void DownloadPanel::startAsEntered()
{
    const QString url = m_url->text().trimmed();
    const QString path = m_path->text();
    if (!FileDownload::isAddress(url)) {
        m_text->say(tr("Enter an address that begins with http:// or https://."), true);
        return;
    }
    if (path.isEmpty()) {
        m_text->say(tr("Enter the file to save as."), true);
        return;
    }
    setRunning(true);
    m_progress->setValue(0);
    m_text->say(tr("Asking the server."), false);
    FileDownload* const download = m_session.makeDownload(m_way);
    connect(m_stop, &QPushButton::clicked, download, &FileDownload::stop);
    connect(download, &FileDownload::progress, this, &DownloadPanel::showProgress);
    connect(download, &FileDownload::ended, this, &DownloadPanel::showEnd);
    QMetaObject::invokeMethod(download, [download, url, path] { download->start(url, path); });
}

void DownloadPanel::showProgress(qint64 received, qint64 total)
{
    m_progress->setRange(0, total > 0 ? Steps : 0); // without a total the bar shows that it is busy
    if (total > 0) {
        m_progress->setValue(int(Steps * received / total));
    }
    const QLocale locale;
    m_text->say(total > 0
                    ? tr("%1 of %2").arg(locale.formattedDataSize(received), locale.formattedDataSize(total))
                    : locale.formattedDataSize(received),
                false);
}

void DownloadPanel::showEnd(qint64 bytes, const QString& error)
{
    setRunning(false);
    m_progress->setRange(0, Steps);
    m_progress->setValue(error.isEmpty() ? Steps : 0);
    if (error.isEmpty()) {
        m_text->say(tr("Done: %1 bytes in %2").arg(QLocale().toString(bytes), m_path->text()), false);
    } else {
        m_text->say(tr("Failed: %1. Press Download to try again.").arg(error), true);
    }
}

void DownloadPanel::setRunning(bool running)
{
    m_start->setEnabled(!running);
    m_stop->setEnabled(running);
    m_url->setReadOnly(running);
    m_path->setReadOnly(running);
}

DownloadPage::DownloadPage(WindowSession& session, QWidget* parent)
    : QWidget(parent)
    , m_direct(new DownloadPanel(session, FileDownload::Way::Direct, tr("Download"),
                                 tr("For small files on a good network.")))
    , m_program(new DownloadPanel(session, FileDownload::Way::Program, tr("Download with resume"),
                                  tr("For large files: goes on where a broken network ended it.")))
{
    auto* const layout = new QVBoxLayout(this);
    layout->addWidget(m_direct);
    layout->addWidget(m_program);
    layout->addStretch();
}

DownloadPanel* DownloadPage::panel(FileDownload::Way way) const
{
    return way == FileDownload::Way::Direct ? m_direct : m_program;
}
