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

/// Runs one search. The search ends at the deadline at the latest. Owns the boards that it finds.
class Finder : public QObject
{
    Q_OBJECT

public:
    /// `options` must outlive the Finder.
    explicit Finder(const Options &options, QObject *parent = nullptr);
    ~Finder() override;

    /// Starts the search. finished() is emitted later from the event loop, never inside this call.
    void start();

    auto portCount() const { return m_ports.size(); }
    auto foundCount() const { return m_boards.size(); }
    double milliseconds() const;

    /// Returns the result. Call this only after finished() and before closeOthers().
    SearchResult result() const;
    /// Closes the ports on which no board was found, which otherwise stay open until the destructor closes them. Call
    /// this only after finished().
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
    QList<PortIdentity> m_ports; // the ports that this search probes
    QList<Diagnosis> m_refused; // candidates that the search does not open, with the reasons
    QList<Board *> m_boards;
    QList<JwDevice::Type> m_open; // wanted types that are not yet found or reported as missing
};

} // namespace JwProbe
