#pragma once

#include <device/jwdevice_export.h>

class QString;

namespace JwDevice {

class SessionAbstract;

/**
 * Turns sentences into records, and records into sentences. A Communicator uses the parser that you attach with
 * Communicator::setParser(). The application still owns this parser.
 */
class JWDEVICE_EXPORT IPayloadParser
{
public:
    IPayloadParser() = default;
    IPayloadParser(const IPayloadParser &) = default;
    IPayloadParser &operator=(const IPayloadParser &) = default;
    virtual ~IPayloadParser();

    /**
     * Fills `session` from one whole received sentence, with start flag and line end. `session` must be of the class
     * that the parser expects; the parser does not check this. Returns true. Throws Nmea::Exception if the sentence
     * can't be parsed. Fields before the fault may then already be stored in `session`.
     */
    virtual bool parse(SessionAbstract *session, const QString &sentence) = 0;

    /**
     * Replaces `sentence` with the whole sentence for `session`, with start flag and line end. Returns true. Throws
     * Nmea::Exception if the sentence can't be built; in this case `sentence` does not change.
     */
    virtual bool build(const SessionAbstract *session, QString &sentence) = 0;
};

} // namespace JwDevice
