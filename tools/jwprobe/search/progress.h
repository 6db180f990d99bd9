#pragma once

#include <QTimer>

namespace JwProbe {

class Finder;
struct Options;

/// A line on standard error that shows the progress of a search, from show() until hide().
class Progress
{
public:
    /// Both arguments must outlive the object.
    Progress(const Finder &finder, const Options &options);

    /// Does nothing if standard error is no terminal, or shows the log.
    void show();
    void hide();

private:
    void write();

    const Finder &m_finder;
    const Options &m_options;
    QTimer m_timer;
};

} // namespace JwProbe
