#pragma once

#include "program/DataBlock.h"

#include <QObject>
#include <QString>

class QFile;

/// Program and memory image files: ELF, Motorola S-record, Intel Hex and raw binary are read into one
/// list of data blocks; raw memory dumps are written.
namespace TFile {

/// Caller-owned bytes for BlocksFromMemory.
struct MEMORY_ENTRY {
    U32 Address = 0;
    U32 VirtualAddress = 0;
    U32 Size = 0;
    const U8* Data = nullptr;
};

/// Size of the pieces in which files are read and written.
constexpr qint64 FILE_CHUNK_SIZE = 1000000;
/// Files of this size or more are not read: a block holds at most what a signed 32-bit size reports.
constexpr qint64 FILE_SIZE_LIMIT = 0x80000000ll;

/// The readers and the writer. Readers run on the calling thread (GUI or device thread); they reach the
/// ELF parser, so callers hold the program data mutex. The progress signals may come from any thread.
class CFileWorker : public QObject {
    Q_OBJECT

public:
    /// The one instance, created on first use.
    static CFileWorker* Instance();

    /// Reads any supported file. With BaseAddress -1 the addresses stay as the file says; otherwise
    /// every block moves by the distance from the lowest block address to BaseAddress (modulo 2^32).
    ELF_DATA_BLOCKS ReadFile(const QString& Path, I64 BaseAddress = -1);
    /// The dispatch by file name, without the rebasing.
    ELF_DATA_BLOCKS ReadFileType(const QString& Path);
    ELF_DATA_BLOCKS ReadBinFile(const QString& Path);
    ELF_DATA_BLOCKS ReadElfFile(const QString& Path);
    /// Reads S-record or Intel Hex by the extension. FirstBadLine is the index (from 0) of the first
    /// invalid line, or -1; with a bad line the result is empty.
    ELF_DATA_BLOCKS ReadRecordFile(const QString& Path, int& FirstBadLine);
    /// Wraps caller-owned bytes into blocks without copying; the bytes must outlive the list.
    static ELF_DATA_BLOCKS BlocksFromMemory(int Count, const MEMORY_ENTRY* Entries);

    /// Writes Size bytes as a raw file in pieces of up to FILE_CHUNK_SIZE bytes. 0, or -1 when Size is 0
    /// or a write falls short (the partial file is removed). Emits FileSaved on success.
    int SaveFile(const QString& Path, const U8* Data, U32 Size);

signals:
    void FileSaved(QString FilePath, U32 nBytes);
    /// "Reading File..." or "Saving File..." with the total number of bytes.
    void ProgressStarted(QString Text, qint64 Total);
    void ProgressChanged(qint64 Done);
    void ProgressEnded();

private:
    CFileWorker() = default;
    /// Opens a regular file of a readable size for the chunked readers.
    bool OpenForChunks(const QString& Path, QFile& In);
};

/// Catalogue index of the reason why a data file gives nothing (missing 95, not readable 30, empty or
/// too large 31), or -1 when the file itself is fine.
int CheckDataFile(const QString& Path);

} // namespace TFile
