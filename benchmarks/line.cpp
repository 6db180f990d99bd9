// Many boards send in pieces at the same time, at the full speed of their serial lines. This program checks that each
// payload arrives complete at its own Communicator. It measures how much of one processor core each of three kinds of
// work needs: only to read the ports; to read them with Communicators; to read them with Communicators and parse each
// payload. Writes JSON.
#include "ptyline.h"
#include "sentences.h"

#include <device/communicator.h>
#include <device/sessioninit.h>
#include <device/wholelines.h>
#include <logger/logger.h>
#include <nmea/checksum.h>
#include <nmea/parserinit.h>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTimer>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <thread>
#include <vector>

using JwDevice::Communicator;

namespace {

constexpr int drainTime = 5000; // ms; if no byte arrives for this time, missing payloads count as lost

enum class Work { Ports, Payloads, Sessions };

struct Load
{
    int ports = 0;
    int baud = 0;
    int piece = 0; ///< bytes that a board sends at once; 0: as many as the line carries in 1 ms
    int milliseconds = 0;
};

double threadSeconds()
{
    timespec time;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// Returns a version reply that only this board sends. The replies of all boards have the same length.
QString payloadOf(int board)
{
    const QString body = QStringLiteral("PJWVER,%1,1,4,0").arg(1000000 + board);
    const int crc = Nmea::calculateCrc(body, 0);
    return QStringLiteral("$%1*%2\r\n").arg(body).arg(crc, 2, 16, QLatin1Char('0'));
}

struct Board
{
    Board(int number, std::unique_ptr<QSerialPort> port)
        : line(std::move(port))
        , payload(payloadOf(number))
    {
    }

    PtyLine line;
    const QString payload;
    Communicator communicator;
};

using BoardList = std::vector<std::unique_ptr<Board>>;

/// Lets all boards send at the speed of their serial lines until stop(). Then each board completes its last payload.
class Talk
{
public:
    Talk(const BoardList &boards, const Load &load)
        : m_thread([this, &boards, load] { run(boards, load); })
    {
    }
    ~Talk() { m_thread.join(); }
    void stop() { m_stop = true; }
    bool isOver() const { return m_over; }
    qint64 written() const { return m_written; }

private:
    void run(const BoardList &boards, const Load &load)
    {
        const int longest = load.piece > 0 ? load.piece : 1 + load.baud / 10000;
        const int repetitions = 2 + longest / static_cast<int>(versionReplySize);
        std::vector<QByteArray> texts;
        for (const auto &board : boards)
            texts.push_back(board->payload.toLatin1().repeated(repetitions));
        std::vector<qint64> sent(boards.size(), 0);
        const auto send = [&](std::size_t i, qint64 size) {
            const auto at = sent[i] % static_cast<qint64>(versionReplySize);
            boards[i]->line.send(texts[i].constData() + at, static_cast<std::size_t>(size));
            sent[i] += size;
            m_written += size;
        };

        const auto start = std::chrono::steady_clock::now();
        const auto count = static_cast<qint64>(boards.size());
        for (qint64 frame = 0; !m_stop; ++frame) {
            std::this_thread::sleep_until(start + std::chrono::milliseconds(frame));
            for (std::size_t i = 0; i < boards.size(); ++i) {
                // Spread the boards over the time of one piece, so that they do not all send at the same moment.
                const qint64 brought = frame * load.baud / 10000 + static_cast<qint64>(i) * load.piece / count;
                const qint64 due = load.piece > 0 ? brought / load.piece * load.piece : brought;
                while (sent[i] < due)
                    send(i, std::min<qint64>(longest, due - sent[i]));
            }
        }
        for (std::size_t i = 0; i < boards.size(); ++i) {
            if (const auto begun = sent[i] % static_cast<qint64>(versionReplySize))
                send(i, static_cast<qint64>(versionReplySize) - begun);
        }
        m_over = true;
    }

    std::atomic<bool> m_stop{false};
    std::atomic<bool> m_over{false};
    std::atomic<qint64> m_written{0};
    std::thread m_thread; // last member, because the thread uses the other members at once
};

QJsonObject hear(const Load &load, Work work)
{
    static const char *const names[] = {"ports", "payloads", "sessions"};
    Nmea::ParserInit parser;
    parser.init();
    JwDevice::SessionInit session;
    QString payload;
    qint64 bytes = 0;
    qint64 payloads = 0;
    qint64 whole = 0;
    BoardList boards;
    for (int i = 0; i < load.ports; ++i) {
        std::unique_ptr<QSerialPort> port = work == Work::Ports ? std::make_unique<QSerialPort>()
                                                                : std::make_unique<JwDevice::WholeLines<QSerialPort>>();
        boards.push_back(std::make_unique<Board>(i, std::move(port)));
        Board *const board = boards.back().get();
        if (work == Work::Ports) {
            QSerialPort *const plain = board->line.port.get();
            QObject::connect(plain, &QSerialPort::readyRead, [&bytes, plain] { bytes += readAndDrop(plain); });
            continue;
        }
        board->communicator.setIODevice(board->line.port.get());
        board->communicator.setParser(&parser);
        QObject::connect(&board->communicator, QOverload<>::of(&Communicator::readyRead), [&, board, work] {
            ++payloads;
            bytes += static_cast<qint64>(versionReplySize);
            if (work == Work::Payloads) {
                board->communicator.readPayload(payload);
                whole += payload == board->payload;
            } else {
                session.clear();
                board->communicator.readPayload(&session);
                whole += session.fields.size() == 4;
            }
        });
    }

    qint64 written = 0;
    const double before = threadSeconds();
    {
        Talk talk(boards, load);
        QEventLoop loop;
        QTimer::singleShot(load.milliseconds, Qt::PreciseTimer, &loop, &QEventLoop::quit);
        loop.exec();
        talk.stop();
        QElapsedTimer silence;
        silence.start();
        while ((!talk.isOver() || bytes < talk.written()) && silence.elapsed() < drainTime) {
            const qint64 heard = bytes;
            QCoreApplication::processEvents();
            if (bytes != heard)
                silence.start();
        }
        written = talk.written();
    }
    const double used = threadSeconds() - before;
    const auto sent = written / static_cast<qint64>(versionReplySize);
    return {{QStringLiteral("work"), QLatin1String(names[static_cast<int>(work)])},
            {QStringLiteral("ports"), load.ports},
            {QStringLiteral("baud"), load.baud},
            {QStringLiteral("ms"), load.milliseconds},
            {QStringLiteral("sent"), sent},
            {QStringLiteral("payloads"), payloads},
            {QStringLiteral("whole"), whole},
            {QStringLiteral("share"), used * 1000 / load.milliseconds},
            {QStringLiteral("nsPerPayload"), used * 1e9 / static_cast<double>(sent)}};
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QCommandLineParser options;
    options.addHelpOption();
    options.addOptions({
        {QStringLiteral("ports"), QStringLiteral("Numbers of boards, with commas between them."),
         QStringLiteral("numbers"), QStringLiteral("100")},
        {QStringLiteral("baud"), QStringLiteral("Speeds of the lines, with commas between them."),
         QStringLiteral("numbers"), QStringLiteral("115200")},
        {QStringLiteral("piece"), QStringLiteral("Bytes that a board sends at a time; 0: the bytes of 1 ms."),
         QStringLiteral("number"), QStringLiteral("0")},
        {QStringLiteral("ms"), QStringLiteral("Time of each measurement."), QStringLiteral("number"),
         QStringLiteral("1000")},
        {QStringLiteral("repetitions"), QStringLiteral("Number of measurements of each kind."),
         QStringLiteral("number"), QStringLiteral("5")},
    });
    options.process(application);
    loggerInstance()->clearSinks();
    loggerInstance()->setLevel(Logger::Fatal);

    const auto number = [&options](const char *name) { return options.value(QLatin1String(name)).toInt(); };
    const auto numbers = [&options](const char *name) {
        return options.value(QLatin1String(name)).split(QLatin1Char(','));
    };
    QJsonArray results;
    for (int i = 0; i < number("repetitions"); ++i) {
        for (const QString &baud : numbers("baud")) {
            for (const QString &ports : numbers("ports")) {
                const Load load{ports.toInt(), baud.toInt(), number("piece"), number("ms")};
                std::array<Work, 3> order{Work::Ports, Work::Payloads, Work::Sessions};
                // Each repetition begins with another kind of work, so that no kind is always the first.
                std::rotate(order.begin(), order.begin() + i % 3, order.end());
                for (const Work work : order) {
                    QJsonObject result = hear(load, work);
                    result[QStringLiteral("repetition")] = i;
                    results << result;
                }
            }
        }
    }
    std::puts(QJsonDocument(results).toJson(QJsonDocument::Compact).constData());
    return 0;
}
