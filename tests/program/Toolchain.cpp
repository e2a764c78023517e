#include "Toolchain.h"

#include <QFile>
#include <QProcess>
#include <QRegularExpression>

#ifndef ARNEX_TEST_GDB
#define ARNEX_TEST_GDB "gdb-multiarch"
#endif

namespace Toolchain {
namespace {

U32 Hex(const QString& Text) {
    QString T = Text.trimmed();
    if (T.startsWith(QLatin1String("0x"))) {
        T = T.mid(2);
    }
    return T.toUInt(nullptr, 16);
}

/// readelf prints small sizes in decimal and large ones in hexadecimal with "0x".
U32 Number(const QString& Text) {
    return Text.startsWith(QLatin1String("0x")) ? Hex(Text) : Text.toUInt();
}

QStringList Lines(const QString& Elf, const QStringList& Args) {
    return Run(Readelf(), QStringList{QStringLiteral("-W")} + Args + QStringList{Elf})
        .split(QLatin1Char('\n'));
}

} // namespace

QString Run(const QString& Tool, const QStringList& Args, QString* Error) {
    QProcess P;
    P.start(Tool, Args);
    if (!P.waitForFinished(60000) || P.exitStatus() != QProcess::NormalExit || P.exitCode() != 0) {
        if (Error) {
            *Error = Tool + QLatin1Char(' ') + Args.join(QLatin1Char(' ')) + QStringLiteral(": ") +
                     QString::fromUtf8(P.readAllStandardError());
        }
        return QString();
    }
    return QString::fromUtf8(P.readAllStandardOutput());
}

QString Readelf() {
    return QStringLiteral(ARNEX_TEST_READELF);
}
QString Nm() {
    return QStringLiteral(ARNEX_TEST_NM);
}
QString Objcopy() {
    return QStringLiteral(ARNEX_TEST_OBJCOPY);
}

QStringList FirmwareElfs() {
    return QString::fromUtf8(ARNEX_TEST_FIRMWARE_ELFS).split(QLatin1Char('|'), Qt::SkipEmptyParts);
}

QString BigEndianElf() {
    return QStringLiteral(ARNEX_TEST_BIG_ENDIAN_ELF);
}

QStringList AllElfs() {
    return FirmwareElfs() << BigEndianElf();
}

QMap<QString, QString> ReadHeader(const QString& Elf) {
    QMap<QString, QString> Map;
    for (const QString& L : Lines(Elf, {QStringLiteral("-h")})) {
        const qsizetype Colon = L.indexOf(QLatin1Char(':'));
        if (Colon > 0 && L.startsWith(QLatin1String("  "))) {
            Map.insert(L.left(Colon).trimmed(), L.mid(Colon + 1).trimmed());
        }
    }
    return Map;
}

std::vector<Segment> ReadSegments(const QString& Elf) {
    std::vector<Segment> Out;
    bool In = false;
    for (const QString& L : Lines(Elf, {QStringLiteral("-l")})) {
        if (L.trimmed().startsWith(QLatin1String("Type"))) {
            In = true;
            continue;
        }
        if (!In) {
            continue;
        }
        const QStringList T = L.split(QLatin1Char(' '), Qt::SkipEmptyParts);
        if (T.size() < 8 || !T[1].startsWith(QLatin1String("0x"))) {
            if (L.trimmed().isEmpty()) {
                break;
            }
            continue;
        }
        Segment S;
        S.Type = T[0];
        S.Offset = Hex(T[1]);
        S.VirtAddr = Hex(T[2]);
        S.PhysAddr = Hex(T[3]);
        S.FileSize = Hex(T[4]);
        S.MemSize = Hex(T[5]);
        S.Align = Hex(T.last());
        S.Flags = T.mid(6, T.size() - 7).join(QString());
        Out.push_back(S);
    }
    return Out;
}

std::vector<Section> ReadSections(const QString& Elf) {
    static const QRegularExpression Re(QStringLiteral(
        R"(^\s*\[\s*(\d+)\](.*?)\s(\S+)\s+([0-9a-f]+)\s+([0-9a-f]+)\s+([0-9a-f]+)\s+([0-9a-f]{2})\s+([A-Za-z]*)\s+(\d+)\s+(\d+)\s+(\d+)\s*$)"));
    std::vector<Section> Out;
    for (const QString& L : Lines(Elf, {QStringLiteral("-S")})) {
        const QRegularExpressionMatch M = Re.match(L);
        if (!M.hasMatch()) {
            continue;
        }
        Section S;
        S.Index = M.captured(1).toUInt();
        S.Name = M.captured(2).trimmed();
        S.Type = M.captured(3);
        S.Addr = Hex(M.captured(4));
        S.Offset = Hex(M.captured(5));
        S.Size = Hex(M.captured(6));
        S.EntSize = Hex(M.captured(7));
        S.Flags = M.captured(8);
        S.Link = M.captured(9).toUInt();
        S.Info = M.captured(10).toUInt();
        S.Align = M.captured(11).toUInt();
        Out.push_back(S);
    }
    return Out;
}

std::vector<Symbol> ReadSymbols(const QString& Elf) {
    static const QRegularExpression Re(
        QStringLiteral(R"(^\s*\d+:\s+([0-9a-f]+)\s+(\S+)\s+(\S+)\s+(\S+)\s+(\S+)\s+(\S+) ?(.*)$)"));
    std::vector<Symbol> Out;
    for (const QString& L : Lines(Elf, {QStringLiteral("-s")})) {
        const QRegularExpressionMatch M = Re.match(L);
        if (!M.hasMatch()) {
            continue;
        }
        Out.push_back(Symbol{Hex(M.captured(1)), Number(M.captured(2)), M.captured(3), M.captured(4),
                             M.captured(5), M.captured(6), M.captured(7)});
    }
    return Out;
}

std::vector<NmEntry> ReadNm(const QString& Elf) {
    std::vector<NmEntry> Out;
    for (const QString& L : Run(Nm(), {QStringLiteral("-S"), Elf}).split(QLatin1Char('\n'))) {
        const QStringList T = L.split(QLatin1Char(' '), Qt::SkipEmptyParts);
        if (T.size() == 4) {
            Out.push_back(NmEntry{Hex(T[0]), true, Hex(T[1]), T[2][0], T[3]});
        } else if (T.size() == 3) {
            Out.push_back(NmEntry{Hex(T[0]), false, 0, T[1][0], T[2]});
        }
    }
    return Out;
}

std::map<U32, U8> LoadableBytes(const QString& Elf) {
    QFile F(Elf);
    F.open(QIODevice::ReadOnly);
    const QByteArray Bytes = F.readAll();
    std::map<U32, U8> Map;
    for (const Segment& S : ReadSegments(Elf)) {
        if (S.Type != QLatin1String("LOAD")) {
            continue;
        }
        for (U32 i = 0; i < S.FileSize; ++i) {
            Map[S.PhysAddr + i] = static_cast<U8>(Bytes[S.Offset + i]);
        }
    }
    return Map;
}

QStringList AskGdb(const QString& Elf, const QStringList& Commands) {
    QStringList Args{"-q", "-batch", "-nx"};
    for (int i = 0; i < Commands.size(); ++i) {
        Args << "-ex" << Commands[i] << "-ex" << QStringLiteral("echo @@%1@@\\n").arg(i);
    }
    Args << Elf;
    QString Error;
    const QString Out = Toolchain::Run(QStringLiteral(ARNEX_TEST_GDB), Args, &Error);
    QStringList Answers;
    int From = 0;
    for (int i = 0; i < Commands.size(); ++i) {
        const QString Marker = QStringLiteral("@@%1@@\n").arg(i);
        const int At = Out.indexOf(Marker, From);
        if (At < 0) {
            break;
        }
        Answers << Out.mid(From, At - From);
        From = At + Marker.size();
    }
    return Answers;
}

} // namespace Toolchain
