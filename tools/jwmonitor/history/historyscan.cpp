#include "historyscan.h"

#include <QAbstractItemModel>
#include <QElapsedTimer>

#include <algorithm>
#include <limits>

namespace JwMonitor {

namespace {

constexpr int rowsAtOnce = 250;
constexpr int msPerTurn = 3;

} // namespace

HistoryScan::HistoryScan(const QAbstractItemModel *model, QObject *parent)
    : QObject(parent)
    , m_model(model)
    , m_firstNumber(0)
    , m_next(model->rowCount())
    , m_end(std::numeric_limits<qint64>::max())
    , m_paused(false)
{
    m_turn.setSingleShot(true);
    connect(&m_turn, &QTimer::timeout, this, &HistoryScan::goOn);
    connect(model, &QAbstractItemModel::rowsInserted, this, [this] {
        if (!m_turn.isActive())
            goOn();
    });
    connect(model, &QAbstractItemModel::rowsAboutToBeRemoved, this,
            [this](const QModelIndex &, int, int last) { Q_EMIT dropping(m_firstNumber + last + 1); });
    connect(model, &QAbstractItemModel::rowsRemoved, this, [this](const QModelIndex &, int first, int last) {
        m_firstNumber += last - first + 1;
        m_next = std::max(m_next, m_firstNumber);
    });
}

HistoryScan::~HistoryScan() = default;

void HistoryScan::restart()
{
    m_turn.stop();
    m_next = m_firstNumber;
    goOn();
}

void HistoryScan::setPaused(bool paused)
{
    m_paused = paused;
    m_end = paused ? m_firstNumber + m_model->rowCount() : std::numeric_limits<qint64>::max();
    if (!m_turn.isActive())
        goOn();
}

void HistoryScan::goOn()
{
    QElapsedTimer turn;
    turn.start();
    while (reachSome()) {
        if (turn.elapsed() >= msPerTurn && rowsLeft() > 0) {
            m_turn.start(0);
            return;
        }
    }
}

qint64 HistoryScan::rowsLeft() const
{
    return std::min(m_end, m_firstNumber + m_model->rowCount()) - m_next;
}

bool HistoryScan::reachSome()
{
    const int first = static_cast<int>(m_next - m_firstNumber);
    const int count = static_cast<int>(std::min<qint64>(rowsLeft(), rowsAtOnce));
    if (count <= 0)
        return false;
    m_next += count;
    Q_EMIT reached(first, first + count - 1);
    return true;
}

} // namespace JwMonitor
