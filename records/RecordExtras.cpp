#include "records/RecordExtras.h"

#include "app/ProgConfig.h"
#include "diagnostics/Trace.h"
#include "records/Totp.h"
#include "storage/clsDatabase.h"

#include <QRegularExpression>

#include <algorithm>

int PaswHistoryMax() {
    bool ok = false;
    const int n = CfgExtra(kCfgPaswHistory, QStringLiteral("10")).trimmed().toInt(&ok);
    return ok ? std::clamp(n, 0, 100) : 10;
}

void SetPaswHistoryMax(int Max) {
    SetCfgExtra(kCfgPaswHistory, QString::number(std::clamp(Max, 0, 100)));
}

void SetRecordPasw(clsDatabase& Db, int TblNum, int RecNum, const QString& NewPasw) {
    TRACE_PROC("modFields.SetRecordPasw", TblNum, RecNum);
    const QString old = Db.GetTblFldValNm(TblNum, RecNum, QStringLiteral("Password"));
    if (old == NewPasw)
        return;
    AddPaswHistory(Db, Db.GetTblFldValNm(TblNum, RecNum, QStringLiteral("IndNum")), old,
                   QDateTime::currentDateTimeUtc(), PaswHistoryMax());
    Db.SetTblFldValNm(TblNum, RecNum, QStringLiteral("Password"), NewPasw);
}

namespace {

// Takes the first line Re matches out of Desc when Take accepts its value.
template <typename Accept>
bool takeLine(QString& Desc, const QRegularExpression& Re, QString& Value, Accept Take) {
    QStringList lines = Desc.split(u'\n');
    for (qsizetype i = 0; i < lines.size(); ++i) {
        const QRegularExpressionMatch m = Re.match(lines[i]);
        if (!m.hasMatch() || !Take(m.captured(1).trimmed()))
            continue;
        Value = m.captured(1).trimmed();
        lines.removeAt(i);
        Desc = lines.join(u'\n');
        if (Desc.endsWith(u'\r'))
            Desc.chop(1);
        return true;
    }
    return false;
}

} // namespace

QList<MovedNoteLine> MoveNoteLinesToFields(clsDatabase& Db) {
    TRACE_PROC("modFields.MoveNoteLinesToFields");
    static const QRegularExpression url(QStringLiteral("^\\s*URL\\s*:\\s*(\\S.*?)\\r?$"),
                                        QRegularExpression::CaseInsensitiveOption);
    static const QRegularExpression otp(QStringLiteral("^\\s*T?OTP\\s*:\\s*(\\S.*?)\\r?$"),
                                        QRegularExpression::CaseInsensitiveOption);
    QList<MovedNoteLine> moved;
    const int tbl = Db.FindTable(QStringLiteral("DataTable"));
    if (tbl == 0)
        return moved;
    const int fDesc = Db.FindField(tbl, QStringLiteral("Description"));
    const int fType = Db.FindField(tbl, QStringLiteral("Type"));
    for (int rec = 1; rec <= Db.GetTblRecNum(tbl); ++rec) {
        const RecordStore& rows = Db.DBView().Tables[tbl - 1].Records;
        if (fDesc < 1 || !rows.valueIs(rec - 1, fType - 1, QStringLiteral("2")))
            continue;
        QString desc = rows.value(rec - 1, fDesc - 1);
        if (!desc.contains(QLatin1String("RL")) && !desc.contains(QLatin1String("TP")) &&
            !desc.contains(QLatin1String("rl")) && !desc.contains(QLatin1String("tp")))
            continue;
        const QString id = rows.value(rec - 1, Db.FindField(tbl, QStringLiteral("IndNum")) - 1);
        const QString title = Db.GetTblFldValNm(tbl, rec, QStringLiteral("Title"));
        RecExtras ex = ReadRecExtras(Db.DBView(), id);
        QString value;
        bool changed = false;
        if (ex.Url.isEmpty() && takeLine(desc, url, value, [](const QString&) { return true; })) {
            ex.Url = value;
            moved.append({id, title, QStringLiteral("URL"), value});
            changed = true;
        }
        if (ex.Otp.isEmpty() && takeLine(desc, otp, value, [](const QString& V) {
                TotpParams p;
                return ParseTotp(V, p);
            })) {
            TotpParams p;
            ParseTotp(value, p);
            ex.Otp = value.startsWith(QLatin1String("otpauth://"), Qt::CaseInsensitive) ? value : TotpUri(p);
            moved.append({id, title, QStringLiteral("TOTP"), value});
            changed = true;
        }
        if (!changed)
            continue;
        WriteRecExtras(Db, id, ex);
        Db.SetTblFldVal(tbl, rec, fDesc, desc);
    }
    return moved;
}
