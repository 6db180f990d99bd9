#pragma once

#include <jwprobe/search/portidentity.h>

#include <device/portreport.h>

#include <QMap>
#include <QString>

#include <optional>

namespace JwProbe {

struct Obstacle;

/// Why no board was found on a port.
struct Refusal
{
    PortIdentity port;
    QString reason; ///< a word for programs, printed with --json; --help lists the words
    QString summary; ///< empty if the reason is known from the loss of a board
};

/// The ports on which no board was found. Reports each reason of a port only once, although the watch tries again and
/// again to open a port.
class Refusals
{
public:
    /// Takes the newest reports of the watch. Forgets the ports that are gone and the ports that have a board. Returns
    /// the refusals that are new.
    QList<Refusal> update(const QList<JwDevice::PortReport> &reports);
    /// Takes a port that the watch must not open. Returns the refusal if it is new.
    std::optional<Refusal> add(const PortIdentity &port, const Obstacle &trap);
    /// Remembers the state of a port that has just lost its board, so that update() does not return it as new.
    void skip(const JwDevice::PortReport &report);

    /// Returns the refusals with a summary, by port name.
    QMap<QString, Refusal> all() const;

private:
    struct Known
    {
        QString state; // differs if the reason differs
        Refusal refusal;
        bool isTrap = false;
    };

    QMap<QString, Known> m_known; // by port name
};

} // namespace JwProbe
