#include "ElfImage.h"

#include <QFile>

namespace {

U32 Get(const QByteArray& F, qsizetype Off, int Size, bool BigEndian) {
    U32 V = 0;
    for (int i = 0; i < Size; ++i) {
        const U32 B = static_cast<U8>(F[Off + i]);
        V |= B << (BigEndian ? 8 * (Size - 1 - i) : 8 * i);
    }
    return V;
}

} // namespace

QString ReadElfImage(const QString& Path, ElfImage& Out) {
    QFile File(Path);
    if (!File.open(QIODevice::ReadOnly)) {
        return QStringLiteral("cannot open ") + Path;
    }
    const QByteArray F = File.readAll();
    if (F.size() < 52 ||
        !F.startsWith("\x7F"
                      "ELF") ||
        F[4] != 1) {
        return QStringLiteral("not a 32-bit ELF file: ") + Path;
    }
    Out.BigEndian = F[5] == 2;
    const bool BE = Out.BigEndian;
    const U32 PhOff = Get(F, 28, 4, BE);
    const U32 PhEntSize = Get(F, 42, 2, BE);
    const U32 PhNum = Get(F, 44, 2, BE);
    for (U32 i = 0; i < PhNum; ++i) {
        const qsizetype Ph = PhOff + qsizetype(i) * PhEntSize;
        if (Ph + 32 > F.size()) {
            return QStringLiteral("truncated program header in ") + Path;
        }
        const U32 Type = Get(F, Ph, 4, BE);
        const U32 Offset = Get(F, Ph + 4, 4, BE);
        const U32 VAddr = Get(F, Ph + 8, 4, BE);
        const U32 FileSize = Get(F, Ph + 16, 4, BE);
        if (Type != 1 || FileSize == 0) {
            continue;
        }
        if (qsizetype(Offset) + FileSize > F.size()) {
            return QStringLiteral("segment outside the file in ") + Path;
        }
        Out.Segments.append({VAddr, F.mid(Offset, FileSize)});
    }
    return Out.Segments.isEmpty() ? QStringLiteral("no loadable segment in ") + Path : QString();
}
