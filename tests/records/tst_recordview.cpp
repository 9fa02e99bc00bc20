#include "records/IRecordView.h"
#include "records/RecordSearch.h"
#include "records/RecordTree.h"
#include "records/frmAddRecord.h"
#include "records/frmEditFolder.h"
#include "records/frmFind.h"
#include "records/guiRecordFields.h"
#include "tests/common/TestMain.h"
#include "tests/records/RecordsTestKit.h"

#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QTest>

namespace {

// A view that keeps what the dialogs told it, in order.
struct ViewLog : IRecordView {
    QStringList calls;
    void ShowAddedRow(const QString& IndNum) override { calls << "added " + IndNum; }
    void RefreshRowNode(const QString& IndNum) override { calls << "changed " + IndNum; }
    void InsertImportedRows(int FirstRec) override { calls << "imported " + QString::number(FirstRec); }
    void ShowFoundRow(const QString& IndNum) override { calls << "found " + IndNum; }
    int SaveCurUser() override {
        calls << "save";
        return 1;
    }
};

// Sets a view for one test and takes it away again.
struct ViewScope {
    explicit ViewScope(IRecordView* View) : previous(SetRecordView(View)) {}
    ~ViewScope() { SetRecordView(previous); }
    IRecordView* previous;
};

QString field(const QString& IndNum, const char* Name) {
    const int rec = FindDataRow(*CurUsDB, IndNum);
    return rec > 0 ? CurUsDB->GetTblFldValNm(dataTable(), rec, QString::fromLatin1(Name)) : QString();
}

} // namespace

// The record dialogs tell whatever view is set what they changed and found, with the
// identifiers of the rows, and change the database the same when no view is set.
class RecordViewTest : public QObject {
    Q_OBJECT
private slots:
    void editorsReportTheRowsTheyChanged() {
        TestEnv env;
        useNewDatabase();
        ViewLog log;
        ViewScope scope(&log);
        const QString folder = GetNewIndNum(*CurUsDB);
        AddFolderToDB(QStringLiteral("Mail"), 0, folder);

        frmAddRecord add(nullptr, folder);
        add.Fields->txtTitle->setText(QStringLiteral("Post box"));
        add.Fields->txtLogin->setText(QStringLiteral("anna"));
        add.cmdOk->click();
        QCOMPARE(add.result(), int(QDialog::Accepted));
        QCOMPARE(log.calls.size(), 1);
        const QString added = log.calls[0].mid(6);
        QCOMPARE(field(added, "Title"), QStringLiteral("Post box"));
        QCOMPARE(field(added, "Parent"), folder);

        frmEditFolder edit(nullptr, folder);
        QCOMPARE(edit.txtTitle->text(), QStringLiteral("Mail"));
        edit.txtTitle->setText(QStringLiteral("Letters"));
        edit.cmdSaveChanges->click();
        QCOMPARE(log.calls, QStringList({"added " + added, "changed " + folder}));
        QCOMPARE(field(folder, "Title"), QStringLiteral("Letters"));
    }

    void searchShowsEachMatchInTurn() {
        TestEnv env;
        useNewDatabase();
        ViewLog log;
        ViewScope scope(&log);
        const QString first = AddRecordToDB(*CurUsDB, "0", "bank one", "", "", "");
        AddRecordToDB(*CurUsDB, "0", "shop", "", "", "");
        const QString second = AddRecordToDB(*CurUsDB, "0", "bank two", "", "", "");
        FindIndNum = 0;
        frmFind find(nullptr);
        find.txtFindText->setText(QStringLiteral("bank"));
        find.optSearchTitles->click();
        for (int i = 0; i < 3; ++i)
            find.cmdFind->click();
        QCOMPARE(log.calls, QStringList({"found " + first, "found " + second, "found " + first}));
    }

    void withoutAViewOnlyTheDatabaseChanges() {
        TestEnv env;
        useNewDatabase();
        ViewScope scope(nullptr);
        const int before = CurUsDB->GetTblRecNum(dataTable());
        frmAddRecord add(nullptr, QStringLiteral("0"));
        add.Fields->txtTitle->setText(QStringLiteral("alone"));
        add.cmdOk->click();
        QCOMPARE(CurUsDB->GetTblRecNum(dataTable()), before + 1);
        FindIndNum = 0;
        frmFind find(nullptr);
        find.txtFindText->setText(QStringLiteral("alone"));
        find.cmdFind->click();
        // The search went on past the row it found, for the next press.
        QCOMPARE(FindIndNum, before + 2);
    }
};

ARGENT_TEST(RecordViewTest)
#include "tst_recordview.moc"
