#pragma once

// Test registry: every test class of a folder registers itself and one main() runs them
// all. A test may also register a child action, which the same executable runs when it
// is started with ARGENT_TEST_CHILD=<name> (for crashes and kills in a real process).

#include <QObject>
#include <QString>
#include <QStringList>

using TestFactory = QObject* (*)();
// A child action creates its own application object from argc/argv.
using ChildAction = int (*)(int& argc, char** argv);

int registerTest(const char* name, TestFactory f);
int registerChild(const char* name, ChildAction f);

#define ARGENT_TEST(Class)                                                                                   \
    static const int argentTestReg_##Class = registerTest(#Class, []() -> QObject* { return new Class; });
#define ARGENT_CHILD(name, fn) static const int argentChildReg_##fn = registerChild(name, fn);
