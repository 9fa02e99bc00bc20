#include "tests/common/TestMain.h"

#include "app/DiagnosticsHookup.h"

#include <QTest>
#ifdef ARGENT_TEST_GUI
#include "app/MsgBox.h"
#include "app/guiApplication.h"

#include <QApplication>
#include <QDialog>
#else
#include <QCoreApplication>
#endif

#include <map>
#include <memory>
#include <vector>

namespace {
std::vector<std::pair<const char*, TestFactory>>& tests() {
    static std::vector<std::pair<const char*, TestFactory>> t;
    return t;
}
std::map<QString, ChildAction>& children() {
    static std::map<QString, ChildAction> c;
    return c;
}
} // namespace

int registerTest(const char* name, TestFactory f) {
    tests().emplace_back(name, f);
    return 0;
}

int registerChild(const char* name, ChildAction f) {
    children()[QString::fromLatin1(name)] = f;
    return 0;
}

int main(int argc, char** argv) {
    ConnectDiagnostics();
    const QString child = qEnvironmentVariable("ARGENT_TEST_CHILD");
    if (!child.isEmpty()) {
        auto it = children().find(child);
        if (it == children().end())
            return 99;
        return it->second(argc, argv);
    }
#ifdef ARGENT_TEST_GUI
    QApplication app(argc, argv);
    // A dialog or message box that a test did not script must never wait for a user:
    // it is declined at once, and says so.
    SetModalHandler([](QDialog& d) {
        qWarning("unscripted dialog %s declined", qPrintable(d.objectName()));
        return int(QDialog::Rejected);
    });
    SetMsgBoxHandler([](const QString& prompt, int style, const QString&) {
        qWarning("unscripted message box: %s", qPrintable(prompt));
        return (style & 7) == vbYesNo ? int(vbNo) : (style & 7) == vbOKCancel ? int(vbCancel) : int(vbOK);
    });
#else
    QCoreApplication app(argc, argv);
#endif
    int failed = 0;
    for (auto& [name, make] : tests()) {
        std::unique_ptr<QObject> t(make());
        failed += QTest::qExec(t.get(), argc, argv);
    }
    return failed ? 1 : 0;
}
