#pragma once

#include <device/type.h>

#include <QString>

namespace JwDevice {

/// An event on one port during a probe. See Initializer::setPortObserver().
struct PortEvent
{
    /// The kinds of event.
    enum Kind {
        Opened, ///< the port is open
        NotOpened, ///< the port could not be opened; `text` is the system's reason
        Asked, ///< a query was written; `text` is the query
        Answered, ///< a sentence arrived that can be parsed; `text` is the sentence
        Unreadable, ///< a payload arrived that can't be parsed; `text` is the payload, `reason` says what is wrong
        TimedOut, ///< no answer arrived within replyTime
        Lost, ///< the port failed and was closed; `text` is the system's reason
        HandedOver, ///< a wanted board is on the port; the next step is deviceInitialized()
    };

    Kind kind = Opened; ///< kind of the event
    QString portName; ///< for example "ttyACM0"
    qint64 nanoseconds = 0; ///< time since the newest call of probe()
    uint round = 0; ///< number of retry rounds so far, over all probes of the Initializer; 0 before the first retry
    QString text; ///< the `text` that Kind describes, without line end; empty for kinds without a text
    QString reason; ///< for Unreadable: what is wrong; empty for the other kinds
    /// For Answered, the type of board that sends the sentence, or Unknown if no board sends it. For HandedOver, the
    /// type of the board on the port. Unknown for the other kinds.
    Type type = Unknown;
};

} // namespace JwDevice
