#pragma once

#include <device/jwdevice_export.h>
#include <device/sessioninit.h>
#include <device/type.h>

#include <QList>
#include <QString>

class QSerialPortInfo;

/**
 * \file
 * The rules by which Initializer looks for boards. Programs that judge ports and replies themselves use these, so that
 * both always agree.
 */
namespace JwDevice {

/// Milliseconds that a probed port has to answer, from its query on; in each round again.
constexpr int replyTime = 400;

/// A port of this USB manufacturer is a candidate.
constexpr char boardManufacturer[] = "STMicroelectronics.";
/// A port with this USB vendor id is a candidate.
constexpr quint16 boardVendorId = 0x0483;

/// Keys of the sentences that hosts and boards exchange, as in SessionInit::sentenceId. See Nmea::ParserInit for their
/// fields.
enum SentenceKey : int {
    VersionSentence = 1, ///< "PJWVER": the query without a field, and its reply
    InformationRequest = 2, ///< "PTJWWR", host to board
    InformationReply = 3, ///< "PTJWRD", board to host
};

/// Whether a probe without port names opens `port`: its manufacturer is boardManufacturer, or its vendor id is
/// boardVendorId.
JWDEVICE_EXPORT bool isCandidate(const QSerialPortInfo &port);

/// All types of board, without Unknown, in the order of Type.
JWDEVICE_EXPORT QList<JwDevice::Type> boardTypes();

/// The name of `type`, such as "BoardA"; "Unknown" for a value that is no type of board.
JWDEVICE_EXPORT QString typeName(JwDevice::Type type);

/// The type of board that sends the sentence `reply`, which was parsed without an error; Unknown if no board does.
JWDEVICE_EXPORT JwDevice::Type typeOf(const JwDevice::SessionInit &reply);

/// The keys of the queries that ask a port whether it is one of `types`, in the order in which they are written. No key
/// is there twice.
JWDEVICE_EXPORT QList<JwDevice::SentenceKey> queriesFor(const QList<JwDevice::Type> &types);

/// The record from which Nmea::ParserInit builds the query `key`.
JWDEVICE_EXPORT JwDevice::SessionInit queryRecord(JwDevice::SentenceKey key);

} // namespace JwDevice
