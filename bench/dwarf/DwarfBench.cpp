// Reading the debug information of a large program: the time and peak memory of a process that opens
// the file with ELF_Open (debug information included) and ends, against gdb-multiarch on the same file,
// with its full expansion of the symbol tables and with its lazy start.
//
// bench_dwarf            generates and builds the program once (kept in the build tree), then measures
// bench_dwarf --open F   the measured child: opens F, prints what it read, ends
// bench_dwarf --load F   the measured child: loads F as the program (reader and symbol store), ends
//
// Then, in one process, the symbol store's look-ups per second: address to line, line to addresses.

#include "DwarfBenchGen.h"

#include "program/DwarfReader.h"
#include "program/ElfParser.h"
#include "program/ElfWrapper.h"
#include "program/SymbolStore.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

const QStringList TARGET_FLAGS = {"-mcpu=cortex-m3", "-mthumb", "-O1", "-g3"};

int OpenOnly(const char* Path) {
    QElapsedTimer T;
    T.start();
    ELF_FILE* F = ELF_Open(QString::fromLocal8Bit(Path), true);
    const qint64 Ms = T.elapsed();
    if (!F) {
        return 1;
    }
    std::printf("%lld ms, %u entries kept, %u units, %u functions, %u types, %u globals, %u line rows, "
                "%u macros\n",
                static_cast<long long>(Ms), ELF_GetDebugEntryCount(F), ELF_GetSymListCount(F, ELF_LIST_UNITS),
                ELF_GetSymListCount(F, ELF_LIST_FUNCTIONS), ELF_GetSymListCount(F, ELF_LIST_TYPES),
                ELF_GetSymListCount(F, ELF_LIST_GLOBALS), ELF_GetLineRowCount(F), ELF_GetMacroCount(F));
    std::fflush(stdout);
    // The figure is the reading; tearing the model down is not part of it.
    _exit(0);
}

int LoadOnly(const char* Path) {
    QElapsedTimer T;
    T.start();
    if (ELF_Load(QString::fromLocal8Bit(Path), [](const ELF_ERROR_RECORD&, void*) {}) < 0) {
        return 1;
    }
    std::printf("%lld ms, %zu functions in the store\n", static_cast<long long>(T.elapsed()),
                ELF_GetFunctions().size());
    std::fflush(stdout);
    _exit(0);
}

/// Look-ups per second on the loaded program: every line-table address in turn, many times over.
void MeasureLookups(const QString& Elf) {
    if (ELF_Load(Elf, [](const ELF_ERROR_RECORD&, void*) {}) < 0) {
        std::printf("  look-ups: the program does not load\n");
        return;
    }
    std::vector<U32> Addrs;
    for (I64 A = ELF_GetNextAddr(0); A >= 0 && Addrs.size() < 2000000;
         A = ELF_GetNextAddr(static_cast<U32>(A))) {
        Addrs.push_back(static_cast<U32>(A));
    }
    std::vector<CSrcLoc> Lines;
    for (size_t i = 0; i < Addrs.size(); i += 7) {
        const CSrcLoc L = ELF_GetSrcLocAt(Addrs[i]);
        if (L.IsValid()) {
            Lines.push_back(L);
        }
    }
    if (Addrs.empty() || Lines.empty()) {
        std::printf("  look-ups: no line rows\n");
        return;
    }
    U64 Sum = 0;
    QElapsedTimer T;
    T.start();
    const size_t N = 2000000;
    for (size_t i = 0; i < N; ++i) {
        // Addresses between rows too: half of them take the search for the row before.
        Sum += ELF_GetSrcLocAt(Addrs[i % Addrs.size()] + (i & 1) * 2).Line;
    }
    const double A2L = N / (T.nsecsElapsed() / 1e9);
    T.restart();
    for (size_t i = 0; i < N; ++i) {
        Sum += ELF_GetFirstAddrOfLine(Lines[i % Lines.size()]);
    }
    const double L2A = N / (T.nsecsElapsed() / 1e9);
    std::printf(
        "  look-ups over %zu addresses and %zu lines: address to line %.2f M/s, line to first address "
        "%.2f M/s (goal more than 1 M/s) [%llu]\n",
        Addrs.size(), Lines.size(), A2L / 1e6, L2A / 1e6, static_cast<unsigned long long>(Sum & 1));
}

struct RUN {
    bool Ok = false;
    double WallMs = 0;
    double CpuMs = 0;
    long PeakKb = 0;
};

/// Runs a child to its end; its wall time, processor time and peak resident memory.
RUN Measure(const QStringList& Command, bool ShowOutput) {
    std::vector<QByteArray> Args;
    for (const QString& A : Command) {
        Args.push_back(A.toLocal8Bit());
    }
    std::vector<char*> Argv;
    for (QByteArray& A : Args) {
        Argv.push_back(A.data());
    }
    Argv.push_back(nullptr);
    RUN R;
    QElapsedTimer T;
    T.start();
    const pid_t Pid = fork();
    if (Pid == 0) {
        if (!ShowOutput) {
            std::freopen("/dev/null", "w", stdout);
        }
        execvp(Argv[0], Argv.data());
        _exit(127);
    }
    int Status = 0;
    rusage Usage{};
    if (Pid < 0 || wait4(Pid, &Status, 0, &Usage) != Pid) {
        return R;
    }
    R.WallMs = static_cast<double>(T.nsecsElapsed()) / 1e6;
    R.CpuMs = (Usage.ru_utime.tv_sec + Usage.ru_stime.tv_sec) * 1000.0 +
              (Usage.ru_utime.tv_usec + Usage.ru_stime.tv_usec) / 1000.0;
    R.PeakKb = Usage.ru_maxrss;
    R.Ok = WIFEXITED(Status) && WEXITSTATUS(Status) == 0;
    return R;
}

QString ShapeText(const DwarfBenchGen::SHAPE& S) {
    return QStringLiteral("units %1 functions %2 types %3 globals %4 macros %5 flags %6\n")
        .arg(S.Units)
        .arg(S.FunctionsPerUnit)
        .arg(S.TypesPerUnit)
        .arg(S.GlobalsPerUnit)
        .arg(S.MacrosPerUnit)
        .arg(TARGET_FLAGS.join(' '));
}

/// Compiles the units two at a time (the machine's cores) and links them.
bool Build(const QString& Dir, const DwarfBenchGen::SHAPE& Shape, const QString& Elf) {
    QStringList Sources{"main.c"};
    for (int u = 0; u < Shape.Units; ++u) {
        Sources << DwarfBenchGen::UnitFile(u);
    }
    QStringList Objects;
    std::vector<QProcess*> Running;
    const auto Finish = [&Running](QProcess* P) {
        P->waitForFinished(-1);
        const bool Ok = P->exitStatus() == QProcess::NormalExit && P->exitCode() == 0;
        if (!Ok) {
            std::fprintf(stderr, "bench_dwarf: %s\n", P->readAllStandardError().constData());
        }
        Running.erase(std::find(Running.begin(), Running.end(), P));
        delete P;
        return Ok;
    };
    bool Ok = true;
    for (const QString& Source : Sources) {
        if (Running.size() >= 2) {
            Ok &= Finish(Running.front());
        }
        const QString Object = QFileInfo(Source).completeBaseName() + ".o";
        auto* P = new QProcess;
        P->setWorkingDirectory(Dir);
        P->start(BENCH_GCC, TARGET_FLAGS + QStringList{"-c", Source, "-o", Object});
        Running.push_back(P);
        Objects << Object;
    }
    while (!Running.empty()) {
        Ok &= Finish(Running.front());
    }
    if (!Ok) {
        return false;
    }
    QProcess Link;
    Link.setWorkingDirectory(Dir);
    Link.start(BENCH_GCC, QStringList{"-mcpu=cortex-m3", "-mthumb", "--specs=nosys.specs"} + Objects +
                              QStringList{"-o", Elf});
    Link.waitForFinished(-1);
    if (Link.exitCode() != 0) {
        std::fprintf(stderr, "bench_dwarf: link: %s\n", Link.readAllStandardError().constData());
        return false;
    }
    return true;
}

void Print(const char* What, const RUN& R) {
    std::printf("  %-52s %9.0f ms wall %9.0f ms cpu %8.1f MB peak\n", What, R.WallMs, R.CpuMs,
                static_cast<double>(R.PeakKb) / 1024.0);
}

} // namespace

int main(int argc, char** argv) {
    if (argc == 3 && QByteArray(argv[1]) == "--open") {
        QCoreApplication App(argc, argv);
        return OpenOnly(argv[2]);
    }
    if (argc == 3 && QByteArray(argv[1]) == "--load") {
        QCoreApplication App(argc, argv);
        return LoadOnly(argv[2]);
    }
    QCoreApplication App(argc, argv);
    const DwarfBenchGen::SHAPE Shape;
    const QString Dir = QStringLiteral(BENCH_WORK_DIR);
    const QString Elf = Dir + "/big.elf";
    const QString Stamp = Dir + "/shape.txt";
    QFile StampFile(Stamp);
    const bool Cached = QFileInfo::exists(Elf) && StampFile.open(QIODevice::ReadOnly) &&
                        QString::fromUtf8(StampFile.readAll()) == ShapeText(Shape);
    StampFile.close();
    if (!Cached) {
        QElapsedTimer BuildTime;
        BuildTime.start();
        QFile::remove(Stamp);
        if (!QDir().mkpath(Dir) || !DwarfBenchGen::WriteSources(Dir, Shape) || !Build(Dir, Shape, Elf)) {
            std::fprintf(stderr, "bench_dwarf: the program could not be generated\n");
            return 2;
        }
        if (!StampFile.open(QIODevice::WriteOnly)) {
            return 2;
        }
        StampFile.write(ShapeText(Shape).toUtf8());
        StampFile.close();
        std::printf("bench_dwarf: program generated and built in %.1f s\n", BuildTime.elapsed() / 1000.0);
    }

    ELF_FILE* F = ELF_Open(Elf, false);
    if (!F) {
        std::fprintf(stderr, "bench_dwarf: %s does not open\n", qPrintable(Elf));
        return 1;
    }
    const I32 Info = ELF_FindSection(F, ".debug_info");
    const double InfoMb = Info >= 0 ? ELF_GetSectionSize(F, Info) / 1e6 : 0;
    ELF_Close(F);
    std::printf("bench_dwarf: %s, %.1f MB, .debug_info %.1f MB (%s)\n", qPrintable(Elf),
                QFileInfo(Elf).size() / 1e6, InfoMb, qPrintable(ShapeText(Shape).trimmed()));
    std::printf("  reader: ");
    std::fflush(stdout);
    const RUN Ours = Measure({QCoreApplication::applicationFilePath(), "--open", Elf}, true);
    std::printf("  reader and symbol store: ");
    std::fflush(stdout);
    const RUN Loaded = Measure({QCoreApplication::applicationFilePath(), "--load", Elf}, true);
    const QStringList Gdb{BENCH_GDB, "-q", "-batch", "-nx"};
    const RUN Full = Measure(Gdb + QStringList{"-ex", "maint expand-symtabs", Elf}, false);
    const RUN Lazy = Measure(Gdb + QStringList{"-ex", "info line main", Elf}, false);
    if (!Ours.Ok || !Loaded.Ok || !Full.Ok || !Lazy.Ok) {
        std::fprintf(stderr, "bench_dwarf: a run failed (reader %d, gdb full %d, gdb lazy %d)\n", Ours.Ok,
                     Full.Ok, Lazy.Ok);
        return 1;
    }
    Print("ELF_Open with debug information, process to end", Ours);
    Print("gdb-multiarch -batch 'maint expand-symtabs' (full)", Full);
    Print("gdb-multiarch -batch 'info line main' (lazy start)", Lazy);
    std::printf("  time / gdb full: %.2fx (goal at most 0.50x), time / gdb lazy: %.2fx\n",
                Ours.WallMs / Full.WallMs, Ours.WallMs / Lazy.WallMs);
    std::printf("  peak memory / gdb full: %.2fx (goal at most 1.00x), / gdb lazy: %.2fx\n",
                static_cast<double>(Ours.PeakKb) / Full.PeakKb,
                static_cast<double>(Ours.PeakKb) / Lazy.PeakKb);
    Print("ELF_Load: reader and symbol store, process to end", Loaded);
    std::printf("  symbol store pass: %.0f ms, %.1f MB peak added to the reader's\n",
                Loaded.WallMs - Ours.WallMs, (Loaded.PeakKb - Ours.PeakKb) / 1024.0);
    std::printf(
        "  program ready for look-ups / gdb lazy start ('info line main'): %.2fx (goal at most 0.50x)\n",
        Loaded.WallMs / Lazy.WallMs);
    MeasureLookups(Elf);
    return 0;
}
