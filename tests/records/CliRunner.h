#pragma once

// Runs the built argentpm, copied into a test's program folder, detached from any
// terminal (so that passwords and confirmations can only come from standard input and
// options), on the databases folder of the test.

#include "tests/common/TestEnv.h"

#include <QFile>
#include <QProcess>
#include <QStringList>

#include <unistd.h>

struct CliRun {
    int code = -1;
    QString out, err;
};

class CliRunner {
public:
    explicit CliRunner(const TestEnv& env) : m_dbs(env.root() + QStringLiteral("/dbs")) {
        m_exe = env.progDir() + QStringLiteral("/argentpm");
        QFile::copy(QStringLiteral(ARGENT_BIN_DIR "/argentpm"), m_exe);
    }
    QString dbs() const { return m_dbs; }
    QString exe() const { return m_exe; }
    CliRun operator()(const QStringList& args, const QByteArray& input = QByteArray()) const {
        QProcess p;
        p.setChildProcessModifier([] { setsid(); });
        p.start(m_exe, QStringList{QStringLiteral("--databases"), m_dbs} + args);
        p.write(input);
        p.closeWriteChannel();
        CliRun r;
        if (!p.waitForFinished(30000))
            return r;
        r.code = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
        r.out = QString::fromUtf8(p.readAllStandardOutput());
        r.err = QString::fromUtf8(p.readAllStandardError());
        return r;
    }
    // A command on user NAME with its password on the first line of standard input.
    CliRun as(const QString& pasw, const QStringList& args, const QByteArray& more = QByteArray()) const {
        return (*this)(args + QStringList{QStringLiteral("--password-stdin")}, pasw.toUtf8() + '\n' + more);
    }

private:
    QString m_exe, m_dbs;
};
