// SPDX-License-Identifier: MIT
#include "KvAlgorthm.h"
#include "KvData.h"
#include "KvWarnings.h"

#include <QtCore/QMutex>
#include <QtCore/QMutexLocker>
#include <QtCore/QUrl>
#include <QtNetwork/QHostAddress>
#include <QtNetwork/QNetworkInterface>

#include <algorithm>
#include <optional>

namespace
{
bool IsThisMachine(const QString& host)
{
    return host == QLatin1String("localhost") || QHostAddress(host).isLoopback();
}

bool CanReach(const QString& host)
{
    if (host.isEmpty()) {
        return false;
    }
    const bool loopback = IsThisMachine(host);
    const QList<QNetworkInterface> interfaces = QNetworkInterface::allInterfaces();
    return std::any_of(interfaces.cbegin(), interfaces.cend(), [loopback](const QNetworkInterface& i) {
        return i.flags().testFlag(QNetworkInterface::IsUp) &&
               i.flags().testFlag(QNetworkInterface::IsRunning) &&
               i.flags().testFlag(QNetworkInterface::IsLoopBack) == loopback && !i.addressEntries().isEmpty();
    });
}
} // namespace

struct CKvControl::Private {
    QMutex mutex;
    QString strProjectDirPath;
    std::optional<bool> connected;
};

CKvControl::CKvControl() : d(new Private) {}

CKvControl::~CKvControl()
{
    delete d;
}

CKvControl* CKvControl::GetInstance(const bool&, const EPlaneType&)
{
    // Never destroyed: operators outlive main() on other threads.
    static auto* const pControl = new CKvControl;
    return pControl;
}

QString CKvControl::GetProjectDirPath()
{
    const QMutexLocker lock(&d->mutex);
    return d->strProjectDirPath;
}

void CKvControl::SetProjectDirPath(const QString& path)
{
    const QMutexLocker lock(&d->mutex);
    d->strProjectDirPath = path;
}

bool CKvControl::IsNetWorkConnected()
{
    {
        const QMutexLocker lock(&d->mutex);
        if (d->connected) {
            return *d->connected;
        }
    }
    const QString strHost = QUrl::fromEncoded(GetServerIP()).host();
    const bool bReachable = CanReach(strHost);
    if (bReachable) {
        TellWellAgain(KvHost(), strHost, strHost, QStringLiteral("a network leads there again"));
    } else if (!strHost.isEmpty()) {
        WarnOnce(KvHost(), strHost,
                 QStringLiteral("no network leads there; nothing is uploaded until one does"), strHost);
    }
    return bReachable;
}

void CKvControl::SetNetWorkConnected(bool connected)
{
    const QMutexLocker lock(&d->mutex);
    d->connected = connected;
}

void CKvControl::ResetNetWorkConnected()
{
    const QMutexLocker lock(&d->mutex);
    d->connected.reset();
}
