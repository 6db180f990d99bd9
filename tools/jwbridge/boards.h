#pragma once

#include "database.h"
#include <common/searchsettings.h>

#include <watch/boardwatch.h>

#include <QByteArray>
#include <QHash>
#include <QJsonObject>
#include <QMap>
#include <QObject>
#include <QTimer>

namespace JwBridge {

/**
 * The boards of this machine, also boards that were lost. The states of all boards are on disk, so that a board that
 * disappears while the bridge does not run is reported as lost.
 *
 * A board is named by its part of the topic, see JwFleet::Topics::escaped().
 */
class Boards : public QObject
{
    Q_OBJECT

public:
    /// A board that is lost for `forgetAfter` seconds is forgotten.
    Boards(Database &database, const JwTools::SearchSettings &search, qint64 forgetAfter, QObject *parent = nullptr);

    /// Reads the boards that an earlier process knew. They count as lost until they are found. Returns false and sets
    /// `error` if that fails.
    bool load(QString *error);
    void start() { m_watch.start(); }

    /// Returns the connection with a board, or null if the board is not there.
    JwDevice::Communicator *communicator(const QByteArray &part) const { return m_connections.value(part); }
    QList<JwDevice::PortReport> portReports() const { return m_watch.portReports(); }

    /// Deletes what is stored of a board whose topic was emptied.
    void onEmptied(const QByteArray &part);

Q_SIGNALS:
    void payloadReceived(const QByteArray &part, qint64 time, const QString &text);
    /// The state of a board is new. If `state` is empty, the board is forgotten.
    void stateChanged(const QByteArray &part, const QJsonObject &state);
    void portsChanged();

private:
    void onThere(const JwDevice::Board &board);
    void onLost(const JwDevice::Board &board);
    void receive(const QByteArray &part, JwDevice::Communicator *communicator);
    void setState(const QByteArray &part, const QJsonObject &state);
    void forget();

    Database &m_database;
    const qint64 m_forgetAfter;
    QMap<QByteArray, QJsonObject> m_states; // by part; empty until the topic of a forgotten board is emptied
    QHash<QByteArray, JwDevice::Communicator *> m_connections; // by part
    QTimer m_forgetTimer;
    JwDevice::BoardWatch m_watch;
};

} // namespace JwBridge
