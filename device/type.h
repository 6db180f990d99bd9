#pragma once

namespace JwDevice {

/**
 * The types of board that the library recognises.
 *
 * With Qt 5, the library does not register Type as a meta-type. If you connect the Initializer's signals across
 * threads, or record them with QSignalSpy, write `Q_DECLARE_METATYPE(JwDevice::Type)` and call
 * `qRegisterMetaType<JwDevice::Type>("JwDevice::Type")`. With Qt 6, you need neither.
 */
enum Type : int {
    Unknown = 0, ///< no type of board
    BoardA = 1, ///< answers the version query with a hardware version that contains "7300022" and not "7300021"
    BoardB = 2, ///< answers the version query with a hardware version that contains "7300021"
    BoardC = 3, ///< answers the information request with the subcommand "INF"
};

} // namespace JwDevice
