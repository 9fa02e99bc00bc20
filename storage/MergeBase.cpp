#include "storage/MergeBase.h"

#include "app/modLang.h"
#include "diagnostics/DbgPrint.h"
#include "diagnostics/Trace.h"
#include "storage/FileLineage.h"
#include "storage/UserFile.h"

namespace {

bool holdsToken(const QString& Lineage, const QString& Token) {
    return !Token.isEmpty() && Lineage.split(u' ', Qt::SkipEmptyParts).contains(Token);
}

} // namespace

bool DescendsFrom(const DatabaseRecord& Theirs, const DatabaseRecord& Known) {
    const QString head = LineageHead(Known.Lineage);
    return head.isEmpty() || Theirs.Lineage.isEmpty() || holdsToken(Theirs.Lineage, head);
}

bool IsSibling(const DatabaseRecord& Theirs, const DatabaseRecord& Known) {
    const QString head = LineageHead(Theirs.Lineage);
    return !head.isEmpty() && !LineageHead(Known.Lineage).isEmpty() && !DescendsFrom(Theirs, Known) &&
           !holdsToken(Known.Lineage, head);
}

QString ConflictCopyTitleFormat(const QDate& When) {
    QString text = Texts(440);
    if (!text.contains(QLatin1String("%1")) || !text.contains(QLatin1String("%2")))
        text = QStringLiteral("%1 (conflict copy %2)");
    // %1 stays for the title; the date goes in now.
    return text.replace(QLatin1String("%2"), When.toString(Qt::ISODate));
}

clsMergeCounts MergeVersions(const QString& UserPath, const QString& Key, DatabaseRecord& Ours,
                             const DatabaseRecord* Known, const DatabaseRecord& Theirs,
                             const QDate& TheirDate, MergeKind* Kind, QString* Base) {
    TRACE_PROC("modMerge.MergeVersions", UserPath, HIDDEN(Key));
    MergeKind kind = mkTwoWay;
    clsMergeCounts counts;
    if (Known && !IsSibling(Theirs, *Known)) {
        kind = mkThreeWay;
        counts = MergeDatabases(Ours, *Known, Theirs);
    } else if (holdsToken(Ours.Lineage, LineageHead(Theirs.Lineage))) {
        kind = mkNothing;
    } else {
        for (const QString& token : CommonAncestors(UserPath, Ours.Lineage, Theirs.Lineage)) {
            DatabaseRecord base;
            clsFileIdentity id;
            // A kept version is the version its name says, or no base at all.
            if (clsUserFile::Read(KeptVersionPath(UserPath, token), Key, base, id) != tbeOk ||
                !CanMerge(base, base) || LineageHead(base.Lineage) != token)
                continue;
            kind = mkAncestor;
            if (Base)
                *Base = token;
            counts = MergeDatabases(Ours, base, Theirs);
            break;
        }
        if (kind == mkTwoWay)
            counts = MergeTwoWay(Ours, Theirs, ConflictCopyTitleFormat(TheirDate));
    }
    if (Kind)
        *Kind = kind;
    return counts;
}
