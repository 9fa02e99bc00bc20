// A whole file image: the signature line, the protection of the body, the body.

#include "storage/FileSeal.h"
#include "storage/TableFile.h"

#include "diagnostics/Trace.h"

#include <cstring>

int ImageKind(const QByteArray& Data) {
    const auto startsLine = [&Data](const char* Sig, qsizetype Len) {
        if (Data.size() <= Len || std::memcmp(Data.constData(), Sig, static_cast<std::size_t>(Len)) != 0)
            return false;
        return Data[Len] == '\n' || (Data[Len] == '\r' && Data.size() > Len + 1 && Data[Len + 1] == '\n');
    };
    if (startsLine(kSignatureEnc, sizeof(kSignatureEnc) - 1))
        return kImageSealed;
    return startsLine(kSignature, sizeof(kSignature) - 1) ? kImagePlain : kImageNone;
}

int ParseFileImage(QByteArray& Data, const QString& Pasw, DatabaseRecord& db, const QSet<QString>* Only,
                   const BytesReady& Ready) {
    TRACE_PROC("TableEngine.ParseFileImage", static_cast<long long>(Data.size()), HIDDEN(Pasw));
    // Only a sealed body is opened behind the outer layer; anything else waits for all of it.
    if (Ready && ImageKind(Data) != kImageSealed)
        Ready(Data.size());
    const auto* nl =
        static_cast<const char*>(std::memchr(Data.constData(), '\n', static_cast<std::size_t>(Data.size())));
    qsizetype sigLen = nl ? nl - Data.constData() : Data.size();
    TRACE_LOCAL(sigLen);
    const qsizetype bodyAt = nl ? sigLen + 1 : Data.size();
    TRACE_LOCAL(bodyAt);
    if (sigLen > 0 && Data[sigLen - 1] == '\r')
        --sigLen;
    const QByteArrayView sig(Data.constData(), sigLen);
    int r;
    if (sig == QByteArrayView(kSignature)) {
        r = ParseBody(Data, bodyAt, db, Only);
    } else if (sig == QByteArrayView(kSignatureEnc) && nl) {
        if (!db.Key)
            db.Key = std::make_shared<KeyCache>();
        r = OpenInPlace(Data, bodyAt, Pasw, db.Key.get(), Ready);
        if (r > 0)
            r = ParseBody(Data, 0, db, Only);
    } else {
        r = -4;
    }
    // The tables read keep the bytes (and wipe them when the last of them goes); a failed
    // reading leaves nobody else holding them.
    if (Data.isDetached())
        WipeBytes(Data);
    Data = QByteArray();
    return r;
}

QByteArray BuildFileImage(const DatabaseRecord& db, const QString& Pasw, bool Compress) {
    TRACE_PROC("TableEngine.BuildFileImage", HIDDEN(Pasw), Compress);
    QByteArray out;
    const bool sealed = !Pasw.isEmpty();
    TRACE_LOCAL_HIDDEN(sealed);
    out.reserve(EstimateBodySize(db) + (sealed ? 15 + kSealHeaderSize + kSealTagSize : 11));
    if (!sealed) {
        out.append(kSignature);
        out.append("\r\n");
        WriteBody(out, db);
        return out;
    }
    out.append(kSignatureEnc);
    out.append("\r\n");
    const qsizetype headerAt = out.size();
    TRACE_LOCAL(headerAt);
    out.append(QByteArray(kSealHeaderSize, '\0'));
    WriteBody(out, db);
    if (!SealInPlace(out, headerAt, Pasw, Compress, db.Key.get()))
        return QByteArray();
    return out;
}
