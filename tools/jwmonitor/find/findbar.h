#pragma once

#include "findsettings.h"

#include <QMap>
#include <QWidget>

class QCheckBox;
class QLineEdit;
class QPushButton;
class QSpinBox;

namespace JwMonitor {

/// What to look for, and the buttons that begin and end it.
class FindBar : public QWidget
{
    Q_OBJECT

public:
    explicit FindBar(QWidget *parent = nullptr);
    ~FindBar() override;

    FindSettings settings() const;
    void setSettings(const FindSettings &settings);
    /// Whether there is something to stop.
    void setStarted(bool isStarted);

public Q_SLOTS:
    /// As the button Find: nothing happens while no type is chosen.
    void find();

Q_SIGNALS:
    void findRequested(const JwMonitor::FindSettings &settings);
    void stopRequested();

private:
    void updateButtons();

    // Made from left to right: Tab follows.
    const QMap<JwDevice::Type, QCheckBox *> m_types;
    QSpinBox *const m_retries;
    QSpinBox *const m_delay;
    QLineEdit *const m_ports;
    QPushButton *const m_find;
    QPushButton *const m_stop;
};

} // namespace JwMonitor
