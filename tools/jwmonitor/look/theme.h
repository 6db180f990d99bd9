#pragma once

#include <QColor>
#include <QPalette>
#include <QString>

class QApplication;

namespace JwMonitor {

/// The colours of the window: a light and a dark set, with a colour for each role. A painter passes the palette of its
/// widget, so a change of the palette changes all colours.
class Theme
{
public:
    enum class Palette { Light, Dark };

    enum Role {
        Good, ///< found, answered, right
        Problem, ///< lost, not opened, wrong
        Waiting, ///< asked, no answer yet
        Query, ///< what we send
        Reply, ///< what we receive
        Quiet, ///< timed out, or not important
        Grid, ///< lines behind a plot or timeline
        Series1, ///< lines of a plot, in this order
        Series2,
        Series3,
        Series4,
        RoleCount,
    };

    /// Gives `app` the style and the colours of `palette`.
    static void apply(QApplication &app, Palette palette);
    /// Whether `palette` is light or dark, judged by its brightness. Works for every palette.
    static Palette of(const QPalette &palette);
    /// The colour for `role` on the background of `palette`.
    static QColor colour(const QPalette &palette, Role role);
};

} // namespace JwMonitor
