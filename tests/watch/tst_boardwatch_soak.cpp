// Pulls a board's cable and puts it back many times. The BoardWatch runs in a process of its own, so only its memory is
// measured, not the memory of the simulated boards. Prints a table of the resources that this process uses after the
// first 100 rounds, after 1,000, 10,000 and so on, and at the end. A normal test run is short. Set this environment
// variable for a long run:
//
// JWDEVICE_SOAK_PLUGS=<n>  number of rounds
#include "support/common/environmentnumber.h"
#include "support/common/eventloop.h"
#include "support/common/portname.h"
#include "support/common/processusage.h"

#include <logger/logger.h>
#include <simulator/board.h>
#include <simulator/preload.h>
#include <simulator/testbed.h>
#include <watch/boardwatch.h>

#include <QCoreApplication>
#include <QProcess>
#include <QSocketNotifier>
#include <QTest>

#include <cstring>
#include <unistd.h>

using JwDevice::BoardWatch;
using JwSimulator::Board;
using JwSimulator::BoardConfig;

namespace {

constexpr quint32 warmUp = 100;
constexpr qint64 heapChance = 4 * 1024; // allowed growth in bytes

const char watcherOption[] = "--watcher";

/// The program that is measured. Writes "+" when a board is found or back, and "-" when a board is lost. For each byte
/// that it reads, it writes the resources that it uses.
int runWatcher(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    ProcessUsage::watchObjects();
    loggerInstance()->setLevel(Logger::Fatal);
    const auto say = [](const QByteArray &text) {
        if (::write(STDOUT_FILENO, text.constData(), static_cast<size_t>(text.size())) != text.size())
            QCoreApplication::exit(1);
    };
    BoardWatch watch;
    QObject::connect(&watch, &BoardWatch::boardFound, [&] { say("+"); });
    QObject::connect(&watch, &BoardWatch::boardBack, [&] { say("+"); });
    QObject::connect(&watch, &BoardWatch::boardLost, [&] {
        // The watch may try to open a port that is gone. umockdev has a short list of open ports, and a failed open()
        // adds an entry for the descriptor -1 to this list. close(-1) removes the entry.
        ::close(-1);
        say("-");
    });
    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, [&] {
        char byte = 0;
        if (::read(STDIN_FILENO, &byte, 1) != 1) {
            QCoreApplication::quit(); // the test has ended
            return;
        }
        const ProcessUsage usage = ProcessUsage::now();
        say(QByteArray(reinterpret_cast<const char *>(&usage), sizeof usage).toHex() + '\n');
    });
    watch.start();
    return QCoreApplication::exec();
}

/// A loose contact: one board comes and goes, while another stays. A watcher watches both.
class LooseContact
{
public:
    LooseContact()
        : m_board(add())
    {
        add();
        m_watcher.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        QObject::connect(&m_watcher, &QProcess::readyReadStandardOutput, [this] { read(); });
        // malloc keeps freed blocks for each thread, and counts these blocks as used. This setting turns that off.
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("GLIBC_TUNABLES"), QStringLiteral("glibc.malloc.tcache_count=0"));
        m_watcher.setProcessEnvironment(environment);
        m_watcher.start(QCoreApplication::applicationFilePath(), {QLatin1String(watcherOption)});
    }
    ~LooseContact()
    {
        m_watcher.closeWriteChannel();
        m_watcher.waitForFinished();
    }
    LooseContact(const LooseContact &) = delete;
    LooseContact &operator=(const LooseContact &) = delete;

    /// Waits until the watcher has reported this many boards since its start. Returns false if it does not.
    bool hears(quint32 boards)
    {
        return runUntil([&] { return there >= boards; });
    }

    /// Pulls the cable and puts it back `rounds` times. Returns false if the watcher does not notice a pull or a plug.
    bool run(quint32 rounds)
    {
        for (quint32 round = 0; round < rounds; ++round) {
            m_board->pull();
            // pull() calls deleteLater() for an object. No event loop runs here, so only this call deletes the object.
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
            if (!runUntil([this, now = lost + 1] { return lost >= now; }) || !m_board->plug() || !hears(there + 1))
                return false;
        }
        return true;
    }

    /// Returns the resources that the watcher uses when it is at rest: no timer runs.
    ProcessUsage usage()
    {
        ProcessUsage usage = {};
        const bool isAtRest = QTest::qWaitFor(
            [&] {
                m_usage.clear();
                m_watcher.write("?");
                if (!runUntil([this] { return !m_usage.isEmpty(); }))
                    return false;
                std::memcpy(&usage, m_usage.constData(), sizeof usage);
                return usage.timers == 0;
            },
            30000);
        return isAtRest ? usage : ProcessUsage{};
    }

    quint32 there = 0; ///< how often a board was found or back
    quint32 lost = 0; ///< how often a board was lost

private:
    Board *add()
    {
        BoardConfig config;
        config.port = uniquePortName();
        return m_testbed.add(config);
    }

    void read()
    {
        m_output += m_watcher.readAllStandardOutput();
        while (!m_output.isEmpty()) {
            if (m_output.startsWith('+')) {
                ++there;
            } else if (m_output.startsWith('-')) {
                ++lost;
            } else {
                const auto end = m_output.indexOf('\n');
                if (end < 0)
                    return;
                m_usage = QByteArray::fromHex(m_output.left(end));
                m_output.remove(0, end);
            }
            m_output.remove(0, 1);
        }
    }

    JwSimulator::Testbed m_testbed;
    Board *const m_board;
    QProcess m_watcher;
    QByteArray m_output;
    QByteArray m_usage;
};

} // namespace

class TestBoardWatchSoak : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void looseContactLeavesNothingBehind();
};

void TestBoardWatchSoak::looseContactLeavesNothingBehind()
{
    const quint32 rounds = environmentNumber("JWDEVICE_SOAK_PLUGS", 300);
    LooseContact contact;
    QVERIFY(contact.hears(2));
    // The first rounds also create objects that the process keeps for good, so don't measure these rounds.
    QVERIFY(contact.run(warmUp));
    const ProcessUsage start = contact.usage();
    QVERIFY(start.objects > 0);
    qInfo("%s", qPrintable(ProcessUsage::tableHead()));
    qInfo("%s", qPrintable(start.tableRow(QStringLiteral("%1 rounds").arg(warmUp))));

    for (quint32 done = warmUp, next = 1000; done < rounds; next *= 10) {
        const quint32 end = qMin(next, rounds);
        QVERIFY(contact.run(end - done));
        done = end;
        const ProcessUsage usage = contact.usage();
        qInfo("%s", qPrintable(usage.tableRow(QStringLiteral("%1 rounds").arg(done))));
        QCOMPARE(contact.lost, done);
        QCOMPARE(contact.there, 2 + done);
        QCOMPARE(usage.descriptors, start.descriptors);
        QCOMPARE(usage.objects, start.objects);
        QCOMPARE(usage.connections, start.connections);
        const qint64 growth = usage.heapBytes - start.heapBytes;
        QVERIFY2(growth < heapChance, QByteArray::number(growth));
    }
}

int main(int argc, char **argv)
{
    JwSimulator::ensurePreloaded(argv);
    if (argc > 1 && qstrcmp(argv[1], watcherOption) == 0)
        return runWatcher(argc, argv);
    QCoreApplication application(argc, argv);
    TestBoardWatchSoak test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_boardwatch_soak.moc"
