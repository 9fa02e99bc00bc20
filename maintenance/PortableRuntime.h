#pragma once

// What a portable copy carries so that it starts on another machine of the same
// architecture that lacks Qt and libsodium:
//   lib/                  the shared libraries the programs and plugins load that are not
//                         part of a bare system with a desktop's display libraries; the
//                         programs find them through their run path $ORIGIN/lib
//   plugins/<kind>/       the Qt plugins the window needs: the X11 (xcb) and Wayland
//                         platforms with their shell and decoration plugins, and the
//                         compose-key input context
//   qt.conf               points Qt at plugins/, so that the copy never loads a system
//                         Qt's plugins, which would not match its own libraries
// Left to the system: the C and C++ run time and the rest of a minimal Debian or Ubuntu,
// and the display stack (X11 and xcb, OpenGL and EGL, the Wayland client, xkbcommon,
// fontconfig and FreeType, D-Bus), which has to match the machine's own drivers, X
// server and configuration.

#include <QList>
#include <QString>
#include <QStringList>

struct PortableRuntimeFile {
    QString Source; // the file as the running program loads it
    QString Target; // under the copy's folder: "lib/libQt6Core.so.6", "plugins/platforms/..."
    qint64 Size = 0;
};

// The libraries and plugins for a copy of the given programs (absolute paths), found
// through the dynamic loader (ldd) as the programs and the plugins resolve them now.
// Raises error 53 when the loader cannot be asked.
QList<PortableRuntimeFile> PortableRuntimeFiles(const QStringList& Programs);

// True for a library the copy leaves to the system, by its file name (soname).
bool IsSystemLibrary(const QString& SoName);

// The Qt plugins the copy carries, as "<kind>/<file>" under the plugins folder in use.
QStringList PortablePluginFiles(const QString& PluginsFolder);

// The text of the copy's qt.conf.
QByteArray PortableQtConf();
