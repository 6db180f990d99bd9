#pragma once

#include "fleetevent.h"
#include <jwprobe/output/livetext.h>

#include <fleet/remoteboard.h>

#include <QMap>
#include <QPair>
#include <QString>
#include <QStringList>

namespace JwProbe {

/// The table of machines and boards, drawn on a terminal again and again at the same place.
class FleetTable
{
public:
    explicit FleetTable(const QString &broker);

    void add(const FleetEvent &event);
    /// Sets the ports of a machine on which no board was found.
    void setRefusals(const QString &host, const QList<JwFleet::RemotePort> &ports);
    /// Sets why there is no connection to the broker. Empty if there is one.
    void setFailure(const QString &reason) { m_failure = reason; }

    /// See LiveText::redrawn().
    QString redrawn(int width, int height);

private:
    struct Row
    {
        JwFleet::RemoteBoard board;
        QDateTime since;
        int losses = 0;
    };

    QStringList lines(int width, int height) const;
    QString title() const;
    QString boardText(int width, int height) const;
    QString refusalText(int width) const;

    const QString m_broker;
    QString m_failure;
    QMap<QString, QString> m_machines; // state by host
    QMap<QPair<QString, QString>, Row> m_rows; // by host and id
    QMap<QString, QList<JwFleet::RemotePort>> m_refusals; // by host
    LiveText m_text;
};

} // namespace JwProbe
