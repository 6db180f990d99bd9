#pragma once

#include <QString>

#include <optional>

class QJsonObject;

namespace JwSimulator {

/**
 * A plain value that says what one simulated board is and how it behaves. Fill it by hand, from text or from JSON.
 *
 * The text form is `KIND[,key=value...]`, for example "BoardA,delay=20,port=ttyACM3". The JSON form is an object with
 * the same names: {"kind": "BoardA", "delay": 20, "port": "ttyACM3"}.
 */
struct BoardConfig
{
    /// What the board says. Other stays the last kind: boardkind.h checks its table by it.
    enum class Kind {
        BoardA, ///< answers "$PJWVER*0c" with its version sentence
        BoardB, ///< as BoardA, with another hardware version
        BoardC, ///< answers "$PTJWWR,INF*71" with its description sentence
        Silent, ///< never sends anything by itself; a test can still call Board::send()
        Babble, ///< sends a burst of 1 to 64 random bytes at every interval
        Other ///< sends a well-formed sentence at every interval, as a navigation receiver does; answers nothing
    };
    /// The checksums in the sentences that the board sends.
    enum class Checksum {
        Good, ///< right
        Wrong ///< wrong in every sentence
    };
    /// How bytes travel between board and host, in both directions.
    enum class Usb {
        None, ///< as they are written; with a speed, the bytes of each millisecond together
        Cdc, ///< the board has its own full-speed USB: whole packets of up to 64 bytes; it has no line speed
        Bridge ///< a UART behind a UART-to-USB bridge: every millisecond the bytes that the UART carried in that time
    };
    /// What happens when a program opens the port.
    enum class Open {
        Ok, ///< the port opens
        Busy, ///< the port is in use: there is a lock file of a living process, and the port is in exclusive mode
        Denied ///< permission denied, also for root
    };

    Kind kind = Kind::BoardA; ///< what the board says

    int delay = 0; ///< milliseconds between the end of a query and the start of the reply
    int speed = 0; ///< baud, at 10 bit times a byte in each direction; 0 = no pacing, but 115200 with Usb::Bridge; no
                   ///< effect with Usb::Cdc
    Usb usb = Usb::None; ///< how bytes travel between board and host
    int chunk = 0; ///< bytes per write of a reply; 0 = the reply in one piece
    int gap = 0; ///< milliseconds between two chunks
    int noise = 0; ///< random bytes (never NUL) before each reply
    Checksum checksum = Checksum::Good; ///< checksums in the sentences that the board sends
    QString hwversion; ///< hardware version in the reply; null = the default of the kind, for BoardA 7300022
    int ignore = 0; ///< number of queries at the start that get no reply
    int replies = 1; ///< replies to each query, back to back
    int pullAfter = -1; ///< the cable is pulled once, this many milliseconds after the event loop first runs with the
                        ///< port; -1 = never
    int pullAfterBytes = -1; ///< the cable is pulled once, after the board sent this many bytes and the host read them
                             ///< or 100 ms passed; -1 = never
    Open open = Open::Ok; ///< what happens when a program opens the port
    QString manufacturer = QStringLiteral("STMicroelectronics."); ///< USB manufacturer
    quint16 vendor = 0x0483; ///< USB vendor id
    quint16 product = 0x5740; ///< USB product id
    QString productName = QStringLiteral("Simulated board"); ///< USB product name
    QString serial; ///< USB serial number; null = one that no other board of the testbed has
    QString port; ///< port name without folder; null = the first free one of ttyACM0, ttyACM1, ...: no board of this or
                  ///< another simulation has it, and it is not locked
    int interval = 100; ///< milliseconds between two sentences of Other, or two bursts of Babble
    uint seed = 1; ///< of everything random; the same seed gives the same bytes

    /// Reads the text form. Returns nothing if the text is wrong; `error` (may be null) then has one line that says
    /// what is allowed.
    static std::optional<BoardConfig> fromText(const QString &text, QString *error = nullptr);

    /// Reads the JSON form. A number may stand there as a number or as text. Errors as in fromText().
    static std::optional<BoardConfig> fromJson(const QJsonObject &object, QString *error = nullptr);

    /// For the help text of a program: the kinds, then each key with its meaning and its allowed values.
    static QString help();

    /// The name of a kind in the text form.
    static QString kindName(Kind kind);
};

} // namespace JwSimulator
