#pragma once

#include <QString>
#include <QStringList>

namespace JwProbe {

/// Lines that are drawn on a terminal again and again at the same place.
class LiveText
{
public:
    /// Returns the text that draws the lines over those of the call before. Empty if they are the same. The terminal
    /// has `width` columns and `height` lines. Lines that do not fit are left out.
    QString redrawn(const QStringList &lines, int width, int height);

private:
    QStringList m_drawn; // the lines on the terminal
};

} // namespace JwProbe
