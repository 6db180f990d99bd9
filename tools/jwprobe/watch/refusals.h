#pragma once

#include <jwprobe/search/portidentity.h>

#include <device/portreport.h>

#include <QMap>
#include <QString>

namespace JwProbe {

/// Why no board was found on a port.
struct Refusal
{
    PortIdentity port;
    QString reason; ///< a word for programs, printed with --json; --help lists the words
    QString summary; ///< the reason as a sentence; empty if the port has just lost its board
};

/// The ports on which no board was found. Reports each reason of a port only once, although the watch tries again and
/// again to open a port.
class Refusals
{
public:
    /// Takes the newest reports of the watch. Forgets the ports that are gone and the ports that have a board. Returns
    /// the refusals that are new.
    QList<Refusal> update(const QList<JwDevice::PortReport> &reports);
    /// Takes the report of a port that has just lost its board, so that update() does not return a new refusal for this
    /// loss.
    void skip(const JwDevice::PortReport &report);

    /// Returns the refusals whose summary is not empty. The keys are the names of the ports.
    QMap<QString, Refusal> all() const;

private:
    struct Known
    {
        QString state; // differs if the reason differs
        Refusal refusal;
    };

    QMap<QString, Known> m_known; // by port name
};

} // namespace JwProbe
