#pragma once

#include <QStringList>

namespace JwProbe {

struct PortIdentity;

/// Returns the udev rules for boards, which are the file in packaging/udev.
QString udevRules();

/// Returns the first rules file that allows everybody, or the user at the machine, to open this port. Empty if there is
/// no such file. A rule counts only if it names the port's vendor id or manufacturer.
QString findAccessRule(const PortIdentity &port);

/// Returns the first rules file that keeps ModemManager off this port. Empty if there is no such file. A rule counts
/// only if it names the port's vendor id or manufacturer.
QString findModemManagerRule(const PortIdentity &port);

/// Returns shell commands, with blanks in front, that install rules for this port. The rules allow the user at the
/// machine to open the port, and keep ModemManager off it.
QStringList installRulesCommands(const PortIdentity &port);

/// Returns shell commands, with blanks in front, that apply the installed rules to the ports of the system.
QStringList applyRulesCommands();

} // namespace JwProbe
