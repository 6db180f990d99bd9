#pragma once

#include <QObject>
#include <QString>
#include <QTimer>

namespace JwMonitor {

class MainWindow;

/// Talks to the boards that the window finds, saves a picture of each view, and ends the program: how the pictures of
/// the documentation are made.
class Screenshots : public QObject
{
    Q_OBJECT

public:
    /// Begins with the end of the window's first search. `window` must outlive it.
    Screenshots(MainWindow *window, const QString &folder);
    ~Screenshots() override;

private:
    void talk();
    void save();

    MainWindow *const m_window;
    const QString m_folder;
    QTimer m_timer;
    int m_turn = 0;
};

} // namespace JwMonitor
