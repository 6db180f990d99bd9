#pragma once

#include <QHash>
#include <QString>
#include <QStringList>

#include <spdlog/details/null_mutex.h>
#include <spdlog/sinks/base_sink.h>

namespace JwProbe {

/// What a port did in a search.
struct PortRecord
{
    bool opened = false;
    int openError = 0; ///< QSerialPort::SerialPortError when it did not open
    int timeouts = 0; ///< rounds that passed without an answer
    QStringList payloads; ///< the newest that arrived, without line ends
};

/**
 * A log sink that keeps what each port did. The library's signals tell of the boards found only; what became of the
 * other ports stands in its log, which must be at level Trace. For a search in one thread.
 */
class ProbeLog : public spdlog::sinks::base_sink<spdlog::details::null_mutex>
{
public:
    /// What the log tells of that port; nothing did happen when it doesn't mention it.
    PortRecord port(const QString &name) const { return m_ports.value(name); }

protected:
    void sink_it_(const spdlog::details::log_msg &message) override;
    void flush_() override { }

private:
    void takeProgress(const QString &text);

    QHash<QString, PortRecord> m_ports;
    QString m_payload; // received, and not yet known on which port
};

} // namespace JwProbe
