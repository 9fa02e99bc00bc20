#pragma once

// A private world for one test: HOME and the XDG folders point into a temporary folder,
// and the program folder is a copy of the built resources, so no test touches the
// user's files or the build tree.

#include <QString>
#include <QTemporaryDir>

class TestEnv {
public:
    TestEnv();
    ~TestEnv();
    QString root() const { return m_dir.path(); }
    QString progDir() const { return m_dir.path() + QStringLiteral("/prog"); }
    QString dataHome() const { return m_dir.path() + QStringLiteral("/data"); }
    QString userFolder() const { return dataHome() + QStringLiteral("/ArgentPM"); }
    // Environment for a child process started from this test.
    QStringList childEnv(const QString& childAction) const;

private:
    QTemporaryDir m_dir;
    QByteArray m_saved[5];
};

// Reads a whole file (empty when missing).
QByteArray readAllOf(const QString& path);
void writeFileText(const QString& path, const QByteArray& bytes);
// The permission bits of a file or folder (e.g. 0600), -1 when it does not exist.
int posixMode(const QString& path);
// The memory this process has locked (VmLck of /proc/self/status), in KiB; -1 unknown.
long vmLckKiB();
