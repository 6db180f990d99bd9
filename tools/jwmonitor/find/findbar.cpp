#include "findbar.h"

#include <common/boardtype.h>
#include <common/portname.h>

#include <device/boardrules.h>

#include <QCheckBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QSpinBox>

namespace JwMonitor {

namespace {

QSpinBox *createNumber(const char *name, int highest, const QString &toolTip, QWidget *parent)
{
    auto *box = new QSpinBox(parent);
    box->setObjectName(QLatin1String(name));
    box->setRange(0, highest);
    box->setToolTip(toolTip);
    return box;
}

QMap<JwDevice::Type, QCheckBox *> createTypes(QWidget *parent)
{
    QMap<JwDevice::Type, QCheckBox *> boxes;
    const QList<JwDevice::Type> types = JwDevice::boardTypes();
    for (const JwDevice::Type type : types) {
        auto *box = new QCheckBox(JwTools::boardName(type), parent);
        box->setObjectName(JwTools::boardName(type));
        boxes.insert(type, box);
    }
    return boxes;
}

QLabel *createLabel(const QString &text, QWidget *buddy, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    label->setBuddy(buddy);
    return label;
}

} // namespace

FindBar::FindBar(QWidget *parent)
    : QWidget(parent)
    , m_types(createTypes(this))
    , m_retries(createNumber(
          "retries", JwTools::SearchSettings::maxRetries,
          tr("How many times a silent port is asked again; a round takes %1 ms").arg(JwDevice::replyTime), this))
    , m_delay(createNumber("delay", JwTools::SearchSettings::maxDelay,
                           tr("Wait before the ports are opened, when BoardC is wanted"), this))
    , m_ports(new QLineEdit(this))
    , m_find(new QPushButton(tr("&Find"), this))
    , m_stop(new QPushButton(tr("S&top"), this))
{
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    for (QCheckBox *box : m_types) {
        connect(box, &QCheckBox::toggled, this, &FindBar::updateButtons);
        layout->addWidget(box);
    }
    m_delay->setSuffix(tr(" ms"));
    m_delay->setSingleStep(100);
    m_ports->setObjectName(QStringLiteral("ports"));
    m_ports->setPlaceholderText(tr("all ports that look like a board"));
    m_ports->setToolTip(tr("Names of the ports to try, such as \"ttyACM0 ttyACM1\", instead of all ports whose "
                           "USB manufacturer or vendor id is that of a board"));
    m_ports->setClearButtonEnabled(true);
    m_find->setObjectName(QStringLiteral("find"));
    m_find->setDefault(true);
    m_stop->setObjectName(QStringLiteral("stop"));
    m_stop->setToolTip(tr("End the search and give all boards back (Shift+F5)"));
    layout->addSpacing(12);
    layout->addWidget(createLabel(tr("&Retries"), m_retries, this));
    layout->addWidget(m_retries);
    layout->addWidget(createLabel(tr("&Delay"), m_delay, this));
    layout->addWidget(m_delay);
    layout->addWidget(createLabel(tr("P&orts"), m_ports, this));
    layout->addWidget(m_ports, 1);
    layout->addWidget(m_find);
    layout->addWidget(m_stop);

    connect(m_ports, &QLineEdit::returnPressed, this, &FindBar::find);
    connect(m_find, &QPushButton::clicked, this, &FindBar::find);
    connect(m_stop, &QPushButton::clicked, this, &FindBar::stopRequested);
    m_stop->setEnabled(false);
    setSettings({});
}

FindBar::~FindBar() = default;

JwTools::SearchSettings FindBar::settings() const
{
    JwTools::SearchSettings settings;
    for (auto it = m_types.begin(); it != m_types.end(); ++it) {
        if (it.value()->isChecked())
            settings.types.append(it.key());
    }
    const QStringList names = m_ports->text().split(QRegularExpression(QStringLiteral("[\\s,;]+")), Qt::SkipEmptyParts);
    for (const QString &name : names)
        settings.ports.append(JwTools::portName(name));
    settings.ports.removeDuplicates();
    settings.delay = m_delay->value();
    settings.retries = m_retries->value();
    return settings;
}

void FindBar::setSettings(const JwTools::SearchSettings &settings)
{
    for (auto it = m_types.begin(); it != m_types.end(); ++it)
        it.value()->setChecked(settings.types.contains(it.key()));
    m_ports->setText(settings.ports.join(QLatin1Char(' ')));
    m_delay->setValue(settings.delay);
    m_retries->setValue(settings.retries);
    updateButtons();
}

void FindBar::setStarted(bool isStarted)
{
    m_stop->setEnabled(isStarted);
}

void FindBar::find()
{
    if (m_find->isEnabled())
        Q_EMIT findRequested(settings());
}

void FindBar::updateButtons()
{
    const bool isAnyChosen = !settings().types.isEmpty();
    m_find->setEnabled(isAnyChosen);
    m_find->setToolTip(isAnyChosen ? tr("Give all boards back and search for the chosen types (F5)")
                                   : tr("Choose at least one type of board"));
}

} // namespace JwMonitor
