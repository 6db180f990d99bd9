#pragma once

namespace JwDevice {

/**
 * The kinds of board that are recognised. The library registers no meta-type for it: an application that connects the
 * Initializer's signals across threads, or records them with QSignalSpy, calls
 * `qRegisterMetaType<JwDevice::Type>("JwDevice::Type")` after its own `Q_DECLARE_METATYPE(JwDevice::Type)`.
 */
enum Type : int {
    Unknown = 0, ///< nothing recognised
    BoardA = 1, ///< answers the version query with a hardware version that contains "7300022" and not "7300021"
    BoardB = 2, ///< answers the version query with a hardware version that contains "7300021"
    BoardC = 3, ///< answers the information request with the sub-command "INF"
};

} // namespace JwDevice
