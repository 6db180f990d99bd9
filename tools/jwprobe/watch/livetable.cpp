#include "livetable.h"

#include <common/boardtype.h>
#include <common/portname.h>
#include <common/printable.h>
#include <jwprobe/output/output.h>
#include <jwprobe/output/table.h>

#include <algorithm>
#include <utility>

namespace JwProbe {

namespace {

constexpr int mostLost = 100;

QString stateText(const WatchEvent &event)
{
    switch (event.kind) {
    case WatchEvent::Found:
        return QStringLiteral("found");
    case WatchEvent::Back:
        return QStringLiteral("back");
    default:
        return lossText(event.board.loss);
    }
}

} // namespace

LiveTable::LiveTable(const QString &title)
    : m_title(title)
{
}

void LiveTable::add(const WatchEvent &event)
{
    const auto hasId = [&event](const Row &row) { return row.board.id == event.board.id; };
    auto row = std::find_if(m_rows.begin(), m_rows.end(), hasId);
    if (row == m_rows.end())
        row = m_rows.insert(m_rows.end(), Row());
    if (event.kind == WatchEvent::Payload) {
        ++row->payloads;
        return;
    }
    row->board = event.board;
    row->state = stateText(event);
    row->since = event.time;
    if (event.kind == WatchEvent::Lost) {
        ++row->losses;
        forgetOldest();
    }
}

// Removes the oldest lost board if there are too many. Without this, a faulty device that has a new serial number each
// time it is plugged in would add rows without end.
void LiveTable::forgetOldest()
{
    const auto isLost = [](const Row &row) { return row.board.loss != JwDevice::Board::NotLost; };
    if (std::count_if(m_rows.begin(), m_rows.end(), isLost) <= mostLost)
        return;
    const auto isOlder = [&isLost](const Row &a, const Row &b) {
        return isLost(a) != isLost(b) ? isLost(a) : a.since < b.since;
    };
    m_rows.erase(std::min_element(m_rows.begin(), m_rows.end(), isOlder));
}

QString LiveTable::redrawn(int width, int height)
{
    return m_text.redrawn(lines(width), width, height);
}

QStringList LiveTable::lines(int width) const
{
    return (m_title + QLatin1String("\n\n") + boardText(width) + refusalText(width))
        .chopped(1)
        .split(QLatin1Char('\n'));
}

QString LiveTable::boardText(int width) const
{
    if (m_rows.isEmpty())
        return QStringLiteral("No board was found yet.\n");
    Table table({QStringLiteral("TYPE"), QStringLiteral("PORT"), QStringLiteral("ID"), QStringLiteral("HARDWARE"),
                 QStringLiteral("STATE"), QStringLiteral("SINCE"), QStringLiteral("LOST"), QStringLiteral("PAYLOADS")});
    for (const Row &row : m_rows) {
        const QString note = row.board.sharesSerialNumber
            ? QStringLiteral("another board has the same serial number: %1").arg(orDash(row.board.serialNumber))
            : QString();
        table.addRow({JwTools::boardName(row.board.type), row.board.portName, orDash(row.board.id),
                      orDash(row.board.hardwareVersion), row.state, sinceText(row.since), QString::number(row.losses),
                      QString::number(row.payloads)},
                     note);
    }
    return table.toText(width);
}

QString LiveTable::refusalText(int width) const
{
    if (m_refusals.isEmpty())
        return QString();
    QStringList names = m_refusals.keys();
    std::sort(names.begin(), names.end(), &JwTools::isPortBefore);
    int nameWidth = 0;
    for (const QString &name : std::as_const(names))
        nameWidth = std::max(nameWidth, static_cast<int>(name.size()));
    QString text = QStringLiteral("\nPorts without a board:\n");
    for (const QString &name : std::as_const(names)) {
        text += QStringLiteral("  %1  %2\n")
                    .arg(name, -nameWidth)
                    .arg(wrapped(m_refusals[name].summary, nameWidth + 4, width));
    }
    return text;
}

} // namespace JwProbe
