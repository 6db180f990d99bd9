#pragma once

#include <QTimer>

namespace JwProbe {

class Finder;
struct Options;

/// A line on standard error that shows how far a search is. It is there from show() until hide().
class Progress
{
public:
    /// Both must outlive it.
    Progress(const Finder &finder, const Options &options);

    /// Does nothing where the line would disturb: standard error is no terminal, or shows the log.
    void show();
    void hide();

private:
    void write();

    const Finder &m_finder;
    const Options &m_options;
    QTimer m_timer;
};

} // namespace JwProbe
