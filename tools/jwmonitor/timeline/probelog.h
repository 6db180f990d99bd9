#pragma once

#include <QObject>

#include <memory>

namespace JwMonitor {

/// A record of the library's log, as far as it tells of a search.
struct ProbeRecord
{
    qint64 timeUs; ///< since the epoch
    bool isPayload; ///< sent or received; else it tells of a step
    QString text;
};

/// Listens to the log for what it tells of a search, while one runs.
class ProbeLog : public QObject
{
    Q_OBJECT

public:
    explicit ProbeLog(QObject *parent = nullptr);
    ~ProbeLog() override;

    void start();
    void stop();

    /// Whether the log is so fine that it tells of every step.
    static bool isFineEnough();

Q_SIGNALS:
    /// From the event loop, soon after the record was written.
    void recorded(const JwMonitor::ProbeRecord &record);

private:
    class Sink;

    const std::shared_ptr<Sink> m_sink;
};

} // namespace JwMonitor
