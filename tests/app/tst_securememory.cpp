// Secrets kept out of swap: the kernel's own count (VmLck) follows the locked ranges,
// pages shared by two secrets stay locked until both are released, and a key cache is
// locked for as long as it lives.

#include "app/SecureMemory.h"
#include "storage/FileSeal.h"
#include "tests/common/TestMain.h"

#include "tests/common/TestEnv.h"

#include <QFile>
#include <QTest>

#include <cstdlib>
#include <memory>
#include <unistd.h>

namespace {

struct PageBlock {
    long page = ::sysconf(_SC_PAGESIZE);
    char* p = static_cast<char*>(std::aligned_alloc(static_cast<std::size_t>(page), 4 * page));
    ~PageBlock() { std::free(p); }
};

} // namespace

class SecureMemoryTest : public QObject {
    Q_OBJECT
private slots:
    void pagesFollowTheirRanges() {
        PageBlock b;
        QVERIFY(b.p);
        const long kib = b.page / 1024;
        const long before = vmLckKiB();
        QVERIFY(before >= 0);
        // Two secrets on one page, a third across the next two.
        QVERIFY(LockSecret(b.p + 8, 32));
        QVERIFY(LockSecret(b.p + 200, 32));
        QVERIFY(LockSecret(b.p + 2 * b.page - 16, 32));
        QCOMPARE(vmLckKiB(), before + 3 * kib);
        UnlockSecret(b.p + 8);
        QCOMPARE(vmLckKiB(), before + 3 * kib);
        // An address that was never locked, or is released twice, changes nothing.
        UnlockSecret(b.p + 9);
        UnlockSecret(b.p + 8);
        QCOMPARE(vmLckKiB(), before + 3 * kib);
        UnlockSecret(b.p + 2 * b.page - 16);
        QCOMPARE(vmLckKiB(), before + kib);
        // The same start again takes the new size.
        QVERIFY(LockSecret(b.p + 200, b.page));
        QCOMPARE(vmLckKiB(), before + 2 * kib);
        UnlockSecret(b.p + 200);
        QCOMPARE(vmLckKiB(), before);
        QCOMPARE(LockedSecretBytes(), std::size_t(0));
        QVERIFY(!LockSecret(nullptr, 8));
        QVERIFY(!LockSecret(b.p, 0));
    }

    void keyCachesAndTextsAreLocked() {
        const long before = vmLckKiB();
        {
            auto cache = std::make_shared<KeyCache>();
            QVERIFY(vmLckKiB() > before);
            QString key = QStringLiteral("0123456789abcdef").repeated(600);
            const QString shared = key;
            QVERIFY(LockSecretText(key));
            // Made its own buffer first: the other holder's text is another one.
            QVERIFY(key.constData() != shared.constData());
            QVERIFY(vmLckKiB() >= before + static_cast<long>(key.size()) * 2 / 1024);
            UnlockSecret(key.constData());
        }
        QCOMPARE(vmLckKiB(), before);
    }
};
ARGENT_TEST(SecureMemoryTest)

#include "tst_securememory.moc"
