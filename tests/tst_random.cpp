// SPDX-License-Identifier: MIT
// Everything that is read from outside, damaged at random; the seed makes a failure come again.
#include "support/ScriptedServer.h"
#include "support/TestProject.h"
#include "support/Upload.h"

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
} // namespace

class tst_random : public QObject
{
    Q_OBJECT

    const TestProject m_config;

private Q_SLOTS:
    void initTestCase()
    {
        qputenv("XDG_CONFIG_HOME", m_config.path("").toUtf8());
        control()->SetNetWorkConnected(true);
    }

    void replies()
    {
        ScriptedServer server;
        server.script = [](const PostedRequest&) {
            ScriptedServer::Reply reply = ScriptedServer::file(
                damaged(R"({"status":403,"message":"\ud83d\ude81 {[1e400,null]}","rows":[{}]})"));
            if (upTo(3) == 0) {
                reply.wire = damaged(reply.wire);
            }
            reply.close = true;
            return reply;
        };
        std::vector<std::unique_ptr<Upload>> uploads;
        for (int i = 0; i < 60; ++i) {
            uploads.push_back(std::make_unique<Upload>(server.url() + "/x"));
            uploads.back()->PostNetWorkReplyMessage();
        }
        for (const auto& upload : uploads) {
            QTRY_COMPARE_WITH_TIMEOUT(upload->outcomes.size(), 1, 15000);
        }
    }

    void settings()
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

    void storedSettings()
    {
        ScriptedServer server;
        SetCurUserInfo({});
        const FlightProject project;
        for (int i = 0; i < 30; ++i) {
            m_config.file("KvProject/KvCloud.conf",
                          damaged("[UserInfo]\nToken=@Variant(\\0\\0\\0\\t\\0\\0\\0\\1)\nx=\"a\\x41, b\"\n"));
            const QString id = QString::number(i);
            TestProject::addMission(project.db, id, 1, 0, 0);
            Host host(EUploadEnv::OncePerRequest, project.db);
            Q_EMIT host.slotCheckNewData();
            Q_EMIT host.slotStartUpload();
            QTRY_COMPARE(project.waiting("pos_data"), 0);
        }
    }

    void descriptionsAndRecords()
    {
        const FlightProject project;
        Host host(EUploadEnv::None, project.db);
        const QByteArray json =
            R"([{"id":"a","lng":1.5,"lat":-2,"time":"t","is_uploaded":0},{"id":"b","alt":null}])";
        for (int i = 0; i < 300; ++i) {
            const QString columns = project.file(
                "pos_data.txt", damaged("id text\nlng real\nlat real\ntime text\nis_uploaded integer\n"));
            const QJsonArray records = QJsonDocument::fromJson(upTo(2) == 0 ? json : damaged(json)).array();
            host.op.slotParseJson(records, columns, "m", 1, project.db);
            Q_EMIT host.slotParseJson(records, columns, "m");
            Q_EMIT host.slotParseSingleJson(records.at(0).toObject(), columns, "pos_data");
        }
        const QString good = project.file("pos_data.txt", "id text");
        host.op.slotParseJson({QJsonObject{{"id", "last"}}}, good, "m", 1, project.db);
        QCOMPARE(TestProject::value(project.db, "PRAGMA integrity_check").toString(), QString("ok"));
        QCOMPARE(TestProject::value(project.db, "SELECT count(*) FROM pos_data WHERE id = 'last'").toInt(),
                 1);
    }

    void missionFiles()
    {
        ScriptedServer server;
        const FlightProject project(40, 40, 200);
        const QByteArray good = TestProject::contents(project.db);
        for (int i = 0; i < 60; ++i) {
            const QString bad = project.file("m1/flight.kv", damaged(damaged(good)));
            Host host(EUploadEnv::WholeProject, bad);
            host.op.SetFilghtMissionID("m1");
            Q_EMIT host.slotCheckNewData();
            Q_EMIT host.slotStartUpload();
            for (int message = 0; message < 55; ++message) {
                Q_EMIT host.slotWriteFlightMonitor("message");
            }
            server.settle();
        }
    }
};

QTEST_GUILESS_MAIN(tst_random)
#include "tst_random.moc"
