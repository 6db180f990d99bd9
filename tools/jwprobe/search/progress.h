#pragma once

#include <QTimer>

namespace JwProbe {

class Finder;
struct Options;

/// Shows the progress of a search in one line on standard error, from show() until hide().
class Progress
{
public:
    /// Both arguments must outlive the object.
    Progress(const Finder &finder, const Options &options);

    /// Shows the line. Does nothing if standard error is no terminal that can erase a line, or if the log is written
    /// there.
    void show();
    void hide();

private:
    void write();

    const Finder &m_finder;
    const Options &m_options;
    QTimer m_timer;
};

} // namespace JwProbe
