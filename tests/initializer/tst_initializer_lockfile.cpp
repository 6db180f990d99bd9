#include "support/initializer/probefixture.h"
#include "support/common/simulatedportsmain.h"

#include <device/lockfile.h>

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTest>

#include <utility>
#include <vector>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

using JwDevice::lockFilePath;
using JwDevice::lockTrap;
using JwDevice::PortReport;
using JwSimulator::Board;

namespace {

/// Something at `path` in place of a lock file, until the end of the scope.
class Trap
{
public:
    using Maker = bool (*)(const QByteArray &path);

    Trap(const QString &path, Maker make)
        : m_path(QFile::encodeName(path))
        , m_isThere(make(m_path))
    {
    }
    ~Trap() { remove(); }
    Trap(const Trap &) = delete;
    Trap &operator=(const Trap &) = delete;

    bool isThere() const { return m_isThere; }
    void remove()
    {
        if (std::exchange(m_isThere, false))
            ::remove(m_path.constData());
    }
    void forget() { m_isThere = false; } ///< does not remove it any more, because QSerialPort did

private:
    const QByteArray m_path;
    bool m_isThere;
};

bool makePipe(const QByteArray &path)
{
    return ::mkfifo(path.constData(), 0666) == 0;
}

bool makeFolder(const QByteArray &path)
{
    return ::mkdir(path.constData(), 0777) == 0;
}

bool makeLinkToAnEndlessDevice(const QByteArray &path)
{
    return ::symlink("/dev/zero", path.constData()) == 0;
}

bool makeLinkToNothing(const QByteArray &path)
{
    return ::symlink("nowhere", path.constData()) == 0;
}

bool makeSocket(const QByteArray &path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    qstrncpy(address.sun_path, path.constData(), sizeof address.sun_path);
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool isBound = ::bind(socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    ::close(socket);
    return isBound;
}

bool makeLargeFile(const QByteArray &path)
{
    QFile file(QFile::decodeName(path));
    return file.open(QIODevice::WriteOnly) && file.resize(Q_INT64_C(1) << 40);
}

/// Makes the lock file of a program that has ended.
bool makeLeftLock(const QByteArray &path)
{
    QProcess ended;
    ended.start(QStringLiteral("true"), QStringList());
    if (!ended.waitForStarted())
        return false;
    const QByteArray pid = QByteArray::number(ended.processId());
    QFile file(QFile::decodeName(path));
    return ended.waitForFinished() && file.open(QIODevice::WriteOnly) && file.write(pid + "\ntrue\n\n") > 0;
}

} // namespace

Q_DECLARE_METATYPE(Trap::Maker)

class TestInitializerLockFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void pathIsThatOfQSerialPort();
    void noTrapBesideALockFile();
    void trapKeepsOnlyItsPortFromOpening_data();
    void trapKeepsOnlyItsPortFromOpening();
    void trapBesideALockFileLeftBehindKeepsThePortFromOpening_data();
    void trapBesideALockFileLeftBehindKeepsThePortFromOpening();
    void trapThatQSerialPortDoesNotReachKeepsNothingFromOpening();
};

void TestInitializerLockFile::pathIsThatOfQSerialPort()
{
    ProbeFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    const QString path = lockFilePath(board->portName());
    QSerialPort port{QSerialPortInfo(board->portName())};
    QVERIFY(!QFileInfo::exists(path));
    QVERIFY(port.open(QIODevice::ReadWrite));
    QVERIFY2(QFileInfo::exists(path), qPrintable(path));
    port.close();
    QVERIFY(!QFileInfo::exists(path));
    QCOMPARE(QFileInfo(lockFilePath(QStringLiteral("pts/3"))).fileName(), QStringLiteral("LCK..pts_3"));
}

void TestInitializerLockFile::noTrapBesideALockFile()
{
    ProbeFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    QCOMPARE(lockTrap(board->portName()), QString());
    QSerialPort port{QSerialPortInfo(board->portName())};
    QVERIFY(port.open(QIODevice::ReadWrite));
    QCOMPARE(lockTrap(board->portName()), QString());
    fixture.probe({JwDevice::BoardA});
    const PortReport report = fixture.initializer->portReports().first();
    QCOMPARE(report.error, QSerialPort::PermissionError);
    QVERIFY2(!report.errorText.contains(lockFilePath(board->portName())), qPrintable(report.errorText));
}

void TestInitializerLockFile::trapKeepsOnlyItsPortFromOpening_data()
{
    QTest::addColumn<Trap::Maker>("make");
    QTest::addColumn<QString>("kind");
    QTest::newRow("named pipe") << Trap::Maker(makePipe) << "a named pipe";
    QTest::newRow("folder") << Trap::Maker(makeFolder) << "a folder";
    QTest::newRow("link to an endless device") << Trap::Maker(makeLinkToAnEndlessDevice) << "a symbolic link";
    QTest::newRow("link to nothing") << Trap::Maker(makeLinkToNothing) << "a symbolic link";
    QTest::newRow("socket") << Trap::Maker(makeSocket) << "a socket";
    QTest::newRow("large file") << Trap::Maker(makeLargeFile) << "a file of 1099511627776 bytes";
}

void TestInitializerLockFile::trapKeepsOnlyItsPortFromOpening()
{
    QFETCH(const Trap::Maker, make);
    QFETCH(const QString, kind);
    ProbeFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    const Board *const other = fixture.attach("BoardB");
    const QString path = lockFilePath(board->portName());
    Trap trap(path, make);
    QVERIFY(trap.isThere());
    fixture.probe({JwDevice::BoardA, JwDevice::BoardB});
    QTRY_VERIFY(fixture.handOver(other).comm);
    const PortReport report = fixture.initializer->portReports().first();
    QCOMPARE(report.portName, board->portName());
    QCOMPARE(report.verdict, PortReport::NotOpened);
    QCOMPARE(report.error, QSerialPort::PermissionError);
    QCOMPARE(report.errorText, QStringLiteral("%1 is %2, no lock file").arg(path, kind));
    QCOMPARE(lockTrap(board->portName()), report.errorText);
    const QString record = QStringLiteral("Serial port not accessible:  %1  -  %2")
                               .arg(quoted(board->portName()))
                               .arg(QSerialPort::PermissionError);
    QVERIFY2(fixture.timeline.contains(record), qPrintable(fixture.timeline.join(QLatin1Char('\n'))));

    trap.remove();
    fixture.renew();
    fixture.probe({JwDevice::BoardA});
    QTRY_VERIFY(fixture.handOver(board).comm);
}

void TestInitializerLockFile::trapBesideALockFileLeftBehindKeepsThePortFromOpening_data()
{
    QTest::addColumn<int>("depth");
    QTest::newRow("lock file") << 1;
    QTest::newRow("lock file of the removal") << 2;
}

void TestInitializerLockFile::trapBesideALockFileLeftBehindKeepsThePortFromOpening()
{
    QFETCH(const int, depth);
    ProbeFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    QString path = lockFilePath(board->portName());
    std::vector<std::unique_ptr<Trap>> left;
    for (int i = 0; i < depth; ++i) {
        left.push_back(std::make_unique<Trap>(path, makeLeftLock));
        QVERIFY(left.back()->isThere());
        path += QStringLiteral(".rmlock");
    }
    Trap trap(path, makePipe);
    QVERIFY(trap.isThere());
    fixture.probe({JwDevice::BoardA});
    QCOMPARE(fixture.initializer->portReports().first().errorText,
             QStringLiteral("%1 is a named pipe, no lock file").arg(path));

    trap.remove(); // now QSerialPort removes the lock files
    fixture.renew();
    fixture.probe({JwDevice::BoardA});
    QTRY_VERIFY(fixture.handOver(board).comm);
    for (const auto &lock : left)
        lock->forget();
}

void TestInitializerLockFile::trapThatQSerialPortDoesNotReachKeepsNothingFromOpening()
{
    ProbeFixture fixture;
    const Board *const board = fixture.attach("BoardA");
    const Trap trap(lockFilePath(board->portName()) + QStringLiteral(".rmlock"), makePipe);
    QVERIFY(trap.isThere());
    fixture.probe({JwDevice::BoardA});
    QTRY_VERIFY(fixture.handOver(board).comm);
}

SIMULATED_PORTS_MAIN(TestInitializerLockFile)
#include "tst_initializer_lockfile.moc"
