// argentpm: the command-line companion of ArgentPasswordMngr.

#include "Version.h"

#include <QCoreApplication>
#include <QString>

#include <cstdio>
#include <cstring>

namespace {

constexpr int kExitUsage = 2;

void printUsage(FILE* out) {
    std::fputs("Usage: argentpm [--databases DIR] COMMAND [ARGUMENTS]\n"
               "\n"
               "The command-line companion of ArgentPasswordMngr: it works on the same user\n"
               "files and settings as the desktop program.\n"
               "\n"
               "Options:\n"
               "  -h, --help     show this help and exit\n"
               "  --version      show the version and exit\n",
               out);
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList args = QCoreApplication::arguments().mid(1);
    if (args.isEmpty()) {
        printUsage(stderr);
        return kExitUsage;
    }
    const QString& first = args.first();
    if (first == QLatin1String("--help") || first == QLatin1String("-h") || first == QLatin1String("help")) {
        printUsage(stdout);
        return 0;
    }
    if (first == QLatin1String("--version")) {
        std::printf("argentpm %s (ArgentPasswordMngr, built %s)\n", ARGENT_VERSION_TEXT, ARGENT_BUILD_DATE);
        return 0;
    }
    std::fprintf(stderr, "argentpm: unknown command '%s'. Try 'argentpm --help'.\n",
                 first.toLocal8Bit().constData());
    return kExitUsage;
}
