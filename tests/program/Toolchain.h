#pragma once

#include "app/core/Types.h"

#include <QMap>
#include <QString>
#include <QStringList>

#include <map>
#include <vector>

/// The ARM toolchain as the oracle: runs its programs and parses what they print.
namespace Toolchain {

/// Runs Tool with Args; the standard output, or an empty text with Error set.
QString Run(const QString& Tool, const QStringList& Args, QString* Error = nullptr);

QString Readelf();
QString Nm();
QString Objcopy();
/// Paths of every target program of the build, and of the big-endian build of the tests.
QStringList FirmwareElfs();
QString BigEndianElf();
/// All of them.
QStringList AllElfs();

/// "readelf -W -h" as key to value, keys as printed ("Entry point address").
QMap<QString, QString> ReadHeader(const QString& Elf);

struct Segment {
    QString Type;
    U32 Offset, VirtAddr, PhysAddr, FileSize, MemSize, Align;
    QString Flags;
};
std::vector<Segment> ReadSegments(const QString& Elf);

struct Section {
    U32 Index;
    QString Name, Type;
    U32 Addr, Offset, Size, EntSize;
    QString Flags;
    U32 Link, Info, Align;
};
std::vector<Section> ReadSections(const QString& Elf);

struct Symbol {
    U32 Value, Size;
    QString Type, Bind, Vis, Ndx, Name;
};
/// Every symbol table in file order, concatenated.
std::vector<Symbol> ReadSymbols(const QString& Elf);

struct NmEntry {
    U32 Value;
    bool HasSize;
    U32 Size;
    QChar Kind;
    QString Name;
};
std::vector<NmEntry> ReadNm(const QString& Elf);

/// The answers of one gdb-multiarch run on Elf, one text per command, in order.
QStringList AskGdb(const QString& Elf, const QStringList& Commands);

/// Loadable bytes of an ELF file by physical address, taken from readelf's program headers and the file.
std::map<U32, U8> LoadableBytes(const QString& Elf);

} // namespace Toolchain
