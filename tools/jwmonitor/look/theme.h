#pragma once

#include <QColor>
#include <QPalette>
#include <QString>

class QApplication;

namespace JwMonitor {

/// The colours of the window: one light and one dark set, chosen by what they are for. Painters ask for them by the
/// palette of the widget that they paint, so that a change of the palette reaches them all.
class Theme
{
public:
    enum class Palette { Light, Dark };

    enum Role {
        Good, ///< found, answered, right
        Problem, ///< lost, not opened, wrong
        Waiting, ///< asked and awaited
        Query, ///< what we send
        Reply, ///< what we receive
        Quiet, ///< timed out, of no interest
        Grid, ///< lines behind a drawing
        Series1, ///< lines of a plot, in the order in which they are used
        Series2,
        Series3,
        Series4,
        RoleCount,
    };

    /// Gives `app` the style and the colours of `palette`.
    static void apply(QApplication &app, Palette palette);
    /// Which of the two `palette` is, also of a system's own one: by its brightness.
    static Palette of(const QPalette &palette);
    /// The colour for `role` that reads well on `palette`.
    static QColor colour(const QPalette &palette, Role role);
};

} // namespace JwMonitor
