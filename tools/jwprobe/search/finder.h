#pragma once

#include "portidentity.h"
#include "searchresult.h"

#include <device/type.h>

#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QTimer>

#include <memory>

namespace JwDevice {
class Communicator;
class Initializer;
} // namespace JwDevice

namespace JwProbe {

class Board;
struct Options;

/// Searches once, to the deadline at most. It owns the boards that it finds.
class Finder : public QObject
{
    Q_OBJECT

public:
    /// `options` must outlive it.
    explicit Finder(const Options &options, QObject *parent = nullptr);
    ~Finder() override;

    /// The outcome comes from the event loop, never from within this call.
    void start();

    int portCount() const { return m_ports.size(); }
    int foundCount() const { return m_boards.size(); }
    double milliseconds() const;

    /// After finished(): what came of it.
    SearchResult result() const;
    /// After finished(): closes the ports that hold no board. Not needed before the Finder is deleted.
    void closeOthers();

Q_SIGNALS:
    void finished();

private:
    void onBoardFound(JwDevice::Type type, JwDevice::Communicator *comm);
    void onBoardMissing(JwDevice::Type type);
    void finishWhenDone();
    void finish();
    PortIdentity port(const QString &name) const;

    const Options &m_options;
    std::unique_ptr<JwDevice::Initializer> m_initializer;
    QTimer m_deadline;
    QElapsedTimer m_clock;
    double m_duration = 0;
    bool m_isFinished = false;
    bool m_deadlineReached = false;
    QList<PortIdentity> m_ports; // that are probed
    QList<Diagnosis> m_refused; // the other candidates
    QList<Board *> m_boards;
    QList<JwDevice::Type> m_open; // wanted, and not known yet whether they are there
};

} // namespace JwProbe
