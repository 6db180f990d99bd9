#pragma once

#include <QString>

namespace JwMonitor {

/// Returns a tool tip that shows `text` unchanged. Qt formats a tool tip that looks like HTML, so the function escapes
/// the text.
inline QString toolTipText(const QString &text)
{
    return QStringLiteral("<qt>%1</qt>").arg(text.toHtmlEscaped().replace(QLatin1Char('\n'), QLatin1String("<br>")));
}

} // namespace JwMonitor
