// SPDX-License-Identifier: MIT
// Everything that is read from outside, damaged at random; the seed makes a failure come again.
#include "KvAlgorthm.h"
#include "KvData.h"
#include "KvLog.h"
#include "KvProjectDbOperator/CKvFlightDataDbOperator.h"
#include "KvProjectDbOperator/CKvUpLoadObject.h"
#include "support/ScriptedServer.h"
#include "support/TestProject.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QJsonDocument>
#include <QtCore/QUrl>
#include <QtTest/QSignalSpy>
#include <QtTest/QTest>

#include <memory>
#include <random>
#include <vector>

namespace
{
std::mt19937 g_random(20260412);

int upTo(int limit)
{
    return static_cast<int>(g_random() % static_cast<unsigned>(limit));
}

/// Some bytes changed, removed, doubled or cut off.
QByteArray damaged(QByteArray bytes)
{
    for (int i = upTo(6) + 1; i > 0 && !bytes.isEmpty(); --i) {
        const int at = upTo(bytes.size());
        switch (upTo(5)) {
        case 0:
            bytes.truncate(at);
            break;
        case 1:
            bytes.remove(at, upTo(8));
            break;
        case 2:
            bytes.insert(at, bytes.mid(upTo(bytes.size()), upTo(40)));
            break;
        default:
            bytes[at] = static_cast<char>(g_random());
        }
    }
    return bytes;
}

QByteArray contents(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}
} // namespace

class tst_random : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void replies();
    void settings();
    void storedSettings();
    void descriptionsAndRecords();
    void missionFiles();

private:
    QTemporaryDir m_config;
};

void tst_random::initTestCase()
{
    qputenv("XDG_CONFIG_HOME", m_config.path().toUtf8());
    CKvControl::GetInstance(false, EPlaneType::Multirotor)->SetNetWorkConnected(true);
}

void tst_random::replies()
{
    ScriptedServer server;
    server.script = [](const SRequest&) {
        ScriptedServer::SReply reply = ScriptedServer::json(
            damaged(R"({"status":403,"message":"\ud83d\ude81 {[1e400,null]}","rows":[{}]})"));
        if (upTo(3) == 0) {
            reply.wire = damaged(reply.wire);
        }
        reply.close = true;
        return reply;
    };
    struct Post {
        CKvUpLoadObject object;
        int outcomes = 0;
    };
    std::vector<std::unique_ptr<Post>> posts;
    for (int i = 0; i < 60; ++i) {
        posts.push_back(std::make_unique<Post>());
        Post& post = *posts.back();
        const auto count = [&post] { ++post.outcomes; };
        connect(&post.object, &CKvUpLoadObject::upLoadFinished, this, count);
        connect(&post.object, &CKvUpLoadObject::NetWorkError, this, count);
        connect(&post.object, &CKvUpLoadObject::NoLogin, this, count);
        post.object.SetUrl(server.url() + "/x");
        post.object.PostNetWorkReplyMessage();
    }
    for (const auto& post : posts) {
        QTRY_COMPARE_WITH_TIMEOUT(post->outcomes, 1, 15000);
    }
}

void tst_random::settings()
{
    Logger::instance().setLoggingLevel(Level::Error); // five thousand refusals
    for (int i = 0; i < 5000; ++i) {
        if (SetServerIP(damaged("https://fly.example:8080/base/"))) {
            QVERIFY(QUrl::fromEncoded(GetServerIP() + "/flight/upload").isValid());
            QVERIFY(!GetServerIP().endsWith('/'));
        }
        SKvUserInfo user;
        user.m_strToken = QString::fromUtf8(damaged("t0k3n-\xC3\xA4"));
        if (SetCurUserInfo(user)) {
            QVERIFY(!user.m_strToken.toLatin1().contains('\n'));
            QCOMPARE(QString::fromLatin1(user.m_strToken.toLatin1()), user.m_strToken);
        }
        SetHomeDir(QString::fromUtf8(damaged("/home/pilot")));
        QVERIFY(QDir::isAbsolutePath(GetHomeDir()) && GetHomeDir().endsWith('/'));
    }
    Logger::instance().setLoggingLevel(Level::Warn);
}

void tst_random::storedSettings()
{
    ScriptedServer server;
    SetServerIP(server.url());
    SetCurUserInfo({});
    const TestProject project;
    const QString file = project.missionFile("m1/flight.kv");
    QDir().mkpath(m_config.filePath("KvProject"));
    for (int i = 0; i < 30; ++i) {
        QFile settings(m_config.filePath("KvProject/KvCloud.conf"));
        QVERIFY(settings.open(QIODevice::WriteOnly));
        settings.write(damaged("[UserInfo]\nToken=@Variant(\\0\\0\\0\\t\\0\\0\\0\\1)\nx=\"a\\x41, b\"\n"));
        settings.close();
        const QString id = QString::number(i);
        TestProject::addMission(file, id, 1, 0, 0);
        CKvFlightDataDbOperator op(nullptr, EUploadEnv::OncePerRequest);
        HostSignals host(&op);
        op.SetFlightMissionFilePath(file);
        emit host.arm();
        emit host.tick();
        QTRY_COMPARE(TestProject::waiting(file, "pos_data"), 0);
    }
}

void tst_random::descriptionsAndRecords()
{
    const TestProject project;
    const QString file = project.missionFile("m1/flight.kv");
    CKvFlightDataDbOperator op(nullptr, EUploadEnv::None);
    HostSignals host(&op);
    op.SetFlightMissionFilePath(file);
    const QByteArray json =
        R"([{"id":"a","lng":1.5,"lat":-2,"time":"t","is_uploaded":0},{"id":"b","alt":null}])";
    for (int i = 0; i < 300; ++i) {
        const QString columns = project.file(
            "pos_data.txt", damaged("id text\nlng real\nlat real\ntime text\nis_uploaded integer\n"));
        const QJsonArray records = QJsonDocument::fromJson(upTo(2) == 0 ? json : damaged(json)).array();
        op.slotParseJson(records, columns, "m", 1, file);
        emit host.positions(records, columns, "m");
        emit host.record(records.at(0).toObject(), columns, "pos_data");
    }
    const QString good = project.file("pos_data.txt", "id text");
    op.slotParseJson({QJsonObject{{"id", "last"}}}, good, "m", 1, file);
    QCOMPARE(TestProject::value(file, "PRAGMA integrity_check").toString(), QString("ok"));
    QCOMPARE(TestProject::value(file, "SELECT count(*) FROM pos_data WHERE id = 'last'").toInt(), 1);
}

void tst_random::missionFiles()
{
    ScriptedServer server;
    SetServerIP(server.url());
    const TestProject project;
    const QString file = project.missionFile("m1/flight.kv");
    TestProject::addMission(file, "m1", 40, 40, 200);
    const QByteArray good = contents(file);
    for (int i = 0; i < 60; ++i) {
        const QString bad = project.file("m1/flight.kv", damaged(damaged(good)));
        CKvFlightDataDbOperator op(nullptr, EUploadEnv::WholeProject);
        HostSignals host(&op);
        op.SetFlightMissionFilePath(bad);
        op.SetFilghtMissionID("m1");
        emit host.arm();
        emit host.tick();
        for (int message = 0; message < 55; ++message) {
            emit host.message("message");
        }
        QTest::qWait(10);
    }
}

QTEST_GUILESS_MAIN(tst_random)
#include "tst_random.moc"
