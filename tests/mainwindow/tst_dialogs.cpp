#include "app/modMain.h"
#include "maintenance/Autobackup.h"
#include "maintenance/RestoreBackup.h"
#include "maintenance/frmRestore.h"
#include "mainwindow/frmAbout.h"
#include "mainwindow/frmMain.h"
#include "mainwindow/guiTreeModel.h"
#include "options/frmOptions.h"
#include "options/guiFolderChooser.h"
#include "records/PaswGenerator.h"
#include "records/RecordSearch.h"
#include "records/frmAddRecord.h"
#include "records/frmEditFolder.h"
#include "records/frmEditRecord.h"
#include "records/frmExport.h"
#include "records/frmFind.h"
#include "records/frmImport.h"
#include "records/frmPaswGenerator.h"
#include "records/guiLookControls.h"
#include "records/guiRecordFields.h"
#include "tests/common/TestMain.h"
#include "tests/mainwindow/MainTestKit.h"
#include "users/frmAddUser.h"
#include "users/frmChangeUsPasw.h"

#include <QAbstractButton>
#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QColorDialog>
#include <QDir>
#include <QGroupBox>
#include <QGuiApplication>
#include <QLabel>
#include <QRadioButton>
#include <QRegularExpression>
#include <QTextEdit>

namespace {

// One of every dialog, opened over the main window (the user of openUser loaded).
std::vector<std::unique_ptr<QDialog>> everyDialog(frmMain& w) {
    std::vector<std::unique_ptr<QDialog>> forms;
    forms.emplace_back(new frmOptions(&w));
    forms.emplace_back(new frmFind(&w));
    forms.emplace_back(new frmPaswGenerator(&w));
    forms.emplace_back(new frmAddRecord(&w, "1"));
    forms.emplace_back(new frmEditRecord(&w, "2"));
    forms.emplace_back(new frmEditFolder(&w, "1"));
    forms.emplace_back(new frmRestore(&w));
    forms.emplace_back(new frmSelectUser(&w));
    forms.emplace_back(new frmAddUser(&w));
    forms.emplace_back(new frmPassword(&w));
    forms.emplace_back(new frmChangeUsPasw(&w));
    forms.emplace_back(new frmAbout(&w));
    forms.emplace_back(new frmImport(&w, "1", "Mail"));
    forms.emplace_back(new frmExport(&w, "1", "Mail"));
    return forms;
}

} // namespace

class DialogsTest : public QObject {
    Q_OBJECT
private slots:
    void findStepsAndWrapsRound() {
        TestEnv env;
        makeUser(env);
        frmMain w;
        w.Form_Load();
        openUser();
        Script d;
        QStringList selected;
        d.on = [&](QDialog& dlg) {
            auto* f = qobject_cast<frmFind*>(&dlg);
            QVERIFY(f);
            f->txtFindText->clear();
            f->cmdFind->click(); // empty text: message 20
            f->txtFindText->setText("mail");
            f->optSearchEverywhere->click();
            for (int i = 0; i < 3; ++i) {
                f->cmdFind->click();
                selected << w.trvDatabase->currentIndex().data().toString();
            }
            f->optSearchTitles->click();
            f->cmdFind->click();
            selected << w.trvDatabase->currentIndex().data().toString();
            f->txtFindText->setText("nowhere");
            f->cmdFind->click();
        };
        w.mnuToolsFind_Click();
        // Everywhere: the folder by title, "Bank" by its password; then round again.
        QCOMPARE(selected, QStringList({"Mail", "Bank", "Mail", "Mail"}));
        QCOMPARE(d.boxes, QStringList({Texts(20), Texts(18)}));
        QCOMPARE(ProgConfig[9], QStringLiteral("1"));
        QCOMPARE(LastFindText, QStringLiteral("nowhere"));
        QCOMPARE(w.txtValue->toPlainText(), QString()); // a folder shows nothing
    }

    void generatorDialog() {
        TestEnv env;
        makeUser(env);
        Script d;
        ProgConfig[10] = "1";
        frmPaswGenerator g;
        // The key filter: digits, and the three odd codes that always passed.
        g.txtPaswLenght->clear();
        QTest::keyClicks(g.txtPaswLenght, "1a2.%'z");
        QCOMPARE(g.txtPaswLenght->text(), QStringLiteral("12.%'"));
        QCOMPARE(ProgConfig[15], QStringLiteral("12.%'"));
        const QList<std::pair<QString, int>> lengths{{"12abc", 12}, {"2.5", 2}, {"3.5", 4}};
        for (const auto& [text, n] : lengths) {
            g.txtPaswLenght->setText(text);
            g.cmdGenerate->click();
            QCOMPARE(g.txtPasw->text().size(), n);
            QCOMPARE(LastGenPasw, g.txtPasw->text());
            QCOMPARE(QGuiApplication::clipboard()->text(), g.txtPasw->text());
        }
        const QString last = g.txtPasw->text();
        for (const QString& text : {QStringLiteral("0"), QString()}) {
            g.txtPaswLenght->setText(text);
            g.cmdGenerate->click();
            QCOMPARE(g.txtPasw->text(), last);
        }
        QGuiApplication::clipboard()->setText("other");
        g.cmdOk->click();
        QCOMPARE(QGuiApplication::clipboard()->text(), last);
        g.chkClipCopy->click();
        QCOMPARE(ProgConfig[10], QStringLiteral("0"));
    }

    void generatorKeyboard() {
        TestEnv env;
        makeUser(env);
        frmPaswGenerator g;
        g.show();
        g.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&g));
        // Tab and Shift+Tab leave the length field; the filter drops typed characters only.
        for (const auto& [key, mod] :
             {std::pair{Qt::Key_Tab, Qt::NoModifier}, {Qt::Key_Backtab, Qt::ShiftModifier}}) {
            g.txtPaswLenght->setFocus();
            QTest::keyClick(g.txtPaswLenght, key, mod);
            QVERIFY(!g.txtPaswLenght->hasFocus());
        }
        // Escape closes it as Cancel does; the password made before stays handed over.
        g.txtPaswLenght->setText("9");
        g.cmdGenerate->click();
        const QString made = LastGenPasw;
        QCOMPARE(made.size(), 9);
        g.txtPaswLenght->setFocus();
        QTest::keyClick(g.txtPaswLenght, Qt::Key_Escape);
        QVERIFY(!g.isVisible());
        QCOMPARE(g.result(), int(QDialog::Rejected));
        QCOMPARE(LastGenPasw, made);
    }

    void editorsWriteTheRowAndTheNode() {
        TestEnv env;
        makeUser(env);
        frmMain w;
        w.Form_Load();
        openUser();
        Script d;
        QString generated;
        int colourCalls = 0;
        d.on = [&](QDialog& dlg) {
            if (auto* e = qobject_cast<frmEditRecord*>(&dlg)) {
                e->Fields->cmdGenerate->click();
                QCOMPARE(e->Fields->txtPasw->text(), generated); // handed over although cancelled
                e->Look->cmdChangeCol->click();                  // cancelled: stays black
                QCOMPARE(e->Look->RecColor, 0);
                e->Look->cmdChangeCol->click(); // red
                e->Look->chkBold->setChecked(true);
                e->Look->imcIcons->setCurrentRow(2);
                e->Fields->txtTitle->setText("Box 2");
                e->cmdSaveChanges->click();
            } else if (auto* g = qobject_cast<frmPaswGenerator*>(&dlg)) {
                g->txtPaswLenght->setText("16");
                g->cmdGenerate->click();
                generated = g->txtPasw->text();
                g->cmdCancel->click();
            } else if (auto* c = qobject_cast<QColorDialog*>(&dlg)) {
                if (++colourCalls == 1) {
                    QColorDialog::setCustomColor(0, QColor(1, 2, 3)); // not kept: cancelled
                    c->reject();
                } else {
                    QColorDialog::setCustomColor(0, QColor(10, 20, 30));
                    c->setCurrentColor(QColor(255, 0, 0));
                    c->accept();
                }
            } else if (auto* a = qobject_cast<frmAddRecord*>(&dlg)) {
                a->Fields->txtTitle->setText("Shop");
                a->Fields->txtLogin->setText("me");
                a->cmdOk->click();
            } else if (auto* f = qobject_cast<frmEditFolder*>(&dlg)) {
                QCOMPARE(f->txtTitle->text(), QStringLiteral("Mail"));
                f->Look->chkBold->setChecked(true);
                f->cmdSaveChanges->click();
            }
        };
        QModelIndex box = w.NodeByKey("2key");
        w.trvDatabase->setCurrentIndex(box);
        w.mnuContextTrvEdit_Click();
        QCOMPARE(generated.size(), 16);
        QCOMPARE(rowValue("2", "Password"), generated);
        QCOMPARE(rowValue("2", "Flags"), QStringLiteral("255|1"));
        QCOMPARE(rowValue("2", "Image"), QStringLiteral("3key"));
        QCOMPARE(box.data().toString(), QStringLiteral("Box 2"));
        QVERIFY(box.data(Qt::FontRole).value<QFont>().bold());
        QCOMPARE(box.data(Qt::ForegroundRole).value<QColor>(), QColor(255, 0, 0));
        // The custom colours of the accepted dialog are kept for the run.
        QCOMPARE(CustomColors.left(4), QByteArray("\x0a\x14\x1e\x00", 4));

        // Unticking bold keeps the colour and the other bits.
        ChangeDataTableField("IndNum", "2", "Flags", "255|7");
        d.on = [](QDialog& dlg) {
            auto* e = qobject_cast<frmEditRecord*>(&dlg);
            e->Look->chkBold->setChecked(false);
            e->cmdSaveChanges->click();
        };
        w.mnuContextTrvEdit_Click();
        QCOMPARE(rowValue("2", "Flags"), QStringLiteral("255|6"));

        // A folder, and a new record that appears at once under its folder.
        d.on = [&](QDialog& dlg) {
            if (auto* f = qobject_cast<frmEditFolder*>(&dlg)) {
                f->Look->chkBold->setChecked(true);
                f->cmdSaveChanges->click();
            } else if (auto* a = qobject_cast<frmAddRecord*>(&dlg)) {
                a->Fields->txtTitle->setText("Shop");
                a->Fields->txtLogin->setText("me");
                a->cmdOk->click();
            }
        };
        QModelIndex mail = w.NodeByKey("1key");
        w.trvDatabase->setCurrentIndex(mail);
        w.mnuContextTrvEdit_Click();
        QCOMPARE(rowValue("1", "Flags"), QStringLiteral("0|1"));
        QVERIFY(mail.data(Qt::FontRole).value<QFont>().bold());
        w.SetDropHighlight(mail);
        w.mnuContextTrvAddRec_Click();
        QModelIndex shop = w.NodeByKey("6key");
        QVERIFY(shop.isValid());
        QCOMPARE(shop.parent(), mail);
        QCOMPARE(shop.row(), w.TreeModel()->rowCount(mail) - 1);
        QCOMPARE(rowValue("6", "Login"), QStringLiteral("me"));
        QCOMPARE(rowValue("6", "Image"), QStringLiteral("1key"));
    }

    void restorePutsACopyBack() {
        TestEnv env;
        makeUser(env);
        frmMain w;
        w.Form_Load();
        openUser();
        ProgConfig[13] = "3";
        DoAutobackup(CurUsDB);
        ChangeDataTableField("IndNum", "5", "Title", "Changed");
        SaveUsDB(CurUsDB, GetTruePasw(CurUsPasw));
        DoAutobackup(CurUsDB);
        Script d;
        d.on = [&](QDialog& dlg) {
            auto* r = qobject_cast<frmRestore*>(&dlg);
            QVERIFY(r);
            QCOMPARE(r->lstRestorDBs->count(), 2);
            r->cmdRestore->click(); // nothing selected
            const auto items = r->lstRestorDBs->findItems("anna_1.bdb.BACKUP Date: ", Qt::MatchStartsWith);
            QCOMPARE(items.size(), 1);
            r->lstRestorDBs->setCurrentItem(items.first());
            d.answers = {vbNo};
            r->cmdRestore->click();
            d.answers = {vbYes};
            r->cmdRestore->click();
            QCOMPARE(r->lstRestorDBs->count(), 2); // every copy is kept
            r->lstRestorDBs->setCurrentRow(0);
            d.answers = {vbYes};
            r->cmdDelete->click();
            QCOMPARE(r->lstRestorDBs->count(), 1);
        };
        w.mnuFileBackup_Click();
        QCOMPARE(d.boxes, QStringList({Texts(225), Texts(223), Texts(223), Texts(224)}));
        // The user is open again with the copy's content, in the tree as well.
        QCOMPARE(CurUser, QStringLiteral("anna"));
        QCOMPARE(rowValue("5", "Title"), QStringLiteral("Forum"));
        QCOMPARE(w.NodeByKey("5key").data().toString(), QStringLiteral("Forum"));
    }

    void portableCopyWithProgress() {
        TestEnv env;
        makeUser(env);
        writeFileText(env.progDir() + "/ArgentPasswordMngr", "program");
        writeFileText(env.progDir() + "/argentpm", "cli");
        frmMain w;
        w.Form_Load();
        Script d;
        const QString stick = env.root() + "/stick";
        QDir().mkpath(stick);
        QString title;
        SetFolderChooser([&](QWidget*, QString& path, const QString& t) {
            title = t;
            path = stick;
            return true;
        });
        w.mnuToolsFlash_Click();
        SetFolderChooser({});
        QCOMPARE(title, QStringLiteral("Choose removable device"));
        QCOMPARE(d.boxes, QStringList{Texts(132)});
        QCOMPARE(readAllOf(stick + "/ArgentPasswordMngr"), QByteArray("program"));
        QVERIFY(QFile::exists(stick + "/DataBases/anna.bdb"));
        StrMass portable;
        QCOMPARE(LoadConfig(stick + "/config.dat", portable), 0);
        QCOMPARE(QDir::cleanPath(portable[5]), QDir::cleanPath(stick + "/DataBases"));
    }

    // Every dialog, in both languages, shows its captions whole: no label or button is
    // narrower than its text. With ARGENT_SHOTS set, pictures of them go to that folder.
    void noCaptionIsClipped_data() {
        QTest::addColumn<QString>("language");
        QTest::newRow("English") << "English";
        QTest::newRow("Russian") << "Russian";
    }
    void noCaptionIsClipped() {
        QFETCH(QString, language);
        TestEnv env;
        makeUser(env);
        LoadLang(env.progDir() + "/Languages/" + language + ".lng");
        frmMain w;
        w.Form_Load();
        openUser();
        std::vector<std::unique_ptr<QDialog>> forms = everyDialog(w);
        const QString shots = qEnvironmentVariable("ARGENT_SHOTS");
        QStringList clipped;
        for (auto& f : forms) {
            f->show();
            QApplication::processEvents();
            for (auto* l : f->findChildren<QLabel*>())
                if (l->isVisible() && !l->wordWrap() && l->width() < l->sizeHint().width())
                    clipped << f->objectName() + ": " + l->text();
            for (auto* b : f->findChildren<QAbstractButton*>())
                if (b->isVisible() && b->width() < b->sizeHint().width())
                    clipped << f->objectName() + ": " + b->text();
            if (!shots.isEmpty())
                f->grab().save(shots + "/" + language + "-" + f->objectName() + ".png");
            f->hide();
        }
        QVERIFY2(clipped.isEmpty(), qPrintable(clipped.join("\n")));
    }

    // With the Russian language file every dialog speaks Russian: no caption, label or
    // button keeps an English text.
    void everyDialogInRussian() {
        TestEnv env;
        makeUser(env);
        LoadLang(env.progDir() + "/Languages/Russian.lng");
        frmMain w;
        w.Form_Load();
        openUser();
        std::vector<std::unique_ptr<QWidget>> forms;
        for (auto& d : everyDialog(w))
            forms.emplace_back(d.release());
        forms.emplace_back(&w);
        const QRegularExpression latin("[A-Za-z]{2,}");
        QStringList english;
        for (auto& f : forms) {
            QStringList texts{f->windowTitle()};
            for (auto* l : f->findChildren<QLabel*>())
                texts << l->text();
            for (auto* b : f->findChildren<QAbstractButton*>())
                texts << b->text();
            for (auto* g : f->findChildren<QGroupBox*>())
                texts << g->title();
            for (auto* a : f->findChildren<QAction*>())
                texts << a->text();
            for (const QString& t : texts)
                if (latin.match(t).hasMatch())
                    english << f->objectName() + ": " + t;
        }
        forms.back().release();
        // The fixed names the program carries in every language.
        english.removeIf([](const QString& s) {
            return s.contains("SampleUser") || s.contains("anna") || s.endsWith(": Mail") ||
                   s.contains("Box") || s.contains(": OK") || s.contains("KeePass") || s.endsWith("(Mail)") ||
                   s.contains("Bitwarden") || s.endsWith(": Argent Password Manager") ||
                   QRegularExpression(
                       ": (Firefox|LibreWolf|Chromium|Google Chrome|Brave|Vivaldi|Microsoft Edge)$")
                       .match(s)
                       .hasMatch();
        });
        QVERIFY2(english.isEmpty(), qPrintable(english.join("\n")));
    }
};

ARGENT_TEST(DialogsTest)
#include "tst_dialogs.moc"
