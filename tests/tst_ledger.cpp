// SPDX-License-Identifier: MIT
#include "SqliteSchema.h"
#include "SqliteStore.h"
#include "support/FaultVfs.h"
#include "support/RawClient.h"
#include "support/TestProject.h"

#include <functional>
#include <memory>

namespace
{
FaultVfs& disk = FaultVfs::install();
constexpr int IoError = 10;
Bound bound(64 << 20);

Batch batchOf(const QString& path, const QByteArray& form)
{
    Body body(static_cast<std::size_t>(form.size()));
    std::copy(form.begin(), form.end(), body.data());
    return {*findEndpoint(path.toStdString()), std::move(body), bound.reservation()};
}

/// A store, and what it has acknowledged.
struct TestLedger {
    explicit TestLedger(QString path) : file(std::move(path)) { reopen(); }

    /// False where the ledger cannot be opened now.
    bool reopen()
    {
        store.reset();
        try {
            store = std::make_unique<SqliteStore>(file.toStdString(), directory);
            alice = store->ownerNamed("alice");
            bob = store->ownerNamed("bob");
        } catch (const std::runtime_error&) {
            store.reset();
        }
        return store != nullptr;
    }
    std::shared_ptr<Delivery> delivery(const QString& path, const QByteArray& form, bool ofBob = false) const
    {
        return std::make_shared<Delivery>(
            Delivery{{ofBob ? bob : alice, std::nullopt}, batchOf(path, form), {}});
    }

    /// The outcomes of deliveries that are stored together.
    QList<Result::Outcome> put(const std::vector<std::shared_ptr<Delivery>>& deliveries)
    {
        std::vector<Portion> portions;
        portions.reserve(deliveries.size());
        for (const auto& delivery : deliveries) {
            portions.push_back({delivery.get(), 0, delivery->batch.records().size(), {}});
        }
        QList<Result::Outcome> outcomes;
        if (store) {
            store->store(portions);
        }
        for (const Portion& portion : portions) {
            outcomes.append(portion.result.outcome);
            if (portion.result.outcome == Result::Outcome::Stored) {
                for (const Record& record : portion.delivery->batch.records()) {
                    acknowledged.insert(QString::fromStdString(std::string(record.id())));
                }
            }
        }
        return outcomes;
    }
    QSet<QString> ids() const
    {
        SqliteFile reader(file.toStdString());
        SqliteFile::Statement select = reader.prepare(R"(SELECT id FROM "row")");
        QSet<QString> found;
        while (select.step()) {
            found.insert(QString::fromStdString(select.text(0)));
        }
        return found;
    }
    QString text(const QString& sql) const
    {
        return QString::fromStdString(SqliteFile(file.toStdString()).text(qPrintable(sql)));
    }

    const QString file;
    Directory directory;
    std::unique_ptr<SqliteStore> store;
    const Owner* alice = nullptr;
    const Owner* bob = nullptr;
    QSet<QString> acknowledged;
};

/// What a ledger goes through: new rows, rows again, a mission that changes, a restart (which writes the log
/// back).
const QList<std::function<void(TestLedger&)>> Life = {
    [](TestLedger& ledger) {
        ledger.put({ledger.delivery("/flight/upload"_l1, R"(data={"id":"m1"})"),
                    ledger.delivery("/flight/detailupload"_l1, logBody(logRow("a") + ',' + logRow("b")))});
    },
    [](TestLedger& ledger) {
        ledger.put({ledger.delivery("/flight/detailupload"_l1, logBody(logRow("b")))});
    },
    [](TestLedger& ledger) { ledger.reopen(); },
    [](TestLedger& ledger) {
        ledger.put(
            {ledger.delivery("/flight/detailupload"_l1, logBody(logRow("b") + ',' + logRow("c")), true),
             ledger.delivery("/flight/upload"_l1, R"(data={"id":"m1","name":"new"})")});
    },
    [](TestLedger& ledger) { // the log is written back beneath the server, which begins it anew
        try {
            SqliteFile(ledger.file.toStdString()).execute("PRAGMA wal_checkpoint");
        } catch (const SqliteError&) { // the power has gone
        }
        ledger.put({ledger.delivery("/flight/detailupload"_l1, logBody(logRow("d")))});
    },
    [](TestLedger& ledger) { ledger.store.reset(); },
};

const QString FirstVersion = "CREATE TABLE \"row\"(kind TEXT NOT NULL, id TEXT NOT NULL, mission TEXT NOT "
                             "NULL, json TEXT NOT NULL, times "
                             "INTEGER NOT NULL, PRIMARY KEY(kind,id))"_l1;

void makeFirstVersion(const QString& file)
{
    TestProject::run(
        file,
        {FirstVersion, "CREATE TABLE request(seq INTEGER PRIMARY KEY)"_l1,
         R"sql(INSERT INTO "row" VALUES('pos_data','p1','m1','{}',3),('uas_status','s1','m1','{}',1))sql"_l1});
}
const QString TakenOver = "demo pos_data p1 m1 3;demo uas_status s1 m1 1"_l1;
const QString SelectAll =
    "SELECT group_concat(line, ';') FROM (SELECT owner || ' ' || kind || ' ' || id || ' ' || "
    "mission || ' ' || times AS line FROM \"row\" ORDER BY 1)"_l1;
} // namespace

class tst_ledger : public QObject
{
    Q_OBJECT

private:
    /// Everything that was acknowledged is there, and the file is sound.
    static void check(const TestLedger& ledger)
    {
        const FaultVfs::Pause pause;
        QVERIFY(ledger.ids().contains(ledger.acknowledged));
        QCOMPARE(ledger.text("PRAGMA integrity_check"_l1), "ok"_l1);
    }
    static void checkAndStore(TestLedger& ledger)
    {
        check(ledger);
        QCOMPARE(ledger.put({ledger.delivery("/flight/upload"_l1, R"(data={"id":"m2"})")}),
                 {Result::Outcome::Stored});
    }

    /// The power goes at every step that a function makes the disk take, once; a ledger is checked after
    /// that. Only what was synced stays, or of the rest what a coin says.
    static void cutPower(const std::function<void(const QString&)>& prepare,
                         const std::function<void(TestLedger&)>& live,
                         const std::function<void(TestLedger&)>& check)
    {
        for (unsigned int seed = 0; seed < 3; ++seed) {
            std::mt19937 coin(seed);
            for (int n = 1, failures = 1; failures > 0; ++n) {
                const TestProject folder;
                prepare(folder.path("ledger.db"_l1));
                disk.mount(folder.path(""_l1));
                disk.failAt(FaultVfs::Any, n, IoError, true);
                TestLedger ledger(folder.path("ledger.db"_l1));
                live(ledger);
                ledger.store.reset();
                failures = disk.failures();
                disk.clear();
                disk.losePower(seed > 0 ? &coin : nullptr);
                QVERIFY2(ledger.reopen(), qPrintable(QString::number(n)));
                check(ledger);
                QVERIFY2(!QTest::currentTestFailed(), qPrintable(QString::number(n)));
            }
        }
    }

private Q_SLOTS:
    void cleanup() { disk.clear(); }

    void powerCut()
    {
        const auto live = [](TestLedger& ledger) {
            for (const auto& step : Life) {
                step(ledger);
            }
        };
        cutPower([](const QString&) {}, live, checkAndStore);
    }

    /// Every step fails once, or from there on: nothing that was acknowledged is lost, nothing that was not
    /// stored is acknowledged, and the same server stores again once the disk is well.
    void faults()
    {
        const std::pair<FaultVfs::Step, int> kinds[] = {{FaultVfs::Write, 13},
                                                        {FaultVfs::Write, IoError},
                                                        {FaultVfs::Write, 8},
                                                        {FaultVfs::Sync, IoError},
                                                        {FaultVfs::Read, IoError}};
        for (const auto& [step, code] : kinds) {
            for (int n = 1, failures = 1; failures > 0 || n % 2 == 0; ++n) {
                const bool forGood = n % 2 == 0;
                const TestProject folder;
                TestLedger ledger(folder.path("ledger.db"_l1));
                disk.failAt(step, (n + 1) / 2, code, forGood);
                Life[0](ledger);
                Life[1](ledger);
                Life[3](ledger);
                failures = disk.failures();
                check(ledger);
                disk.clear();
                QVERIFY(ledger.store->probe());
                checkAndStore(ledger);
                check(ledger);
                const QString what = QStringLiteral("step %1, code %2, number %3").arg(step).arg(code).arg(n);
                QVERIFY2(!QTest::currentTestFailed(), qPrintable(what));
            }
        }
    }

    void countsAndKeeps()
    {
        const TestProject folder;
        TestLedger ledger(folder.path("ledger.db"_l1));
        const QByteArray odd = R"({ "id" : "od\u0064", "x":1.50 ,"y":null})";
        ledger.put({ledger.delivery("/flight/detailupload"_l1, logBody(odd + ',' + odd))});
        ledger.put({ledger.delivery("/flight/detailupload"_l1, logBody(R"({"id":"odd"})")),
                    ledger.delivery("/flight/detailupload"_l1, logBody(logRow("odd")), true),
                    ledger.delivery("/flight/upload"_l1, R"(data={"id":"m1","name":"first"})"),
                    ledger.delivery("/flight/upload"_l1, R"(data={"id":"m1","name":"last"})")});
        QCOMPARE(ledger.text(R"(SELECT json FROM "row" WHERE owner = 'alice' AND id = 'odd')"_l1),
                 QString::fromUtf8(odd));
        QCOMPARE(ledger.text(SelectAll),
                 "alice flight_mission m1 m1 2;alice flight_monitor_detail_log odd m1 "
                 "3;bob flight_monitor_detail_log odd m1 1"_l1);
        QCOMPARE(ledger.text("SELECT json FROM \"row\" WHERE id = 'm1'"_l1),
                 R"({"id":"m1","name":"last"})"_l1);
    }

    /// One request whose rows the ledger does not take fails alone.
    void poisoned()
    {
        const TestProject folder;
        TestLedger ledger(folder.path("ledger.db"_l1));
        SqliteFile(ledger.file.toStdString())
            .execute("CREATE TRIGGER poison BEFORE INSERT ON record WHEN new.id = 'poison' BEGIN "
                     "SELECT raise(ABORT, 'poison'); END");
        using Outcome = Result::Outcome;
        QCOMPARE(ledger.put({ledger.delivery("/flight/detailupload"_l1, logBody(logRow("a"))),
                             ledger.delivery("/flight/detailupload"_l1,
                                             logBody(logRow("b") + ',' + logRow("poison"))),
                             ledger.delivery("/flight/detailupload"_l1, logBody(logRow("c")))}),
                 (QList<Outcome>{Outcome::Stored, Outcome::Refused, Outcome::Stored}));
        QCOMPARE(ledger.ids(), (QSet<QString>{"a"_l1, "c"_l1}));
    }

    void takesOver()
    {
        cutPower(
            makeFirstVersion, [](TestLedger&) {},
            [](TestLedger& ledger) {
                QCOMPARE(ledger.text(SelectAll), TakenOver);
                QVERIFY(ledger.reopen());
                QCOMPARE(ledger.text(SelectAll), TakenOver);
            });
    }

    void foreignFiles()
    {
        const TestProject folder;
        for (const auto sql : {"CREATE TABLE other(x)"_l1, "PRAGMA user_version=99"_l1}) {
            const QString file = folder.path("other.db"_l1);
            QFile::remove(file);
            CKvDataBase database(file);
            database.open();
            database.exec(sql);
            database.close();
            const QByteArray before = TestProject::contents(file);
            QVERIFY(!TestLedger(file).store);
            QCOMPARE(TestProject::contents(file), before);
        }
        const QString first = folder.path("first.db"_l1); // that an old server may still write
        makeFirstVersion(first);
        const QByteArray before = TestProject::contents(first);
        QVERIFY_EXCEPTION_THROWN(openLedger(first.toStdString(), SqliteFile::Opening::Existing),
                                 std::runtime_error);
        QCOMPARE(TestProject::contents(first), before);
    }

    /// The file is moved away beneath the server: nothing is acknowledged that would go with it.
    void movedAway()
    {
        const TestProject folder;
        TestLedger ledger(folder.path("ledger.db"_l1));
        Life[0](ledger);
        QVERIFY(QFile::rename(ledger.file, folder.path("elsewhere.db"_l1)));
        QCOMPARE(ledger.put({ledger.delivery("/flight/upload"_l1, R"(data={"id":"m2"})")}),
                 {Result::Outcome::Failed});
        QVERIFY(!ledger.store->probe());
        QVERIFY(QFile::rename(folder.path("elsewhere.db"_l1), ledger.file));
        checkAndStore(ledger);
    }
};

QTEST_GUILESS_MAIN(tst_ledger)
#include "tst_ledger.moc"
