// A record's fields beyond the four in the window: the editor sets them and brings an
// earlier password back, the value pane shows them (hidden ones as dots), and the context
// menus copy the web address and the one-time code (the code as a secret).

#include "app/guiSecretClipboard.h"
#include "app/modLang.h"
#include "mainwindow/frmMain.h"
#include "records/Totp.h"
#include "records/frmEditRecord.h"
#include "records/guiRecordExtras.h"
#include "records/guiRecordFields.h"
#include "storage/FieldTable.h"
#include "tests/common/TestMain.h"
#include "tests/mainwindow/MainTestKit.h"

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QDateTime>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QTableWidget>
#include <QTextEdit>

class FieldsWindowTest : public QObject {
    Q_OBJECT
private slots:
    void editorValuePaneAndCopies() {
        TestEnv env;
        makeUser(env);
        frmMain w;
        w.Form_Load();
        openUser();
        Script d;
        int round = 0;
        d.on = [&](QDialog& dlg) {
            auto* e = qobject_cast<frmEditRecord*>(&dlg);
            if (!e)
                return;
            RecordExtrasPanel* x = e->Extras;
            if (++round == 1) {
                x->txtUrl->setText("example.org/login");
                x->txtOtp->setText("not a seed!");
                e->cmdSaveChanges->click(); // refused: the editor stays
                QVERIFY(e->result() != QDialog::Accepted);
                QCOMPARE(d.boxes.size(), 1);
                x->txtOtp->setText("jbsw y3dp ehpk 3pxp");
                QVERIFY2(QRegularExpression("^\\d{6}  \\(\\d+ ").match(x->lblOtpNow->text()).hasMatch(),
                         qPrintable(x->lblOtpNow->text()));
                x->cmdAddField->click();
                x->tblFields->item(0, 0)->setText("PIN");
                x->tblFields->item(0, 1)->setText("2468");
                x->tblFields->item(0, 2)->setCheckState(Qt::Checked);
                x->cmdAddField->click();
                x->tblFields->item(1, 0)->setText("PIN"); // taken: refused, nothing lost
                e->cmdSaveChanges->click();
                QCOMPARE(d.boxes.size(), 2);
                QVERIFY(e->result() != QDialog::Accepted);
                x->tblFields->item(1, 0)->setText("Branch");
                x->tblFields->item(1, 1)->setText("Main St");
                e->Fields->txtPasw->setText("second");
                e->cmdSaveChanges->click();
            } else {
                QCOMPARE(x->tblHistory->rowCount(), 1);
                QCOMPARE(x->tblFields->rowCount(), 2);
                x->tblFields->item(1, 0)->setText("Branch office"); // a rename
                auto* restore = qobject_cast<QPushButton*>(x->tblHistory->cellWidget(0, 1));
                QVERIFY(restore);
                restore->click();
                QCOMPARE(e->Fields->txtPasw->text(), QString("x"));
                e->cmdSaveChanges->click();
            }
        };
        const QModelIndex box = w.NodeByKey("2key");
        w.trvDatabase->setCurrentIndex(box);
        w.mnuContextTrvEdit_Click();
        RecExtras ex = ReadRecExtras(CurUsDB->DBView(), "2");
        QCOMPARE(ex.Url, QString("example.org/login"));
        TotpParams p;
        QVERIFY(ex.Otp.startsWith("otpauth://totp/"));
        QVERIFY(ParseTotp(ex.Otp, p));
        QCOMPARE(p.Secret, QByteArray("Hello!\xde\xad\xbe\xef"));
        QCOMPARE(ex.Custom.size(), 2);
        QVERIFY(ex.Custom[0].Hidden && !ex.Custom[1].Hidden);
        QCOMPARE(rowValue("2", "Password"), QString("second"));
        QCOMPARE(ex.History.size(), 1);
        const QString branchKey = ex.Custom[1].Key;

        w.mnuContextTrvEdit_Click();
        QCOMPARE(round, 2);
        ex = ReadRecExtras(CurUsDB->DBView(), "2");
        QCOMPARE(rowValue("2", "Password"), QString("x"));
        QCOMPARE(ex.History.size(), 2);
        QCOMPARE(ex.History[0].Pasw, QString("second"));
        QCOMPARE(ex.Custom[1].Name, QString("Branch office"));
        QCOMPARE(ex.Custom[1].Key, branchKey);

        // The value pane: the web address, the code, visible values, dots for hidden ones.
        w.trvDatabase->setCurrentIndex(w.NodeByKey("4key"));
        w.trvDatabase->setCurrentIndex(box);
        const QString pane = w.txtValue->toPlainText();
        QVERIFY(pane.contains("example.org/login"));
        QVERIFY(pane.contains("Main St"));
        QVERIFY(pane.contains("PIN"));
        QVERIFY(!pane.contains("2468"));
        QVERIFY(pane.contains(Texts(419)));

        auto action = [&](const char* Name) {
            QAction* a = w.findChild<QAction*>(QString::fromLatin1(Name));
            return a;
        };
        QVERIFY(action("mnuContextValCopyUrl"));
        action("mnuContextValCopyUrl")->trigger();
        QCOMPARE(QApplication::clipboard()->text(), QString("example.org/login"));
        QVERIFY(!SecretClipboard::Instance().HoldsOurSecret());
        const qint64 before = QDateTime::currentSecsSinceEpoch();
        w.SetDropHighlight(box); // the node a right click picked
        action("mnuContextTrvCopyOtp")->trigger();
        const QString code = QApplication::clipboard()->text();
        QVERIFY(code == TotpCode(p, before) || code == TotpCode(p, QDateTime::currentSecsSinceEpoch()));
        QVERIFY(SecretClipboard::Instance().HoldsOurSecret());
        SecretClipboard::Instance().ClearIfOurs();

        // A record without fields shows none and its commands are off.
        w.trvDatabase->setCurrentIndex(w.NodeByKey("4key"));
        QVERIFY(!w.txtValue->toPlainText().contains(Texts(419)));
        QVERIFY(!w.txtValue->toPlainText().contains(Texts(400)));
    }
};

ARGENT_TEST(FieldsWindowTest)
#include "tst_fields_window.moc"
