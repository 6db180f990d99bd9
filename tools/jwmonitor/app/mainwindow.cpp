#include "mainwindow.h"

#include <jwmonitor/find/boardsbar.h>
#include <jwmonitor/find/findbar.h>
#include <jwmonitor/find/portsmodel.h>
#include <jwmonitor/find/portsview.h>
#include <jwmonitor/fleet/remoteboards.h>
#include <jwmonitor/log/logmodel.h>
#include <jwmonitor/log/logview.h>
#include <jwmonitor/look/theme.h>
#include <jwmonitor/plot/plotview.h>
#include <jwmonitor/send/remotesender.h>
#include <jwmonitor/send/sendpanel.h>
#include <jwmonitor/timeline/timelinecanvas.h>
#include <jwmonitor/timeline/timelineview.h>
#include <jwmonitor/traffic/boardtraffic.h>
#include <jwmonitor/traffic/trafficmodel.h>
#include <jwmonitor/traffic/trafficview.h>

#include <QAction>
#include <QApplication>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QShortcut>
#include <QSplitter>
#include <QStatusBar>
#include <QStyle>
#include <QTabWidget>
#include <QVBoxLayout>

namespace JwMonitor {

namespace {

constexpr int savedTime = 5000; // ms for which the status bar shows the message "Saved"

QKeySequence shortcut(const QString &keys)
{
    return QKeySequence(keys, QKeySequence::PortableText);
}

} // namespace

MainWindow::MainWindow(RemoteBoards *remote, QWidget *parent)
    : QMainWindow(parent)
    , m_remote(remote)
    , m_timeline(&m_finder)
    , m_traffic(new TrafficModel(this))
    , m_log(new LogModel(this))
    , m_findBar(new FindBar(this))
    , m_tabs(new QTabWidget(this))
    , m_status(new QLabel(this))
{
    setWindowTitle(tr("JwDevice monitor"));

    auto *centre = new QWidget(this);
    auto *layout = new QVBoxLayout(centre);
    auto *boardsBar = new BoardsBar(&m_finder, this);
    layout->addWidget(m_findBar);
    layout->addWidget(boardsBar);
    m_findBar->setVisible(!m_remote);
    boardsBar->setVisible(!m_remote);
    layout->addWidget(m_tabs, 1);
    setCentralWidget(centre);

    createPortsTab();
    createTrafficTab();
    createPlotTab();
    createLogTab();
    createMenus();
    if (m_remote)
        connectRemote();
    else
        connectFinder();
    m_status->setObjectName(QStringLiteral("searchStatus"));
    m_status->setTextFormat(Qt::PlainText);
    m_status->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred); // a long text must not widen the window
    statusBar()->addWidget(m_status, 1);
    updateStatus();
    const int unit = fontMetrics().height(); // so that a larger font makes the window larger
    resize(64 * unit, 50 * unit);
}

MainWindow::~MainWindow()
{
    delete takeCentralWidget(); // the views use members of this class, so the views are deleted first
}

void MainWindow::createPortsTab()
{
    auto *splitter = new QSplitter(Qt::Vertical, this);
    const PortRows *rows = &m_finder;
    if (m_remote)
        rows = m_remote;
    auto *ports = new PortsView(rows, splitter);
    m_timelineView = new TimelineView(&m_timeline, splitter);
    // Other machines report neither USB ids nor the events of their probes.
    ports->setColumnHidden(PortsModel::UsbId, m_remote);
    ports->setColumnHidden(PortsModel::Time, m_remote);
    m_timelineView->setVisible(!m_remote);
    splitter->setChildrenCollapsible(false);
    splitter->setStretchFactor(0, 2);
    splitter->setStretchFactor(1, 3);
    const int margin = style()->pixelMetric(QStyle::PM_LayoutLeftMargin);
    splitter->setContentsMargins(margin, margin, margin, margin);
    connect(ports, &PortsView::portChosen, m_timelineView->canvas(), &TimelineCanvas::showPort);
    splitter->setFocusProxy(ports);
    connect(new QShortcut(QKeySequence::Save, splitter, nullptr, nullptr, Qt::WidgetWithChildrenShortcut),
            &QShortcut::activated, m_timelineView, &TimelineView::askAndSave);
    m_tabs->addTab(splitter, tr("Ports"));
}

void MainWindow::createTrafficTab()
{
    auto *splitter = new QSplitter(Qt::Vertical, this);
    auto *view = new TrafficView(m_traffic, splitter);
    m_sendPanel = new SendPanel(m_traffic, splitter);
    splitter->setChildrenCollapsible(false);
    splitter->setStretchFactor(0, 3);
    splitter->setStretchFactor(1, 1);
    splitter->addActions(view->actions()); // so that the view's keys also work while the user types a line to send
    connect(view, &TrafficView::saved, this,
            [this](const QString &fileName) { statusBar()->showMessage(tr("Saved to %1").arg(fileName), savedTime); });
    connect(view, &TrafficView::saveFailed, this,
            [this](const QString &message) { QMessageBox::warning(this, tr("Save the traffic"), message); });
    splitter->setFocusProxy(view);
    m_tabs->addTab(splitter, tr("Traffic"));
}

void MainWindow::createPlotTab()
{
    m_tabs->addTab(new PlotView(m_traffic, this), tr("Plot"));
}

void MainWindow::createLogTab()
{
    m_tabs->addTab(new LogView(m_log, this), tr("Log"));
}

void MainWindow::createMenus()
{
    QMenu *boards = menuBar()->addMenu(tr("&Boards"));
    if (!m_remote) {
        boards->addAction(tr("&Find"), m_findBar, &FindBar::find)->setShortcut(shortcut(QStringLiteral("F5")));
        boards->addAction(tr("&Stop"), m_findBar, &FindBar::stopRequested)
            ->setShortcut(shortcut(QStringLiteral("Shift+F5")));
        boards->addSeparator();
    }
    boards->addAction(tr("&Quit"), this, &QWidget::close)->setShortcut(shortcut(QStringLiteral("Ctrl+Q")));

    QMenu *views = menuBar()->addMenu(tr("&View"));
    for (int i = 0; i < m_tabs->count(); ++i) {
        views->addAction(m_tabs->tabText(i), this, [this, i] { showView(static_cast<View>(i)); })
            ->setShortcut(shortcut(QStringLiteral("Ctrl+%1").arg(i + 1)));
    }
    views->addSeparator();
    QAction *dark = views->addAction(tr("&Dark"));
    dark->setObjectName(QStringLiteral("dark"));
    dark->setShortcut(shortcut(QStringLiteral("Ctrl+D")));
    dark->setCheckable(true);
    dark->setChecked(Theme::of(palette()) == Theme::Palette::Dark);
    connect(dark, &QAction::toggled, this,
            [](bool isDark) { Theme::apply(*qApp, isDark ? Theme::Palette::Dark : Theme::Palette::Light); });

    QMenu *help = menuBar()->addMenu(tr("&Help"));
    help->addAction(tr("&About"), this, &MainWindow::showAbout);
}

void MainWindow::connectFinder()
{
    connect(m_findBar, &FindBar::findRequested, this, [this](const JwTools::SearchSettings &settings) {
        const QWidget *focus = focusWidget();
        if (!focus || m_findBar->isAncestorOf(focus))
            m_tabs->currentWidget()->setFocus(); // after the start, the keys work in the view, not in the find bar
        m_finder.start(settings);
    });
    connect(m_findBar, &FindBar::stopRequested, &m_finder, &BoardFinder::stop);
    connect(&m_finder, &BoardFinder::changed, this, &MainWindow::updateStatus);
    connect(&m_finder, &BoardFinder::boardFound, this, &MainWindow::addBoard);
    connect(&m_finder, &BoardFinder::boardLost, m_sendPanel, &SendPanel::removeBoard);
}

void MainWindow::connectRemote()
{
    connect(m_remote, &RemoteBoards::changed, this, &MainWindow::updateStatus);
    connect(m_remote, &RemoteBoards::boardFound, this, [this](const QString &board, const QString &type) {
        m_sendPanel->addBoard(board, type, new RemoteSender(m_remote, board, m_traffic));
    });
    // A board that is lost stays in the list. If it left, the next line would go to another board.
    connect(m_remote, &RemoteBoards::boardForgotten, m_sendPanel, &SendPanel::removeBoard);
    connect(m_remote, &RemoteBoards::payloadReceived, m_traffic, &TrafficModel::append);
    connect(m_remote, &RemoteBoards::sendFinished, this,
            [this](const QString &board, uint number, const QString &error) {
                m_traffic->markResult(board, number, error.isEmpty());
                if (!error.isEmpty())
                    m_sendPanel->showFailure(board, number, error);
            });
}

void MainWindow::find(const JwTools::SearchSettings &settings)
{
    m_findBar->setSettings(settings);
    m_findBar->find();
}

void MainWindow::showView(View view)
{
    m_tabs->setCurrentIndex(view);
    m_tabs->currentWidget()->setFocus();
}

void MainWindow::addBoard(const BoardLink &link)
{
    new BoardTraffic(link, m_traffic, link.communicator);
    m_sendPanel->addBoard(link);
}

void MainWindow::updateStatus()
{
    if (m_remote) {
        m_status->setText(m_remote->summary());
        return;
    }
    m_findBar->setStarted(m_finder.isStarted());
    int found = 0;
    const QVector<PortEntry> entries = m_finder.ports();
    for (const PortEntry &entry : entries)
        found += entry.stay == PortEntry::Found || entry.stay == PortEntry::Back;
    const QString boards = found == 1 ? tr("1 board found") : tr("%1 boards found").arg(found);
    QString text = tr("Stopped: press Find to look for boards");
    if (m_finder.isSearching())
        text = tr("Searching: %1").arg(boards);
    else if (m_finder.isStarted())
        text = tr("%1; a board that you plug in is found too").arg(boards);
    m_status->setText(text);
}

void MainWindow::showAbout()
{
    QMessageBox::about(
        this, tr("About"),
        tr("JwDevice monitor %1\n\nFinds boards on USB serial ports, shows what each port did, and talks "
           "to the boards.")
            .arg(QStringLiteral(JWMONITOR_VERSION)));
}

} // namespace JwMonitor
