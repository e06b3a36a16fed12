// SPDX-License-Identifier: MIT
#include "Host.h"

#include "flightdesk/words/Latin1.h"
#include "KvAlgorthm.h"
#include "KvData.h"
#include "KvProjectDbOperator/CKvUpLoadObject.h"
#include "MissionFile.h"
#include "Report.h"

#include <QtCore/QEventLoop>
#include <QtCore/QTimer>

namespace
{
constexpr int PatienceMs = 300000;

EUploadEnv inProject(const QTemporaryDir& project, EUploadEnv env)
{
    setProject(project.path());
    return env;
}
} // namespace

Host::Host(EUploadEnv env, const QString& file) : op(nullptr, inProject(m_project, env))
{
    connect(this, SIGNAL(message(QByteArray)), &op, SLOT(slotWriteFlightMonitor(QByteArray)));
    connect(this, SIGNAL(positions(QJsonArray, QString, QString)), &op,
            SLOT(slotParseJson(QJsonArray, QString, QString)));
    connect(this, SIGNAL(signedIn()), &op, SLOT(slotCheckNewData()));
    connect(this, SIGNAL(tick()), &op, SLOT(slotStartUpload()));
    if (!file.isEmpty()) {
        op.SetFlightMissionFilePath(file);
    }
}

void Host::drain()
{
    QEventLoop loop;
    bool finished = false;
    const auto finish = [&loop, &finished] {
        finished = true;
        loop.quit();
    };
    connect(&op, &CKvFlightDataDbOperator::UploadFinished, &loop, finish);
    QTimer::singleShot(PatienceMs, &loop, &QEventLoop::quit);
    Q_EMIT signedIn();
    Q_EMIT tick();
    if (!finished) {
        loop.exec();
    }
    require(finished, "the upload does not end"_l1);
}

void setProject(const QString& folder)
{
    CKvControl::GetInstance(false, EPlaneType::Multirotor)->SetProjectDirPath(folder);
}

double postSmallOnes(const QByteArray& url, const QByteArray& body)
{
    CKvUpLoadObject object;
    object.SetUrl(url + "/flight/detailupload");
    object.SetFilePathArray(body);
    QEventLoop loop;
    QObject::connect(&object, &CKvUpLoadObject::upLoadFinished, &loop, &QEventLoop::quit);
    return SmallRequests / seconds([&] {
               for (int i = 0; i < SmallRequests; ++i) {
                   object.PostNetWorkReplyMessage();
                   loop.exec();
               }
           });
}

double drainFile(const QString& file, const QByteArray& url)
{
    SetServerIP(url);
    Host host(EUploadEnv::OncePerRequest, file);
    const double time = seconds([&host] { host.drain(); });
    requireDrained(file);
    return time;
}
