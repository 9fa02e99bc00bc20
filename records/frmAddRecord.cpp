#include "records/frmAddRecord.h"

#include "app/guiApplication.h"
#include "app/modLang.h"
#include "diagnostics/Trace.h"
#include "records/IRecordView.h"
#include "records/RecordTree.h"
#include "records/guiRecordExtras.h"
#include "records/guiRecordFields.h"
#include "storage/clsDatabase.h"
#include "users/UserAccounts.h"

#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

frmAddRecord::frmAddRecord(QWidget* Parent, const QString& ParentID) : QDialog(Parent), ParentID(ParentID) {
    TRACE_PROC("frmAddRecord.Form_Load", ParentID);
    setObjectName(QStringLiteral("frmAddRecord"));
    Fields = new RecordFields(this);
    Extras = new RecordExtrasPanel(this, Fields->txtPasw, false);
    cmdOk = new QPushButton;
    cmdOk->setObjectName(QStringLiteral("cmdOk"));
    cmdOk->setDefault(true);
    cmdCancel = new QPushButton;
    cmdCancel->setObjectName(QStringLiteral("cmdCancel"));

    auto* grid = new QGridLayout;
    Extras->AddTo(grid, Fields->AddTo(grid, 0));
    auto* buttons = DialogButtonRow({cmdOk, cmdCancel});
    auto* lay = new QVBoxLayout(this);
    lay->addLayout(grid);
    lay->addLayout(buttons);
    resize(500, 520);

    connect(cmdOk, &QPushButton::clicked, this, &frmAddRecord::cmdOk_Click);
    connect(cmdCancel, &QPushButton::clicked, this, &QDialog::reject);
    ShowFormLang();
    ApplyDialogOnTop(this);
}

void frmAddRecord::ShowFormLang() {
    TRACE_PROC("frmAddRecord.ShowFormLang");
    setWindowTitle(Texts(199));
    Fields->ShowFormLang();
    Extras->ShowFormLang();
    cmdOk->setText(Texts(215));
    cmdCancel->setText(Texts(217));
}

void frmAddRecord::cmdOk_Click() {
    TRACE_PROC("frmAddRecord.cmdOk_Click");
    RecExtras extras;
    if (!Extras->Collect(extras))
        return; // the seed gives no codes: the editor stays open
    const QString id = AddRecordToDB(*CurUsDB, ParentID, Fields->txtTitle->text(), Fields->txtLogin->text(),
                                     Fields->txtPasw->text(), Fields->txtDesc->toPlainText());
    WriteRecExtras(*CurUsDB, id, extras);
    if (IRecordView* view = RecordView())
        view->ShowAddedRow(id);
    accept();
}
