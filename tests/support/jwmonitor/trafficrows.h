#pragma once

#include <jwmonitor/history/clock.h>
#include <jwmonitor/traffic/trafficrecord.h>
#include <nmea/checksum.h>

#include <QAbstractItemModel>
#include <QStringList>

/// Returns `body` with start flag, checksum and line end.
inline QString framed(const QString &body)
{
    const int crc = Nmea::calculateCrc(body, 0);
    return QStringLiteral("$%1*%2\r\n").arg(body).arg(crc, 2, 16, QLatin1Char('0'));
}

inline JwMonitor::TrafficRecord received(const QString &port, const QString &payload, uint id = 2)
{
    return {JwMonitor::microsecondsSinceEpoch(), port, JwMonitor::Direction::Received, payload, id};
}

inline JwMonitor::TrafficRecord sent(const QString &port, const QString &payload, uint id = 1)
{
    return {JwMonitor::microsecondsSinceEpoch(), port, JwMonitor::Direction::Sent, payload, id};
}

/// Returns the texts of all rows in one column of a table, in the order of the rows.
inline QStringList columnTexts(const QAbstractItemModel *model, int column)
{
    QStringList texts;
    for (int row = 0; row < model->rowCount(); ++row)
        texts << model->index(row, column).data().toString();
    return texts;
}
