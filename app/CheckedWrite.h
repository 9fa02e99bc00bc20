#pragma once

// Writes that are known to have happened. Every file the program writes (user files,
// backups, settings, the autostart entry, the portable copy, exports) goes through this:
// the new bytes go to a temporary file made beside the target (never through a link, and
// never a file someone else prepared), so that every short or failed write is seen where
// it happens; the file is synced to disk and only then renamed over the target. Any
// failure on the way (a full disk, a folder that vanished) discards the temporary file and
// leaves the old target byte for byte as it was.
//
// A link at the target's name is followed only when it is this user's own; any other link
// is replaced by the rename, its target left alone. The folder must be one the user can
// trust (see FolderWriteProblem), or nothing is written.

#include <QByteArray>
#include <QFile>
#include <QFileDevice>
#include <QString>
#include <sys/types.h>

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
    bool fail(const QString& Why, int Err = 0);
    void closeAll();

    QString m_path;               // as given
    QString m_folder;             // where the file goes, links of the user's own followed
    QByteArray m_name, m_tmpName; // entries in that folder
    int m_dirFd = -1, m_fd = -1;
    QFile m_scratch; // the target itself, when it is a memory file
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

// Why the program must not write into Folder, naming it; empty when it may. A folder is
// trusted when it belongs to this user or to root and nobody else can write in it (or only
// with the sticky bit, as /tmp; group rights of the user's own private group count as the
// user's), and when a link at its name is this user's or root's own.
// The checks are made on the opened folder, not on its name. A missing folder is no problem
// here (nothing can be written there anyway).
QString FolderWriteProblem(const QString& Folder);
// The same for a folder already open (DirFd), Shown naming it in the text.
QString FolderFdProblem(int DirFd, const QString& Shown);
// True when Path names something, a dangling link included.
bool EntryExists(const QString& Path);
// Makes one folder (its parent must exist) with exactly Perms, never through a link.
// False when it exists already or cannot be made.
bool MakeFolderNoFollow(const QString& Path, QFileDevice::Permissions Perms);
// The mode bits of QFileDevice permissions (owner bits, the rest as given).
mode_t PosixMode(QFileDevice::Permissions Perms);
