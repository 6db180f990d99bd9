#pragma once

#include <device/type.h>

#include <QString>

namespace JwDevice {

/// One thing that happened on one port during a probe: see Initializer::setPortObserver().
struct PortEvent
{
    /// The kinds of event.
    enum Kind {
        Opened, ///< the port is open
        NotOpened, ///< the port could not be opened; `text` is the system's reason
        Asked, ///< a query was written; `text` is the query
        Answered, ///< a sentence came that can be parsed; `text` is the sentence
        Unreadable, ///< a payload came that can't be parsed; `text` is the payload, `reason` says what is wrong
        TimedOut, ///< no answer came within replyTime
        Lost, ///< the port failed and was closed; `text` is the system's reason
        HandedOver, ///< the port holds a wanted board; deviceInitialized() comes next
    };

    Kind kind = Opened; ///< what happened
    QString portName; ///< such as "ttyACM0"
    qint64 nanoseconds = 0; ///< since probe() was called
    uint round = 0; ///< 0 while ports are asked first, then the number of the retry round
    QString text; ///< sentences and payloads are without their line end; empty if the kind has no text
    QString reason; ///< of Unreadable; else empty
    Type type = Unknown; ///< of Answered and HandedOver: the type of board that sends such a sentence
};

} // namespace JwDevice
