// Boards that talk at the full speed of their lines: what share of one core it takes to hear them, with ports that are
// read and nothing more, with a Communicator on each, and with each payload parsed. Writes JSON.
#include "sentences.h"

#include <device/communicator.h>
#include <device/sessioninit.h>
#include <logger/logger.h>
#include <nmea/parserinit.h>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QEventLoop>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSerialPort>
#include <QTimer>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <pty.h>
#include <unistd.h>

using JwDevice::Communicator;

namespace {

constexpr int bytesPerSecond = 115200 / 10;
// What a board sends at a time: whole sentences, because what two boards send in pieces at the same time gets mixed up
// in the one receive buffer.
constexpr std::size_t packet = 2 * versionReplySize;

enum class Work { Ports, Payloads, Sessions };

double threadSeconds()
{
    timespec time;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// A port on a pty, with the end that a board would have.
struct Line
{
    Line()
    {
        char name[64];
        if (openpty(&board, &held, name, nullptr, nullptr) != 0)
            qFatal("openpty: %s; raise the limit of open files", qUtf8Printable(qt_error_string()));
        port.setPortName(QString::fromLatin1(name));
        if (!port.open(QIODevice::ReadWrite))
            qFatal("%s: %s", name, qUtf8Printable(port.errorString()));
        port.setBaudRate(QSerialPort::Baud115200);
    }
    ~Line()
    {
        port.close();
        ::close(board);
        ::close(held);
    }
    Line(const Line &) = delete;
    Line &operator=(const Line &) = delete;

    int board = -1;
    int held = -1;
    QSerialPort port;
    Communicator communicator;
};

/// Writes to all lines at their speed, packet by packet, in frames of 1 ms over which the lines are spread.
class Boards
{
public:
    explicit Boards(const std::vector<std::unique_ptr<Line>> &lines)
        : m_thread([this, &lines] { talk(lines); })
    {
    }
    ~Boards()
    {
        m_stop = true;
        m_thread.join();
    }
    qint64 written() const { return m_written; }

private:
    void talk(const std::vector<std::unique_ptr<Line>> &lines)
    {
        const std::string text = std::string(versionReply) + versionReply;
        const auto start = std::chrono::steady_clock::now();
        for (qint64 frame = 0, sent = 0; !m_stop; ++frame) {
            std::this_thread::sleep_until(start + std::chrono::milliseconds(frame));
            const qint64 due =
                frame * bytesPerSecond * static_cast<qint64>(lines.size()) / 1000 / static_cast<qint64>(packet);
            for (; sent < due; ++sent) {
                const Line &line = *lines[static_cast<std::size_t>(sent) % lines.size()];
                if (::write(line.board, text.data(), packet) != static_cast<ssize_t>(packet))
                    qFatal("a line does not take what is written to it");
                m_written += static_cast<qint64>(packet);
            }
        }
    }

    std::atomic<bool> m_stop{false};
    std::atomic<qint64> m_written{0};
    std::thread m_thread; // last, for it uses the others
};

QJsonObject hear(int ports, int milliseconds, Work work)
{
    static const char *const names[] = {"ports", "payloads", "sessions"};
    Nmea::ParserInit parser;
    parser.init();
    JwDevice::SessionInit session;
    QString payload;
    qint64 bytes = 0;
    qint64 payloads = 0;
    qint64 sessions = 0;
    std::vector<std::unique_ptr<Line>> lines;
    for (int i = 0; i < ports; ++i) {
        lines.push_back(std::make_unique<Line>());
        QSerialPort *const port = &lines.back()->port;
        Communicator *const communicator = &lines.back()->communicator;
        if (work == Work::Ports) {
            QObject::connect(port, &QSerialPort::readyRead, [&bytes, port] {
                char data[packet * 16];
                while (port->bytesAvailable() > 0)
                    bytes += port->read(data, sizeof data);
            });
            continue;
        }
        communicator->setIODevice(port);
        communicator->setParser(&parser);
        QObject::connect(communicator, QOverload<>::of(&Communicator::readyRead), [&, communicator, work] {
            ++payloads;
            if (work == Work::Payloads) {
                communicator->readPayload(payload);
            } else {
                session.clear();
                communicator->readPayload(&session);
                sessions += session.fields.size() == 4;
            }
        });
    }

    qint64 written = 0;
    const double before = threadSeconds();
    {
        const Boards boards(lines);
        QEventLoop loop;
        QTimer::singleShot(milliseconds, Qt::PreciseTimer, &loop, &QEventLoop::quit);
        loop.exec();
        written = boards.written();
    }
    const double used = threadSeconds() - before;
    return {{QStringLiteral("work"), QLatin1String(names[static_cast<int>(work)])},
            {QStringLiteral("ports"), ports},
            {QStringLiteral("ms"), milliseconds},
            {QStringLiteral("written"), written},
            {QStringLiteral("payloads"), payloads},
            {QStringLiteral("sessions"), sessions},
            {QStringLiteral("share"), used * 1000 / milliseconds},
            {QStringLiteral("nsPerByte"), used * 1e9 / static_cast<double>(written)}};
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QCommandLineParser options;
    options.addHelpOption();
    options.addOptions({
        {QStringLiteral("ports"), QStringLiteral("How many boards."), QStringLiteral("number"), QStringLiteral("100")},
        {QStringLiteral("ms"), QStringLiteral("How long each measurement lasts."), QStringLiteral("number"),
         QStringLiteral("1000")},
        {QStringLiteral("repetitions"), QStringLiteral("How many of each."), QStringLiteral("number"),
         QStringLiteral("5")},
    });
    options.process(application);
    loggerInstance()->clearSinks();
    loggerInstance()->setLevel(Logger::Fatal);

    const auto number = [&options](const char *name) { return options.value(QLatin1String(name)).toInt(); };
    QJsonArray results;
    for (int i = 0; i < number("repetitions"); ++i) {
        std::array<Work, 3> order{Work::Ports, Work::Payloads, Work::Sessions};
        std::rotate(order.begin(), order.begin() + i % 3, order.end()); // what comes first has no advantage of it
        for (const Work work : order) {
            QJsonObject result = hear(number("ports"), number("ms"), work);
            result[QStringLiteral("repetition")] = i;
            results << result;
        }
    }
    std::puts(QJsonDocument(results).toJson(QJsonDocument::Compact).constData());
    return 0;
}
