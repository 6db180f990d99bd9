#pragma once

#include "options.h"
#include <jwprobe/search/finder.h>
#include <jwprobe/search/progress.h>

#include <QObject>

#include <memory>

namespace JwProbe {

class Monitor;

/// Runs one search and prints its report. With --monitor, the monitor runs after that if a board was found. At the end,
/// the event loop ends with the exit status of the program.
class Program : public QObject
{
    Q_OBJECT

public:
    explicit Program(const Options &options);
    ~Program() override;

    void start();

private:
    void report();
    bool printResult(const SearchResult &result) const;
    void monitor(const SearchResult &result);
    void endBySignal(int status);

    const Options m_options;
    Finder m_finder;
    Progress m_progress;
    std::unique_ptr<Monitor> m_monitor; // null until the monitor starts after the search
};

} // namespace JwProbe
