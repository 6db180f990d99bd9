#pragma once

#include <common/searchsettings.h>

#include <QMap>
#include <QWidget>

class QCheckBox;
class QLineEdit;
class QPushButton;
class QSpinBox;

namespace JwMonitor {

/// Shows the settings of a search, and the buttons that start and stop the search.
class FindBar : public QWidget
{
    Q_OBJECT

public:
    explicit FindBar(QWidget *parent = nullptr);
    ~FindBar() override;

    JwTools::SearchSettings settings() const;
    void setSettings(const JwTools::SearchSettings &settings);
    /// Enables the button Stop if `isStarted`, else disables it.
    void setStarted(bool isStarted);

public Q_SLOTS:
    /// Does the same as the button Find. Does nothing if no type is chosen.
    void find();

Q_SIGNALS:
    void findRequested(const JwTools::SearchSettings &settings);
    void stopRequested();

private:
    void updateButtons();

    // These members are in the order from left to right, because the Tab key visits widgets in the order of their
    // creation.
    const QMap<JwDevice::Type, QCheckBox *> m_types;
    QSpinBox *const m_retries;
    QSpinBox *const m_delay;
    QLineEdit *const m_ports;
    QPushButton *const m_find;
    QPushButton *const m_stop;
};

} // namespace JwMonitor
