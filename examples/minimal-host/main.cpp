// SPDX-License-Identifier: MIT
// Records one flight mission and uploads it: minimal-host PROJECT SERVER TOKEN
#include <KvAlgorthm.h>
#include <KvData.h>
#include <KvLog.h>
#include <KvProjectDbOperator/CKvFlightDataDbOperator.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QDateTime>
#include <QtCore/QDir>
#include <QtCore/QTimer>
#include <QtCore/QUuid>

#include <cstdio>

/// The operator's private slots are reached through signals.
class Host : public QObject
{
    Q_OBJECT

Q_SIGNALS:
    void message(QByteArray byte); // one raw flight monitor message
    void signedIn();
};

namespace
{
/// A file with its tables in a folder of the project; empty when it cannot be made.
QString makeMissionFile(const QString& project, const QString& mission)
{
    const QString folder = project + "/" + QDate::currentDate().toString("yyyyMMdd");
    const QString file = folder + "/" + mission + ".kv";
    return QDir().mkpath(folder) && CreateMissionFile(file) ? file : QString();
}

void record(const QString& file, const QString& mission)
{
    Host host;
    CKvFlightDataDbOperator recorder(nullptr, EUploadEnv::None);
    QObject::connect(&host, SIGNAL(message(QByteArray)), &recorder, SLOT(slotWriteFlightMonitor(QByteArray)));

    const QJsonObject row{{"id", mission},
                          {"name", "First flight"},
                          {"started_at", QDateTime::currentDateTime().toString(DateTimeMSFormat)},
                          {"flight_mission_data", "{}"}};
    recorder.slotParseJson({row}, ":/flight_mission.txt", mission, 1, file);
    recorder.SetFlightMissionFilePath(file);
    recorder.SetFilghtMissionID(mission);
    Q_EMIT host.message("take-off");
    Q_EMIT host.message("landed");
} // the recorder ends and writes what waits

/// Ends the event loop with 0 once the server has accepted every row of the file.
void upload(CKvFlightDataDbOperator* uploader, const QString& file)
{
    Host host;
    QObject::connect(&host, SIGNAL(signedIn()), uploader, SLOT(slotCheckNewData()));
    QObject::connect(uploader, &CKvFlightDataDbOperator::UploadFinished, qApp, &QCoreApplication::quit);
    QTimer::singleShot(30000, [] { QCoreApplication::exit(1); });
    uploader->SetFlightMissionFilePath(file);
    Q_EMIT host.signedIn();
}
} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    Logger::instance().captureQtMessages(); // Qt has a remark at every post
    const QStringList arguments = QCoreApplication::arguments();
    SKvUserInfo user;
    user.m_strToken = arguments.value(3);
    if (arguments.size() != 4 || !SetServerIP(arguments[2].toUtf8()) || !SetCurUserInfo(user)) {
        std::fputs("usage: minimal-host PROJECT SERVER TOKEN\n", stderr);
        return 2;
    }
    const QString project = QDir(arguments[1]).absolutePath();
    const QString mission = UidToString(QUuid::createUuid());
    const QString file = makeMissionFile(project, mission);
    if (file.isEmpty()) {
        return 1; // the log says why
    }
    CKvControl::GetInstance(false, EPlaneType::Multirotor)->SetProjectDirPath(project);
    record(file, mission);

    CKvFlightDataDbOperator uploader(nullptr, EUploadEnv::OncePerRequest);
    upload(&uploader, file);
    const int result = QCoreApplication::exec();
    std::printf("mission %s %s\n", qPrintable(mission), result == 0 ? "uploaded" : "waits for the server");
    return result;
}

#include "main.moc"
