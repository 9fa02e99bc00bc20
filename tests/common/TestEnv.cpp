#include "tests/common/TestEnv.h"

#include "app/ProgConfig.h"
#include "app/modLang.h"
#include "app/modMain.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QProcessEnvironment>

#include <sys/stat.h>

namespace {
const char* const kVars[5] = {"HOME", "XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_RUNTIME_DIR",
                              "XDG_CACHE_HOME"};

void copyTree(const QString& from, const QString& to) {
    QDir().mkpath(to);
    QDirIterator it(from, QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot);
    while (it.hasNext()) {
        const QString src = it.next();
        const QString dst = to + u'/' + it.fileName();
        if (it.fileInfo().isDir())
            copyTree(src, dst);
        else if (!src.endsWith(QLatin1String(".dat.bak")))
            QFile::copy(src, dst);
    }
}
} // namespace

TestEnv::TestEnv() {
    for (int i = 0; i < 5; ++i)
        m_saved[i] = qgetenv(kVars[i]);
    const QString r = m_dir.path();
    const QString dirs[5] = {r + "/home", r + "/data", r + "/config", r + "/run", r + "/cache"};
    for (int i = 0; i < 5; ++i) {
        QDir().mkpath(dirs[i]);
        qputenv(kVars[i], QFile::encodeName(dirs[i]));
    }
    QFile::setPermissions(r + "/run", QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    // The program folder: what the build puts beside the executables, minus programs.
    const QString bin = QStringLiteral(ARGENT_BIN_DIR);
    QDir().mkpath(progDir());
    for (const char* f :
         {"start.dat", "mainicon.ico", "mainicon.png", "readme.txt", "readme.Russian.txt", "SampleUser.bdb"})
        QFile::copy(bin + u'/' + QLatin1String(f), progDir() + u'/' + QLatin1String(f));
    copyTree(bin + QStringLiteral("/Languages"), progDir() + QStringLiteral("/Languages"));
    SetAppPath(progDir());
    SetExeFolderPath(progDir());
    ProgConfig.Reset();
    ProgCfgPath.clear();
    UnloadLang();
}

TestEnv::~TestEnv() {
    for (int i = 0; i < 5; ++i) {
        if (m_saved[i].isNull())
            qunsetenv(kVars[i]);
        else
            qputenv(kVars[i], m_saved[i]);
    }
    ReleaseInstanceLock();
    SetAppPath(QString());
    SetExeFolderPath(QString());
}

QStringList TestEnv::childEnv(const QString& childAction) const {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("ARGENT_TEST_CHILD"), childAction);
    env.insert(QStringLiteral("ARGENT_TEST_PROGDIR"), progDir());
    return env.toStringList();
}

QByteArray readAllOf(const QString& path) {
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return {};
    return f.readAll();
}

void writeFileText(const QString& path, const QByteArray& bytes) {
    QFile f(path);
    if (f.open(QIODevice::WriteOnly | QIODevice::Truncate))
        f.write(bytes);
}

int posixMode(const QString& path) {
    struct stat st {};
    if (stat(QFile::encodeName(path).constData(), &st) != 0)
        return -1;
    return static_cast<int>(st.st_mode & 07777);
}

long vmLckKiB() {
    QFile f("/proc/self/status");
    if (!f.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : f.readAll().split('\n'))
        if (line.startsWith("VmLck:"))
            return line.mid(6).trimmed().split(' ').value(0).toLong();
    return -1;
}
