#pragma once

// Writes that are known to have happened. Every file the program writes (user files,
// backups, settings, the autostart entry, the portable copy) goes through this: the new
// bytes go to a temporary file beside the target, unbuffered, so that every short or
// failed write is seen where it happens; the file is synced to disk and only then renamed
// over the target. Any failure on the way (a full disk, a folder that vanished) discards
// the temporary file and leaves the old target byte for byte as it was.

#include <QByteArray>
#include <QFile>
#include <QFileDevice>
#include <QSaveFile>
#include <QString>

inline constexpr QFileDevice::Permissions kPrivateFilePerms =
    QFileDevice::ReadOwner | QFileDevice::WriteOwner;

class clsCheckedFile {
public:
    explicit clsCheckedFile(const QString& Path);
    ~clsCheckedFile();
    clsCheckedFile(const clsCheckedFile&) = delete;
    clsCheckedFile& operator=(const clsCheckedFile&) = delete;

    // Starts the temporary file with the given permissions. False when it cannot be made.
    bool Open(QFileDevice::Permissions Perms = kPrivateFilePerms);
    // Writes all Len bytes or fails; after a failure every later call fails too.
    bool Write(const char* Data, qint64 Len);
    bool Write(const QByteArray& Data) { return Write(Data.constData(), Data.size()); }
    // Syncs and renames over the target. False when anything failed: the target is as it was.
    bool Commit();
    // Drops the temporary file; the target stays as it was.
    void Cancel();
    qint64 Written() const { return m_written; }
    // What the file was when it was synced, before the rename (which keeps all three):
    // false when Commit did not get that far.
    bool WrittenStat(qint64& Size, qint64& MTimeNs, quint64& Inode) const;
    // Why the last step failed, also after the temporary file was dropped.
    QString ErrorText() const;

private:
    QSaveFile m_file;
    QFile m_scratch;              // the target itself, when it is a memory file
    QFileDevice* m_dev = nullptr; // where Write goes
    qint64 m_written = 0;
    bool m_failed = false;
    bool m_done = false;
    bool m_haveStat = false;
    qint64 m_statSize = 0, m_statMTimeNs = 0;
    quint64 m_statInode = 0;
    QString m_error;
};

// The whole of Data as the new content of Path, checked as above. False: Path is untouched.
bool WriteFileChecked(const QString& Path, const QByteArray& Data,
                      QFileDevice::Permissions Perms = kPrivateFilePerms);
