#include "records/guiRecordFields.h"

#include "app/VbConv.h"
#include "app/modLang.h"
#include "diagnostics/Trace.h"
#include "records/RecordExtras.h"
#include "records/RecordTree.h"
#include "records/frmPaswGenerator.h"
#include "storage/clsDatabase.h"
#include "users/UserAccounts.h"

#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QToolButton>

RecordFields::RecordFields(QWidget* Owner) : QObject(Owner), m_owner(Owner) {
    auto edit = [](const char* name) {
        auto* e = new QLineEdit;
        e->setObjectName(QString::fromLatin1(name));
        return e;
    };
    lblTitleCap = new QLabel;
    lblLoginCap = new QLabel;
    lblPaswCap = new QLabel;
    lblDescCap = new QLabel;
    txtTitle = edit("txtTitle");
    txtLogin = edit("txtLogin");
    txtPasw = edit("txtPasw");
    txtDesc = new QPlainTextEdit;
    txtDesc->setObjectName(QStringLiteral("txtDesc"));
    txtDesc->setTabChangesFocus(true);
    lblTitleCap->setBuddy(txtTitle);
    lblLoginCap->setBuddy(txtLogin);
    lblPaswCap->setBuddy(txtPasw);
    lblDescCap->setBuddy(txtDesc);
    cmdGenerate = new QPushButton;
    cmdGenerate->setObjectName(QStringLiteral("cmdGenerate"));
    cmdGenerate->setAutoDefault(false);
    connect(cmdGenerate, &QPushButton::clicked, this, &RecordFields::cmdGenerate_Click);
    cmdShowPasw = new QToolButton;
    cmdShowPasw->setObjectName(QStringLiteral("cmdShowPasw"));
    cmdShowPasw->setCheckable(true);
    cmdShowPasw->setToolButtonStyle(Qt::ToolButtonTextOnly);
    connect(cmdShowPasw, &QToolButton::toggled, this, &RecordFields::cmdShowPasw_Toggled);
    cmdShowPasw_Toggled(false);
}

int RecordFields::AddTo(QGridLayout* Grid, int Row) {
    Grid->addWidget(lblTitleCap, Row, 0);
    Grid->addWidget(txtTitle, Row, 1, 1, 2);
    Grid->addWidget(lblLoginCap, Row + 1, 0);
    Grid->addWidget(txtLogin, Row + 1, 1, 1, 2);
    Grid->addWidget(lblPaswCap, Row + 2, 0);
    auto* pasw = new QHBoxLayout;
    pasw->setSpacing(2);
    pasw->addWidget(txtPasw, 1);
    pasw->addWidget(cmdShowPasw);
    Grid->addLayout(pasw, Row + 2, 1);
    Grid->addWidget(cmdGenerate, Row + 2, 2);
    Grid->addWidget(lblDescCap, Row + 3, 0, Qt::AlignTop);
    Grid->addWidget(txtDesc, Row + 3, 1, 1, 2);
    Grid->setColumnStretch(1, 1);
    return Row + 4;
}

void RecordFields::ShowFormLang() {
    lblTitleCap->setText(Texts(202));
    lblLoginCap->setText(Texts(203));
    lblPaswCap->setText(Texts(204));
    lblDescCap->setText(Texts(205));
    cmdGenerate->setText(Texts(206));
    cmdShowPasw->setToolTip(Texts(303));
    cmdShowPasw->setAccessibleName(Texts(303));
    cmdShowPasw_Toggled(cmdShowPasw->isChecked());
}

void RecordFields::cmdShowPasw_Toggled(bool Shown) {
    txtPasw->setEchoMode(Shown ? QLineEdit::Normal : QLineEdit::Password);
    cmdShowPasw->setText(Texts(Shown ? 302 : 301));
}

void RecordFields::LoadFromRow(clsDatabase& Db, int TblNum, int RecNum) {
    TRACE_PROC("frmEditRecord.LoadFields", TblNum, RecNum);
    txtTitle->setText(Db.GetTblFldValNm(TblNum, RecNum, QStringLiteral("Title")));
    txtLogin->setText(Db.GetTblFldValNm(TblNum, RecNum, QStringLiteral("Login")));
    txtPasw->setText(Db.GetTblFldValNm(TblNum, RecNum, QStringLiteral("Password")));
    txtDesc->setPlainText(Db.GetTblFldValNm(TblNum, RecNum, QStringLiteral("Description")));
}

void RecordFields::WriteToRow(clsDatabase& Db, int TblNum, int RecNum) {
    TRACE_PROC("frmEditRecord.WriteFields", TblNum, RecNum);
    Db.SetTblFldValNm(TblNum, RecNum, QStringLiteral("Title"), txtTitle->text());
    Db.SetTblFldValNm(TblNum, RecNum, QStringLiteral("Login"), txtLogin->text());
    SetRecordPasw(Db, TblNum, RecNum, txtPasw->text()); // keeps the one it replaces
    Db.SetTblFldValNm(TblNum, RecNum, QStringLiteral("Description"), txtDesc->toPlainText());
}

void RecordFields::cmdGenerate_Click() {
    TRACE_PROC("frmEditRecord.cmdGenerate_Click");
    const QString pasw = RunPaswGenerator(m_owner);
    if (!pasw.isEmpty()) {
        txtPasw->setText(pasw);
        // A new password is shown, so the user sees what was made.
        cmdShowPasw->setChecked(true);
    }
}

int EditorRow(const QString& RecordID, int& TblNum) {
    TRACE_PROC("frmEditRecord.EditorRow", RecordID);
    TblNum = CurUsDB->FindTable(QStringLiteral("DataTable"));
    return FindDataRow(*CurUsDB, QString::number(static_cast<long long>(Val(RecordID))));
}
