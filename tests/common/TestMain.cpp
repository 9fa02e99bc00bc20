#include "tests/common/TestMain.h"

#include <QTest>
#ifdef ARGENT_TEST_GUI
#include <QApplication>
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
    const QString child = qEnvironmentVariable("ARGENT_TEST_CHILD");
    if (!child.isEmpty()) {
        auto it = children().find(child);
        if (it == children().end()) return 99;
        return it->second(argc, argv);
    }
#ifdef ARGENT_TEST_GUI
    QApplication app(argc, argv);
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
