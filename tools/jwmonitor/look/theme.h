#pragma once

#include <QColor>
#include <QPalette>
#include <QString>

class QApplication;

namespace JwMonitor {

/// The colours of the window: a light and a dark set, with a colour for each role. Code that paints calls colour()
/// at each painting with the current palette, which decides between the two sets.
class Theme
{
public:
    enum class Palette { Light, Dark };

    enum Role {
        Good, ///< a board was found or answered, or a value is right
        Problem, ///< a board was lost, a port could not be opened, or a value is wrong
        Waiting, ///< something waits, for example for an answer; also a warning, or a board that is not used
        Query, ///< a sentence that this program sends
        Reply, ///< a sentence that this program receives
        Quiet, ///< a query timed out, or a text is not important
        Grid, ///< the lines in the background of a plot or timeline
        Series1, ///< the first curve of a plot; the next roles are for further curves
        Series2,
        Series3,
        Series4,
        RoleCount,
    };

    /// Sets the style of `app`, and sets its colours to `palette`.
    static void apply(QApplication &app, Palette palette);
    /// Returns Dark or Light, by the brightness of `palette`. `palette` may be any palette, for example the desktop's.
    static Palette of(const QPalette &palette);
    /// Returns the colour for `role` that is readable on the background of `palette`.
    static QColor colour(const QPalette &palette, Role role);
};

} // namespace JwMonitor
