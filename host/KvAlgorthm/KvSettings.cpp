// SPDX-License-Identifier: MIT
#include "KvAlgorthm.h"
#include "KvLog.h"

#include <QtCore/QDir>
#include <QtCore/QReadLocker>
#include <QtCore/QReadWriteLock>
#include <QtCore/QStandardPaths>
#include <QtCore/QSysInfo>
#include <QtCore/QUrl>
#include <QtCore/QWriteLocker>

#include <algorithm>

QString OrganizationName = QStringLiteral("KvProject");
const QString CloundApplicationName = QStringLiteral("KvCloud");
const QString UserInfoGroupName = QStringLiteral("UserInfo");
const QString UserInfoToken = QStringLiteral("Token");
const QString DateTimeMSFormat = QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz");

namespace
{
struct SSettings {
    QReadWriteLock lock;
    QByteArray byteServer;
    SKvUserInfo user;
    QString strHomeDir;
    bool bFiddler = false;
    bool bTestServer = false;
};

SSettings& Settings()
{
    // Never destroyed: another thread may still read while the process ends.
    static SSettings& settings = *new SSettings;
    return settings;
}

template<typename T>
T Get(T SSettings::*member)
{
    SSettings& settings = Settings();
    const QReadLocker lock(&settings.lock);
    return settings.*member;
}

template<typename T>
void Set(T SSettings::*member, const T& value)
{
    SSettings& settings = Settings();
    const QWriteLocker lock(&settings.lock);
    settings.*member = value;
}

void Refuse(const QString& reason)
{
    Logger::instance().write(Level::Warn, reason);
}

bool IsPrintableLatin1(const QString& text)
{
    return std::all_of(text.cbegin(), text.cend(), [](QChar c) {
        const ushort code = c.unicode();
        return code >= 0x20 && code <= 0xff && (code < 0x7f || code >= 0xa0);
    });
}

bool IsServerAddress(const QUrl& url)
{
    const QString scheme = url.scheme();
    return url.isValid() && (scheme == QLatin1String("http") || scheme == QLatin1String("https")) &&
           !url.host().isEmpty() && url.userInfo().isEmpty() && !url.hasQuery() && !url.hasFragment();
}
} // namespace

SKvUserInfo::SKvUserInfo() = default;
SKvUserInfo::SKvUserInfo(const SKvUserInfo&) = default;
SKvUserInfo::SKvUserInfo(SKvUserInfo&&) noexcept = default;
SKvUserInfo& SKvUserInfo::operator=(const SKvUserInfo&) = default;
SKvUserInfo& SKvUserInfo::operator=(SKvUserInfo&&) noexcept = default;
SKvUserInfo::~SKvUserInfo() = default;

QByteArray GetServerIP()
{
    return Get(&SSettings::byteServer);
}

bool SetServerIP(const QByteArray& address)
{
    if (!IsServerAddress(QUrl::fromEncoded(address, QUrl::StrictMode))) {
        Refuse(QStringLiteral("Server address refused, not an absolute http or https URL: \"%1\"")
                   .arg(QString::fromUtf8(address)));
        return false;
    }
    QByteArray server = address;
    while (server.endsWith('/')) {
        server.chop(1);
    }
    Set(&SSettings::byteServer, server);
    return true;
}

SKvUserInfo GetCurUserInfo()
{
    return Get(&SSettings::user);
}

bool SetCurUserInfo(const SKvUserInfo& user)
{
    if (!IsPrintableLatin1(user.m_strToken)) {
        Refuse(QStringLiteral("User refused: the token holds a character that no request header can carry"));
        return false;
    }
    Logger::instance().addSecret(user.m_strToken);
    Set(&SSettings::user, user);
    return true;
}

QString GetSysinfo()
{
    static const QString strSysinfo = [] {
        const QString text = QStringLiteral("KvProjectDbOperator/" KV_VERSION " (%1; %2 %3; %4)")
                                 .arg(QSysInfo::prettyProductName(), QSysInfo::kernelType(),
                                      QSysInfo::kernelVersion(), QSysInfo::currentCpuArchitecture());
        return IsPrintableLatin1(text) ? text : QStringLiteral("KvProjectDbOperator/" KV_VERSION);
    }();
    return strSysinfo;
}

bool EnabledFiddler()
{
    return Get(&SSettings::bFiddler);
}

void SetEnabledFiddler(bool enabled)
{
    Set(&SSettings::bFiddler, enabled);
}

bool IsTestServer()
{
    return Get(&SSettings::bTestServer);
}

void SetTestServer(bool testServer)
{
    Set(&SSettings::bTestServer, testServer);
}

QString GetHomeDir()
{
    const QString strHomeDir = Get(&SSettings::strHomeDir);
    return strHomeDir.isEmpty()
               ? QStandardPaths::writableLocation(QStandardPaths::AppDataLocation) + QLatin1Char('/')
               : strHomeDir;
}

bool SetHomeDir(const QString& path)
{
    if (!QDir::isAbsolutePath(path)) {
        Refuse(QStringLiteral("Home folder refused, not an absolute path: \"%1\"").arg(path));
        return false;
    }
    Set(&SSettings::strHomeDir, path.endsWith(QLatin1Char('/')) ? path : path + QLatin1Char('/'));
    return true;
}
