// SPDX-License-Identifier: MIT
#include "CKvDownLoadObjectEX.h"

#include "KvAlgorthm.h"
#include "KvData/KvOwnThread.h"
#include "KvNetworkCause.h"
#include "KvTrace.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QPointer>
#include <QtCore/QProcess>
#include <QtCore/QUrl>

namespace
{
constexpr int StartTimeout = 30000; // milliseconds
constexpr int LastTry = 5;
constexpr int StartsThatResume = 3;
constexpr int ProgressPrefix = 3; // characters

QUrl Parsed(const QByteArray& byteUrl)
{
    return QUrl(QString::fromUtf8(byteUrl), QUrl::TolerantMode);
}

QByteArray FileContents(const QString& strFile)
{
    QFile file(strFile);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}
} // namespace

CKvDownLoadObjectEX::CKvDownLoadObjectEX() = default;

CKvDownLoadObjectEX::~CKvDownLoadObjectEX()
{
    KV_ON_OWN_THREAD;
    m_byteData.clear();
    if (m_pProcess) {
        m_pProcess->kill();
        if (m_nProgramSignals > 0) {
            m_pProcess->setParent(nullptr); // see _InProgramSignal()
        }
        m_pProcess = nullptr; // a child, which waits for the program's end when it is destroyed
    }
}

void CKvDownLoadObjectEX::SetUrl(const QByteArray& byteUrl)
{
    KV_ON_OWN_THREAD;
    m_byteUrl = byteUrl;
}

QString CKvDownLoadObjectEX::GetFileUrl()
{
    return QString::fromUtf8(m_byteUrl);
}

void CKvDownLoadObjectEX::SetUserData(int nKey, const QVariant& value)
{
    m_mapUserData.insert(nKey, value);
}

QVariant CKvDownLoadObjectEX::GetUserData(int nKey)
{
    return m_mapUserData.value(nKey);
}

const QByteArray& CKvDownLoadObjectEX::GetByteData() const
{
    return m_byteData;
}

void CKvDownLoadObjectEX::StopDownload()
{
    KV_ON_OWN_THREAD;
    if (m_pProcess) {
        m_bStopped = true;
        m_pProcess->kill();
    }
}

QString CKvDownLoadObjectEX::_GetAppUpDirPath()
{
    return QDir(QCoreApplication::applicationDirPath() + QStringLiteral("/..")).absolutePath();
}

QString CKvDownLoadObjectEX::_GetDownloadFilePath(const QUrl& url)
{
    const QString strName =
        url.toString(QUrl::RemoveQuery | QUrl::RemoveFragment).split(QLatin1Char('/')).constLast();
    return GetHomeDir() + QStringLiteral("TmpData/") +
           (strName.contains(QLatin1Char('.')) ? strName : QStringLiteral("data"));
}

void CKvDownLoadObjectEX::slotRequestData()
{
    KV_ON_OWN_THREAD;
    const bool bRunning = m_pProcess && m_pProcess->state() != QProcess::NotRunning;
    if (m_pProcess) {
        m_pProcess->kill();
    } else {
        m_pProcess = new QProcess(this);
        connect(m_pProcess, SIGNAL(readyReadStandardOutput()), this, SLOT(slotPreviewProcessHasStdOut()));
        connect(m_pProcess, SIGNAL(finished(int)), this, SLOT(slotPreviewProcessFinished()));
    }
    const QUrl url = Parsed(m_byteUrl);
    const QString strTmpFile = _GetDownloadFilePath(url);
    if (m_nRequestCount++ >= StartsThatResume) {
        QFile::remove(strTmpFile);
    }
    const QStringList listArgument{url.toString(), strTmpFile};
    const QString strProgram = _GetAppUpDirPath() + QStringLiteral("/Talverinde/grabdownloader.exe");
    KV_TRACE << "CKvDownLoadObjectEX::slotRequestData" << listArgument[0] << " " << listArgument[1] << " "
             << strProgram;
    if (bRunning) {
        // Its end gives NetWorkError(); Qt starts nothing on a process that still runs.
        _Warn(
            QStringLiteral("asked for again while the program ran, which is killed, and nothing is started"));
        m_bStopped = true;
        return;
    }
    if (!QFileInfo::exists(QFileInfo(strTmpFile).path())) {
        _Warn(QStringLiteral("there is no folder %1 to load into").arg(QFileInfo(strTmpFile).path()));
    }
    m_bStopped = false;
    m_pProcess->start(strProgram, listArgument, QIODevice::ReadWrite);
    if (!m_pProcess->waitForStarted(StartTimeout)) {
        KV_TRACE << "CKvDownLoadObjectEX::slotRequestData" << 148
                 << "DownLoad File Fail: Failed to open process";
        _Warn(strProgram + QStringLiteral(" cannot be started: ") + m_pProcess->errorString());
        Q_EMIT NetWorkError();
    }
}

/// Handles a signal of the process. A receiver of what is emitted then may delete this object, and the
/// process goes on with its signal after that, so it lives until it has ended.
void CKvDownLoadObjectEX::_InProgramSignal(void (CKvDownLoadObjectEX::*handle)())
{
    const QPointer<CKvDownLoadObjectEX> alive(this);
    QProcess* const pProcess = m_pProcess;
    const bool bOutermost = m_nProgramSignals++ == 0;
    (this->*handle)();
    if (alive) {
        --m_nProgramSignals;
    } else if (bOutermost && pProcess) {
        pProcess->deleteLater();
    }
}

void CKvDownLoadObjectEX::slotPreviewProcessHasStdOut()
{
    _InProgramSignal(&CKvDownLoadObjectEX::_ReadProgress);
}

void CKvDownLoadObjectEX::_ReadProgress()
{
    if (!m_pProcess) {
        return;
    }
    const QStringList listPart =
        QString::fromUtf8(m_pProcess->readAllStandardOutput()).split(QLatin1Char(','));
    const qint64 nReceived = listPart[0].mid(ProgressPrefix).toLongLong();
    const qint64 nTotal = listPart.value(1).toLongLong();
    if (nReceived <= nTotal) {
        Q_EMIT downloadProgress(nReceived, nTotal);
    }
}

void CKvDownLoadObjectEX::slotPreviewProcessFinished()
{
    _InProgramSignal(&CKvDownLoadObjectEX::_JudgeEnd);
}

void CKvDownLoadObjectEX::_JudgeEnd()
{
    const char* const strMethod = "CKvDownLoadObjectEX::slotPreviewProcessFinished";
    const QString strTmpFile = _GetDownloadFilePath(Parsed(m_byteUrl));
    m_byteData = FileContents(strTmpFile);
    const QString strResult = m_pProcess ? QString::fromUtf8(m_pProcess->readAllStandardError()) : QString();
    if (strResult.contains(QLatin1String("SUCCESS"))) {
        KV_TRACE << 83 << strMethod;
        m_pProcess->kill();
        QFile::remove(strTmpFile);
        CKvNetworkCause(Parsed(m_byteUrl)).Succeeded();
        Q_EMIT downLoadFinished();
        return;
    }
    KV_TRACE << strMethod << strResult;
    if (!m_bStopped) {
        _Warn(_ProgramsEnd(strResult.simplified()));
    }
    _RetryOrFail(strTmpFile, strResult.contains(QLatin1String("bad content length")) ||
                                 strResult.contains(QLatin1String("read tcp")));
}

QString CKvDownLoadObjectEX::_ProgramsEnd(const QString& strResult) const
{
    if (!strResult.isEmpty() || !m_pProcess) {
        return QStringLiteral("the program ends with \"%1\"").arg(strResult);
    }
    return m_pProcess->exitStatus() == QProcess::CrashExit
               ? QStringLiteral("the program crashed, or was killed")
               : QStringLiteral("the program ends with code %1 and says nothing").arg(m_pProcess->exitCode());
}

void CKvDownLoadObjectEX::_Warn(const QString& strCause) const
{
    CKvNetworkCause(Parsed(m_byteUrl)).Warn(strCause);
}

void CKvDownLoadObjectEX::_RetryOrFail(const QString& strTmpFile, bool bRetryable)
{
    if (bRetryable) {
        QFile::remove(strTmpFile);
        if (++m_nRetryCount < LastTry) {
            slotRequestData();
            return;
        }
    }
    m_nRetryCount = 0;
    Q_EMIT NetWorkError();
}
