#pragma once

#include <jwmonitor/find/boardfinder.h>
#include <jwmonitor/timeline/probetimeline.h>

#include <QMainWindow>

class QLabel;
class QTabWidget;

namespace JwMonitor {

class FindBar;
class LogModel;
class RemoteBoards;
class SendPanel;
class TimelineView;
class TrafficModel;

/// The main window. The settings of the search and the states of the boards are on top, and the views are in tabs
/// below.
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    enum View { PortsTab, TrafficTab, PlotTab, LogTab };

    /// With `remote`, the window shows the boards of other machines instead of those of this machine. `remote` must
    /// outlive the window.
    explicit MainWindow(RemoteBoards *remote = nullptr, QWidget *parent = nullptr);
    ~MainWindow() override;

    /// Starts a search with `settings`.
    void find(const JwTools::SearchSettings &settings);
    void showView(View view);
    BoardFinder *finder() { return &m_finder; }

private:
    void createPortsTab();
    void createTrafficTab();
    void createPlotTab();
    void createLogTab();
    void createMenus();
    void connectFinder();
    void connectRemote();
    void addBoard(const BoardLink &link);
    void updateStatus();
    void showAbout();

    RemoteBoards *const m_remote; // null if the window shows the boards of this machine
    BoardFinder m_finder;
    ProbeTimeline m_timeline;
    TrafficModel *const m_traffic;
    LogModel *const m_log;
    FindBar *const m_findBar;
    QTabWidget *const m_tabs;
    QLabel *const m_status; // a widget, because an open menu hides the text of QStatusBar::showMessage()
    SendPanel *m_sendPanel = nullptr;
    TimelineView *m_timelineView = nullptr;
};

} // namespace JwMonitor
