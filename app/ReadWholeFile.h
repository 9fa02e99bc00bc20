#pragma once

// Reading a file whole, for the files the program reads in one piece (settings, language
// files, database files). A user's file whose identity is kept is read with its identity
// instead (storage/FileIdentity.h), so that the two always agree.

#include <QByteArray>
#include <QString>

// The whole content of the file at Path into Bytes. False, with Bytes empty, when it cannot
// be opened (no file, a folder, no permission) or cannot be read to its end.
bool ReadWholeFile(const QString& Path, QByteArray& Bytes);
