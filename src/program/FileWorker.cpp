#include "program/FileWorker.h"

#include "app/core/Catalogue.h"
#include "app/core/Log.h"
#include "program/ElfParser.h"
#include "program/ElfWrapper.h"
#include "program/FileKinds.h"
#include "program/RecordParser.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cctype>
#include <cstring>

namespace TFile {
namespace {

constexpr int CATALOG_CORRUPT_RECORD = 94;
constexpr int CATALOG_FILE_NOT_FOUND = 95;
constexpr int CATALOG_CANNOT_OPEN = 30;
constexpr int CATALOG_FILE_SIZE = 31;

bool SamePath(const QString& A, const QString& B) {
    return QFileInfo(A).absoluteFilePath() == QFileInfo(B).absoluteFilePath();
}

bool IsSpace(char C) {
    return std::isspace(static_cast<unsigned char>(C)) != 0;
}

} // namespace

CFileWorker* CFileWorker::Instance() {
    // Lives to the process's end, like every singleton of the program.
    static CFileWorker* const Worker = new CFileWorker;
    return Worker;
}

bool CFileWorker::OpenForChunks(const QString& Path, QFile& In) {
    const QFileInfo Info(Path);
    if (!Info.exists() || Info.isDir() || Info.size() >= FILE_SIZE_LIMIT) {
        return false;
    }
    return In.open(QIODevice::ReadOnly);
}

ELF_DATA_BLOCKS CFileWorker::ReadFile(const QString& Path, I64 BaseAddress) {
    if (!QFileInfo(Path).isFile()) {
        return {};
    }
    ELF_DATA_BLOCKS Blocks = ReadFileType(Path);
    if (BaseAddress == -1 || Blocks.empty()) {
        return Blocks;
    }
    U32 Lowest = Blocks.front().Address;
    for (const ELF_DATA_BLOCK& B : Blocks) {
        Lowest = std::min(Lowest, B.Address);
    }
    const U32 Delta = static_cast<U32>(BaseAddress) - Lowest;
    for (ELF_DATA_BLOCK& B : Blocks) {
        B.Address += Delta;
    }
    return Blocks;
}

ELF_DATA_BLOCKS CFileWorker::ReadFileType(const QString& Path) {
    // The extension as written must appear in the pattern list: ".HEX" is not read.
    const QString Ext = Extension(Path);
    if (!QString::fromLatin1(DATA_FILE_PATTERNS).contains(Ext)) {
        return {};
    }
    if (Ext.toLower() == QLatin1String("bin")) {
        return ReadBinFile(Path);
    }
    if (IsElfFile(Path)) {
        return ReadElfFile(Path);
    }
    if (IsTextRecordFile(Path)) {
        int FirstBadLine = -1;
        ELF_DATA_BLOCKS Blocks = ReadRecordFile(Path, FirstBadLine);
        if (FirstBadLine >= 0) {
            const QByteArray Name = Path.toUtf8();
            LogMessage(CatalogText(CATALOG_CORRUPT_RECORD, Name.constData(), FirstBadLine),
                       GetCatalogRow(CATALOG_CORRUPT_RECORD)->Flags | MSG_FROM_PROGRAM_DATA);
        }
        return Blocks;
    }
    return {};
}

ELF_DATA_BLOCKS CFileWorker::ReadBinFile(const QString& Path) {
    QFile In(Path);
    if (!OpenForChunks(Path, In)) {
        return {};
    }
    const qint64 Total = In.size();
    if (Total == 0) {
        return {};
    }
    emit ProgressStarted(QStringLiteral("Reading File..."), Total);
    ELF_DATA_BLOCK Block;
    Block.Data.reserve(Total);
    QByteArray Buffer(static_cast<qsizetype>(std::min(FILE_CHUNK_SIZE, Total)), '\0');
    for (qint64 Pos = 0;;) {
        if (!In.seek(Pos)) {
            break;
        }
        const qint64 N = In.read(Buffer.data(), Buffer.size());
        if (N > 0) {
            Block.Data.append(Buffer.constData(), N);
            Pos += N;
            emit ProgressChanged(Pos);
        }
        if (N < Buffer.size()) {
            break;
        }
    }
    emit ProgressChanged(Total);
    emit ProgressEnded();
    if (Block.Data.isEmpty()) {
        return {};
    }
    Block.Size = static_cast<U32>(Block.Data.size());
    return {Block};
}

ELF_DATA_BLOCKS CFileWorker::ReadRecordFile(const QString& Path, int& FirstBadLine) {
    FirstBadLine = -1;
    const QString Ext = Extension(Path).toLower();
    const bool SRecord = Ext == QLatin1String("mot") || Ext == QLatin1String("srec");
    if (!SRecord && Ext != QLatin1String("hex")) {
        return {};
    }
    QFile In(Path);
    if (!OpenForChunks(Path, In)) {
        return {};
    }
    const qint64 Total = In.size();
    emit ProgressStarted(QStringLiteral("Reading File..."), Total);
    const qint64 Chunk = std::min(FILE_CHUNK_SIZE, std::max<qint64>(Total, 1));
    QByteArray Buffer(static_cast<qsizetype>(Chunk), '\0');
    ELF_DATA_BLOCKS Blocks;
    U32 Base = 0;
    int LineIndex = 0;

    const auto ParseLine = [&](const char* Line, qint64 Length) {
        ELF_DATA_BLOCK Block;
        const int Len = static_cast<int>(Length);
        const bool Ok =
            SRecord ? ParseSRecord(Line, Len, Block) : ParseIntelHexRecord(Line, Len, Base, Block);
        if (!Ok) {
            LogWarnMsg(QStringLiteral("Discarded invalid record in s-record file"));
            if (FirstBadLine < 0) {
                FirstBadLine = LineIndex;
            }
        } else {
            const bool DataRecord =
                SRecord ? (Block.RecordType >= 1 && Block.RecordType <= 3) : Block.RecordType == 0;
            if (DataRecord && !Block.Data.isEmpty()) {
                Blocks.push_back(Block);
            }
        }
        ++LineIndex;
    };

    for (qint64 Pos = 0;;) {
        if (!In.seek(Pos)) {
            break;
        }
        const qint64 N = In.read(Buffer.data(), Chunk);
        if (N <= 0) {
            break;
        }
        const bool LastChunk = N < Chunk;
        const char* P = Buffer.constData();
        qint64 i = 0;
        // A chunk starts at the file's start, at a line's start or inside white space between lines.
        while (i < N && IsSpace(P[i])) {
            ++i;
        }
        while (i < N) {
            qint64 End = i;
            while (End < N && P[End] != '\n' && P[End] != '\r') {
                ++End;
            }
            if (End == N && !LastChunk) {
                if (i > 0) {
                    break; // the line is read again from its start with the next chunk
                }
                // A line longer than a chunk cannot be a record: it counts as one bad line.
                ParseLine(P, N);
                i = N;
                break;
            }
            ParseLine(P + i, End - i);
            i = End < N ? End + 1 : N;
            while (i < N && IsSpace(P[i])) {
                ++i;
            }
        }
        Pos += i;
        emit ProgressChanged(Pos);
        if (LastChunk) {
            break;
        }
    }
    emit ProgressChanged(Total);
    emit ProgressEnded();
    // One corrupt record makes the whole file unusable.
    if (FirstBadLine >= 0) {
        return {};
    }
    if (Blocks.size() > 1) {
        return CoalesceBlocks(Blocks);
    }
    for (ELF_DATA_BLOCK& B : Blocks) {
        B.Size = static_cast<U32>(B.Data.size());
    }
    return Blocks;
}

ELF_DATA_BLOCKS CFileWorker::ReadElfFile(const QString& Path) {
    ELF_FILE* Program = ELF_GetProgramElfFile();
    ELF_FILE* File = nullptr;
    ELF_FILE* SavedCurrent = ELF_GetCurrentFile();
    const bool Own = !(Program && SamePath(Program->Path, Path));
    if (Own) {
        File = ELF_Open(Path, false);
        if (!File) {
            ELF_SetCurrentFile(SavedCurrent);
            return {};
        }
    } else {
        File = Program;
    }
    ELF_DATA_BLOCKS Blocks;
    const U32 Count = ELF_GetSegmentCount(File);
    for (U32 i = 0; i < Count; ++i) {
        const U8* Data = ELF_GetSegmentData(File, i);
        if (ELF_GetSegmentType(File, i) != ElfFormat::PT_LOAD || !Data) {
            continue;
        }
        U32 Phys = ELF_GetSegmentPhysAddr(File, i);
        U32 Virt = ELF_GetSegmentVirtAddr(File, i);
        U32 Size = ELF_GetSegmentFileSize(File, i);
        const U32 Skip = ELF_GetSegmentFirstSectionOffset(File, i);
        if (Virt != Phys) {
            const U32 Diff = Virt > Phys ? Virt - Phys : Phys - Virt;
            LogDebugMsg(QStringLiteral("Virtual segment address differs from physical address by 0x") +
                        QString::number(Diff, 16).toUpper() + QStringLiteral(" bytes"));
        }
        // A segment that starts with the file header before its first section is loaded from there on.
        if (Skip <= Size) {
            Data += Skip;
            Phys += Skip;
            Virt += Skip;
            Size -= Skip;
        }
        if (Size == 0) {
            continue;
        }
        ELF_DATA_BLOCK Block;
        Block.Address = Phys;
        Block.VirtualAddress = Virt;
        Block.Size = Size;
        Block.Data = QByteArray(reinterpret_cast<const char*>(Data), static_cast<qsizetype>(Size));
        Blocks.push_back(Block);
    }
    if (Own) {
        ELF_Close(File);
        ELF_SetCurrentFile(SavedCurrent);
    }
    return Blocks;
}

ELF_DATA_BLOCKS CFileWorker::BlocksFromMemory(int Count, const MEMORY_ENTRY* Entries) {
    ELF_DATA_BLOCKS Blocks;
    for (int i = 0; Entries && i < Count; ++i) {
        ELF_DATA_BLOCK B;
        B.Address = Entries[i].Address;
        B.VirtualAddress = Entries[i].VirtualAddress;
        B.Size = Entries[i].Size;
        B.Data = QByteArray::fromRawData(reinterpret_cast<const char*>(Entries[i].Data),
                                         static_cast<qsizetype>(Entries[i].Size));
        Blocks.push_back(B);
    }
    return Blocks;
}

int CFileWorker::SaveFile(const QString& Path, const U8* Data, U32 Size) {
    if (Size == 0 || !Data) {
        return -1;
    }
    QFile Out(Path);
    if (!Out.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered)) {
        return -1;
    }
    emit ProgressStarted(QStringLiteral("Saving File..."), Size);
    const U32 Piece = static_cast<U32>(std::min<qint64>(Size, FILE_CHUNK_SIZE));
    const U32 Pieces = Size / Piece;
    U32 Written = 0;
    for (U32 i = 0; i < Pieces; ++i) {
        // The last piece carries the remainder, so that every byte is written.
        const U32 Length = i + 1 == Pieces ? Size - Written : Piece;
        if (Out.write(reinterpret_cast<const char*>(Data + Written), Length) != Length) {
            Out.close();
            Out.remove();
            emit ProgressEnded();
            return -1;
        }
        Written += Length;
        emit ProgressChanged(Written);
    }
    Out.close();
    emit ProgressEnded();
    emit FileSaved(Path, Size);
    return 0;
}

int CheckDataFile(const QString& Path) {
    const QFileInfo Info(Path);
    if (!Info.exists()) {
        return CATALOG_FILE_NOT_FOUND;
    }
    if (Info.isDir()) {
        return CATALOG_CANNOT_OPEN;
    }
    QFile In(Path);
    if (!In.open(QIODevice::ReadOnly)) {
        return CATALOG_CANNOT_OPEN;
    }
    if (In.size() == 0 || In.size() >= FILE_SIZE_LIMIT) {
        return CATALOG_FILE_SIZE;
    }
    return -1;
}

} // namespace TFile
