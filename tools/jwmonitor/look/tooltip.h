#pragma once

#include <QString>

namespace JwMonitor {

/// Text of a board as a tool tip, whatever characters are in it.
inline QString toolTipText(const QString &text)
{
    return QStringLiteral("<qt>%1</qt>").arg(text.toHtmlEscaped().replace(QLatin1Char('\n'), QLatin1String("<br>")));
}

} // namespace JwMonitor
