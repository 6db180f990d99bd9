#include "monitor.h"

#include "board.h"
#include "boardtype.h"
#include "input.h"
#include "output.h"
#include "sentence.h"

#include <QDateTime>
#include <QJsonObject>

#include <unistd.h>

namespace JwProbe {

namespace {

QString clockText()
{
    return QDateTime::currentDateTime().toString(QStringLiteral("HH:mm:ss.zzz"));
}

void printEvent(const QString &event, const Board *board, QJsonObject object)
{
    const QDateTime now = QDateTime::currentDateTime();
    object[QLatin1String("event")] = event;
    object[QLatin1String("time")] = now.toOffsetFromUtc(now.offsetFromUtc()).toString(Qt::ISODateWithMs);
    object[QLatin1String("port")] = board->port().name;
    object[QLatin1String("type")] = typeName(board->type());
    print(jsonText(object, QJsonDocument::Compact));
}

bool isNamed(const Board *board, const QString &name)
{
    return name == board->port().name || name.compare(typeName(board->type()), Qt::CaseInsensitive) == 0;
}

} // namespace

Monitor::Monitor(const QList<Board *> &boards, bool json)
    : m_boards(boards)
    , m_json(json)
{
}

void Monitor::start()
{
    introduce();
    const QList<Board *> boards = m_boards;
    for (Board *board : boards) {
        connect(board, &Board::readyRead, this, [this, board] { receive(board); });
        connect(board, &Board::lost, this, [this, board] { lose(board); });
        receive(board);
        if (!board->isConnected()) // lost while others were searched
            lose(board);
    }
    auto *input = new Input(STDIN_FILENO, this);
    connect(input, &Input::line, this, &Monitor::send);
    connect(input, &Input::tooLong, this,
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
    if (m_json)
        printEvent(QStringLiteral("lost"), board, {});
    else
        print(QStringLiteral("%1  %2  %3\n").arg(clockText(), board->port().name, printable(board->lossText())));
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
    const std::optional<QString> sentence = boards.isEmpty() ? std::nullopt : frameSentence(text, &error);
    if (!sentence) {
        complain(QStringLiteral("not sent: %1").arg(error));
        return;
    }
    for (Board *board : boards) {
        board->send(*sentence);
        showPayload(board, false, *sentence);
    }
}

// A sentence has no ":" in its identifier, so one before the first "," ends an address. Takes the address off.
QList<Board *> Monitor::addressed(QString &line, QString *error) const
{
    const int colon = line.indexOf(QLatin1Char(':'));
    const int comma = line.indexOf(QLatin1Char(','));
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

void Monitor::showPayload(const Board *board, bool received, const QString &payload) const
{
    const QString text = payload.trimmed();
    if (m_json) {
        printEvent(QStringLiteral("payload"), board,
                   {{QStringLiteral("direction"), received ? QStringLiteral("received") : QStringLiteral("sent")},
                    {QStringLiteral("text"), text}});
    } else {
        print(QStringLiteral("%1  %2  %3  %4\n")
                  .arg(clockText(), board->port().name, received ? QStringLiteral("<-") : QStringLiteral("->"),
                       printable(text)));
    }
}

} // namespace JwProbe
