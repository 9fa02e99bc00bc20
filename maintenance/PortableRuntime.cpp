#include "maintenance/PortableRuntime.h"

#include "diagnostics/ErrorTrap.h"
#include "diagnostics/Trace.h"

#include <QDir>
#include <QFileInfo>
#include <QLibraryInfo>
#include <QMap>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>

namespace {

// Kinds of plugins and the files of each that the window can use. A kind the system's Qt
// lacks (no Wayland support installed) is simply not carried.
struct PluginKind {
    const char* Folder;
    const char* Pattern;
};
constexpr PluginKind kPluginKinds[] = {
    {"platforms", "libqxcb.so"},
    {"platforms", "libqwayland-*.so"},
    {"xcbglintegrations", "*.so"},
    {"wayland-shell-integration", "*.so"},
    {"wayland-decoration-client", "*.so"},
    {"wayland-graphics-integration-client", "libqt-plugin-wayland-egl.so"},
    {"platforminputcontexts", "libcomposeplatforminputcontextplugin.so"},
};

// Libraries of the system (see the header), by the name before ".so".
const QRegularExpression& systemLibraryPattern() {
    static const QRegularExpression re(QStringLiteral(
        "^(ld-linux.*|libc|libm|libdl|libpthread|librt|libresolv|libutil|libanl|libstdc\\+\\+|libgcc_s"
        "|libz|libzstd|liblzma|liblz4|libbz2|libsystemd|libudev|libcap|libgcrypt|libgpg-error"
        "|libpcre2-8|libselinux|libuuid|libblkid|libmount|libcom_err|libffi|libcrypt"
        "|libX11|libX11-xcb|libXau|libXdmcp|libbsd|libmd|libxcb"
        "|libxcb-(composite|damage|dpms|dri2|dri3|glx|present|randr|record|render|res|screensaver"
        "|shape|shm|sync|xf86dri|xfixes|xinerama|xinput|xkb|xtest|xv|xvmc)"
        "|libGL|libGLX|libGLdispatch|libEGL|libOpenGL|libGLESv2|libgbm|libdrm"
        "|libwayland-(client|cursor|egl)|libxkbcommon|libxkbcommon-x11"
        "|libfontconfig|libfreetype|libexpat|libbrotlicommon|libbrotlidec|libdbus-1)$"));
    return re;
}

// The libraries ldd reports for one file: soname -> resolved path.
void lddInto(const QString& File, QMap<QString, QString>& Found) {
    TRACE_PROC("modMain.LddInto", File);
    QProcess p;
    p.start(QStringLiteral("ldd"), {File});
    if (!p.waitForStarted(10000))
        RaiseError(vbErrFileNotFound, QStringLiteral("File not found: ldd (the dynamic loader's list of "
                                                     "libraries is needed to make a portable copy)"));
    p.waitForFinished(30000);
    static const QRegularExpression line(QStringLiteral("^\\s*(\\S+) => (/\\S+) \\(0x"));
    for (const QString& l : QString::fromLocal8Bit(p.readAllStandardOutput()).split(u'\n')) {
        const QRegularExpressionMatch m = line.match(l);
        if (m.hasMatch())
            Found.insert(m.captured(1), m.captured(2));
    }
}

} // namespace

bool IsSystemLibrary(const QString& SoName) {
    const QString stem = SoName.section(QStringLiteral(".so"), 0, 0);
    return systemLibraryPattern().match(stem).hasMatch();
}

QStringList PortablePluginFiles(const QString& PluginsFolder) {
    TRACE_PROC("modMain.PortablePluginFiles", PluginsFolder);
    QStringList out;
    for (const PluginKind& k : kPluginKinds) {
        const QString folder = QString::fromLatin1(k.Folder);
        const QDir dir(PluginsFolder + u'/' + folder);
        for (const QString& f : dir.entryList({QString::fromLatin1(k.Pattern)}, QDir::Files, QDir::Name)) {
            const QString rel = folder + u'/' + f;
            if (!out.contains(rel))
                out.append(rel);
        }
    }
    return out;
}

QByteArray PortableQtConf() {
    return QByteArrayLiteral("# Written by ArgentPasswordMngr for its portable copy: Qt's plugins are\n"
                             "# those carried in the folder plugins beside the programs.\n"
                             "[Paths]\n"
                             "Plugins=plugins\n");
}

QList<PortableRuntimeFile> PortableRuntimeFiles(const QStringList& Programs) {
    TRACE_PROC("modMain.PortableRuntimeFiles", Programs);
    QList<PortableRuntimeFile> out;
    const QString plugins = QLibraryInfo::path(QLibraryInfo::PluginsPath);
    QStringList loaded = Programs;
    for (const QString& rel : PortablePluginFiles(plugins)) {
        const QString src = plugins + u'/' + rel;
        out.append({src, QStringLiteral("plugins/") + rel, QFileInfo(src).size()});
        loaded.append(src);
    }
    QMap<QString, QString> libs;
    for (const QString& f : loaded)
        lddInto(f, libs);
    for (auto it = libs.cbegin(); it != libs.cend(); ++it) {
        if (IsSystemLibrary(it.key()))
            continue;
        // The bytes of the library itself, under the name the loader looks for.
        const QFileInfo real(QFileInfo(it.value()).canonicalFilePath());
        out.append({real.filePath(), QStringLiteral("lib/") + it.key(), real.size()});
    }
    return out;
}
