#include "monitor.h"

#include "input.h"
#include <common/boardtype.h>
#include <common/printable.h>
#include <common/sentenceframe.h>
#include <jwprobe/output/output.h>
#include <jwprobe/output/outputwatch.h>
#include <jwprobe/search/board.h>

#include <QDateTime>
#include <QJsonObject>

#include <algorithm>

#include <unistd.h>

namespace JwProbe {

namespace {

constexpr qint64 maxUnsent = 65536; // bytes; standard input is paused while more bytes wait to be sent to one board

bool isNamed(const Board *board, const QString &name)
{
    return name == board->port().name || name.compare(JwTools::boardName(board->type()), Qt::CaseInsensitive) == 0;
}

} // namespace

Monitor::Monitor(const QList<Board *> &boards, bool json)
    : m_boards(boards)
    , m_json(json)
    , m_input(new Input(STDIN_FILENO, this))
{
}

void Monitor::start()
{
    introduce();
    connect(new OutputWatch(this), &OutputWatch::lost, this, &Monitor::outputLost);
    const QList<Board *> boards = m_boards;
    for (Board *board : boards) {
        connect(board, &Board::readyRead, this, [this, board] { receive(board); });
        connect(board, &Board::lost, this, [this, board] { lose(board); });
        connect(board->serialPort(), &QSerialPort::bytesWritten, this, &Monitor::paceInput);
        receive(board);
        if (!board->isConnected()) // lost during the search, so no slot was connected to lost() yet
            lose(board);
    }
    connect(m_input, &Input::line, this, &Monitor::send);
    connect(m_input, &Input::tooLong, this,
            [](int bytes) { complain(QStringLiteral("not sent: %1 characters came without a line end").arg(bytes)); });
}

void Monitor::introduce() const
{
    if (::isatty(STDERR_FILENO) == 0)
        return;
    QString hint = QStringLiteral("type a sentence such as PJWVER to send it");
    if (m_boards.size() > 1)
        hint += QStringLiteral(" to all, or \"%1: PJWVER\"").arg(m_boards.first()->port().name);
    hint += QStringLiteral("; Ctrl-C ends");
    complain(hint);
}

void Monitor::receive(Board *board)
{
    QString payload;
    while (board->receive(payload))
        showPayload(board, true, payload);
}

void Monitor::lose(Board *board)
{
    if (!m_boards.removeOne(board))
        return;
    paceInput();
    if (m_json)
        showEvent(QStringLiteral("lost"), board, {});
    else
        show(QStringLiteral("%1  %2  %3\n")
                 .arg(clockText(QDateTime::currentDateTime()), board->port().name,
                      JwTools::printable(board->lossText())));
    if (m_boards.isEmpty())
        QMetaObject::invokeMethod(this, &Monitor::allLost, Qt::QueuedConnection);
}

void Monitor::send(const QString &line)
{
    QString text = line.trimmed();
    if (text.isEmpty())
        return;
    QString error;
    const QList<Board *> boards = addressed(text, &error);
    const JwTools::SentenceFrame frame(text);
    if (!boards.isEmpty())
        error = frame.fault();
    if (!error.isEmpty()) {
        complain(QStringLiteral("not sent: %1").arg(error));
        return;
    }
    for (Board *board : boards) {
        board->send(frame.sentence());
        showPayload(board, false, frame.sentence());
    }
    paceInput();
}

void Monitor::paceInput()
{
    m_input->setPaused(std::any_of(m_boards.begin(), m_boards.end(),
                                   [](const Board *board) { return board->serialPort()->bytesToWrite() > maxUnsent; }));
}

// Returns the boards to which `line` goes, and removes the address, for example "BoardA:", from `line`. Without an
// address, returns all boards. A sentence has no ":" before its first ",", so such a ":" ends an address.
QList<Board *> Monitor::addressed(QString &line, QString *error) const
{
    const auto colon = line.indexOf(QLatin1Char(':'));
    const auto comma = line.indexOf(QLatin1Char(','));
    if (colon < 0 || (comma >= 0 && comma < colon))
        return m_boards;

    const QString name = line.left(colon).trimmed();
    line.remove(0, colon + 1);
    QList<Board *> boards;
    QStringList names;
    for (Board *board : m_boards) {
        names.append(board->port().name);
        if (isNamed(board, name))
            boards.append(board);
    }
    if (boards.isEmpty())
        *error = QStringLiteral("there is no board on \"%1\": there are %2").arg(name, names.join(QLatin1String(", ")));
    return boards;
}

void Monitor::showPayload(const Board *board, bool received, const QString &payload)
{
    const QString text = payload.trimmed();
    if (m_json) {
        showEvent(QStringLiteral("payload"), board,
                  {{QStringLiteral("direction"), directionName(received)}, {QStringLiteral("text"), text}});
    } else {
        show(payloadLine(QDateTime::currentDateTime(), board->port().name, received, text));
    }
}

void Monitor::showEvent(const QString &event, const Board *board, QJsonObject object)
{
    object[QLatin1String("event")] = event;
    object[QLatin1String("time")] = isoText(QDateTime::currentDateTime());
    object[QLatin1String("port")] = board->port().name;
    object[QLatin1String("type")] = JwTools::boardName(board->type());
    show(jsonText(object, QJsonDocument::Compact));
}

void Monitor::show(const QString &text)
{
    if (!print(text))
        Q_EMIT outputLost();
}

} // namespace JwProbe
