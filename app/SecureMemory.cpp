#include "app/SecureMemory.h"

#include <sodium.h>

#include <cstdint>
#include <map>
#include <mutex>
#include <sys/mman.h>
#include <unistd.h>

namespace {

struct Registry {
    std::mutex Lock;
    std::map<std::uintptr_t, std::size_t> Ranges; // start -> size
    std::map<std::uintptr_t, int> Pages;          // page start -> ranges on it
};

// Never destroyed: secrets held by static objects are released after the end of main.
Registry& registry() {
    static auto* r = new Registry;
    return *r;
}

std::uintptr_t pageSize() {
    static const auto size = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
    return size;
}

// Adds Delta to the count of every page of the range; pages that start or stop being used
// are locked or unlocked. False when a page could not be locked.
bool countPages(Registry& R, std::uintptr_t Start, std::size_t Size, int Delta) {
    const std::uintptr_t ps = pageSize();
    bool ok = true;
    for (std::uintptr_t page = Start & ~(ps - 1); page < Start + Size; page += ps) {
        int& n = R.Pages[page];
        if (Delta > 0 && n == 0) {
            // sodium_mlock also keeps the page out of core dumps. Its counterpart wipes the
            // page, which other data may share: plain munlock undoes it.
            if (sodium_mlock(reinterpret_cast<void*>(page), ps) != 0) {
                ok = false;
                R.Pages.erase(page);
                continue;
            }
        }
        n += Delta;
        if (n <= 0) {
            if (Delta < 0)
                ::munlock(reinterpret_cast<void*>(page), ps);
            R.Pages.erase(page);
        }
    }
    return ok;
}

} // namespace

bool LockSecret(const void* Data, std::size_t Size) {
    if (!Data || Size == 0)
        return false;
    static const bool ready = sodium_init() >= 0;
    if (!ready)
        return false;
    Registry& r = registry();
    std::lock_guard<std::mutex> guard(r.Lock);
    const auto start = reinterpret_cast<std::uintptr_t>(Data);
    if (auto it = r.Ranges.find(start); it != r.Ranges.end()) {
        countPages(r, start, it->second, -1);
        r.Ranges.erase(it);
    }
    const bool ok = countPages(r, start, Size, +1);
    if (ok)
        r.Ranges.emplace(start, Size);
    else
        countPages(r, start, Size, -1);
    return ok;
}

void UnlockSecret(const void* Data) {
    Registry& r = registry();
    std::lock_guard<std::mutex> guard(r.Lock);
    const auto start = reinterpret_cast<std::uintptr_t>(Data);
    if (auto it = r.Ranges.find(start); it != r.Ranges.end()) {
        countPages(r, start, it->second, -1);
        r.Ranges.erase(it);
    }
}

bool LockSecretText(QString& Text) {
    if (Text.isEmpty())
        return false;
    Text.detach();
    return LockSecret(Text.constData(), static_cast<std::size_t>(Text.size()) * sizeof(QChar));
}

std::size_t LockedSecretBytes() {
    Registry& r = registry();
    std::lock_guard<std::mutex> guard(r.Lock);
    return r.Pages.size() * pageSize();
}

bool SecretIsLocked(const void* Data) {
    Registry& r = registry();
    std::lock_guard<std::mutex> guard(r.Lock);
    return r.Ranges.count(reinterpret_cast<std::uintptr_t>(Data)) > 0;
}
