#pragma once

#include "program/DataBlock.h"
#include "program/ElfParser.h"

#include <QMutex>
#include <QObject>
#include <QRecursiveMutex>
#include <QString>

#include <atomic>

class QThread;

/// The recursive mutex around every access to the program data. Any thread.
QRecursiveMutex& ELF_GetDataMutex();
/// The mutex around a program load, so that two loads never interleave. Any thread.
QMutex& ELF_GetLoadMutex();

// The program under debug: its path, its ELF model (for an ELF file) and its data blocks. Every function
// takes the data mutex itself and returns copies, so callers outside the program data library never hold it.

/// Closes the previous program and reads Path: for an ELF file the model and its loadable data, for
/// an Intel Hex, S-record or binary file the data alone. 0, or -1 when nothing could be read; parser
/// errors go to Callback. Relocation records issued before the load apply to the new file.
int ELF_Load(const QString& Path, ELF_ERROR_CALLBACK Callback = ELF_LogErrorRecord, void* User = nullptr);
/// Closes the program; its relocation records go with it.
void ELF_Unload();
bool ELF_IsLoaded();
QString ELF_GetProgramPath();
/// The ELF model of the program, or null (no program, or a data file). For the program data library
/// only: the model is valid only while the caller holds the data mutex.
ELF_FILE* ELF_GetProgramElfFile();
/// The program's data blocks; the copy shares the bytes.
ELF_DATA_BLOCKS ELF_GetProgramBlocks();
/// Reads any program or data file for a download or a memory load (BaseAddress -1: where the file says),
/// under the data mutex, since the ELF reader shares the module's relocation records.
ELF_DATA_BLOCKS ELF_ReadDataFile(const QString& Path, I64 BaseAddress = -1);
/// The relocated address of the program's ELF symbol Name, aligned to an instruction; -1 if there is none.
I64 ELF_GetProgramSymAddr(const QString& Name);
/// Whether the program's ELF symbol table has a symbol of this exact name.
bool ELF_HasProgramSymbol(const QString& Name);
/// Adds a symbol relocation record (see ELF_AddRelocation) under the data mutex.
int ELF_AddProgramRelocation(const QString& Selector, I32 Offset);
/// Lowest address of any program data block, -1 if there is none.
I64 ELF_GetBaseAddr();
/// The program's entry point (aligned, relocated), -1 without an ELF program.
I64 ELF_GetEntryPointPC();
/// Byte order code of the program: 0 little, 1 big, 2 unknown or no ELF program.
int ELF_GetEndianess();

/// Reads a program on a worker thread under the load mutex and the data mutex, and reports on the
/// thread of its owner. One load at a time. Created and used on the GUI thread.
class CProgramLoader : public QObject {
    Q_OBJECT

public:
    explicit CProgramLoader(QObject* Parent = nullptr);
    ~CProgramLoader() override;

    /// Starts reading Path; false when a load is already running.
    bool Start(const QString& Path);
    bool IsRunning() const;
    /// Waits for the running load without delivering events; Finished still comes through the event loop.
    void Wait();

signals:
    /// Path as given to Start, and ELF_Load's result.
    void Finished(QString Path, int Result);
    /// Reading of the debug information, in percent: emitted on the worker thread whenever the figure
    /// changes, ending with 100 once the reader is done. Connect it queued.
    void DebugInfoProgress(int Percent);

private:
    static void OnDebugProgress(U64 Done, U64 Total, void* User);

    QThread* m_Thread = nullptr;
    /// Last percentage emitted in this load; worker thread only.
    int m_LastPercent = -1;
    /// Set by the thread once its report is on its way; the thread may still be winding down.
    std::atomic<bool> m_Done{true};
};
