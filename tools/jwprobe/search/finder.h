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

/// Runs one search, which ends at the deadline at the latest. Owns the boards found.
class Finder : public QObject
{
    Q_OBJECT

public:
    /// `options` must outlive the Finder.
    explicit Finder(const Options &options, QObject *parent = nullptr);
    ~Finder() override;

    /// finished() follows from the event loop, never within this call.
    void start();

    int portCount() const { return m_ports.size(); }
    int foundCount() const { return m_boards.size(); }
    double milliseconds() const;

    /// The result; call it after finished().
    SearchResult result() const;
    /// Closes the ports that hold no board; call it after finished(). The destructor closes them too.
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
    QList<PortIdentity> m_ports; // that this search probes
    QList<Diagnosis> m_refused; // candidates that are not probed
    QList<Board *> m_boards;
    QList<JwDevice::Type> m_open; // wanted types that are neither found nor missing yet
};

} // namespace JwProbe
