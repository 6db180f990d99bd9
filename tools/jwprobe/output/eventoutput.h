#pragma once

#include "output.h"

#include <QElapsedTimer>
#include <QTimer>

#include <functional>
#include <memory>
#include <utility>

#include <unistd.h>

namespace JwProbe {

/// Shows events on standard output: each as one line of text or JSON, or all together in a table, which is drawn again
/// when it changes. Uses Event::milliseconds, eventLine(Event), eventJson(Event), Table::add(Event) and
/// Table::redrawn(width, height).
template <class Table, class Event>
class EventOutput
{
public:
    /// Without a table, events are printed one by one. `onLost` is called when nobody reads standard output any more.
    EventOutput(std::unique_ptr<Table> table, bool json, std::function<void()> onLost)
        : m_table(std::move(table))
        , m_json(json)
        , m_onLost(std::move(onLost))
    {
        constexpr int drawInterval = 100; // ms; boards that talk all the time would keep the terminal busy
        m_drawTimer.setSingleShot(true);
        m_drawTimer.setInterval(drawInterval);
        QObject::connect(&m_drawTimer, &QTimer::timeout, &m_drawTimer, [this] { checkOutput(draw()); });
    }

    /// Draws the changes of the table that were not yet drawn.
    ~EventOutput()
    {
        if (m_drawTimer.isActive())
            draw();
    }

    /// Draws the empty table. The times of events count from now on.
    void start()
    {
        m_clock.start();
        drawSoon();
    }

    /// Null if events are printed one by one. After a change of the table call drawSoon().
    Table *table() const { return m_table.get(); }

    /// Draws the table, if there is one, at most a tenth of a second later.
    void drawSoon()
    {
        if (m_table && !m_drawTimer.isActive())
            m_drawTimer.start();
    }

    void show(Event event)
    {
        event.milliseconds = static_cast<double>(m_clock.nsecsElapsed()) / 1e6;
        if (m_table) {
            m_table->add(event);
            drawSoon();
        } else {
            checkOutput(print(m_json ? jsonText(eventJson(event), QJsonDocument::Compact) : eventLine(event)));
        }
    }

private:
    Q_DISABLE_COPY(EventOutput)

    bool draw() { return print(m_table->redrawn(terminalWidth(STDOUT_FILENO), terminalHeight(STDOUT_FILENO))); }

    void checkOutput(bool wasPrinted)
    {
        if (!wasPrinted)
            m_onLost();
    }

    const std::unique_ptr<Table> m_table;
    const bool m_json;
    const std::function<void()> m_onLost;
    QTimer m_drawTimer;
    QElapsedTimer m_clock;
};

} // namespace JwProbe
