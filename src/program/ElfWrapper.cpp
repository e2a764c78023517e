#include "program/ElfWrapper.h"

#include "app/core/Log.h"
#include "program/DwarfReader.h"
#include "program/FileKinds.h"
#include "program/FileWorker.h"
#include "program/SymbolFind.h"
#include "program/SymbolStore.h"

#include <QElapsedTimer>
#include <QThread>

#include <algorithm>

namespace {

struct Program {
    QString Path;
    ELF_FILE* File = nullptr;
    ELF_DATA_BLOCKS Blocks;
    bool Ready = false;
};

Program& P() {
    static Program Instance;
    return Instance;
}

QString ElapsedText(const QElapsedTimer& Timer) {
    const qint64 Us = Timer.nsecsElapsed() / 1000;
    return QString::asprintf("%d:%03d ms", static_cast<int>(Us / 1000), static_cast<int>(Us % 1000));
}

} // namespace

QRecursiveMutex& ELF_GetDataMutex() {
    static QRecursiveMutex Mutex;
    return Mutex;
}

QMutex& ELF_GetLoadMutex() {
    static QMutex Mutex;
    return Mutex;
}

int ELF_Load(const QString& Path, ELF_ERROR_CALLBACK Callback, void* User) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    // Records of Project.RelocateSymbols come before the file: closing the old program keeps them.
    const std::vector<ELF_RELOCATION> Relocations = ELF_GetRelocations();
    ELF_Unload();
    for (const ELF_RELOCATION& R : Relocations) {
        ELF_AddRelocation(R.Text, R.Offset);
    }
    ELF_SetErrorCallback(Callback, User);
    Program& Prog = P();
    if (TFile::HasElfMagic(Path)) {
        Prog.File = ELF_Open(Path, true);
        if (!Prog.File) {
            return -1;
        }
    }
    Prog.Path = Path;
    QElapsedTimer Timer;
    Timer.start();
    Prog.Blocks = TFile::CFileWorker::Instance()->ReadFile(Path, -1);
    LogDebugMsg(QStringLiteral("Program data segments initialized in: ") + ElapsedText(Timer));
    if (!Prog.File && Prog.Blocks.empty()) {
        Prog.Path.clear();
        return -1;
    }
    if (Prog.File) {
        ELF_BuildSymbolStore();
    }
    Prog.Ready = true;
    return 0;
}

void ELF_Unload() {
    QMutexLocker Lock(&ELF_GetDataMutex());
    Program& Prog = P();
    // The tables hold handles into the file: they go first.
    ELF_ClearSymbolStore();
    ELF_ClearFindCaches();
    if (Prog.File) {
        ELF_Close(Prog.File);
    }
    Prog.File = nullptr;
    Prog.Blocks.clear();
    Prog.Path.clear();
    Prog.Ready = false;
    if (!ELF_GetSlotFile(0) && !ELF_GetSlotFile(1) && !ELF_GetSlotFile(2)) {
        ELF_ClearRelocations();
    }
}

bool ELF_IsLoaded() {
    QMutexLocker Lock(&ELF_GetDataMutex());
    return P().Ready;
}

QString ELF_GetProgramPath() {
    QMutexLocker Lock(&ELF_GetDataMutex());
    return P().Path;
}

ELF_FILE* ELF_GetProgramElfFile() {
    QMutexLocker Lock(&ELF_GetDataMutex());
    return P().File;
}

ELF_DATA_BLOCKS ELF_GetProgramBlocks() {
    QMutexLocker Lock(&ELF_GetDataMutex());
    return P().Blocks;
}

ELF_DATA_BLOCKS ELF_ReadDataFile(const QString& Path, I64 BaseAddress) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    return TFile::CFileWorker::Instance()->ReadFile(Path, BaseAddress);
}

I64 ELF_GetProgramSymAddr(const QString& Name) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    const ELF_FILE* File = P().File;
    const QByteArray Wanted = Name.toUtf8();
    const ELF32_SYM* Sym = File ? ELF_FindSymByName(File, Wanted.constData()) : nullptr;
    if (!Sym) {
        return -1;
    }
    return ELF_AlignInst(ELF_GetSymValue(File, ELF_GetSymIndex(File, Sym)));
}

bool ELF_HasProgramSymbol(const QString& Name) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    const ELF_FILE* File = P().File;
    if (!File) {
        return false;
    }
    const QByteArray Wanted = Name.toUtf8();
    const U32 Count = ELF_GetSymCount(File);
    for (U32 i = 0; i < Count; ++i) {
        const char* SymName = ELF_GetSymName(File, i);
        if (SymName && Wanted == SymName) {
            return true;
        }
    }
    return false;
}

int ELF_AddProgramRelocation(const QString& Selector, I32 Offset) {
    QMutexLocker Lock(&ELF_GetDataMutex());
    return ELF_AddRelocation(Selector.toUtf8().constData(), Offset);
}

I64 ELF_GetBaseAddr() {
    QMutexLocker Lock(&ELF_GetDataMutex());
    const ELF_DATA_BLOCKS& Blocks = P().Blocks;
    if (Blocks.empty()) {
        return -1;
    }
    U32 Lowest = Blocks.front().Address;
    for (const ELF_DATA_BLOCK& B : Blocks) {
        Lowest = std::min(Lowest, B.Address);
    }
    return Lowest;
}

I64 ELF_GetEntryPointPC() {
    QMutexLocker Lock(&ELF_GetDataMutex());
    if (!P().Ready || !P().File) {
        return -1;
    }
    return ELF_GetEntryPoint(P().File);
}

int ELF_GetEndianess() {
    QMutexLocker Lock(&ELF_GetDataMutex());
    return P().Ready && P().File ? ELF_GetByteOrder(P().File) : ELF_UNKNOWN_ENDIAN;
}

CProgramLoader::CProgramLoader(QObject* Parent) : QObject(Parent) {}

CProgramLoader::~CProgramLoader() {
    Wait();
    delete m_Thread;
}

bool CProgramLoader::Start(const QString& Path) {
    if (IsRunning()) {
        return false;
    }
    if (m_Thread) {
        m_Thread->wait();
        delete m_Thread;
    }
    m_Done = false;
    m_Thread = QThread::create([this, Path]() {
        int Result = -1;
        {
            QMutexLocker LoadLock(&ELF_GetLoadMutex());
            QMutexLocker DataLock(&ELF_GetDataMutex());
            m_LastPercent = -1;
            ELF_SetDebugProgressCallback(&CProgramLoader::OnDebugProgress, this);
            Result = ELF_Load(Path);
            ELF_SetDebugProgressCallback(nullptr, nullptr);
        }
        m_Done = true;
        // The report is given on the owner's thread, so that any connection to it is safe.
        QMetaObject::invokeMethod(
            this, [this, Path, Result]() { emit Finished(Path, Result); }, Qt::QueuedConnection);
    });
    m_Thread->setObjectName(QStringLiteral("ProgramLoader"));
    m_Thread->start();
    return true;
}

void CProgramLoader::OnDebugProgress(U64 Done, U64 Total, void* User) {
    auto* Self = static_cast<CProgramLoader*>(User);
    const int Percent = Total ? static_cast<int>(std::min<U64>(Done, Total) * 100 / Total) : 100;
    // One report per percent: a large program has tens of thousands of units.
    if (Percent != Self->m_LastPercent) {
        Self->m_LastPercent = Percent;
        emit Self->DebugInfoProgress(Percent);
    }
}

bool CProgramLoader::IsRunning() const {
    return !m_Done;
}

void CProgramLoader::Wait() {
    if (m_Thread) {
        m_Thread->wait();
    }
}
