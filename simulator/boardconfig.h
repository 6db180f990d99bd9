#pragma once

#include <QtCore/QString>

#include <optional>

class QJsonObject;

namespace JwSimulator {

/**
 * What one simulated board is and how it behaves: a plain value, to be filled by hand, from text or from JSON.
 *
 * The text form is `KIND[,key=value...]`, such as "BoardA,delay=20,port=ttyACM3"; the JSON form is an object with the
 * same names: {"kind": "BoardA", "delay": 20, "port": "ttyACM3"}. Both read one table, which also makes help().
 */
struct BoardConfig
{
    /** What the board says. */
    enum class Kind {
        BoardA, ///< answers "$PJWVER*0c" with its version sentence
        BoardB, ///< the same with another hardware version
        BoardC, ///< answers "$PTJWWR,INF*71" with its description sentence
        Silent, ///< never sends anything by itself; a test can still make it send()
        Babble, ///< sends a burst of 1 to 64 random bytes at every interval
        Other ///< sends a well-formed sentence at every interval, as a navigation receiver would, and answers nothing
    };
    /** The checksums of what the board sends. */
    enum class Checksum {
        Good, ///< right
        Wrong ///< wrong in every sentence
    };
    /** How the board's bytes get to the host, and the host's to the board. */
    enum class Usb {
        None, ///< as the board sends them; with a speed, each millisecond's bytes
        Cdc, ///< the board's own USB, at full speed: in packets of up to 64 bytes, each as a whole; it has no line
             ///< speed
        Bridge ///< a UART behind a UART-to-USB bridge: in frames of 1 ms with what the UART brought in that time
    };
    /** What becomes of a program that opens the port. */
    enum class Open {
        Ok, ///< the port opens
        Busy, ///< the port is held as by another program: a lock file with a living process, and exclusive mode
        Denied ///< opening the port is refused for lack of permission, for root too
    };

    Kind kind = Kind::BoardA; ///< what the board says

    int delay = 0; ///< milliseconds from having received a query to the start of the reply
    int speed = 0; ///< baud: 10 bit times pass for each byte in either direction; 0 = no pacing, and 115200 with
                   ///< Usb::Bridge; it has no effect with Usb::Cdc
    Usb usb = Usb::None; ///< how bytes get from the one to the other
    int chunk = 0; ///< bytes per write of a reply; 0 = the reply in one piece
    int gap = 0; ///< milliseconds between two chunks
    int noise = 0; ///< random bytes (never NUL) before each reply
    Checksum checksum = Checksum::Good; ///< of what the board sends
    QString hwversion; ///< text of that field; null = 7300022 (BoardA), 7300021 (BoardB), 7300030 (BoardC)
    int ignore = 0; ///< the first queries that get no reply
    int replies = 1; ///< replies to each query, back to back
    int pullAfter = -1; ///< the cable is pulled so many milliseconds after the port appeared, counted from when the
                        ///< event loop runs; once; -1 = never
    int pullAfterBytes = -1; ///< the cable is pulled when so many bytes were sent in all, and the host has read them or
                             ///< 100 ms have passed; once; -1 = never
    Open open = Open::Ok; ///< what becomes of a program that opens the port
    QString manufacturer = QStringLiteral("STMicroelectronics."); ///< of the USB device
    quint16 vendor = 0x0483; ///< USB vendor id
    quint16 product = 0x5740; ///< USB product id
    QString productName = QStringLiteral("Simulated board"); ///< USB product name
    QString serial; ///< USB serial number; null = one that no other board of the testbed has
    QString port; ///< port name without folder; null = the first of ttyACM0, ttyACM1, ... that is neither another
                  ///< board's nor locked
    int interval = 100; ///< milliseconds between what Babble and Other send
    uint seed = 1; ///< of everything random; the same seed gives the same bytes

    /** Reads the text form. On a fault nothing is returned and @p error (may be null) is one line that says what is
     *  allowed. */
    static std::optional<BoardConfig> fromText(const QString &text, QString *error = nullptr);

    /** Reads the JSON form; numbers may be given as numbers or as text. Faults as in fromText(). */
    static std::optional<BoardConfig> fromJson(const QJsonObject &object, QString *error = nullptr);

    /** The kinds and one line for each key with what it takes, for a program's help text. */
    static QString help();

    /** The name of a kind as the text form has it. */
    static QString kindName(Kind kind);
};

} // namespace JwSimulator
