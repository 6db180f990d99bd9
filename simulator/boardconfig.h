#pragma once

#include <QString>

#include <optional>

class QJsonObject;

namespace JwSimulator {

/**
 * The configuration of a simulated board: what the board is and how it behaves. Set the members yourself, or read them
 * from text or JSON.
 *
 * The text form is `KIND[,key=value...]`, for example "BoardA,delay=20,port=ttyACM3". The JSON form is an object with
 * the same names, for example {"kind": "BoardA", "delay": 20, "port": "ttyACM3"}.
 */
struct BoardConfig
{
    /// The kind decides which sentences the board sends. `Other` must stay the last kind, because boardkind.h uses
    /// `Other` to check that `boardKinds` has a row for every kind.
    enum class Kind {
        BoardA, ///< answers the query "$PJWVER*0c" with its version
        BoardB, ///< answers like BoardA, but with another hardware version
        BoardC, ///< answers the query "$PTJWWR,INF*71" with a description of itself
        Silent, ///< never sends anything by itself; a test can still call Board::send()
        Babble, ///< sends a burst of 1 to 64 random bytes after every `interval`
        Other ///< sends a correct sentence after every `interval`, like a navigation receiver; answers nothing
    };
    /// Whether the checksums are right in the sentences that the board sends.
    enum class Checksum {
        Good, ///< right in every sentence
        Wrong ///< wrong in every sentence
    };
    /// How bytes travel, in both directions, between the board and the host (the computer with the port).
    enum class Usb {
        None, ///< bytes arrive as they were written; if `speed` > 0, the bytes of each millisecond arrive together
        Cdc, ///< the board has its own USB: packets of up to 64 bytes arrive whole; `speed` has no effect
        Bridge ///< a chip between serial line and USB; once a millisecond, it passes on the bytes that arrived
    };
    /// The result when a program opens the port.
    enum class Open {
        Ok, ///< the port opens
        Busy, ///< the port is in use: the simulator holds the port's lock file and sets its exclusive mode
        Denied ///< the system denies permission, even to the user root
    };

    Kind kind = Kind::BoardA; ///< kind of the board, which decides what the board sends

    int delay = 0; ///< milliseconds between the end of a query and the start of the reply
    /// Speed of the serial line in baud, in each direction. Each byte takes 10 bit times. 0 means that the line causes
    /// no delay. There are two exceptions: with Usb::Bridge, 0 means 115200 baud; with Usb::Cdc, `speed` has no effect.
    int speed = 0;
    Usb usb = Usb::None; ///< type of the connection between board and host
    int chunk = 0; ///< bytes in each piece of a reply; 0 = the reply is one piece
    int gap = 0; ///< milliseconds between two pieces of a reply
    int noise = 0; ///< number of random bytes (never NUL) before each reply
    Checksum checksum = Checksum::Good; ///< whether the board sends right checksums
    /// Hardware version in the reply. Null means the default of the kind, for example 7300022 for BoardA.
    QString hwversion;
    int ignore = 0; ///< number of queries at the start that get no reply
    int replies = 1; ///< number of replies to each query, sent without a pause
    /// The cable is not plugged in at the start. It is plugged in this many milliseconds after the event loop first
    /// runs with the port. The port name is reserved from the start. -1 means that the cable is plugged in at the
    /// start.
    int plugAfter = -1;
    /// The cable is pulled this many milliseconds after the port appeared, but not before the event loop runs. This
    /// happens `cycles` times. -1 means never.
    int pullAfter = -1;
    /// The cable is pulled after the board sent this many bytes since the port appeared. The host gets up to a second to
    /// read the bytes before the pull. This happens `cycles` times. -1 means never.
    int pullAfterBytes = -1;
    /// The cable is plugged in again, this many milliseconds after `pullAfter` or `pullAfterBytes` pulled it. -1 means
    /// never.
    int replugAfter = -1;
    /// Name that the port gets when `replugAfter` plugs the cable in. With more `cycles`, each time the port gets the
    /// other of `port` and `replugPort`. Empty means that the name stays the same.
    QString replugPort;
    int cycles = 1; ///< number of times that the cable is pulled and plugged in again
    /// Nobody may open the port for this many milliseconds after it appeared, not even root. Then the system reports a
    /// "change" of the port. The same happens each time that the cable is plugged in. With Open::Denied, this has no
    /// effect.
    int latePermission = 0;
    Open open = Open::Ok; ///< what happens when a program opens the port
    QString manufacturer = QStringLiteral("STMicroelectronics."); ///< USB manufacturer
    quint16 vendor = 0x0483; ///< USB vendor id
    quint16 product = 0x5740; ///< USB product id
    QString productName = QStringLiteral("Simulated board"); ///< USB product name
    /// USB serial number. Null means a number that no other board of the testbed has. Empty means that the USB device
    /// has no serial number.
    QString serial;
    /// Port name without folder. Null means the first free name of ttyACM0, ttyACM1, ... A name is free if no board of
    /// any simulation has it and no running program has locked it.
    QString port;
    /// Name of the USB hub that the board stands behind. Empty means none. The hub's first board may have plugAfter,
    /// pullAfter, pullAfterBytes, replugAfter and cycles; they plug in and pull the whole hub. Its other boards must
    /// not.
    QString hub;
    int interval = 100; ///< milliseconds between two sentences of Other, or between two bursts of Babble
    uint seed = 1; ///< start value of the random generator; two boards with equal seeds send equal random bytes

    /// Reads the text form. If the text is wrong, returns nothing and sets `error` (may be null) to one line that says
    /// what is allowed.
    static std::optional<BoardConfig> fromText(const QString &text, QString *error = nullptr);

    /// Reads the JSON form. Numbers may be JSON numbers or texts, for example 20 or "20". If the object is wrong,
    /// returns nothing and sets `error` as fromText() does.
    static std::optional<BoardConfig> fromJson(const QJsonObject &object, QString *error = nullptr);

    /// Returns a part of the help text of a program. It lists the kinds, then each key with its meaning and allowed
    /// values.
    static QString help();

    /// Returns the name of a kind, as the text form uses it.
    static QString kindName(Kind kind);
};

} // namespace JwSimulator
