#include "records/PasswordHealth.h"

#include "app/ProgConfig.h"
#include "diagnostics/Trace.h"
#include "storage/FieldTable.h"
#include "storage/clsDatabase.h"
#include "users/PaswStrength.h"
#include "users/UsDBTree.h"

#include <QElapsedTimer>
#include <QHash>

#include <sodium.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

namespace {

constexpr int kChunk = 64; // passwords a thread takes at a time

void wipe(QByteArray& B) {
    if (!B.isEmpty())
        sodium_memzero(B.data(), static_cast<std::size_t>(B.size()));
}

// The meter's level of every password in Pasw (UTF-8), spread over the cores. False when
// Progress stopped it.
bool estimateAll(const std::vector<QByteArray>& Pasw, std::vector<int>& Level, const HealthProgress& Progress,
                 int QuietMs) {
    const int total = static_cast<int>(Pasw.size());
    Level.assign(Pasw.size(), 0);
    std::atomic<int> next{0}, done{0};
    std::atomic<bool> stop{false};
    auto work = [&] {
        for (;;) {
            const int from = next.fetch_add(kChunk);
            if (from >= total || stop.load())
                return;
            const int to = std::min(total, from + kChunk);
            for (int i = from; i < to; ++i)
                Level[static_cast<size_t>(i)] =
                    PaswLevelOfBits(PaswEntropyBits(Pasw[static_cast<size_t>(i)].constData()));
            done.fetch_add(to - from);
        }
    };
    const int cores = static_cast<int>(std::clamp(std::thread::hardware_concurrency(), 1u, 8u));
    const int helpers = std::min(cores - 1, total / (4 * kChunk));
    std::vector<std::thread> threads;
    for (int k = 0; k < helpers; ++k)
        threads.emplace_back(work);
    QElapsedTimer timer;
    timer.start();
    // This thread works too, a chunk at a time, and tells the caller how far it got.
    for (;;) {
        const int from = next.fetch_add(kChunk);
        if (from >= total || stop.load())
            break;
        const int to = std::min(total, from + kChunk);
        for (int i = from; i < to; ++i)
            Level[static_cast<size_t>(i)] =
                PaswLevelOfBits(PaswEntropyBits(Pasw[static_cast<size_t>(i)].constData()));
        done.fetch_add(to - from);
        if (Progress && timer.elapsed() >= QuietMs && !Progress(done.load(), total))
            stop = true;
    }
    for (std::thread& t : threads)
        t.join();
    if (!stop && Progress && timer.elapsed() >= QuietMs && !Progress(total, total))
        stop = true;
    return !stop;
}

// When the current password of a record was set: the newest dated entry of its history.
QDateTime setDate(const RecExtras* Ex) {
    QDateTime newest;
    if (Ex)
        for (const RecOldPasw& h : Ex->History)
            if (h.When.isValid() && (!newest.isValid() || h.When > newest))
                newest = h.When;
    return newest;
}

int columnOf(const TableEntry& T, const char* Name) {
    return static_cast<int>(T.FldNames.indexOf(QLatin1String(Name)));
}

} // namespace

bool IsWeakHealthLevel(int Level) {
    return Level <= pslWeak;
}

HealthReport MakeHealthReport(const clsDatabase& Db, const HealthProgress& Progress, int QuietMs) {
    TRACE_PROC("modHealth.MakeHealthReport");
    HealthReport rep;
    const DatabaseRecord& view = Db.DBView();
    const TableEntry* t = nullptr;
    for (const TableEntry& e : view.Tables)
        if (e.Name == QLatin1String("DataTable"))
            t = &e;
    if (!t)
        return rep;
    const int fId = columnOf(*t, "IndNum"), fTitle = columnOf(*t, "Title"), fPasw = columnOf(*t, "Password");
    if (fId < 0 || fTitle < 0 || fPasw < 0)
        return rep;
    const QHash<QString, RecExtras> extras = ReadAllRecExtras(view);

    // Walk the tree once: paths, empty passwords, the distinct passwords and who uses them.
    QHash<QByteArray, int> distinct;
    std::vector<QByteArray> utf8;
    std::vector<HealthItem> items;
    std::vector<int> itemPasw;
    QStringList path;
    for (const UsTreeNode& n : UsDBTreeOrder(Db)) {
        const int row = n.RecNum - 1;
        path.resize(n.Depth - 1);
        path.append(t->Records.value(row, fTitle));
        if (n.Folder)
            continue;
        ++rep.Records;
        HealthItem it{t->Records.value(row, fId), path.join(QStringLiteral(" / ")), 0, {}};
        const QByteArrayView stored = t->Records.escaped(row, fPasw);
        if (stored.isEmpty()) {
            rep.Empty.append(it);
            continue;
        }
        const auto ex = extras.constFind(it.IndNum);
        it.Set = setDate(ex == extras.constEnd() ? nullptr : &ex.value());
        if (!it.Set.isValid())
            ++rep.UnknownAge;
        const QByteArray key = stored.toByteArray();
        auto at = distinct.constFind(key);
        if (at == distinct.constEnd()) {
            at = distinct.insert(key, static_cast<int>(utf8.size()));
            utf8.push_back(t->Records.value(row, fPasw).left(kHealthPaswChars).toUtf8());
        }
        items.push_back(it);
        itemPasw.push_back(at.value());
    }
    std::vector<int> level;
    const bool finished = estimateAll(utf8, level, Progress, QuietMs);
    for (QByteArray& b : utf8)
        wipe(b);
    for (auto it = distinct.begin(); it != distinct.end(); ++it)
        wipe(const_cast<QByteArray&>(it.key()));
    if (!finished) {
        HealthReport stopped;
        stopped.Cancelled = true;
        return stopped;
    }

    std::vector<QList<HealthItem>> users(utf8.size());
    for (size_t i = 0; i < items.size(); ++i) {
        HealthItem& it = items[i];
        it.Level = level[static_cast<size_t>(itemPasw[i])];
        if (IsWeakHealthLevel(it.Level))
            rep.Weak.append(it);
        if (it.Set.isValid())
            rep.Dated.append(it);
        users[static_cast<size_t>(itemPasw[i])].append(it);
    }
    for (QList<HealthItem>& u : users)
        if (u.size() > 1)
            rep.Reused.append(std::move(u));
    std::stable_sort(rep.Reused.begin(), rep.Reused.end(),
                     [](const auto& A, const auto& B) { return A.size() > B.size(); });
    return rep;
}

QList<HealthItem> HealthOlderThan(const HealthReport& Report, const QDateTime& Cutoff) {
    QList<HealthItem> old;
    for (const HealthItem& it : Report.Dated)
        if (it.Set < Cutoff)
            old.append(it);
    std::stable_sort(old.begin(), old.end(),
                     [](const HealthItem& A, const HealthItem& B) { return A.Set < B.Set; });
    return old;
}

QDateTime HealthCutoffMonths(int Months, const QDateTime& Now) {
    return Now.toUTC().addMonths(-std::max(0, Months));
}

int HealthAgeMonths() {
    bool ok = false;
    const int m = CfgExtra(kCfgHealthAge, QStringLiteral("12")).trimmed().toInt(&ok);
    return ok && m >= 1 && m <= kHealthMaxMonths ? m : 12;
}

void SetHealthAgeMonths(int Months) {
    SetCfgExtra(kCfgHealthAge, QString::number(std::clamp(Months, 1, kHealthMaxMonths)));
}
