#include "support/initializer/probefixture.h"
#include "support/common/simulatedportsmain.h"
#include "support/initializer/timelinetexts.h"

#include <QTest>
#include <QTimer>

using JwDevice::Communicator;
using JwDevice::Initializer;
using JwDevice::Type;
using JwSimulator::Board;

/// Tests that an Initializer does not confuse a deleted Communicator with a new one at the same address. Before each
/// test, a probe hands a board over and continues, and the application deletes that board's Communicator. Then a second
/// probe of the same port makes the new Communicator.
class TestInitializerAddressReuse : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup() { m_fixture.reset(); }
    void newPortAwaitsItsReply();
    void newPortHasOneReplyTimer();
    void boardOfTheTypeOfTheFormerIsHandedOver();
    void missingTypeIsAskedForAgainAndReported();
    void portIsClosedWithTheInitializer();
    void reusedWithinTheHandOverItself();

private:
    std::unique_ptr<ProbeFixture> m_fixture;
    Board *m_board = nullptr;
    const Board *m_other = nullptr;
    QPointer<QTimer> m_formerTimer;
};

void TestInitializerAddressReuse::init()
{
    cleanup(); // deletes what a failed init() left, because Qt Test does not call cleanup() after a failure in init()
    m_fixture = std::make_unique<ProbeFixture>();
    m_board = m_fixture->attach("silent");
    m_other = m_fixture->attach("silent");
    m_fixture->probe({JwDevice::BoardA});
    QVERIFY(m_board->send(versionReply("7300022")));
    QTRY_COMPARE(m_fixture->state(m_board), PortState::HandedOver);
    QCOMPARE(m_fixture->state(m_other), PortState::AwaitingReply);
    m_fixture->timeline.clear();

    const ProbeFixture::HandOver taken = m_fixture->handOver(m_board);
    const void *const address = taken.comm.data();
    m_formerTimer = replyTimers(*m_fixture->initializer).value(taken.comm);
    delete taken.port;
    delete taken.comm;
    m_fixture->probe({JwDevice::BoardA});
    QCOMPARE(static_cast<const void *>(m_fixture->comm(m_board)), address);
}

void TestInitializerAddressReuse::newPortAwaitsItsReply()
{
    QCOMPARE(m_fixture->state(m_board), PortState::AwaitingReply);
    QTRY_COMPARE(received(m_board), versionQuery + versionQuery);
    m_fixture->timeOut(m_other);
    QVERIFY(m_fixture->decisions().isEmpty());
}

void TestInitializerAddressReuse::newPortHasOneReplyTimer()
{
    QVERIFY(!m_formerTimer);
    // The Initializer has one reply timer for each port, and the delay timer. So the reply timer of the deleted
    // Communicator no longer exists.
    QCOMPARE(m_fixture->initializer->findChildren<QTimer *>().size(), replyTimers(*m_fixture->initializer).size() + 1);
}

void TestInitializerAddressReuse::boardOfTheTypeOfTheFormerIsHandedOver()
{
    QVERIFY(m_board->send(versionReply("7300022")));
    QTRY_COMPARE(m_fixture->decisions(), QStringList{foundA});
    QCOMPARE(m_fixture->handOver(m_board).type, JwDevice::BoardA);
}

void TestInitializerAddressReuse::missingTypeIsAskedForAgainAndReported()
{
    m_fixture->initializer->setMaxRetries(1);
    m_fixture->endReplyTimers();
    QTRY_COMPARE(m_fixture->decisions(), QStringList{retry});
    QTRY_COMPARE(received(m_board), versionQuery.repeated(3));
    m_fixture->endReplyTimers();
    QTRY_COMPARE(m_fixture->decisions(), QStringList({retry, missingA, over}));
}

void TestInitializerAddressReuse::portIsClosedWithTheInitializer()
{
    const QPointer<Communicator> comm(m_fixture->comm(m_board));
    delete m_fixture->initializer;
    QVERIFY(!comm);
    QSerialPort port(m_board->portName());
    QVERIFY(port.open(QIODevice::ReadWrite));
}

void TestInitializerAddressReuse::reusedWithinTheHandOverItself()
{
    cleanup(); // deletes the testbed that init() made, because a process can have only one testbed at a time
    m_fixture = std::make_unique<ProbeFixture>();
    Board *const board = m_fixture->attach("BoardA,replies=2");
    Board *const second = m_fixture->attach("silent");
    const void *address = nullptr;
    QObject::connect(m_fixture->initializer, &Initializer::deviceInitialized, [&](Type type, Communicator *comm) {
        if (type != JwDevice::BoardA)
            return;
        address = comm;
        comm->device()->deleteLater();
        delete comm;
        QVERIFY(m_fixture->initializer->probe({JwDevice::BoardB}, 0, {second->portName()}));
    });
    QVERIFY(m_fixture->initializer->probe({JwDevice::BoardA}, 0, {board->portName()}));
    QTRY_VERIFY(address);
    QCOMPARE(static_cast<const void *>(m_fixture->comm(second)), address);
    QCOMPARE(m_fixture->decisions(), QStringList{foundA});
    QCOMPARE(m_fixture->state(second), PortState::AwaitingReply);
    QVERIFY(second->send(versionReply("7300021")));
    QTRY_COMPARE(m_fixture->decisions(), QStringList({foundA, foundB, over}));
}

SIMULATED_PORTS_MAIN(TestInitializerAddressReuse)
#include "tst_initializer_addressreuse.moc"
