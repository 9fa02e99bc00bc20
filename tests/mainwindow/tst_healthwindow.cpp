#include "mainwindow/frmMain.h"
#include "records/frmPasswordHealth.h"
#include "tests/common/TestMain.h"
#include "tests/mainwindow/MainTestKit.h"

#include <QTextEdit>
#include <QTreeWidget>

// Tools > Password health on anna's user: "Box" and "Forum" have one-letter passwords.
class HealthWindowTest : public QObject {
    Q_OBJECT
private slots:
    void aLineSelectsItsRecordInTheTree() {
        TestEnv env;
        makeUser(env);
        frmMain w;
        w.Form_Load();
        w.tmrTimer_Timer();
        QVERIFY(!w.mnuToolsHealth->isEnabled());
        openUser();
        w.tmrTimer_Timer();
        QVERIFY(w.mnuToolsHealth->isEnabled());
        Script d;
        QStringList selected;
        d.on = [&](QDialog& dlg) {
            auto* h = qobject_cast<frmPasswordHealth*>(&dlg);
            QVERIFY(h);
            QTreeWidgetItem* weak = h->trvHealth->topLevelItem(0);
            for (int i = 0; i < weak->childCount(); ++i) {
                emit h->trvHealth->itemActivated(weak->child(i), 0);
                selected << w.trvDatabase->currentIndex().data().toString();
            }
            h->cmdClose->click();
        };
        w.mnuToolsHealth_Click();
        QVERIFY(selected.contains("Box") && selected.contains("Forum"));
        // The value pane shows the record last gone to, as a click on it would.
        QVERIFY(w.txtValue->toPlainText().contains(selected.last()));
    }
};

ARGENT_TEST(HealthWindowTest)
#include "tst_healthwindow.moc"
