#include "ui/CRunTreeModel.h"

#include "support/CProcTrap.h"
#include "ui/modFileIcons.h"
#include "ui/modFileNames.h"

namespace {

bool IsFolder(const BrowserNode& node) {
    return node.image == 1 || node.image == 2;
}

} // namespace

CRunTreeModel::CRunTreeModel(CBackupBrowser& browser, QObject* parent)
    : QAbstractItemModel(parent), m_browser(browser) {
    m_icons.push_back(QIcon());
    m_icons.push_back(FolderNodeIcon());
    m_icons.push_back(FileKindIcon(2));
    for (int image = 3; image <= 16; ++image)
        m_icons.push_back(FileKindIcon(image));

    m_browser.OnAboutToReset = [this] { beginResetModel(); };
    m_browser.OnReset = [this] { endResetModel(); };
    m_browser.OnAboutToInsert = [this](int32_t parent, int32_t first, int32_t last) {
        beginInsertRows(IndexOf(parent), first, last);
    };
    m_browser.OnInserted = [this](int32_t, int32_t, int32_t) { endInsertRows(); };
    m_browser.OnChanged = [this](int32_t node) {
        const QModelIndex at = IndexOf(node);
        emit dataChanged(at, at, {Qt::CheckStateRole, Qt::DecorationRole});
        emit ExpansionChanged(at, m_browser.Node(node).expanded);
    };
}

CRunTreeModel::~CRunTreeModel() {
    m_browser.OnAboutToReset = nullptr;
    m_browser.OnReset = nullptr;
    m_browser.OnAboutToInsert = nullptr;
    m_browser.OnInserted = nullptr;
    m_browser.OnChanged = nullptr;
}

QModelIndex CRunTreeModel::IndexOf(int32_t node, int column) const {
    if (node == CBackupBrowser::kNone) return {};
    return createIndex(m_browser.Node(node).row, column, static_cast<quintptr>(node));
}

int32_t CRunTreeModel::NodeOf(const QModelIndex& index) const {
    return index.isValid() ? static_cast<int32_t>(index.internalId()) : CBackupBrowser::kNone;
}

QModelIndex CRunTreeModel::index(int row, int column, const QModelIndex& parent) const {
    if (column < 0 || column >= CBackupBrowser::kColumns || row < 0) return {};
    if (!parent.isValid())
        return row == 0 && m_browser.Root() != CBackupBrowser::kNone
                   ? IndexOf(m_browser.Root(), column)
                   : QModelIndex();
    const std::vector<int32_t>& children = m_browser.Children(NodeOf(parent));
    return static_cast<size_t>(row) < children.size()
               ? IndexOf(children[static_cast<size_t>(row)], column)
               : QModelIndex();
}

QModelIndex CRunTreeModel::parent(const QModelIndex& child) const {
    return child.isValid() ? IndexOf(m_browser.Node(NodeOf(child)).parent) : QModelIndex();
}

int CRunTreeModel::rowCount(const QModelIndex& parent) const {
    if (!parent.isValid()) return m_browser.Root() == CBackupBrowser::kNone ? 0 : 1;
    if (parent.column() > 0) return 0;
    return static_cast<int>(m_browser.Children(NodeOf(parent)).size());
}

int CRunTreeModel::columnCount(const QModelIndex&) const {
    return CBackupBrowser::kColumns;
}

QVariant CRunTreeModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return {};
    return tr(CBackupBrowser::ColumnTitle(section));
}

// A folder may hold files not loaded yet: it shows that it can be opened.
bool CRunTreeModel::hasChildren(const QModelIndex& parent) const {
    if (!parent.isValid()) return rowCount(parent) > 0;
    if (parent.column() > 0) return false;
    const int32_t at = NodeOf(parent);
    const BrowserNode& node = m_browser.Node(at);
    if (!m_browser.Searched().empty()) return !m_browser.Children(at).empty();
    return !node.children.empty() || (IsFolder(node) && !node.expanded);
}

QVariant CRunTreeModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid()) return {};
    const BrowserNode& node = m_browser.Node(NodeOf(index));
    if (index.column() > 0) {
        if (role == Qt::DisplayRole)
            return QString::fromStdString(m_browser.ColumnText(NodeOf(index), index.column()));
        if (role == Qt::TextAlignmentRole && index.column() == 1)
            return QVariant(Qt::AlignRight | Qt::AlignVCenter);
        return {};
    }
    switch (role) {
    case Qt::DisplayRole:
        return ShownName(node.text);
    case Qt::ToolTipRole:
        return ShownName(node.key);
    case Qt::DecorationRole:
        return m_icons[static_cast<size_t>(node.image >= 1 && node.image <= 16 ? node.image : 3)];
    case Qt::CheckStateRole:
        switch (m_browser.Ticks(NodeOf(index))) {
        case TickState::kTicked:
            return Qt::Checked;
        case TickState::kPartly:
            return Qt::PartiallyChecked;
        default:
            return Qt::Unchecked;
        }
    case Qt::UserRole:
        return QByteArray::fromStdString(node.key);
    default:
        return {};
    }
}

bool CRunTreeModel::setData(const QModelIndex& index, const QVariant& value, int role) {
    if (!index.isValid() || index.column() > 0 || role != Qt::CheckStateRole ||
        m_browser.Restoring())
        return false;
    ++m_checkEdits;
    return Trapped("frmMain tvDirs_NodeCheck", false, [&] {
        m_browser.NodeCheck(NodeOf(index), value.toInt() == Qt::Checked);
        return true;
    });
}

Qt::ItemFlags CRunTreeModel::flags(const QModelIndex& index) const {
    if (!index.isValid()) return Qt::NoItemFlags;
    if (index.column() > 0) return Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable;
}
