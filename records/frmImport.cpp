#include "records/frmImport.h"

#include "app/MsgBox.h"
#include "app/guiApplication.h"
#include "app/modLang.h"
#include "diagnostics/Trace.h"
#include "records/IRecordView.h"
#include "users/UserAccounts.h"
#include "users/UserSession.h"

#include <QComboBox>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QProgressDialog>
#include <QPushButton>
#include <QVBoxLayout>

namespace {

// The formats in the order of the list; item 0 detects.
const ImpFormat kFormats[] = {ImpFormat::Detect,        ImpFormat::KeePassXml, ImpFormat::KeePassXcCsv,
                              ImpFormat::BitwardenJson, ImpFormat::BrowserCsv, ImpFormat::GenericCsv,
                              ImpFormat::LastPassCsv,   ImpFormat::KeePass1Csv};
// Language texts of the formats (326 on, the later ones 391 on) and of the column captions.
int formatText(std::size_t Index) {
    return Index < 6 ? 326 + static_cast<int>(Index) : 391 + static_cast<int>(Index - 6);
}
const int kColumnText[5] = {13, 14, 15, 16, 332};

// A progress window that appears only when the work takes a while.
class Progress {
public:
    Progress(QWidget* Parent, const QString& Label) : m_dlg(Label, QString(), 0, 1000, Parent) {
        m_dlg.setObjectName(QStringLiteral("dlgImportProgress"));
        m_dlg.setWindowTitle(Texts(322));
        m_dlg.setCancelButton(nullptr);
        m_dlg.setMinimumDuration(400);
        m_dlg.setWindowModality(Qt::WindowModal);
        m_dlg.setValue(0);
    }
    ImpProgress Callback() {
        return [this](qint64 Done, qint64 Total) {
            m_dlg.setValue(Total > 0 ? static_cast<int>(Done * 1000 / Total) : 0);
            QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
        };
    }

private:
    QProgressDialog m_dlg;
};

} // namespace

frmImport::frmImport(QWidget* Parent, const QString& ParentID, const QString& ParentTitle)
    : QDialog(Parent), ParentID(ParentID), m_parentTitle(ParentTitle) {
    TRACE_PROC("frmImport.Form_Load", ParentID, ParentTitle);
    setObjectName(QStringLiteral("frmImport"));
    lblFile = new QLabel;
    txtFile = new QLineEdit;
    txtFile->setObjectName(QStringLiteral("txtFile"));
    lblFile->setBuddy(txtFile);
    cmdBrowse = new QPushButton;
    cmdBrowse->setObjectName(QStringLiteral("cmdBrowse"));
    lblFormat = new QLabel;
    cboFormat = new QComboBox;
    cboFormat->setObjectName(QStringLiteral("cboFormat"));
    lblFormat->setBuddy(cboFormat);
    for (std::size_t i = 0; i < std::size(kFormats); ++i)
        cboFormat->addItem(QString());

    fraColumns = new QWidget;
    fraColumns->setObjectName(QStringLiteral("fraColumns"));
    auto* cols = new QGridLayout(fraColumns);
    cols->setContentsMargins(0, 0, 0, 0);
    for (int i = 0; i < 5; ++i) {
        lblColumn[i] = new QLabel;
        cboColumn[i] = new QComboBox;
        cboColumn[i]->setObjectName(QStringLiteral("cboColumn%1").arg(i));
        lblColumn[i]->setBuddy(cboColumn[i]);
        cols->addWidget(lblColumn[i], i, 0);
        cols->addWidget(cboColumn[i], i, 1);
        connect(cboColumn[i], &QComboBox::currentIndexChanged, this, [this] {
            if (!m_filling)
                Parse();
        });
    }
    fraColumns->hide();

    lblSummary = new QLabel;
    lblSummary->setObjectName(QStringLiteral("lblSummary"));
    lblSummary->setWordWrap(true);
    lblSummary->setMinimumHeight(60);
    cmdOk = new QPushButton;
    cmdOk->setObjectName(QStringLiteral("cmdOk"));
    cmdOk->setDefault(true);
    cmdOk->setEnabled(false);
    cmdCancel = new QPushButton;
    cmdCancel->setObjectName(QStringLiteral("cmdCancel"));

    auto* grid = new QGridLayout;
    grid->addWidget(lblFile, 0, 0);
    grid->addWidget(txtFile, 0, 1);
    grid->addWidget(cmdBrowse, 0, 2);
    grid->addWidget(lblFormat, 1, 0);
    grid->addWidget(cboFormat, 1, 1, 1, 2);
    auto* lay = new QVBoxLayout(this);
    lay->addLayout(grid);
    lay->addWidget(fraColumns);
    lay->addWidget(lblSummary);
    lay->addStretch();
    lay->addLayout(DialogButtonRow({cmdOk, cmdCancel}));
    resize(560, 300);

    connect(cmdBrowse, &QPushButton::clicked, this, &frmImport::cmdBrowse_Click);
    connect(txtFile, &QLineEdit::editingFinished, this, [this] {
        if (txtFile->text() != m_path)
            LoadFile(txtFile->text());
    });
    txtFile->installEventFilter(this);
    connect(cboFormat, &QComboBox::currentIndexChanged, this, [this] { Parse(); });
    connect(cmdOk, &QPushButton::clicked, this, &frmImport::cmdOk_Click);
    connect(cmdCancel, &QPushButton::clicked, this, &QDialog::reject);
    ShowFormLang();
    ApplyDialogOnTop(this);
}

void frmImport::ShowFormLang() {
    TRACE_PROC("frmImport.ShowFormLang");
    setWindowTitle(Texts(322));
    lblFile->setText(Texts(323));
    cmdBrowse->setText(Texts(324));
    lblFormat->setText(Texts(325));
    for (int i = 0; i < cboFormat->count(); ++i)
        cboFormat->setItemText(i, Texts(formatText(i)));
    for (int i = 0; i < 5; ++i) {
        lblColumn[i]->setText(Texts(kColumnText[i]) + u':');
        if (cboColumn[i]->count() > 0)
            cboColumn[i]->setItemText(0, Texts(333));
    }
    cmdOk->setText(Texts(335));
    cmdCancel->setText(Texts(149));
}

bool frmImport::eventFilter(QObject* Watched, QEvent* Event) {
    if (Watched == txtFile && Event->type() == QEvent::KeyPress) {
        const int key = static_cast<QKeyEvent*>(Event)->key();
        if (key == Qt::Key_Return || key == Qt::Key_Enter) {
            if (txtFile->text() != m_path)
                LoadFile(txtFile->text());
            return true;
        }
    }
    return QDialog::eventFilter(Watched, Event);
}

ImpFormat frmImport::ChosenFormat() const {
    return kFormats[qBound(0, cboFormat->currentIndex(), static_cast<int>(std::size(kFormats)) - 1)];
}

void frmImport::cmdBrowse_Click() {
    TRACE_PROC("frmImport.cmdBrowse_Click");
    const QString from = m_path.isEmpty() ? QDir::homePath() : QFileInfo(m_path).absolutePath();
    const QString path = QFileDialog::getOpenFileName(
        this, Texts(322), from, QStringLiteral("XML, CSV, JSON (*.xml *.csv *.json);;* (*)"));
    if (!path.isEmpty())
        LoadFile(path);
}

void frmImport::LoadFile(const QString& Path) {
    TRACE_PROC("frmImport.LoadFile", Path);
    m_path = Path;
    txtFile->setText(Path);
    // The file is read whole when it is parsed; here only its start, for the format and
    // a generic CSV's header row.
    m_start.clear();
    QFile f(Path);
    if (QFileInfo(Path).isFile() && f.open(QIODevice::ReadOnly))
        m_start = f.read(1 << 16);
    m_filling = true;
    const QStringList header = ReadCsvHeader(m_start);
    const CsvMapping guess = GuessCsvMapping(header);
    const int guessed[5] = {guess.Title, guess.Login, guess.Password, guess.Notes, guess.Group};
    for (int i = 0; i < 5; ++i) {
        cboColumn[i]->clear();
        cboColumn[i]->addItem(Texts(333));
        cboColumn[i]->addItems(header);
        cboColumn[i]->setCurrentIndex(guessed[i] + 1);
    }
    m_filling = false;
    Parse();
}

void frmImport::Parse() {
    TRACE_PROC("frmImport.Parse");
    m_ok = false;
    m_data = ImpData();
    if (!m_path.isEmpty()) {
        const ImpFormat format = ChosenFormat();
        const ImpFormat seen = format == ImpFormat::Detect ? DetectImportFormat(m_start) : format;
        fraColumns->setVisible(seen == ImpFormat::GenericCsv);
        CsvMapping map;
        if (seen == ImpFormat::GenericCsv) {
            map.Title = cboColumn[0]->currentIndex() - 1;
            map.Login = cboColumn[1]->currentIndex() - 1;
            map.Password = cboColumn[2]->currentIndex() - 1;
            map.Notes = cboColumn[3]->currentIndex() - 1;
            map.Group = cboColumn[4]->currentIndex() - 1;
        }
        Progress progress(this, Texts(337));
        m_ok = ReadImportFile(m_path, format, map, m_data, m_err, progress.Callback());
    }
    ShowSummary();
}

void frmImport::ShowSummary() {
    cmdOk->setEnabled(m_ok);
    if (m_path.isEmpty()) {
        lblSummary->clear();
        return;
    }
    if (!m_ok) {
        lblSummary->setText(Texts(339) + u'\n' + m_err.LangText());
        return;
    }
    int formatIndex = 0;
    for (std::size_t i = 0; i < std::size(kFormats); ++i)
        if (kFormats[i] == m_data.Format)
            formatIndex = static_cast<int>(i);
    QString t = Texts(334);
    t.replace(QLatin1String("%1"), Texts(formatText(formatIndex)));
    t.replace(QLatin1String("%2"), QString::number(m_data.Folders));
    t.replace(QLatin1String("%3"), QString::number(m_data.Records));
    t.replace(QLatin1String("%4"), ImportFolderName(m_path));
    t.replace(QLatin1String("%5"), m_parentTitle);
    // What cannot be taken in is said before anything is added.
    if (const QStringList dropped = ImpDroppedLangText(m_data); !dropped.isEmpty())
        t += QStringLiteral("\n\n") + Texts(385) + u'\n' + dropped.join(u'\n');
    lblSummary->setText(t);
}

void frmImport::cmdOk_Click() {
    TRACE_PROC("frmImport.cmdOk_Click");
    if (!m_ok || !CurUsDB)
        return;
    int firstRec = 0;
    ImpError err;
    {
        Progress progress(this, Texts(338));
        NewFolderID =
            ImportIntoDB(m_data, ParentID, ImportFolderName(m_path), &firstRec, err, progress.Callback());
    }
    if (NewFolderID.isEmpty()) {
        MsgBox(Texts(339) + u'\n' + err.LangText(), vbCritical);
        return;
    }
    // The rows are in the database now: their copies go before the save needs its memory.
    m_data.Rows = QList<ImpRow>();
    m_ok = false;
    if (IRecordView* view = RecordView())
        view->InsertImportedRows(firstRec);
    // The import is one change, saved at once, through the view that presents what the
    // save ended with; without one the session saves it and a failure is said here.
    if (IRecordView* view = RecordView())
        view->SaveCurUser();
    else if (const int r = UsSession().Save(); r < 0 && r != usNothingToSave)
        MsgBox(Texts(247), vbCritical);
    QString done = Texts(336);
    done.replace(QLatin1String("%1"), ImportFolderName(m_path));
    done.replace(QLatin1String("%2"), QString::number(m_data.Folders));
    done.replace(QLatin1String("%3"), QString::number(m_data.Records));
    if (const QStringList dropped = ImpDroppedLangText(m_data); !dropped.isEmpty())
        done += QStringLiteral("\n\n") + Texts(385) + u'\n' + dropped.join(u'\n');
    m_data = ImpData();
    accept();
    MsgBox(done, vbInformation);
}
