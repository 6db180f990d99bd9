#include "program.h"

#include "signalwatch.h"
#include <jwprobe/monitor/monitor.h>
#include <jwprobe/output/output.h>
#include <jwprobe/output/report.h>

#include <QCoreApplication>

#include <unistd.h>

namespace JwProbe {

Program::Program(const Options &options)
    : m_options(options)
    , m_finder(m_options)
    , m_progress(m_finder, m_options)
{
    connect(&m_finder, &Finder::finished, this, &Program::report);
    auto *signalWatch = new SignalWatch(this);
    connect(signalWatch, &SignalWatch::received, this, &Program::endBySignal);
}

Program::~Program() = default;

void Program::start()
{
    m_finder.start();
    m_progress.show();
}

void Program::report()
{
    m_progress.hide();
    const SearchResult result = m_finder.result();
    const bool printed = printResult(result);
    m_finder.closeOthers();
    if (!printed)
        QCoreApplication::exit(SomeMissing);
    else if (m_options.action == Options::Monitor && !result.boards.isEmpty())
        monitor(result);
    else
        QCoreApplication::exit(result.exitStatus());
}

bool Program::printResult(const SearchResult &result) const
{
    const bool isMonitor = m_options.action == Options::Monitor;
    if (!m_options.json) {
        const QString text = reportText(result, terminalWidth(STDOUT_FILENO));
        return print(isMonitor && !result.boards.isEmpty() ? text + QLatin1Char('\n') : text);
    }
    QJsonObject document = reportJson(result);
    if (!isMonitor)
        return print(jsonText(document, QJsonDocument::Indented));
    document[QLatin1String("event")] = QStringLiteral("search");
    return print(jsonText(document, QJsonDocument::Compact));
}

void Program::monitor(const SearchResult &result)
{
    SignalWatch::setExitStatus(AllFound); // success, because a signal is the normal end of the monitor
    m_monitor = std::make_unique<Monitor>(result.boards, m_options.json);
    connect(m_monitor.get(), &Monitor::allLost, this, [] {
        complain(QStringLiteral("no board is left"));
        QCoreApplication::exit(SomeMissing);
    });
    connect(m_monitor.get(), &Monitor::outputLost, this, [] { QCoreApplication::exit(SomeMissing); });
    m_monitor->start();
}

void Program::endBySignal(int status)
{
    m_progress.hide();
    QCoreApplication::exit(status);
}

} // namespace JwProbe
