#include "secrets/SecretItems.h"

#include "app/modLang.h"
#include "records/RecordExtras.h"
#include "records/RecordTree.h"
#include "storage/FieldTable.h"
#include "storage/clsDatabase.h"
#include "users/UserAccounts.h"
#include "users/UserSession.h"

#include <QDateTime>
#include <QSet>

namespace {

const QString kProgram = QStringLiteral("argent:program");
const QString kCreated = QStringLiteral("argent:created");
const QString kModified = QStringLiteral("argent:modified");
const QString kType = QStringLiteral("argent:content-type");
const QString kEncoding = QStringLiteral("argent:encoding");
const QString kTextPlain = QStringLiteral("text/plain");
const QString kDataTable = QStringLiteral("DataTable");

// DataTable columns (records/RecordTree.h).
enum { cInd = 0, cParent = 1, cType = 2, cTitle = 3, cPasw = 5 };

QString PairKey(const QString& Name, const QString& Value) {
    return Name + QChar(0x1f) + Value;
}

// The tables are still the very rows of the snapshot.
bool SameRows(const RecordStore& Now, const RecordStore& Snap) {
    if (Now.sameState(Snap))
        return true;
    if (Now.size() != Snap.size())
        return false;
    for (int r = 0; r < Now.size(); ++r)
        if (!Now.sharesRow(r, Snap, r))
            return false;
    return true;
}

const TableEntry* TableOf(const DatabaseRecord& Db, const QString& Name) {
    for (const TableEntry& t : Db.Tables)
        if (t.Name == Name)
            return &t;
    return nullptr;
}

} // namespace

QString SecretFolderName() {
    const QString t = Texts(470);
    return t.isEmpty() ? QStringLiteral("Secret Service") : t;
}

struct SecretMeta {
    int Row = 0; // DataTable row, from 0
    SecretAttrs Attrs;
    QString Program, Type = kTextPlain;
    bool Base64 = false;
    qint64 Created = 0, Modified = 0;
};

struct SecretItems::Index {
    const clsDatabase* Db = nullptr;
    QString User;
    bool Valid = false;
    RecordStore Data, Fields;
    QString Folder;
    QStringList Order;
    QHash<QString, SecretMeta> Items;
    QHash<QString, QStringList> ByPair;

    void Snapshot(const clsDatabase& D) {
        const TableEntry* dt = TableOf(D.DBView(), kDataTable);
        const TableEntry* ft = TableOf(D.DBView(), kFieldTable);
        Data = dt ? dt->Records : RecordStore();
        Fields = ft ? ft->Records : RecordStore();
    }
    bool Current(const clsDatabase& D) const {
        if (!Valid || Db != &D || User != CurUser)
            return false;
        const TableEntry* dt = TableOf(D.DBView(), kDataTable);
        const TableEntry* ft = TableOf(D.DBView(), kFieldTable);
        return SameRows(dt ? dt->Records : RecordStore(), Data) &&
               SameRows(ft ? ft->Records : RecordStore(), Fields);
    }
    void AddPairs(const QString& Id, const SecretAttrs& A) {
        for (auto it = A.cbegin(); it != A.cend(); ++it)
            ByPair[PairKey(it.key(), it.value())].append(Id);
    }
    void DropPairs(const QString& Id, const SecretAttrs& A) {
        for (auto it = A.cbegin(); it != A.cend(); ++it) {
            auto p = ByPair.find(PairKey(it.key(), it.value()));
            if (p != ByPair.end() && p->removeOne(Id) && p->isEmpty())
                ByPair.erase(p);
        }
    }
};

namespace {

// One custom field of an item into what the index keeps of it.
void TakeField(SecretMeta& M, const QString& Name, const QString& Value) {
    if (Name == kProgram)
        M.Program = Value;
    else if (Name == kCreated)
        M.Created = Value.toLongLong();
    else if (Name == kModified)
        M.Modified = Value.toLongLong();
    else if (Name == kType)
        M.Type = Value;
    else if (Name == kEncoding)
        M.Base64 = Value == QLatin1String("base64");
    else if (!SecretItems::IsOwnField(Name))
        M.Attrs.insert(Name, Value);
}

int ColumnOf(const TableEntry& T, const char* Name, int Default) {
    for (qsizetype i = 0; i < T.FldNames.size(); ++i)
        if (T.FldNames[i].compare(QLatin1String(Name), Qt::CaseInsensitive) == 0)
            return static_cast<int>(i);
    return Default;
}

// The custom fields of an item: its attributes, then this program's own.
QList<RecCustomField> FieldsOf(const SecretMeta& M) {
    QList<RecCustomField> out;
    for (auto it = M.Attrs.cbegin(); it != M.Attrs.cend(); ++it)
        out.append({it.key(), it.value(), false, QString()});
    if (!M.Program.isEmpty())
        out.append({kProgram, M.Program, false, QString()});
    out.append({kCreated, QString::number(M.Created), false, QString()});
    out.append({kModified, QString::number(M.Modified), false, QString()});
    if (M.Type != kTextPlain)
        out.append({kType, M.Type, false, QString()});
    if (M.Base64)
        out.append({kEncoding, QStringLiteral("base64"), false, QString()});
    return out;
}

// The password text of a secret, and whether it had to go into Base64.
QString PaswOf(const QByteArray& Secret, bool& Base64) {
    Base64 = !QByteArrayView(Secret).isValidUtf8() || Secret.contains('\0');
    return Base64 ? QString::fromLatin1(Secret.toBase64()) : QString::fromUtf8(Secret);
}

} // namespace

SecretItems::SecretItems() : m_ix(new Index) {}
SecretItems::~SecretItems() = default;

bool SecretItems::Available() {
    return UsSession().IsOpen() && CurUsDB->FindTable(kDataTable) > 0;
}

void SecretItems::Ensure() {
    Index& ix = *m_ix;
    if (!Available()) {
        ix = Index();
        return;
    }
    clsDatabase& db = *CurUsDB;
    if (ix.Current(db))
        return;
    ix = Index();
    ix.Db = &db;
    ix.User = CurUser;
    ix.Snapshot(db);
    const RecordStore& r = ix.Data;
    // The folder of the language in use; else the one an English program made (a user
    // who changes the language keeps the items).
    long long folder = 0;
    for (const QString& name : {SecretFolderName(), QStringLiteral("Secret Service")})
        for (int row = 0; row < r.size() && ix.Folder.isEmpty(); ++row)
            if (r.valueIs(row, cParent, QStringLiteral("0")) && !r.valueIs(row, cType, QStringLiteral("2")) &&
                r.valueIs(row, cTitle, name) && r.intValue(row, cInd, folder))
                ix.Folder = r.value(row, cInd);
    ix.Valid = true;
    if (ix.Folder.isEmpty())
        return;
    // Everything below the folder, in table order: a child may come before its parent
    // (moved there later), so the parents are resolved until nothing changes. Identifiers
    // are read as numbers: no text is made for rows that are not items.
    QSet<long long> inside{folder};
    std::vector<bool> taken(static_cast<size_t>(r.size()), false);
    for (bool grew = true; grew;) {
        grew = false;
        for (int row = 0; row < r.size(); ++row) {
            long long parent = 0, id = 0;
            if (!taken[static_cast<size_t>(row)] && r.intValue(row, cParent, parent) &&
                inside.contains(parent) && r.intValue(row, cInd, id)) {
                taken[static_cast<size_t>(row)] = true;
                inside.insert(id);
                grew = true;
            }
        }
    }
    QList<long long> nums;
    for (int row = 0; row < r.size(); ++row) {
        long long num = 0;
        if (!taken[static_cast<size_t>(row)] || !r.valueIs(row, cType, QStringLiteral("2")) ||
            !r.intValue(row, cInd, num))
            continue;
        const QString id = r.value(row, cInd);
        ix.Items[id].Row = row;
        ix.Order.append(id);
        nums.append(num);
    }
    // Pointers into the finished hash (nothing is inserted after this).
    QHash<long long, SecretMeta*> byNum;
    byNum.reserve(nums.size());
    for (qsizetype i = 0; i < nums.size(); ++i)
        byNum.insert(nums[i], &ix.Items[ix.Order[i]]);
    // The custom fields of the items, in one pass over the field table (a later row of a
    // name wins, as the merge leaves them).
    if (const TableEntry* ft = TableOf(db.DBView(), kFieldTable)) {
        const int cI = ColumnOf(*ft, "IndNum", 1), cF = ColumnOf(*ft, "Flags", 2),
                  cN = ColumnOf(*ft, "Name", 3), cV = ColumnOf(*ft, "Value", 4);
        const RecordStore& f = ft->Records;
        for (int row = 0; row < f.size(); ++row) {
            long long num = 0, flags = 0;
            if (!f.intValue(row, cI, num))
                continue;
            SecretMeta* m = byNum.value(num);
            f.intValue(row, cF, flags);
            if (m && !(flags & (rffUrl | rffOtp | rffHistory)))
                TakeField(*m, f.value(row, cN), f.value(row, cV));
        }
    }
    for (auto it = ix.Items.cbegin(); it != ix.Items.cend(); ++it)
        ix.AddPairs(it.key(), it->Attrs);
}

QStringList SecretItems::All() {
    Ensure();
    return m_ix->Order;
}

QStringList SecretItems::Search(const SecretAttrs& Query) {
    Ensure();
    if (Query.isEmpty())
        return m_ix->Order;
    // The rarest pair gives the candidates; the others are checked on each.
    const QStringList* best = nullptr;
    for (auto it = Query.cbegin(); it != Query.cend(); ++it) {
        auto p = m_ix->ByPair.constFind(PairKey(it.key(), it.value()));
        if (p == m_ix->ByPair.cend())
            return {};
        if (!best || p->size() < best->size())
            best = &*p;
    }
    QStringList out;
    for (const QString& id : *best) {
        const SecretAttrs& a = m_ix->Items[id].Attrs;
        bool all = true;
        for (auto it = Query.cbegin(); it != Query.cend() && all; ++it)
            all = a.value(it.key(), QString()) == it.value() && a.contains(it.key());
        if (all)
            out.append(id);
    }
    return out;
}

bool SecretItems::Has(const QString& Id) {
    Ensure();
    return m_ix->Items.contains(Id);
}

bool SecretItems::Read(const QString& Id, SecretItem& Out, bool WithSecret) {
    Ensure();
    auto it = m_ix->Items.constFind(Id);
    // The row is checked too: a secret never comes from a row the index got wrong.
    if (it == m_ix->Items.cend() || !m_ix->Data.valueIs(it->Row, cInd, Id))
        return false;
    Out = SecretItem();
    Out.Id = Id;
    Out.Label = m_ix->Data.value(it->Row, cTitle);
    Out.Attrs = it->Attrs;
    Out.Program = it->Program;
    Out.Created = it->Created;
    Out.Modified = it->Modified;
    Out.ContentType = it->Type;
    if (WithSecret) {
        const QString pasw = m_ix->Data.value(it->Row, cPasw);
        Out.Secret = it->Base64 ? QByteArray::fromBase64(pasw.toLatin1()) : pasw.toUtf8();
    }
    return true;
}

QString SecretItems::FolderId() {
    Ensure();
    return m_ix->Folder;
}

QString SecretItems::Create(const SecretItem& In) {
    Ensure();
    if (!Available())
        return {};
    clsDatabase& db = *CurUsDB;
    if (m_ix->Folder.isEmpty()) {
        const QString folder = GetNewIndNum(db);
        AddFolderToDB(SecretFolderName(), 0, folder);
        m_ix->Valid = false;
        Ensure();
    }
    SecretMeta m;
    m.Attrs = In.Attrs;
    m.Program = In.Program;
    m.Type = In.ContentType.isEmpty() ? kTextPlain : In.ContentType;
    m.Created = m.Modified = QDateTime::currentSecsSinceEpoch();
    const QString pasw = PaswOf(In.Secret, m.Base64);
    const QString id = AddRecordToDB(db, m_ix->Folder, In.Label, QString(), pasw, QString());
    m.Row = db.GetTblRecNum(db.FindTable(kDataTable)) - 1;
    RecExtras ex;
    ex.Custom = FieldsOf(m);
    AppendNewRecExtras(db, id, ex);
    m_ix->AddPairs(id, m.Attrs);
    m_ix->Items.insert(id, std::move(m));
    m_ix->Order.append(id);
    m_ix->Snapshot(db);
    return id;
}

void SecretItems::Touch(const QString& Id, qint64 Now) {
    clsDatabase& db = *CurUsDB;
    SecretMeta& m = m_ix->Items[Id];
    m.Modified = Now;
    RecExtras ex = ReadRecExtras(db.DBView(), Id);
    // The web address and the seed stay; a field the user hid keeps its flag and its row.
    QList<RecCustomField> fields = FieldsOf(m);
    for (RecCustomField& f : fields)
        if (const RecCustomField* old = ex.Field(f.Name)) {
            f.Hidden = old->Hidden;
            f.Key = old->Key;
        }
    ex.Custom = fields;
    WriteRecExtras(db, Id, ex);
    m_ix->Snapshot(db);
}

bool SecretItems::SetSecret(const QString& Id, const QByteArray& Secret, const QString& ContentType,
                            const QString& Program) {
    if (!Has(Id))
        return false;
    SecretMeta& m = m_ix->Items[Id];
    if (!Program.isEmpty())
        m.Program = Program;
    const QString pasw = PaswOf(Secret, m.Base64);
    m.Type = ContentType.isEmpty() ? kTextPlain : ContentType;
    clsDatabase& db = *CurUsDB;
    SetRecordPasw(db, db.FindTable(kDataTable), m.Row + 1, pasw);
    Touch(Id, QDateTime::currentSecsSinceEpoch());
    return true;
}

bool SecretItems::SetLabel(const QString& Id, const QString& Label) {
    if (!Has(Id))
        return false;
    clsDatabase& db = *CurUsDB;
    db.SetTblFldVal(db.FindTable(kDataTable), m_ix->Items[Id].Row + 1, cTitle + 1, Label);
    Touch(Id, QDateTime::currentSecsSinceEpoch());
    return true;
}

bool SecretItems::SetAttrs(const QString& Id, const SecretAttrs& Attrs) {
    if (!Has(Id))
        return false;
    SecretMeta& m = m_ix->Items[Id];
    m_ix->DropPairs(Id, m.Attrs);
    m.Attrs = Attrs;
    m_ix->AddPairs(Id, m.Attrs);
    Touch(Id, QDateTime::currentSecsSinceEpoch());
    return true;
}

bool SecretItems::Delete(const QString& Id) {
    if (!Has(Id))
        return false;
    DelRecordTreeFromDataTable(QStringLiteral("IndNum"), Id, QStringLiteral("Parent"));
    m_ix->Valid = false;
    return true;
}

qint64 SecretItems::LastModified() {
    Ensure();
    qint64 last = 0;
    for (const SecretMeta& m : std::as_const(m_ix->Items))
        last = std::max(last, m.Modified);
    return last;
}
