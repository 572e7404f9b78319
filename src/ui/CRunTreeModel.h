#pragma once

// tvDirs' view of the run's tree: a Qt item model over the app layer's CBackupBrowser, which
// holds the nodes, with its columns Name, Size and Modified and a folder's partial tick. Names are
// decoded for display only; every item keeps its key's raw bytes under Qt::UserRole. A tick made in
// the view reaches the browser's NodeCheck; folder nodes show the closed folder, and the open one
// when selected.

#include "app/CBackupBrowser.h"

#include <QAbstractItemModel>
#include <QIcon>

#include <vector>

class CRunTreeModel : public QAbstractItemModel {
    Q_OBJECT

public:
    explicit CRunTreeModel(CBackupBrowser& browser, QObject* parent = nullptr);
    ~CRunTreeModel() override;

    QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
    QModelIndex parent(const QModelIndex& child) const override;
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    bool hasChildren(const QModelIndex& parent = {}) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

    QModelIndex IndexOf(int32_t node, int column = 0) const;
    int32_t NodeOf(const QModelIndex& index) const;
    // How many ticks the view has made; a click that made none is a node click.
    int CheckEdits() const { return m_checkEdits; }

signals:
    // A node was opened or closed by the browser; the view follows.
    void ExpansionChanged(const QModelIndex& index, bool expanded);

private:
    CBackupBrowser& m_browser;
    std::vector<QIcon> m_icons; // by image number
    int m_checkEdits = 0;
};
