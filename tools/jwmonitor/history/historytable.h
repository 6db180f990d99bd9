#pragma once

#include <QTableView>

namespace JwMonitor {

/// The table of a history. Scrolled to the end, it follows the newest row. Otherwise it keeps its place while old rows
/// are dropped.
class HistoryTable : public QTableView
{
    Q_OBJECT

public:
    explicit HistoryTable(QWidget *parent = nullptr);
    ~HistoryTable() override;

    void setModel(QAbstractItemModel *model) override;

    /// Makes each column as wide as its text here needs. The last visible column takes the rest.
    void setColumnTexts(const QStringList &texts);

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void scrollContentsBy(int dx, int dy) override;

protected Q_SLOTS:
    void updateGeometries() override;
    void rowsAboutToBeRemoved(const QModelIndex &parent, int start, int end) override;

private:
    bool isAtEnd() const;
    void alignTopRow();
    void copySelected() const;

    bool m_following;
};

} // namespace JwMonitor
