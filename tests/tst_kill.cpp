// SPDX-License-Identifier: MIT
#include "support/FlightLog.h"
#include "support/RawClient.h"

#include <random>

namespace
{
constexpr int KillsInRound = 8;

/// A project, the server that it is uploaded to, and what both hold.
struct Round : FlownProject {
    IngestServer server{{"--token"_l1, Token, "--ledger"_l1, ledger, "--admin"_l1, "127.0.0.1:0"_l1}};
    const QString admin = server.address("flightserver watched on "_l1);

    QVariant inLedger(const QString& sql) const
    {
        CKvDataBase database(path("none.db"_l1));
        database.open();
        database.exec("ATTACH '"_l1 + ledger + "' AS ledger"_l1);
        QSqlQuery query = database.exec(sql);
        return query.next() ? query.value(0) : QVariant();
    }
    /// Rows that the server has and the client has not marked, once the server has dealt with what it was
    /// sent.
    int inFlight() const
    {
        while (!get(admin, "/metrics").contains("flightserver_connections 0\n")) {
        }
        return rows("received IS NOT NULL AND is_uploaded = 0"_l1).size();
    }
};
} // namespace

/// flightdesk is killed while it records and uploads, and started again. KV_KILLS sets how often, KV_SEED
/// where the seeds begin; each seed is a round of its own.
class tst_kill : public QObject
{
    Q_OBJECT

private:
    int m_kills = 0;
    int m_rows = 0;
    int m_again = 0;
    int m_mayComeAgain = 0;

    /// Kills a program, if it still runs.
    bool kill(Program& program)
    {
        program.kill();
        program.waitForFinished(-1);
        const bool killed = program.exitStatus() == QProcess::CrashExit;
        m_kills += killed ? 1 : 0;
        return killed;
    }

private Q_SLOTS:
    void rounds_data()
    {
        QTest::addColumn<int>("seed");
        const int first = environmentNumber("KV_SEED", 1);
        for (int i = 0; i * KillsInRound < environmentNumber("KV_KILLS", 3 * KillsInRound); ++i) {
            QTest::addRow("seed %d", first + i) << first + i;
        }
    }
    void rounds()
    {
        QFETCH(int, seed);
        Round round;
        std::mt19937 random(static_cast<unsigned int>(seed));
        const QString log = round.file("flight.tlog"_l1, asLog(framesOf(FlightSimulator(random(), 0, 10))));
        QSet<QString> committed;
        const int kills = m_kills + KillsInRound;
        while (m_kills < kills || committed.isEmpty()) {
            Program recorder("flightdesk"_l1, round.command("record"_l1, {log}));
            recorder.waitForFinished(int(random() % 500));
            Program uploader("flightdesk"_l1, round.uploadCommand(round.server.url));
            recorder.waitForFinished(int(random() % 150));
            committed += round.rows();
            kill(recorder);
            uploader.waitForFinished(int(random() % 250));
            if (kill(uploader)) {
                const int inFlight = round.inFlight();
                QVERIFY(inFlight <= 1000); // of one request
                m_mayComeAgain += inFlight;
            }
            const QSet<QString> left = round.rows();
            QVERIFY(left.contains(committed));
            QCOMPARE(round.rows("is_uploaded = 1 AND received IS NULL"_l1), QSet<QString>());
            committed = left;
        }
        round.uploadAll(round.server.url);
        QCOMPARE(round.rows("received IS NULL OR is_uploaded = 0"_l1), QSet<QString>());
        QVERIFY(round.rows().contains(committed));
        m_rows += round.rows().size();
        m_again += round.inLedger("SELECT sum(times - 1) FROM ledger.row"_l1).toInt();
        QVERIFY2(m_again <= m_mayComeAgain,
                 qPrintable(QStringLiteral("%1 > %2").arg(m_again).arg(m_mayComeAgain)));
    }
    void cleanupTestCase()
    {
        qInfo("%d kills: %d rows, all accepted and marked; %d came again, of %d at most", m_kills, m_rows,
              m_again, m_mayComeAgain);
    }
};

QTEST_GUILESS_MAIN(tst_kill)
#include "tst_kill.moc"
