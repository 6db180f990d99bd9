#pragma once

#include "refusals.h"
#include "watchevent.h"
#include <jwprobe/output/livetext.h>

#include <QMap>
#include <QString>
#include <QStringList>
#include <QVector>

namespace JwProbe {

/// The table of a watch, drawn on a terminal again and again at the same place.
class LiveTable
{
public:
    /// `title` is the first line.
    explicit LiveTable(const QString &title);

    /// Takes an event of a board. The table keeps at most 100 lost boards: those that were lost last.
    void add(const WatchEvent &event);
    void setRefusals(const QMap<QString, Refusal> &refusals) { m_refusals = refusals; }

    /// Returns the text that draws the table over the one on the terminal. Empty if the table has not changed. The
    /// terminal has `width` columns and `height` lines. Lines that do not fit are left out.
    QString redrawn(int width, int height);

private:
    struct Row
    {
        JwDevice::Board board;
        QString state;
        QDateTime since;
        int losses = 0;
        qint64 payloads = 0;
    };

    void forgetOldest();
    QStringList lines(int width) const;
    QString boardText(int width) const;
    QString refusalText(int width) const;

    const QString m_title;
    QVector<Row> m_rows; // in the order in which the boards were first found
    QMap<QString, Refusal> m_refusals; // by port name
    LiveText m_text;
};

} // namespace JwProbe
