#pragma once

// The D-Bus types of the Secret Service API that Qt does not know by itself.

#include <QByteArray>
#include <QDBusArgument>
#include <QDBusObjectPath>
#include <QMap>
#include <QMetaType>
#include <QString>

// (oayays): session, parameters (the IV), value, content type.
struct SecretStruct {
    QDBusObjectPath Session;
    QByteArray Parameters, Value;
    QString ContentType;
};
Q_DECLARE_METATYPE(SecretStruct)

using SecretStringMap = QMap<QString, QString>;
using SecretByPath = QMap<QDBusObjectPath, SecretStruct>;
Q_DECLARE_METATYPE(SecretByPath)

inline QDBusArgument& operator<<(QDBusArgument& A, const SecretStruct& S) {
    A.beginStructure();
    A << S.Session << S.Parameters << S.Value << S.ContentType;
    A.endStructure();
    return A;
}

inline const QDBusArgument& operator>>(const QDBusArgument& A, SecretStruct& S) {
    A.beginStructure();
    A >> S.Session >> S.Parameters >> S.Value >> S.ContentType;
    A.endStructure();
    return A;
}

// Registers the types once (every SecretService does it; the second time costs nothing).
void RegisterSecretTypes();

namespace secret_err {
inline const QString kNoSession = QStringLiteral("org.freedesktop.Secret.Error.NoSession");
inline const QString kNoSuchObject = QStringLiteral("org.freedesktop.Secret.Error.NoSuchObject");
inline const QString kIsLocked = QStringLiteral("org.freedesktop.Secret.Error.IsLocked");
inline const QString kInvalidArgs = QStringLiteral("org.freedesktop.DBus.Error.InvalidArgs");
inline const QString kUnknownMethod = QStringLiteral("org.freedesktop.DBus.Error.UnknownMethod");
inline const QString kUnknownObject = QStringLiteral("org.freedesktop.DBus.Error.UnknownObject");
inline const QString kNotSupported = QStringLiteral("org.freedesktop.DBus.Error.NotSupported");
inline const QString kAccessDenied = QStringLiteral("org.freedesktop.DBus.Error.AccessDenied");
inline const QString kLimits = QStringLiteral("org.freedesktop.DBus.Error.LimitsExceeded");
inline const QString kReadOnly = QStringLiteral("org.freedesktop.DBus.Error.PropertyReadOnly");
inline const QString kUnknownProperty = QStringLiteral("org.freedesktop.DBus.Error.UnknownProperty");
inline const QString kFailed = QStringLiteral("org.freedesktop.DBus.Error.Failed");
} // namespace secret_err

namespace secret_if {
inline const QString kService = QStringLiteral("org.freedesktop.Secret.Service");
inline const QString kCollection = QStringLiteral("org.freedesktop.Secret.Collection");
inline const QString kItem = QStringLiteral("org.freedesktop.Secret.Item");
inline const QString kSession = QStringLiteral("org.freedesktop.Secret.Session");
inline const QString kPrompt = QStringLiteral("org.freedesktop.Secret.Prompt");
inline const QString kProps = QStringLiteral("org.freedesktop.DBus.Properties");
} // namespace secret_if

// Limits a real client never reaches.
inline constexpr qsizetype kMaxSecretBytes = 1 << 20;
inline constexpr qsizetype kMaxLabel = 4096;
inline constexpr qsizetype kMaxAttrs = 64;
inline constexpr qsizetype kMaxAttrText = 4096;
inline constexpr qsizetype kMaxPending = 64; // reads waiting for a question
inline constexpr qsizetype kMaxPrompts = 1024;
