#pragma once

#include <QString>

namespace JwMonitor {

/// Makes a tool tip that shows every character of `text`, although tool tips are HTML.
inline QString toolTipText(const QString &text)
{
    return QStringLiteral("<qt>%1</qt>").arg(text.toHtmlEscaped().replace(QLatin1Char('\n'), QLatin1String("<br>")));
}

} // namespace JwMonitor
