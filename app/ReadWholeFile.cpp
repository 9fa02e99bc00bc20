#include "app/ReadWholeFile.h"

#include <QFile>

#include <sodium.h>

bool ReadWholeFile(const QString& Path, QByteArray& Bytes) {
    Bytes.clear();
    QFile f(Path);
    if (!f.open(QIODevice::ReadOnly))
        return false;
    Bytes = f.readAll();
    if (f.error() == QFileDevice::NoError)
        return true;
    // What was read may be part of a secret.
    sodium_memzero(Bytes.data(), static_cast<std::size_t>(Bytes.size()));
    Bytes.clear();
    return false;
}
