#pragma once

// The main window's tree as a model over the rows of the user's DataTable. A node is made
// only when its folder's children are first asked for (the view asks when the folder is
// expanded), so a database of 100,000 rows shows with its top level alone. What a node
// shows comes from its row: key "<IndNum>key" ("0key" the root), text Title, picture
// "<Image>key", Tag Type, colour and bold from Flags. The order and the rule of which
// children are shown are the tree index's (users/UsDBTree.h).
//
// The window keeps the model in step with the table: after rows are added, deleted or
// moved it calls TableChanged and then brings the folders concerned in line (SyncChildren,
// MoveNode); a changed row is RowChanged. None of these rebuilds the tree.

#include "users/UsDBTree.h"

#include <QAbstractItemModel>
#include <QHash>
#include <QIcon>

#include <memory>
#include <vector>

class clsDatabase;

class UsTreeModel : public QAbstractItemModel {
    Q_OBJECT
public:
    static constexpr int KeyRole = Qt::UserRole;
    static constexpr int TagRole = Qt::UserRole + 1;
    static constexpr const char* kMimeType = "application/x-argent-tree-node";

    explicit UsTreeModel(QObject* parent = nullptr);
    ~UsTreeModel() override;

    // The tree of Db anew: the root, with the text RootText, and its children. Owner, when
    // given, keeps Db alive as long as the tree shows it.
    void Reset(const clsDatabase& Db, const QString& RootText, std::shared_ptr<const clsDatabase> Owner = {});
    const clsDatabase* Db() const { return m_db; }
    // True while the model brings itself in line (a view's handler must not start another).
    bool Busy() const { return m_busy; }
    // Every node made so far, the root first.
    QModelIndexList CreatedNodes() const;
    // No tree at all.
    void Clear();
    bool HasRoot() const { return m_root != nullptr; }
    QModelIndex RootIndex() const;
    // The node of identifier Id (0 the root), made with the folders above it when it was
    // not yet; invalid when the tree does not show that row.
    QModelIndex IndexOfId(int Id);
    // The identifier of a node (0 the root), the row (from 0) it shows, -1 for the root.
    int IdOf(const QModelIndex& Node) const;
    int RowOf(const QModelIndex& Node) const;
    const UsDBTreeIndex& TreeIndex() const { return m_index; }
    // How many nodes exist now (the root included).
    int NodeCount() const { return m_nodeCount; }

    // Rows were added, deleted or moved: the index is made again and every node finds its
    // row anew. Nodes whose rows are gone are dropped (rows removed), so a node never
    // shows a row that is not there.
    void TableChanged();
    // The children of folder Id brought in line with the table: new rows inserted, gone
    // ones removed, where they belong; a folder whose children changed otherwise has them
    // made again. Nothing is done for a folder whose children were never made.
    void SyncChildren(int Id);
    // A row's values changed (title, picture, colour, bold).
    void RowChanged(int Id);
    // The node of Node's row, now a child of Target's row in the table, moved there with
    // everything below it (its children and their expansion stay); then both folders are
    // brought in line.
    void MoveNode(const QModelIndex& Node, const QModelIndex& Target);

    QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
    QModelIndex parent(const QModelIndex& child) const override;
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    bool hasChildren(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    QStringList mimeTypes() const override;
    QMimeData* mimeData(const QModelIndexList& indexes) const override;
    Qt::DropActions supportedDropActions() const override;
    Qt::DropActions supportedDragActions() const override;

signals:
    // The user finished editing a node's label (the model itself changes nothing).
    void titleEdited(const QModelIndex& Node, const QString& Title);

private:
    struct Node {
        int id = 0;
        int row0 = -1;
        Node* parent = nullptr;
        int pos = 0;
        bool opens = false;
        bool fetched = false;
        bool bold = false;
        int colour = 0;
        const QIcon* icon = nullptr;
        std::vector<std::unique_ptr<Node>> kids;
    };
    Node* nodeOf(const QModelIndex& i) const;
    QString describe(const Node* n, const QString& Tag) const;
    QModelIndex indexOf(Node* n) const;
    std::unique_ptr<Node> makeNode(Node* parent, int row0);
    void applyRow(Node* n);
    bool onPath(const Node* parent, int id) const;
    void fetch(Node* n) const;
    void forget(Node* n);
    void renumber(Node* parent, int from);
    std::vector<int> wantedChildren(Node* n) const;
    void syncNode(Node* n);

    UsDBTreeIndex m_index;
    const clsDatabase* m_db = nullptr;
    std::shared_ptr<const clsDatabase> m_owner;
    bool m_busy = false;
    std::unique_ptr<Node> m_root;
    QString m_rootText;
    // The last node made for each identifier.
    mutable QHash<int, Node*> m_byId;
    mutable int m_nodeCount = 0;
};
