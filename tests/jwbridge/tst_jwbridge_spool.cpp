#include <jwbridge/boards.h>
#include <jwbridge/spool.h>

#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

#include <sys/stat.h>

using namespace JwBridge;

namespace {

const QByteArray board = "S1:1.0";
constexpr int stored = 50; // bytes by which a payload of `board` is larger in the spool than its text, at least

qint64 now()
{
    return QDateTime::currentMSecsSinceEpoch() * 1000;
}

// A spool and its file. stop() ends the process's use of it in order; crash() leaves the file as a crash leaves it.
class SpoolRun
{
public:
    explicit SpoolRun(const QString &folder, const Spool::Limits &limits = {})
        : m_database(std::make_unique<Database>())
    {
        QString error;
        m_isOpen = m_database->open(folder + QStringLiteral("/spool.db"), &error);
        spool = std::make_unique<Spool>(*m_database, limits);
        m_isOpen = m_isOpen && spool->load(&error);
        if (!m_isOpen)
            qWarning("%s", qPrintable(error));
    }

    bool isOpen() const { return m_isOpen; }
    // Returns the seqs of all payloads that are to be sent.
    QList<qint64> seqs()
    {
        QList<qint64> list;
        spool->giveAgain();
        for (const Payload *payload = spool->after(0); payload; payload = spool->after(payload->seq))
            list.append(payload->seq);
        spool->giveAgain();
        return list;
    }
    int rows()
    {
        Statement statement(*m_database, "SELECT count(*) FROM payloads");
        return statement.next() ? static_cast<int>(statement.number(0)) : -1;
    }
    Database &database() { return *m_database; }

private:
    std::unique_ptr<Database> m_database;
    bool m_isOpen = false;

public:
    std::unique_ptr<Spool> spool; // deleted before the database
};

QList<qint64> range(qint64 first, qint64 last)
{
    QList<qint64> list;
    for (qint64 seq = first; seq <= last; ++seq)
        list.append(seq);
    return list;
}

} // namespace

/// Tests the spool without a broker.
class TestJwbridgeSpool : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { m_folder = std::make_unique<QTemporaryDir>(); }

    void payloadsComeInOrder();
    void payloadIsStoredSoon();
    void acknowledgedPayloadNeverReachesTheDisk();
    void acknowledgedPayloadLeavesTheDisk();
    void nextProcessContinues();
    void numberIsNeverUsedAgainAfterACrash();
    void sizeIsLimited();
    void ageIsLimited();
    void payloadOnItsWayIsNotGivenUp();
    void lossesSurviveARestart();
    void fullDiskLosesNothingFromMemory();
    void idleTimeDoesNotEndTheTrouble();
    void finishCountsWhatIsLost();
    void otherUsersCantReadTheSpool();
    void knownBoardsAreStoredTogether();
    void secondProcessIsRefused();
    void unusableFileIsSetAside_data();
    void unusableFileIsSetAside();
    void goodFileIsNotSetAside();
    void damageWhileOpenIsReported();
    void numbersBeginWhereTold();

private:
    void fill(SpoolRun &run, int count, int size = 10);
    std::unique_ptr<QTemporaryDir> m_folder;
};

void TestJwbridgeSpool::fill(SpoolRun &run, int count, int size)
{
    for (int i = 0; i < count; ++i)
        run.spool->add(board, now(), QByteArray(size, 'x'));
}

void TestJwbridgeSpool::payloadsComeInOrder()
{
    SpoolRun run(m_folder->path());
    QVERIFY(run.isOpen());
    QVERIFY(!run.spool->after(0));
    const qint64 time = now();
    run.spool->add(board, time, "first");
    run.spool->add("other", time + 1, "second");
    const Payload *payload = run.spool->after(0);
    QVERIFY(payload);
    QCOMPARE(payload->seq, 1);
    QCOMPARE(payload->time, time);
    QCOMPARE(payload->board, board);
    QCOMPARE(payload->text, QByteArray("first"));
    payload = run.spool->after(1);
    QCOMPARE(payload->text, QByteArray("second"));
    QVERIFY(!run.spool->after(2));
    // The same payloads from the disk, then from the disk and the memory together.
    QTRY_COMPARE(run.rows(), 2);
    fill(run, 1000);
    QCOMPARE(run.seqs(), range(1, 1002));
    QTRY_COMPARE(run.rows(), 1002);
    fill(run, 10);
    QCOMPARE(run.seqs(), range(1, 1012));
}

void TestJwbridgeSpool::payloadIsStoredSoon()
{
    SpoolRun run(m_folder->path());
    fill(run, 3);
    QElapsedTimer clock;
    clock.start();
    QTRY_COMPARE(run.rows(), 3);
    QVERIFY(clock.elapsed() >= Spool::storeInterval / 2);
}

void TestJwbridgeSpool::acknowledgedPayloadNeverReachesTheDisk()
{
    SpoolRun run(m_folder->path());
    fill(run, 3);
    run.spool->acknowledge(2);
    QTRY_COMPARE(run.rows(), 1);
    QCOMPARE(run.seqs(), range(3, 3));
}

void TestJwbridgeSpool::acknowledgedPayloadLeavesTheDisk()
{
    SpoolRun run(m_folder->path());
    fill(run, 600);
    QTRY_COMPARE(run.rows(), 600);
    run.spool->acknowledge(599);
    QCOMPARE(run.seqs(), range(600, 600));
    QTRY_COMPARE(run.rows(), 1);
}

void TestJwbridgeSpool::nextProcessContinues()
{
    {
        SpoolRun run(m_folder->path());
        fill(run, 5);
        run.spool->acknowledge(2);
    }
    SpoolRun run(m_folder->path());
    QCOMPARE(run.seqs(), range(3, 5));
    fill(run, 1);
    QCOMPARE(run.seqs(), range(3, 6));
}

void TestJwbridgeSpool::numberIsNeverUsedAgainAfterACrash()
{
    SpoolRun run(m_folder->path());
    fill(run, 5);
    QTRY_COMPARE(run.rows(), 5);
    fill(run, 5); // not stored when the process crashes
    QTemporaryDir crashed;
    for (const char *name : {"spool.db", "spool.db-wal"})
        QVERIFY(QFile::copy(m_folder->filePath(QLatin1String(name)), crashed.filePath(QLatin1String(name))));
    SpoolRun next(crashed.path());
    QVERIFY(next.isOpen());
    QCOMPARE(next.seqs(), range(1, 5));
    fill(next, 1);
    QVERIFY(next.seqs().last() > 10);
}

void TestJwbridgeSpool::sizeIsLimited()
{
    SpoolRun run(m_folder->path(), {100 * (stored + 1000), 3600});
    QSignalSpy spy(run.spool.get(), &Spool::lossesChanged);
    fill(run, 150, 1000);
    QTRY_VERIFY(!spy.isEmpty());
    const qint64 lost = run.spool->losses().size;
    QVERIFY2(lost >= 50 && lost <= 52, qPrintable(QString::number(lost)));
    QCOMPARE(run.seqs(), range(lost + 1, 150));
    QCOMPARE(run.spool->losses().age, 0);
}

void TestJwbridgeSpool::ageIsLimited()
{
    SpoolRun run(m_folder->path(), {1 << 20, 3600});
    for (int i = 0; i < 7; ++i)
        run.spool->add(board, now() - 3700LL * 1000000, "old");
    fill(run, 3);
    QTRY_COMPARE(run.spool->losses().age, 7);
    QCOMPARE(run.seqs(), range(8, 10));
    QCOMPARE(run.spool->losses().size, 0);
}

void TestJwbridgeSpool::payloadOnItsWayIsNotGivenUp()
{
    SpoolRun run(m_folder->path(), {10 * (stored + 1000), 3600});
    fill(run, 30, 1000);
    for (qint64 seq = 0; seq < 15; ++seq)
        QCOMPARE(run.spool->after(seq)->seq, seq + 1);
    QTRY_VERIFY(run.spool->losses().size > 0);
    run.spool->acknowledge(14);
    QCOMPARE(run.seqs().first(), 15);
    QCOMPARE(run.seqs().size() + static_cast<int>(run.spool->losses().size), 16);
}

void TestJwbridgeSpool::lossesSurviveARestart()
{
    {
        SpoolRun run(m_folder->path());
        run.spool->countRefused();
        run.spool->countRefused();
    }
    SpoolRun run(m_folder->path());
    QCOMPARE(run.spool->losses().refused, 2);
}

void TestJwbridgeSpool::fullDiskLosesNothingFromMemory()
{
    SpoolRun run(m_folder->path());
    QSignalSpy spy(run.spool.get(), &Spool::diskTrouble);
    QVERIFY(run.database().run("PRAGMA max_page_count=1")); // SQLite then reports a full disk
    fill(run, 2000, 100);
    QTRY_COMPARE(spy.size(), 1);
    QVERIFY2(spy[0][0].toString().contains(QLatin1String("full")), qPrintable(spy[0][0].toString()));
    QCOMPARE(run.seqs(), range(1, 2000));
    run.spool->acknowledge(1000);
    QCOMPARE(run.seqs(), range(1001, 2000));
    QVERIFY(run.database().run("PRAGMA max_page_count=100000"));
    QTRY_COMPARE(spy.size(), 2);
    QCOMPARE(spy[1][0].toString(), QString());
    QTRY_COMPARE(run.rows(), 1000);
    QCOMPARE(run.spool->losses().disk, 0);

    QVERIFY(run.database().run("PRAGMA max_page_count=1"));
    const int many = static_cast<int>(Spool::maxMemory / 10000) + 10;
    fill(run, many, 10000);
    QVERIFY(run.spool->losses().disk >= 10);
    QCOMPARE(run.seqs().size() + static_cast<int>(run.spool->losses().disk), 1000 + many);
}

void TestJwbridgeSpool::idleTimeDoesNotEndTheTrouble()
{
    SpoolRun run(m_folder->path());
    QSignalSpy spy(run.spool.get(), &Spool::diskTrouble);
    QVERIFY(run.database().run("PRAGMA query_only=1")); // every write fails
    fill(run, 3);
    QTRY_COMPARE(spy.size(), 1);
    run.spool->acknowledge(3);
    QElapsedTimer clock;
    clock.start();
    QTRY_VERIFY(clock.elapsed() > 5 * Spool::storeInterval);
    QCOMPARE(spy.size(), 1);
    QVERIFY(run.database().run("PRAGMA query_only=0"));
    QTRY_COMPARE(spy.size(), 2);
    QCOMPARE(spy[1][0].toString(), QString());
}

void TestJwbridgeSpool::finishCountsWhatIsLost()
{
    QString error;
    {
        SpoolRun run(m_folder->path());
        fill(run, 5);
        QTRY_COMPARE(run.rows(), 5);
        fill(run, 3);
        run.spool->acknowledge(6);
        QVERIFY(run.database().run("PRAGMA query_only=1"));
        QCOMPARE(run.spool->finish(&error), 2);
        QVERIFY(!error.isEmpty());
        QVERIFY(run.database().run("PRAGMA query_only=0"));
    }
    SpoolRun run(m_folder->path());
    QCOMPARE(run.seqs(), range(1, 5));
    fill(run, 3);
    QCOMPARE(run.spool->finish(&error), 0);
    QCOMPARE(run.rows(), 8);
}

void TestJwbridgeSpool::otherUsersCantReadTheSpool()
{
    const mode_t before = ::umask(0);
    SpoolRun run(m_folder->path());
    fill(run, 3);
    QTRY_COMPARE(run.rows(), 3);
    ::umask(before);
    for (const char *name : {"spool.db", "spool.db-wal"}) {
        const QFileInfo file(m_folder->filePath(QLatin1String(name)));
        QVERIFY(file.exists());
        QVERIFY2(!(file.permissions() & (QFile::ReadOther | QFile::ReadGroup)), name);
    }
}

// Each transaction waits for the disk. A bridge on a production line may know thousands of boards.
void TestJwbridgeSpool::knownBoardsAreStoredTogether()
{
    constexpr int count = 2000;
    const auto load = [this] {
        SpoolRun run(m_folder->path());
        Boards boards(run.database(), {}, 3600);
        QString error;
        QVERIFY2(boards.load(&error), qPrintable(error));
        // SQLite writes at least one page for each transaction.
        QVERIFY(QFileInfo(m_folder->filePath(QStringLiteral("spool.db-wal"))).size() < count / 2 * 4096);
        QVERIFY(run.database().run("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 2000) "
                                   "INSERT OR REPLACE INTO boards SELECT CAST(i AS BLOB), CAST('{\"state\":\"ready\"}' "
                                   "AS BLOB) FROM n"));
    };
    load();
    load();
}

void TestJwbridgeSpool::secondProcessIsRefused()
{
    SpoolRun run(m_folder->path());
    Database second;
    QString error;
    QVERIFY(!second.open(m_folder->filePath(QStringLiteral("spool.db")), &error));
    QVERIFY2(error.contains(QLatin1String("another jwbridge")), qPrintable(error));
}

void TestJwbridgeSpool::unusableFileIsSetAside_data()
{
    QTest::addColumn<QByteArray>("sql"); // makes the file unusable; otherwise `position` and `bytes` do
    QTest::addColumn<int>("position");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("reason");
    const QString damaged = QStringLiteral(" is damaged (");
    QTest::newRow("no database") << QByteArray() << 0 << QByteArray(8192, 'x') << damaged;
    QTest::newRow("damaged inside") << QByteArray() << 40 * 4096 << QByteArray(4096, 'x') << damaged;
    QTest::newRow("cut off") << QByteArray() << -1 << QByteArray() << damaged;
    QTest::newRow("newer version") << QByteArray("PRAGMA user_version=2") << 0 << QByteArray()
                                   << QStringLiteral(" is from a newer jwbridge");
}

void TestJwbridgeSpool::unusableFileIsSetAside()
{
    QFETCH(QByteArray, sql);
    QFETCH(int, position);
    QFETCH(QByteArray, bytes);
    QFETCH(QString, reason);
    {
        SpoolRun run(m_folder->path());
        fill(run, 2000, 200);
        if (!sql.isEmpty())
            QVERIFY(run.database().run(sql.constData()));
    }
    QFile file(m_folder->filePath(QStringLiteral("spool.db")));
    QVERIFY(file.open(QIODevice::ReadWrite));
    QVERIFY(file.size() > 50 * 4096);
    if (position < 0)
        QVERIFY(file.resize(30 * 4096));
    QVERIFY(file.seek(qMax(position, 0)));
    file.write(bytes);
    QVERIFY(file.seek(0));
    const QByteArray content = file.readAll();
    file.close();

    SpoolRun run(m_folder->path());
    QVERIFY(run.isOpen());
    QVERIFY2(run.database().setAside().startsWith(file.fileName() + reason), qPrintable(run.database().setAside()));
    const QStringList kept = QDir(m_folder->path()).entryList({QStringLiteral("spool.db.aside-*Z")});
    QCOMPARE(kept.size(), 1);
    QVERIFY(run.database().setAside().contains(kept.first()));
    QFile aside(m_folder->filePath(kept.first()));
    QVERIFY(aside.open(QIODevice::ReadOnly));
    QVERIFY(aside.readAll() == content);
    QCOMPARE(run.rows(), 0);
    fill(run, 3);
    QTRY_COMPARE(run.rows(), 3);
}

void TestJwbridgeSpool::goodFileIsNotSetAside()
{
    {
        SpoolRun run(m_folder->path());
        fill(run, 3);
    }
    SpoolRun run(m_folder->path());
    QVERIFY(run.isOpen());
    QCOMPARE(run.database().setAside(), QString());
    QCOMPARE(run.rows(), 3);
}

void TestJwbridgeSpool::damageWhileOpenIsReported()
{
    {
        SpoolRun run(m_folder->path());
        fill(run, 40000, 200); // more than SQLite keeps in memory
    }
    SpoolRun run(m_folder->path());
    QVERIFY(run.isOpen());
    QSignalSpy spy(run.spool.get(), &Spool::readTrouble);
    QFile file(m_folder->filePath(QStringLiteral("spool.db")));
    QVERIFY(file.open(QIODevice::ReadWrite));
    QVERIFY(file.seek(100 * 4096));
    file.write(QByteArray(200 * 4096, 'x'));
    file.close();
    const QList<qint64> seqs = run.seqs();
    QVERIFY(!seqs.isEmpty());
    QCOMPARE(seqs, range(1, seqs.size())); // nothing is skipped
    QVERIFY(seqs.size() < 40000);
    run.seqs();
    QCOMPARE(spy.size(), 1);
    QVERIFY2(spy[0][0].toString().contains(QLatin1String("malformed: restart jwbridge")),
             qPrintable(spy[0][0].toString()));
}

void TestJwbridgeSpool::numbersBeginWhereTold()
{
    SpoolRun run(m_folder->path());
    QString error;
    QVERIFY(run.spool->load(&error, 5000000));
    fill(run, 2);
    QCOMPARE(run.seqs(), range(5000000, 5000001));
}

QTEST_GUILESS_MAIN(TestJwbridgeSpool)
#include "tst_jwbridge_spool.moc"
