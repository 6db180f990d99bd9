#pragma once

#include <QTableView>

namespace JwMonitor {

/// A table for a history: follows the newest row while it stands at the end, and else keeps its place while rows go at
/// the front.
class HistoryTable : public QTableView
{
    Q_OBJECT

public:
    explicit HistoryTable(QWidget *parent = nullptr);
    ~HistoryTable() override;

    void setModel(QAbstractItemModel *model) override;

    /// Makes columns as wide as these texts need, one each; the last visible one takes the rest.
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
