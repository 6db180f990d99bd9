#pragma once

#include <QStringList>

namespace JwProbe {

struct PortIdentity;

/// The udev rules for boards: the file in packaging/udev.
QString udevRules();

/// The first rules file with a rule that gives this port to everybody, or to the user at the machine; empty if there is
/// none. A rule counts if it names the port's vendor id or manufacturer.
QString findAccessRule(const PortIdentity &port);

/// Like findAccessRule(), for a rule that keeps ModemManager off the port.
QString findModemManagerRule(const PortIdentity &port);

/// Shell commands, with blanks in front, that install rules: access for the user at the machine, and no ModemManager.
QStringList installRulesCommands(const PortIdentity &port);

/// Shell commands, with blanks in front, that apply installed rules to the ports of the system.
QStringList applyRulesCommands();

} // namespace JwProbe
