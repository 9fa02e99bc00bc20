#pragma once

// The main window and a record's fields beyond the four: the value pane shows the web
// address, the one-time code (with the seconds it has left, kept current) and the custom
// fields (hidden ones as dots); the context menus of the tree and of the value pane copy
// the web address, open it in the browser, copy the one-time code (as a secret, cleared
// like a password) and copy a custom field.

#include <QObject>
#include <QString>

#include <functional>

class QAction;
class QMenu;
class QTextEdit;
class QTimer;
class clsDatabase;

class ValueExtras : public QObject {
    Q_OBJECT
public:
    // ValueRecord and TreeRecord: the identifier of the record the value pane shows and of
    // the record node the tree's commands act on (0 when none).
    ValueExtras(QObject* Owner, QTextEdit* Pane, QMenu* ValueMenu, QMenu* TreeMenu,
                std::function<int()> ValueRecord, std::function<int()> TreeRecord);
    void ShowFormLang();
    // Appends the fields of record IndNum to the pane (after its four fields).
    void Show(clsDatabase& Db, const QString& IndNum);
    void Clear();

    // The commands (tests call them too). Tree: the tree's record, else the value pane's.
    void CopyUrl(bool Tree);
    void OpenUrl(bool Tree);
    void CopyOtp(bool Tree);
    void CopyField(const QString& Name);

    QAction *mnuValCopyUrl, *mnuValOpenUrl, *mnuValCopyOtp, *mnuTrvCopyUrl, *mnuTrvOpenUrl, *mnuTrvCopyOtp;
    QMenu* mnuValCopyField;

private:
    QString recordOf(bool Tree) const;
    void updateStates(bool Tree);
    void fillFieldMenu();
    void tick();

    QTextEdit* m_pane;
    std::function<int()> m_valueRecord, m_treeRecord;
    QTimer* m_timer;
    QString m_otp;  // the seed shown in the pane
    QString m_code; // and the code line as it stands there
    int m_codeAt = -1, m_codeLen = 0;
};
