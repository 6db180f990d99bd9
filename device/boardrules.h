#pragma once

#include <device/jwdevice_export.h>
#include <device/sessioninit.h>
#include <device/type.h>

#include <QList>
#include <QString>

class QSerialPortInfo;

/**
 * \file
 * The rules by which Initializer looks for boards. If your program also judges ports and replies, call these functions,
 * so that the program and the Initializer always agree.
 */
namespace JwDevice {

/// Time in milliseconds in which a probed port must answer. In each round, this time starts when the query is written.
constexpr int replyTime = 400;

/// USB manufacturer of boards. A port with this manufacturer is a candidate.
constexpr char boardManufacturer[] = "STMicroelectronics.";
/// USB vendor id of boards. A port with this vendor id is a candidate.
constexpr quint16 boardVendorId = 0x0483;

/// The values of SessionInit::sentenceId: keys of the sentences that hosts and boards exchange. Nmea::ParserInit lists
/// the fields of these sentences.
enum SentenceKey : int {
    VersionSentence = 1, ///< "PJWVER": the query, which has no fields, and the reply to it
    InformationRequest = 2, ///< "PTJWWR": a query that the host sends to the board
    InformationReply = 3, ///< "PTJWRD": the reply that the board sends to the host
};

/// Returns whether `port` may be a port of a board: its manufacturer is boardManufacturer, or its vendor id is
/// boardVendorId. If Initializer::probe() gets no port names, it opens every port for which this function
/// returns true.
JWDEVICE_EXPORT bool isCandidate(const QSerialPortInfo &port);

/// Returns all types of board in the order of Type, without Unknown.
JWDEVICE_EXPORT QList<JwDevice::Type> boardTypes();

/// Returns the name of `type`, for example "BoardA". If the value is no type of board, returns "Unknown".
JWDEVICE_EXPORT QString typeName(JwDevice::Type type);

/// Returns the type of board that sends `reply`, or Unknown if no board sends such a sentence. `reply` must be the
/// result of a parse() without an error.
JWDEVICE_EXPORT JwDevice::Type typeOf(const JwDevice::SessionInit &reply);

/// Returns the keys of the queries that ask a board whether it is of one of `types`, in the order in which the queries
/// are written. Each key occurs only once, even if several types share the query.
JWDEVICE_EXPORT QList<JwDevice::SentenceKey> queriesFor(const QList<JwDevice::Type> &types);

/// Returns the record from which Nmea::ParserInit builds the query `key`.
JWDEVICE_EXPORT JwDevice::SessionInit queryRecord(JwDevice::SentenceKey key);

} // namespace JwDevice
