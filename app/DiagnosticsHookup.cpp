#include "app/DiagnosticsHookup.h"

#include "app/MsgBox.h"
#include "app/ProgConfig.h"
#include "app/modLang.h"
#include "app/modMain.h"
#include "diagnostics/Hookup.h"

#include <QFileInfo>

QString LogFolderPath() {
    // An installed copy's data folder is shared by every user (and belongs to the
    // package), so the log never goes there, even when it happens to be writable.
    const QString app = Pt(AppPath());
    if (ProgramBesideExe() && QFileInfo(app).isWritable())
        return app;
    return Pt(UserFolderPath());
}

void ConnectDiagnostics() {
    argent::diag::Hookup h;
    h.LogFolder = LogFolderPath;
    h.Text = [](int Id) { return Texts(Id); };
    h.Message = [](const QString& Prompt, bool Critical) {
        MsgBox(Prompt, Critical ? vbCritical : vbInformation);
    };
    // Settings written before the entry existed have no line 21: no server.
    h.ReportServer = [] {
        return ProgConfig.UBound() >= kCfgReportServer ? ProgConfig[kCfgReportServer] : QString();
    };
    h.LoadForReport = [] {
        ChooseConfiguration();
        LoadLang(Pt(AppPath()) + QStringLiteral("Languages/") + ProgConfig[kCfgLanguage] +
                 QStringLiteral(".lng"));
    };
    argent::diag::SetHookup(std::move(h));
}
