#pragma once

// A folder where the disk is full: a small tmpfs (mounted as root) holding the files a
// test puts there, with the rest of its room taken by a filler file. Where mounting is not
// allowed (an unprivileged container), the folder is a plain one and Run() lowers the file
// size limit of the process to nothing while it runs, so that every write fails the same way.

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QString>

#include <csignal>
#include <sys/resource.h>

class FullDisk {
public:
    // Room: the bytes of the files the test will place there before Fill().
    FullDisk(const QString& Dir, qint64 Room) : m_dir(Dir) {
        QDir().mkpath(Dir);
        const qint64 kib = Room / 1024 + 64;
        m_mounted = QProcess::execute("mount",
                                      {"-t", "tmpfs", "-o", QString("size=%1k").arg(kib), "tmpfs", Dir}) == 0;
    }
    ~FullDisk() {
        if (m_mounted)
            QProcess::execute("umount", {"-l", m_dir});
    }
    bool Mounted() const { return m_mounted; }
    // Takes every byte that is left.
    void Fill() {
        if (!m_mounted)
            return;
        QFile f(m_dir + "/filler");
        f.open(QIODevice::WriteOnly | QIODevice::Unbuffered);
        const QByteArray block(4096, 'f');
        while (f.write(block) == block.size()) {
        }
        const QByteArray byte(1, 'f');
        while (f.write(byte) == 1) {
        }
    }
    template <class F> auto Run(F&& Fn) {
        if (m_mounted)
            return Fn();
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit old{};
        getrlimit(RLIMIT_FSIZE, &old);
        const rlimit none{0, old.rlim_max};
        setrlimit(RLIMIT_FSIZE, &none);
        struct Back {
            rlimit r;
            ~Back() { setrlimit(RLIMIT_FSIZE, &r); }
        } back{old};
        return Fn();
    }

private:
    QString m_dir;
    bool m_mounted = false;
};
