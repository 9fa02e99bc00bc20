#include "maintenance/frmRestore.h"
#include "mainwindow/frmAbout.h"
#include "mainwindow/frmMain.h"
#include "mainwindow/guiTreeModel.h"
#include "options/PanePassword.h"
#include "options/frmOptions.h"
#include "records/frmAddRecord.h"
#include "records/frmEditFolder.h"
#include "records/frmEditRecord.h"
#include "records/frmExport.h"
#include "records/frmFind.h"
#include "records/frmImport.h"
#include "records/frmPasswordHealth.h"
#include "records/frmPaswGenerator.h"
#include "tests/common/TestMain.h"
#include "tests/mainwindow/MainTestKit.h"
#include "users/frmAddUser.h"
#include "users/frmChangeUsPasw.h"

#include <QAbstractButton>
#include <QAbstractItemView>
#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QGroupBox>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QPlainTextEdit>
#include <QSpinBox>
#include <QTabWidget>
#include <QTextEdit>
#include <QToolBar>
#include <QToolButton>

#include <memory>

namespace {
// The letter a text underlines ("&&" is a plain ampersand), or none.
QChar mnemonic(const QString& Text) {
    for (int i = 0; i + 1 < Text.size(); ++i) {
        if (Text[i] != u'&')
            continue;
        if (Text[i + 1] != u'&')
            return Text[i + 1].toLower();
        ++i;
    }
    return {};
}

// What is wrong with the keys of the controls a window shows now: two controls with one
// mnemonic, a label whose mnemonic leads nowhere, an edit field nothing names.
QStringList keyFaults(QWidget* Win) {
    QStringList faults;
    QHash<QChar, QString> seen;
    const auto take = [&](const QString& Text, const QString& What) {
        const QChar m = mnemonic(Text);
        if (m.isNull())
            return;
        if (seen.contains(m))
            faults << QStringLiteral("Alt+%1: %2 and %3").arg(m, seen[m], What);
        seen.insert(m, What);
    };
    QHash<QWidget*, QLabel*> labelOf;
    for (QLabel* l : Win->findChildren<QLabel*>()) {
        if (!l->isVisibleTo(Win))
            continue;
        if (l->buddy())
            labelOf.insert(l->buddy(), l);
        if (!mnemonic(l->text()).isNull() && !l->buddy())
            faults << QStringLiteral("label without buddy: ") + l->text();
        if (l->buddy() && mnemonic(l->text()).isNull())
            faults << QStringLiteral("label without mnemonic: ") + l->text();
        take(l->buddy() ? l->text() : QString(), l->text());
    }
    for (QAbstractButton* b : Win->findChildren<QAbstractButton*>())
        if (b->isVisibleTo(Win))
            take(b->text(), b->text());
    for (QGroupBox* g : Win->findChildren<QGroupBox*>())
        if (g->isVisibleTo(Win))
            take(g->title(), g->title());
    for (QTabWidget* t : Win->findChildren<QTabWidget*>())
        for (int i = 0; t->isVisibleTo(Win) && i < t->count(); ++i)
            take(t->tabText(i), t->tabText(i));
    for (QWidget* w : Win->findChildren<QWidget*>()) {
        const bool field = qobject_cast<QLineEdit*>(w) || qobject_cast<QTextEdit*>(w) ||
                           qobject_cast<QPlainTextEdit*>(w) || qobject_cast<QComboBox*>(w) ||
                           qobject_cast<QAbstractSpinBox*>(w) ||
                           (qobject_cast<QAbstractItemView*>(w) && !qobject_cast<QHeaderView*>(w));
        if (field && w->isVisibleTo(Win) && !qobject_cast<QComboBox*>(w->parentWidget()) &&
            !qobject_cast<QComboBox*>(w->window()) && !qobject_cast<QAbstractSpinBox*>(w->parentWidget()) &&
            w->accessibleName().isEmpty() && !labelOf.contains(w))
            faults << QStringLiteral("unnamed field ") + w->metaObject()->className() + u' ' +
                          w->objectName();
    }
    return faults;
}

// Every page of every tab widget in turn (a hidden page's keys do not count).
QStringList allPagesKeyFaults(QWidget* Win) {
    QStringList faults = keyFaults(Win);
    for (QTabWidget* t : Win->findChildren<QTabWidget*>()) {
        for (int i = 1; i < t->count(); ++i) {
            t->setCurrentIndex(i);
            faults += keyFaults(Win);
        }
        t->setCurrentIndex(0);
    }
    faults.removeDuplicates();
    return faults;
}

// Each menu's items (submenus included) and the menu bar's titles: every one underlines a
// letter of its own.
QStringList itemFaults(const QList<QAction*>& Items, const QString& Where) {
    QStringList faults;
    QHash<QChar, QString> seen;
    for (QAction* a : Items) {
        if (a->isSeparator() || !a->isVisible())
            continue;
        const QChar k = mnemonic(a->text());
        if (k.isNull() || seen.contains(k))
            faults << Where + QStringLiteral(" > ") + a->text();
        seen.insert(k, a->text());
        if (a->menu())
            faults += itemFaults(a->menu()->actions(), Where + QStringLiteral(" > ") + a->text());
    }
    return faults;
}

void showActive(frmMain& w) {
    w.show();
    QApplication::setActiveWindow(&w);
    w.trvDatabase->setFocus();
    QVERIFY(QTest::qWaitForWindowActive(&w));
}
} // namespace

// The main window by keyboard: the Edit menu's states and keys, keys that stay with the
// edit fields, every window's mnemonics, what the tree tells a screen reader, and the
// password the value pane can hide.
class KeyboardTest : public QObject {
    Q_OBJECT
private slots:
    // The Edit menu is enabled exactly as the tool bar and the context menu are, with no
    // user, on the root, a folder and a record.
    void editMenuFollowsToolBar() {
        TestEnv env;
        makeUser(env);
        Script s;
        frmMain w;
        w.Form_Load();
        const QList<QAction*> edit{w.mnuEditAddFolder, w.mnuEditAddRec, w.mnuEditEdit, w.mnuEditRename,
                                   w.mnuEditDelete};
        for (QAction* a : edit)
            QVERIFY2(!a->isEnabled(), qPrintable(a->objectName()));
        QVERIFY(!w.mnuEditFind->isEnabled());
        openUser();
        QCOMPARE(w.menuBar()->actions().value(1), w.mnuEdit->menuAction());
        for (const char* key : {"0key", "1key", "2key", "3key"}) {
            w.trvDatabase->setCurrentIndex(w.NodeByKey(key));
            w.SetDropHighlight(w.NodeByKey(key));
            const bool root = QByteArray(key) == "0key";
            QCOMPARE(w.mnuEditAddFolder->isEnabled(), w.btnAddFolder->isEnabled());
            QCOMPARE(w.mnuEditAddRec->isEnabled(), w.btnAddRec->isEnabled());
            QCOMPARE(w.mnuEditRename->isEnabled(), w.btnRename->isEnabled());
            QCOMPARE(w.mnuEditDelete->isEnabled(), w.btnDelFolder->isEnabled() || w.btnDelRec->isEnabled());
            QCOMPARE(w.mnuEditEdit->isEnabled(), !root);
            QCOMPARE(w.mnuEditDelete->isEnabled(), !root);
            QCOMPARE(w.mnuContextTrvCopyPasw->isEnabled(), QByteArray(key) == "2key");
            QVERIFY(w.mnuEditFind->isEnabled());
        }
    }

    // Delete, Enter and F2 act on the tree only while it has the focus; in the value pane
    // and in the label being renamed they keep their meaning there.
    void keysStayWithTheirField() {
        TestEnv env;
        makeUser(env);
        Script s;
        QStringList opened;
        s.on = [&](QDialog& d) {
            opened << d.metaObject()->className();
            d.reject();
        };
        frmMain w;
        w.Form_Load();
        openUser();
        showActive(w);
        w.trvDatabase->setCurrentIndex(w.NodeByKey("4key"));
        w.txtValue->setFocus();
        QTest::keyClick(w.txtValue, Qt::Key_Delete);
        QTest::keyClick(w.txtValue, Qt::Key_Return);
        QVERIFY(s.boxes.isEmpty());
        QVERIFY(opened.isEmpty());
        QCOMPARE(rowValue("4", "Title"), QStringLiteral("Bank"));

        w.trvDatabase->setFocus();
        QTest::keyClick(w.trvDatabase, Qt::Key_F2);
        auto* editor = w.trvDatabase->findChild<QLineEdit*>();
        QVERIFY(editor && editor->hasFocus());
        editor->setCursorPosition(0);
        QTest::keyClick(editor, Qt::Key_Delete);
        QTest::keyClicks(editor, "T");
        QTest::keyClick(editor, Qt::Key_Return);
        QTRY_COMPARE(rowValue("4", "Title"), QStringLiteral("Tank"));
        QVERIFY(s.boxes.isEmpty());

        // Ctrl+N works from the value pane too; F10 opens the first menu. (Enter, Insert,
        // Delete, Shift+F10 and the Menu key on the tree are driven by the x11_keyboard test.)
        w.trvDatabase->setCurrentIndex(w.NodeByKey("1key"));
        w.txtValue->setFocus();
        QTest::keyClick(w.txtValue, Qt::Key_N, Qt::ControlModifier);
        QCOMPARE(opened, QStringList({"frmAddRecord"}));
        QTest::keyClick(w.txtValue, Qt::Key_F10);
        QTRY_VERIFY(w.mnufile->isVisible());
        w.mnufile->hide();
        // The same Delete on the tree deletes, after the question.
        w.trvDatabase->setCurrentIndex(w.NodeByKey("4key"));
        w.trvDatabase->setFocus();
        QTest::keyClick(w.trvDatabase, Qt::Key_Delete);
        QCOMPARE(s.boxes, QStringList({Texts(17)}));
        QCOMPARE(FindDataRow(*CurUsDB, "4"), 0);
    }

    // No window has two controls, menus or items on one mnemonic, a mnemonic on a label
    // that leads nowhere, or an edit field without a name, in either language.
    void mnemonicsDoNotClash_data() {
        QTest::addColumn<QString>("language");
        QTest::newRow("English") << "English";
        QTest::newRow("Russian") << "Russian";
    }
    void mnemonicsDoNotClash() {
        QFETCH(QString, language);
        TestEnv env;
        makeUser(env, language);
        Script s;
        frmMain w;
        w.Form_Load();
        openUser();
        QCOMPARE(itemFaults(w.menuBar()->actions(), "menu bar"), QStringList());
        for (QMenu* m : {w.mnuContextTrv, w.mnuContextVal, w.mnuTray}) {
            w.SetDropHighlight(w.NodeByKey("4key"));
            emit m->aboutToShow();
            QCOMPARE(itemFaults(m->actions(), m->objectName()), QStringList());
        }
        w.trvDatabase->setCurrentIndex(w.NodeByKey("4key"));
        QCOMPARE(keyFaults(&w), QStringList());
        std::vector<std::unique_ptr<QDialog>> dialogs;
        dialogs.emplace_back(new frmAddRecord(&w, "1"));
        dialogs.emplace_back(new frmEditRecord(&w, "4"));
        dialogs.emplace_back(new frmEditFolder(&w, "1"));
        dialogs.emplace_back(new frmFind(&w));
        dialogs.emplace_back(new frmOptions(&w));
        dialogs.emplace_back(new frmRestore(&w));
        dialogs.emplace_back(new frmAddUser(&w));
        dialogs.emplace_back(new frmSelectUser(&w));
        dialogs.emplace_back(new frmPassword(&w));
        dialogs.emplace_back(new frmChangeUsPasw(&w));
        dialogs.emplace_back(new frmAbout(&w));
        dialogs.emplace_back(new frmPaswGenerator(&w));
        dialogs.emplace_back(new frmImport(&w, "0", "anna"));
        dialogs.emplace_back(new frmExport(&w, "0", "anna"));
        dialogs.emplace_back(new frmPasswordHealth(&w, MakeHealthReport(*CurUsDB)));
        QStringList faults;
        for (const auto& d : dialogs)
            for (const QString& f : allPagesKeyFaults(d.get()))
                faults << QString(d->metaObject()->className()) + ": " + f;
        for (const QString& f : faults)
            qWarning("%s", qPrintable(f));
        QVERIFY2(faults.isEmpty(), "see the warnings");
    }

    // Each row tells whether it is a folder or a record, its level and what a folder holds.
    void treeRowsDescribeThemselves() {
        TestEnv env;
        makeUser(env);
        Script s;
        frmMain w;
        w.Form_Load();
        openUser();
        const auto desc = [&](const char* key) {
            return w.NodeByKey(key).data(Qt::AccessibleDescriptionRole).toString();
        };
        QCOMPARE(desc("0key"), Texts(547).arg(1).arg(2).arg(1));
        QCOMPARE(desc("1key"), Texts(547).arg(2).arg(0).arg(1));
        QCOMPARE(desc("2key"), Texts(548).arg(3));
        QCOMPARE(desc("4key"), Texts(548).arg(2));
        // A folder added and a record moved are counted at once.
        AddFolderToDB("Sub", 1, GetNewIndNum(*CurUsDB));
        w.RefreshStatusCounts();
        QCOMPARE(desc("1key"), Texts(547).arg(2).arg(1).arg(1));
    }

    // With the option on, the pane shows dots until the toggle shows the password, and
    // another record hides it again; with it off the pane shows the password.
    void paneHidesThePasswordOnRequest() {
        TestEnv env;
        makeUser(env);
        Script s;
        frmMain w;
        w.Form_Load();
        openUser();
        showActive(w);
        w.trvDatabase->setCurrentIndex(w.NodeByKey("4key"));
        QVERIFY(w.txtValue->toPlainText().contains("MailKey"));
        QVERIFY(!w.chkShowPasw->isVisible());
        SetPaneHidesPassword(true);
        w.RefreshValuePane();
        QVERIFY(!w.txtValue->toPlainText().contains("MailKey"));
        QVERIFY(w.txtValue->toPlainText().contains(QString(8, QChar(0x2022))));
        QVERIFY(w.txtValue->toPlainText().contains("money"));
        QVERIFY(w.chkShowPasw->isVisible());
        w.chkShowPasw->setChecked(true);
        QVERIFY(w.txtValue->toPlainText().contains("MailKey"));
        w.trvDatabase->setCurrentIndex(w.NodeByKey("1key"));
        QVERIFY(!w.chkShowPasw->isVisible());
        w.trvDatabase->setCurrentIndex(w.NodeByKey("4key"));
        QVERIFY(!w.chkShowPasw->isChecked());
        QVERIFY(!w.txtValue->toPlainText().contains("MailKey"));
        // Copying still gives the password itself.
        w.mnuContextValCopyPasw->trigger();
        QCOMPARE(QGuiApplication::clipboard()->text(), QStringLiteral("MailKey"));
        SetPaneHidesPassword(false);
        w.RefreshValuePane();
        QVERIFY(w.txtValue->toPlainText().contains("MailKey"));
        QVERIFY(!w.chkShowPasw->isVisible());
    }
};

ARGENT_TEST(KeyboardTest)
#include "tst_keyboard.moc"
