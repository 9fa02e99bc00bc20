#pragma once

// The lock of one user's file. Every read-change-write of a user file (the window's
// saves, each changing argentpm command, restore, delete user) holds it, so that writers
// take turns and no change is written over unseen. It is an exclusive flock on the lock
// file ".<user>.bdb.lock" beside the user's file (mode 0600; its name never ends in
// ".bdb", so it is never listed as a user or a backup). The kernel drops the lock when
// its holder dies, so a crashed program never blocks anyone. Lock files stay in place:
// removing one while another process waits on it would let two processes hold "the" lock.
//
// Within one process the lock is shared: a second clsUserFileLock on the same file while
// the first holds it is held at once (argentpm holds the lock across a command and the
// save inside it takes it again).

#include <QString>

inline constexpr int kUserLockWaitMs = 10000;

class clsUserFileLock {
public:
    explicit clsUserFileLock(const QString& DBFilePath);
    ~clsUserFileLock();
    clsUserFileLock(const clsUserFileLock&) = delete;
    clsUserFileLock& operator=(const clsUserFileLock&) = delete;

    // Waits up to TimeoutMs for the lock. False when another process held it all that
    // time (TimedOut) or when the lock file cannot be made (its folder is missing or no
    // folder; TimedOut is false then).
    bool Acquire(int TimeoutMs = kUserLockWaitMs);
    bool IsHeld() const { return m_held; }
    bool TimedOut() const { return m_timedOut; }
    void Release();

    // ".<user>.bdb.lock" in the folder of DBFilePath.
    static QString LockFilePath(const QString& DBFilePath);

private:
    QString m_key;
    bool m_held = false;
    bool m_timedOut = false;
};
