#include "support/programs/jwsimrun.h"
#include "support/programs/terminalrun.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>

namespace {

const QString monitorOption = QStringLiteral("--monitor");
const QString watchOption = QStringLiteral("--watch");
const QString boardA = QStringLiteral("--type=BoardA");

QStringList shell(const QString &script, const QStringList &arguments)
{
    return QStringList{QStringLiteral("sh"), QStringLiteral("-c"), script, jwprobeProgram()} + arguments;
}

/// A named pipe. This object opens one end of the pipe, a program opens the other end.
class NamedPipe
{
public:
    NamedPipe() { ::mkfifo(QFile::encodeName(path()).constData(), 0600); }
    ~NamedPipe() { close(); }
    NamedPipe(const NamedPipe &) = delete;
    NamedPipe &operator=(const NamedPipe &) = delete;

    QString path() const { return m_folder.filePath(QStringLiteral("pipe")); }
    /// Opens the read end, and makes the pipe small so that a program soon fills it.
    bool openToRead() { return open(O_RDONLY) && ::fcntl(m_descriptor, F_SETPIPE_SZ, 4096) >= 0; }
    /// Opens the write end. Fails while no program reads from the pipe.
    bool openToWrite() { return open(O_WRONLY); }
    void close()
    {
        if (m_descriptor >= 0)
            ::close(m_descriptor);
        m_descriptor = -1;
    }
    /// Returns the number of bytes in the pipe that nobody has read yet.
    int waiting() const
    {
        int count = 0;
        return ::ioctl(m_descriptor, FIONREAD, &count) == 0 ? count : -1;
    }
    /// Returns whether a program that writes to the pipe would block.
    bool isFull() const
    {
        const int writer = ::open(QFile::encodeName(path()).constData(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        pollfd state = {writer, POLLOUT, 0};
        const int count = ::poll(&state, 1, 0);
        ::close(writer);
        return count == 0;
    }
    /// Writes without blocking. Returns the number of bytes written, which may be 0.
    qint64 write(const QByteArray &bytes) const
    {
        return std::max<ssize_t>(::write(m_descriptor, bytes.constData(), static_cast<std::size_t>(bytes.size())), 0);
    }

private:
    bool open(int mode)
    {
        m_descriptor = ::open(QFile::encodeName(path()).constData(), mode | O_NONBLOCK | O_CLOEXEC);
        return m_descriptor >= 0;
    }

    const QTemporaryDir m_folder;
    int m_descriptor = -1;
};

/// Two connected stream sockets. The programs that this process starts inherit one of them.
class SocketPair
{
public:
    SocketPair()
    {
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, m_ends) != 0
            || ::fcntl(m_ends[1], F_SETFD, 0) != 0 || ::fcntl(m_ends[1], F_SETFL, 0) != 0)
            qFatal("no sockets");
    }
    ~SocketPair()
    {
        close();
        ::close(m_ends[1]);
    }
    SocketPair(const SocketPair &) = delete;
    SocketPair &operator=(const SocketPair &) = delete;

    int programEnd() const { return m_ends[1]; }
    /// Closes the end of this process.
    void close()
    {
        if (m_ends[0] >= 0)
            ::close(m_ends[0]);
        m_ends[0] = -1;
    }
    /// Reads without blocking. Returns everything that was read so far.
    QByteArray text()
    {
        char bytes[4096];
        ssize_t count = 0;
        while ((count = ::read(m_ends[0], bytes, sizeof bytes)) > 0)
            m_text.append(bytes, static_cast<int>(count));
        return m_text;
    }

private:
    int m_ends[2] = {-1, -1};
    QByteArray m_text;
};

qint64 numberBehind(const QByteArray &word, const QByteArray &text)
{
    const auto begin = text.indexOf(word);
    if (begin < 0)
        return 0;
    const QByteArray rest = text.mid(begin + word.size());
    return rest.left(rest.indexOf('\n')).trimmed().toLongLong();
}

/// Returns the state of the process: 'R' (running), 'S' (sleeping), 'T' (stopped) and so on; '\0' if the process ended.
char processState(qint64 pid)
{
    QFile file(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!file.open(QIODevice::ReadOnly))
        return '\0';
    const QByteArray text = file.readAll();
    return text.at(text.lastIndexOf(')') + 2);
}

} // namespace

/// Tests jwprobe with standard streams that are full, closed, or used by another job of the shell.
class TestJwprobeStreams : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { m_port = uniquePortName(); }

    void signalEndsAWriteToAFullPipe_data();
    void signalEndsAWriteToAFullPipe();
    void inputWaitsForASlowBoard();
    void nothingOfALargeInputIsLost();
    void backgroundJobLeavesTheTerminalAlone();
    void readerThatIsGoneEndsTheProgram_data();
    void readerThatIsGoneEndsTheProgram();
    void readerOfASocketThatIsGoneEndsTheProgram_data();
    void readerOfASocketThatIsGoneEndsTheProgram();
    void fullFileEndsTheMonitor();

private:
    QString m_port;
};

void TestJwprobeStreams::signalEndsAWriteToAFullPipe_data()
{
    QTest::addColumn<int>("number");
    QTest::addColumn<QString>("board");
    QTest::addColumn<QString>("command");
    QTest::addColumn<int>("status");
    const QString monitor = QStringLiteral("\"$0\" \"$@\" --monitor --type=BoardA > \"$PIPE\"");
    const QString watch = QStringLiteral("\"$0\" \"$@\" --watch --json --type=BoardA > \"$PIPE\"");
    const QString search = QStringLiteral("\"$0\" \"$@\" --log=trace --retries=10000 --deadline=3600000 2> \"$PIPE\"");
    const QString talking = QStringLiteral("BoardA,replies=1000,port=%1");
    const QString other = QStringLiteral("other,interval=1,port=%1");
    QTest::newRow("monitor, SIGINT") << SIGINT << talking << monitor << 0;
    QTest::newRow("monitor, SIGTERM") << SIGTERM << talking << monitor << 0;
    QTest::newRow("watch, SIGTERM") << SIGTERM << talking << watch << 0;
    QTest::newRow("log of a search, SIGINT") << SIGINT << other << search << 128 + SIGINT;
    QTest::newRow("log of a search, SIGTERM") << SIGTERM << other << search << 128 + SIGTERM;
}

void TestJwprobeStreams::signalEndsAWriteToAFullPipe()
{
    QFETCH(int, number);
    QFETCH(QString, board);
    QFETCH(QString, command);
    NamedPipe pipe;
    QVERIFY(pipe.openToRead());
    ProgramRun run(
        jwsimProgram(),
        simulated({board.arg(m_port)}, shell(command + QStringLiteral(" & echo pid $!; wait $!; echo status $?"), {})));
    run.setEnvironment(QStringLiteral("PIPE"), pipe.path());
    run.start();
    WAIT_FOR(pipe.isFull() && run.output().contains("\n")); // the shell printed the line with the process id
    const qint64 pid = numberBehind("pid ", run.output());
    QVERIFY(pid > 0);
    QCOMPARE(::kill(static_cast<pid_t>(pid), number), 0);
    WAIT_FOR(run.output().contains("status"));
    QTEST(static_cast<int>(numberBehind("status ", run.output())), "status");
}

void TestJwprobeStreams::inputWaitsForASlowBoard()
{
    NamedPipe pipe;
    ProgramRun run(jwsimProgram(),
                   simulated({boardOn("BoardA", m_port, "speed=9600")},
                             shell(QStringLiteral("exec \"$0\" \"$@\" < \"$PIPE\""), {monitorOption, boardA})));
    run.setEnvironment(QStringLiteral("PIPE"), pipe.path());
    run.start();
    WAIT_FOR(pipe.openToWrite());
    const QByteArray lines = QByteArray("PJWVER\n").repeated(500);
    qint64 taken = 0;
    const auto feed = [&] {
        taken += pipe.write(lines);
        return run.output().count("<-") >= 100;
    };
    WAIT_FOR(feed());
    // jwprobe stops reading when its queue of bytes for the board is full. The limit is the sum of what can then wait:
    // 65536 bytes in the pipe, 65536 bytes in the queue (which gets 12 bytes for each 7 bytes typed), and 32768 bytes
    // in small buffers.
    QVERIFY2(taken < 65536 + 65536 * 7 / 12 + 32768, QByteArray::number(taken).constData());
}

void TestJwprobeStreams::nothingOfALargeInputIsLost()
{
    const int count = 12000;
    QByteArray lines;
    for (int i = 0; i < count; ++i)
        lines += "PXLINE," + QByteArray::number(i) + '\n';
    const QTemporaryDir folder;
    const QString report = folder.filePath(QStringLiteral("report"));
    ProgramRun run(jwsimProgram(),
                   QStringList{QStringLiteral("--report"), report}
                       + jwprobe({boardOn("BoardA", m_port, "speed=921600")}, {monitorOption, boardA}));
    run.start();
    run.write(lines + "PJWVER\n");
    WAIT_FOR(run.output().contains("<-"));
    run.sendSignal(SIGTERM);
    QVERIFY(run.finish());
    QCOMPARE(run.status(), 0);

    QFile file(report);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QJsonArray boards = QJsonDocument::fromJson(file.readAll()).object()[QLatin1String("boards")].toArray();
    const QJsonArray received = boards[0].toObject()[QLatin1String("received")].toArray();
    QCOMPARE(received.size(), count + 2); // the typed lines, and 2 more: the query of the search, and the last line
    for (int i = 0; i < count; ++i) {
        const QString text = received[i + 1].toObject()[QLatin1String("text")].toString();
        QVERIFY2(text.startsWith(QStringLiteral("$PXLINE,%1*").arg(i)), qPrintable(text));
    }
}

void TestJwprobeStreams::backgroundJobLeavesTheTerminalAlone()
{
    NamedPipe pipe;
    qputenv("PIPE", QFile::encodeName(pipe.path()));
    TerminalRun run(jwsimProgram(),
                    simulated({boardOn("BoardA", m_port, "replies=100,chunk=26,gap=50")},
                              shell(QStringLiteral("set -m; \"$0\" \"$@\" & echo job $!; read go < \"$PIPE\"; fg"),
                                    {monitorOption, boardA})));
    qunsetenv("PIPE");
    WAIT_FOR(run.screen().contains("<-"));
    const qint64 pid = numberBehind("job ", run.screen());
    QVERIFY(pid > 0);
    QVERIFY(run.type("PTJWWR,INF\n"));
    // If the background job read from the terminal, the system would stop the job (state 'T'). The job must go on and
    // print payloads.
    const auto before = run.screen().count("<-");
    WAIT_FOR(run.screen().count("<-") >= before + 10 || processState(pid) == 'T');
    QVERIFY(processState(pid) != 'T');
    QVERIFY(!run.screen().contains("->"));

    QVERIFY(pipe.openToWrite());
    QVERIFY(pipe.write("\n") == 1);
    WAIT_FOR(run.screen().contains("$PTJWWR,INF*71"));
    QVERIFY(run.type("\x03"));
    WAIT_FOR(run.isOver());
    QCOMPARE(run.status(), 0);
}

void TestJwprobeStreams::readerThatIsGoneEndsTheProgram_data()
{
    QTest::addColumn<QString>("action");
    QTest::addColumn<QString>("keys");
    QTest::addColumn<QString>("disposition");
    QTest::addColumn<int>("status");
    const QString talking = QStringLiteral(",replies=1000,chunk=26,gap=20");
    const QString ignored = QStringLiteral("--ignore-signal=PIPE");
    const QString usual = QStringLiteral("--default-signal=PIPE");
    for (const QString &action : {monitorOption, watchOption}) {
        const auto row = [&action](const char *name, const QString &keys, const QString &disposition, int status) {
            QTest::addRow("%s, %s", qPrintable(action), name) << action << keys << disposition << status;
        };
        row("board that talks, SIGPIPE ignored", talking, ignored, 1);
        row("silent board, SIGPIPE ignored", QString(), ignored, 1);
        row("board that talks", talking, usual, 128 + SIGPIPE);
        row("silent board", QString(), usual, 128 + SIGPIPE);
    }
}

void TestJwprobeStreams::readerThatIsGoneEndsTheProgram()
{
    QFETCH(QString, action);
    QFETCH(QString, keys);
    QFETCH(QString, disposition);
    QFETCH(int, status);
    NamedPipe pipe;
    QVERIFY(pipe.openToRead());
    ProgramRun run(jwsimProgram(),
                   simulated({boardOn("BoardA", m_port) + keys},
                             shell(QStringLiteral("env %1 \"$0\" \"$@\" > \"$PIPE\"; echo status $?").arg(disposition),
                                   {action, boardA})));
    run.setEnvironment(QStringLiteral("PIPE"), pipe.path());
    run.start();
    WAIT_FOR(pipe.waiting() > 0);
    pipe.close();
    QVERIFY(run.finish());
    QCOMPARE(static_cast<int>(numberBehind("status ", run.output())), status);
    QCOMPARE(run.error().count("jwprobe: can't write to standard output: "), status == 1 ? 1 : 0);
}

void TestJwprobeStreams::readerOfASocketThatIsGoneEndsTheProgram_data()
{
    QTest::addColumn<QString>("action");
    QTest::addColumn<bool>("isOneWay");
    QTest::addColumn<QString>("disposition");
    QTest::addColumn<int>("status");
    const QString ignored = QStringLiteral("--ignore-signal=PIPE");
    const QString usual = QStringLiteral("--default-signal=PIPE");
    QTest::newRow("monitor, SIGPIPE ignored") << monitorOption << false << ignored << 1;
    QTest::newRow("monitor") << monitorOption << false << usual << 128 + SIGPIPE;
    QTest::newRow("monitor, nothing can be read, as for systemd's journal") << monitorOption << true << ignored << 1;
    QTest::newRow("watch, SIGPIPE ignored") << watchOption << false << ignored << 1;
    QTest::newRow("watch") << watchOption << false << usual << 128 + SIGPIPE;
}

void TestJwprobeStreams::readerOfASocketThatIsGoneEndsTheProgram()
{
    QFETCH(QString, action);
    QFETCH(bool, isOneWay);
    QFETCH(QString, disposition);
    QFETCH(int, status);
    SocketPair sockets;
    if (isOneWay)
        QCOMPARE(::shutdown(sockets.programEnd(), SHUT_RD), 0);
    // bash, because sh can't use a descriptor of two digits.
    const QString script = QStringLiteral("env %1 \"$0\" \"$@\" >&%2; echo status $?");
    ProgramRun run(
        jwsimProgram(),
        simulated({boardOn("BoardA", m_port)},
                  {QStringLiteral("bash"), QStringLiteral("-c"),
                   script.arg(disposition, QString::number(sockets.programEnd())), jwprobeProgram(), action, boardA}));
    run.start();
    WAIT_FOR(!sockets.text().isEmpty());
    if (action == monitorOption) { // the monitor goes on while somebody reads
        run.write("PJWVER\n");
        WAIT_FOR(sockets.text().contains("<-"));
    }
    sockets.close();
    QVERIFY(run.finish());
    QCOMPARE(static_cast<int>(numberBehind("status ", run.output())), status);
    QCOMPARE(run.error().count("jwprobe: can't write to standard output: "), status == 1 ? 1 : 0);
}

// Limits the size of files, so that a write fails as on a full disk.
void TestJwprobeStreams::fullFileEndsTheMonitor()
{
    const QTemporaryDir folder;
    ProgramRun run(jwsimProgram(),
                   simulated({boardOn("BoardA", m_port, "replies=1000,chunk=26,gap=5")},
                             shell(QStringLiteral("trap '' XFSZ; ulimit -f 1; \"$0\" \"$@\" > \"$FOLDER/output\"; "
                                                  "echo status $?"),
                                   {monitorOption, boardA})));
    run.setEnvironment(QStringLiteral("FOLDER"), folder.path());
    run.start();
    QVERIFY(run.finish());
    QCOMPARE(run.output(), QByteArray("status 1\n"));
    QCOMPARE(run.error(), QByteArray("jwprobe: can't write to standard output: File too large\n"));
}

QTEST_GUILESS_MAIN(TestJwprobeStreams)
#include "tst_jwprobe_streams.moc"
