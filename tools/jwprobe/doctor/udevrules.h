#pragma once

#include <QStringList>

namespace JwProbe {

struct PortIdentity;

/// Returns the udev rules for boards: the content of packaging/udev/60-jwdevice.rules.
QString udevRules();

/// Returns the path of the first rules file that allows everybody, or the user at the machine, to open this port. Empty
/// if there is no such file. Only rules that name the port's vendor id or its manufacturer count.
QString findAccessRule(const PortIdentity &port);

/// Returns the path of the first rules file that makes ModemManager ignore this port. Empty if there is no such file.
/// Only rules that name the port's vendor id or its manufacturer count.
QString findModemManagerRule(const PortIdentity &port);

/// Returns shell commands, as lines of advice, that install rules for this port. The rules allow the user at the
/// machine to open the port, and make ModemManager ignore the port.
QStringList installRulesCommands(const PortIdentity &port);

/// Returns shell commands, as lines of advice, that apply the installed rules to the devices that are plugged in.
QStringList applyRulesCommands();

} // namespace JwProbe
