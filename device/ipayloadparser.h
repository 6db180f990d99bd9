#pragma once

#include <device/jwdevice_export.h>

class QString;

namespace JwDevice {

class SessionAbstract;

/**
 * Turns sentences into records and back. A Communicator is given one with Communicator::setParser; whoever makes a
 * parser owns it.
 */
class JWDEVICE_EXPORT IPayloadParser
{
public:
    IPayloadParser() = default;
    IPayloadParser(const IPayloadParser &) = default;
    IPayloadParser &operator=(const IPayloadParser &) = default;
    virtual ~IPayloadParser();

    /**
     * Fills `session` from one whole received sentence, start flag and line end included. The record must be of the
     * class that belongs to the parser; this is not checked. Returns true; throws Nmea::Exception when the sentence
     * can't be parsed, the record then keeps what was stored before the fault.
     */
    virtual bool parse(SessionAbstract *session, const QString &sentence) = 0;

    /**
     * Replaces `sentence` with the whole sentence for `session`, start flag and line end included. Returns true; throws
     * Nmea::Exception when it can't be built, `sentence` is then left as it was.
     */
    virtual bool build(const SessionAbstract *session, QString &sentence) = 0;
};

} // namespace JwDevice
