#pragma once

#include <QStringList>

namespace JwProbe {

struct PortIdentity;

/// The udev rules for boards, as packaging/udev has them.
QString udevRules();

/// The first rules file that has a rule which gives this port to everybody or to whoever sits at the machine; empty for
/// none. A rule counts when it names the port's vendor id or manufacturer.
QString findAccessRule(const PortIdentity &port);

/// As findAccessRule(), for a rule that keeps ModemManager off the port.
QString findModemManagerRule(const PortIdentity &port);

/// Shell commands, with blanks in front, that give every user at the machine access and keep ModemManager off.
QStringList installRulesCommands(const PortIdentity &port);

/// Shell commands, with blanks in front, after which rules that are installed hold for the ports that are there.
QStringList applyRulesCommands();

} // namespace JwProbe
