#include "records/frmExport.h"

#include "app/MsgBox.h"
#include "app/guiApplication.h"
#include "app/modLang.h"
#include "diagnostics/Trace.h"
#include "records/ImportExport.h"
#include "storage/clsDatabase.h"
#include "users/UserAccounts.h"

#include <QButtonGroup>
#include <QDir>
#include <QFileDialog>
#include <QLabel>
#include <QPushButton>
#include <QRadioButton>
#include <QVBoxLayout>

#include <sodium.h>

frmExport::frmExport(QWidget* Parent, const QString& FolderID, const QString& FolderTitle)
    : QDialog(Parent), FolderID(FolderID), m_folderTitle(FolderTitle) {
    TRACE_PROC("frmExport.Form_Load", FolderID, FolderTitle);
    setObjectName(QStringLiteral("frmExport"));
    optAll = new QRadioButton;
    optAll->setObjectName(QStringLiteral("optAll"));
    optFolder = new QRadioButton;
    optFolder->setObjectName(QStringLiteral("optFolder"));
    auto* what = new QButtonGroup(this);
    what->addButton(optAll);
    what->addButton(optFolder);
    const bool folder = !FolderID.isEmpty() && FolderID != QLatin1String("0");
    optFolder->setEnabled(folder);
    (folder ? optFolder : optAll)->setChecked(true);

    lblFormat = new QLabel;
    optXml = new QRadioButton;
    optXml->setObjectName(QStringLiteral("optXml"));
    optCsv = new QRadioButton;
    optCsv->setObjectName(QStringLiteral("optCsv"));
    auto* format = new QButtonGroup(this);
    format->addButton(optXml);
    format->addButton(optCsv);
    optXml->setChecked(true);
    // Its mnemonic leads to the formats (arrow keys choose among them).
    lblFormat->setBuddy(optXml);

    cmdOk = new QPushButton;
    cmdOk->setObjectName(QStringLiteral("cmdOk"));
    cmdOk->setDefault(true);
    cmdCancel = new QPushButton;
    cmdCancel->setObjectName(QStringLiteral("cmdCancel"));

    auto* lay = new QVBoxLayout(this);
    lay->addWidget(optAll);
    lay->addWidget(optFolder);
    lay->addSpacing(8);
    lay->addWidget(lblFormat);
    lay->addWidget(optXml);
    lay->addWidget(optCsv);
    lay->addStretch();
    lay->addLayout(DialogButtonRow({cmdOk, cmdCancel}));

    connect(cmdOk, &QPushButton::clicked, this, &frmExport::cmdOk_Click);
    connect(cmdCancel, &QPushButton::clicked, this, &QDialog::reject);
    ShowFormLang();
    ApplyDialogOnTop(this);
}

void frmExport::ShowFormLang() {
    TRACE_PROC("frmExport.ShowFormLang");
    setWindowTitle(Texts(354));
    optAll->setText(Texts(355) + QStringLiteral(" (") + CurUser + u')');
    optFolder->setText(optFolder->isEnabled() ? Texts(356) + QStringLiteral(" (") + m_folderTitle + u')'
                                              : Texts(356));
    lblFormat->setText(Texts(325));
    optXml->setText(Texts(327));
    optCsv->setText(Texts(328));
    cmdOk->setText(Texts(148));
    cmdCancel->setText(Texts(149));
}

void frmExport::cmdOk_Click() {
    TRACE_PROC("frmExport.cmdOk_Click");
    const bool xml = optXml->isChecked();
    const QString name = (optFolder->isChecked() ? m_folderTitle : CurUser) + (xml ? ".xml" : ".csv");
    const QString path =
        QFileDialog::getSaveFileName(this, Texts(354), QDir::home().filePath(name),
                                     xml ? QStringLiteral("XML (*.xml)") : QStringLiteral("CSV (*.csv)"));
    if (!path.isEmpty() && ExportTo(path))
        accept();
}

bool frmExport::ExportTo(const QString& Path) {
    TRACE_PROC("frmExport.ExportTo", Path);
    if (!CurUsDB || MsgBox(Texts(357), vbYesNo | vbExclamation) == vbNo)
        return false;
    ExpCounts counts;
    QByteArray bytes =
        ExportRecordTree(*CurUsDB, optFolder->isChecked() ? FolderID : QStringLiteral("0"),
                         optXml->isChecked() ? ExpFormat::KeePassXml : ExpFormat::KeePassXcCsv, &counts);
    QString why;
    const bool ok = WriteExportFile(Path, bytes, why);
    sodium_memzero(bytes.data(), static_cast<std::size_t>(bytes.size()));
    if (!ok) {
        MsgBox(Texts(359).replace(QLatin1String("%1"), why), vbCritical);
        return false;
    }
    MsgBox(Texts(358)
               .replace(QLatin1String("%1"), QString::number(counts.Folders))
               .replace(QLatin1String("%2"), QString::number(counts.Records))
               .replace(QLatin1String("%3"), Path),
           vbInformation);
    return true;
}
