// Opening a 50 MB program file: ELF_Open (header, segments, sections and symbols, sorted and sized) and
// the data reader, against arm-none-eabi-readelf -s on the same file, in the same run.
//
// bench_program [size in MB, default 50]

#include "program/ElfParser.h"
#include "program/FileWorker.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <vector>

namespace {

constexpr int REPEATS = 5;

bool Run(const QString& Tool, const QStringList& Args, bool Quiet = false) {
    QProcess P;
    if (Quiet) {
        P.setStandardOutputFile(QProcess::nullDevice());
    }
    P.start(Tool, Args);
    if (!P.waitForFinished(600000) || P.exitStatus() != QProcess::NormalExit || P.exitCode() != 0) {
        std::fprintf(stderr, "bench_program: %s failed: %s\n", qPrintable(Tool),
                     P.readAllStandardError().constData());
        return false;
    }
    return true;
}

/// Median of REPEATS runs, in milliseconds.
double Median(const std::function<bool()>& Once) {
    std::vector<double> Times;
    for (int i = 0; i < REPEATS; ++i) {
        QElapsedTimer T;
        T.start();
        if (!Once()) {
            return -1;
        }
        Times.push_back(static_cast<double>(T.nsecsElapsed()) / 1e6);
    }
    std::sort(Times.begin(), Times.end());
    return Times[REPEATS / 2];
}

/// Links Copies copies of the relocatable object; every copy's symbols are local, so they do not clash.
bool Link(const QTemporaryDir& Dir, const QString& Object, int Copies, const QString& Out) {
    QFile List(Dir.filePath("objects.rsp"));
    if (!List.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        return false;
    }
    for (int i = 0; i < Copies; ++i) {
        List.write(Object.toUtf8() + '\n');
    }
    List.close();
    return Run(BENCH_LD, {"-T", Dir.filePath("bench.ld"), "-e", "0", "@" + List.fileName(), "-o", Out});
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication App(argc, argv);
    const qint64 TargetBytes = (argc > 1 ? QByteArray(argv[1]).toLongLong() : 50) * 1000000;
    QTemporaryDir Dir;
    QFile Script(Dir.filePath("bench.ld"));
    if (!Dir.isValid() || !Script.open(QIODevice::WriteOnly)) {
        return 2;
    }
    Script.write("SECTIONS\n{\n"
                 "    .text 0 : { *(.vectors) *(.text*) *(.rodata*) }\n"
                 "    .data 0x20000000 : AT(ADDR(.text) + SIZEOF(.text)) { *(.data*) }\n"
                 "    .bss : { *(.bss*) *(COMMON) }\n}\n"
                 "_stack_top = 0x20400000; _data_load = 0; _data_start = 0; _data_end = 0;\n"
                 "_bss_start = 0; _bss_end = 0;\n");
    Script.close();

    // The target program's objects, combined into one and made local.
    QStringList Objects;
    for (const QString& Source : QString::fromUtf8(BENCH_SOURCES).split('|', Qt::SkipEmptyParts)) {
        const QString Object = Dir.filePath(QFileInfo(Source).completeBaseName() + ".o");
        if (!Run(BENCH_GCC, {"-mcpu=cortex-m3", "-mthumb", "-g3", "-O0", "-ffreestanding", "-fno-common",
                             "-I" BENCH_INCLUDE, "-c", Source, "-o", Object})) {
            return 2;
        }
        Objects << Object;
    }
    const QString Combined = Dir.filePath("combined.o");
    const QString Local = Dir.filePath("local.o");
    if (!Run(BENCH_LD, QStringList{"-r"} + Objects + QStringList{"-o", Combined}) ||
        !Run(BENCH_OBJCOPY, {"-w", "-L", "*", Combined, Local})) {
        return 2;
    }
    // Two trial links tell the size of one copy apart from what every file has once.
    const QString Elf = Dir.filePath("big.elf");
    const int Trial = 100;
    if (!Link(Dir, Local, Trial, Elf)) {
        return 2;
    }
    const qint64 Small = QFileInfo(Elf).size();
    if (!Link(Dir, Local, 2 * Trial, Elf)) {
        return 2;
    }
    const qint64 PerCopy = std::max<qint64>((QFileInfo(Elf).size() - Small) / Trial, 1);
    const int Copies = Trial + static_cast<int>(std::max<qint64>(TargetBytes - Small, 0) / PerCopy) + 1;
    QElapsedTimer LinkTimer;
    LinkTimer.start();
    if (!Link(Dir, Local, Copies, Elf)) {
        return 2;
    }
    const qint64 Size = QFileInfo(Elf).size();

    ELF_FILE* Probe = ELF_Open(Elf, false);
    if (!Probe) {
        std::fprintf(stderr, "bench_program: the generated file does not open\n");
        return 1;
    }
    const U32 Symbols = ELF_GetSymCount(Probe);
    const U32 Functions = ELF_GetFuncCount(Probe);
    ELF_Close(Probe);

    const double Open = Median([&Elf]() {
        ELF_FILE* F = ELF_Open(Elf, false);
        ELF_Close(F);
        return F != nullptr;
    });
    const double Data = Median([&Elf]() { return !TFile::CFileWorker::Instance()->ReadFile(Elf).empty(); });
    const double Readelf = Median([&Elf]() { return Run(BENCH_READELF, {"-s", Elf}, true); });

    std::printf(
        "bench_program: %.1f MB ELF of %d copies (linked in %.1f s), %u symbols, %u unique functions\n",
        static_cast<double>(Size) / 1e6, Copies, static_cast<double>(LinkTimer.elapsed()) / 1000.0, Symbols,
        Functions);
    std::printf("  ELF_Open (header, segments, sections, symbols sorted and sized): %8.1f ms\n", Open);
    std::printf("  CFileWorker::ReadFile (loadable data blocks):                  %8.1f ms\n", Data);
    std::printf("  arm-none-eabi-readelf -s, output discarded:                    %8.1f ms\n", Readelf);
    std::printf("  readelf -s / ELF_Open: %.2fx\n", Readelf / Open);
    return 0;
}
