// Measures the time from Debug.Connect to a verified download of a 1 MiB program on the emulated board,
// against gdb-multiarch's "target remote", "load" and "compare-sections" on the same QEMU in the same run.
// Arnex runs in-process: its main window offscreen and unattended, the project connecting through the
// board's GDB server; its Debug.Connect connects, resets, writes the program and reads it back. The two
// take turns on the board, and each side's median of the rounds is compared.

#include "app/MainWindow.h"
#include "app/core/Automation.h"
#include "app/core/CommandTable.h"
#include "app/core/Log.h"
#include "app/core/Paths.h"
#include "script/Project.h"
#include "target/Device.h"

#include "kit/ElfWriter.h"
#include "kit/Process.h"
#include "probe/backends/QemuProcess.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QThread>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

constexpr size_t PROGRAM_SIZE = 1024 * 1024;
constexpr int ROUNDS = 7;

int Fail(const char* What) {
    std::fprintf(stderr, "bench_download: %s\n", What);
    return 1;
}

/// A 1 MiB program whose reset and exception vectors all spin in place, so that the board idles between
/// the rounds whatever state a session leaves it in.
bool WriteProgram(const std::string& Path) {
    std::vector<uint8_t> Bytes = probetest::PatternBytes(PROGRAM_SIZE, 11);
    uint32_t Vectors[48];
    std::fill(std::begin(Vectors), std::end(Vectors), 0x101u);
    Vectors[0] = 0x20400000;
    std::memcpy(Bytes.data(), Vectors, sizeof(Vectors));
    Bytes[0x100] = 0xFE; // b .
    Bytes[0x101] = 0xE7;
    return probetest::WriteElf(Path, {{0, Bytes}}, 0x101);
}

/// Runs events until Done or the time-out; false on the time-out.
template <typename DONE>
bool RunUntil(DONE Done, int TimeoutMs) {
    QElapsedTimer T;
    T.start();
    while (!Done()) {
        if (T.elapsed() > TimeoutMs) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
    }
    return true;
}

/// Counts the downloads that the device reports as ended.
class CDownloads : public CDeviceEventListener {
public:
    void OnDeviceEndDownloadDone(const char*, DOWNLOAD_MODES) override { ++Done; }
    void OnDeviceEndDownloadFailed(const char*, DOWNLOAD_MODES, int) override { ++Failed; }
    void OnDeviceDisconnectDone() override { ++Disconnects; }
    int Done = 0;
    int Failed = 0;
    int Disconnects = 0;
};

/// One Debug.Connect through the verified download, in seconds; negative on failure. Disconnects after.
double ArnexRound(CDownloads& Heard) {
    CDevice* D = CDevice::Instance();
    const int Before = Heard.Done;
    QElapsedTimer T;
    T.start();
    Commands::ExecCommand(CMD_DEBUG_CONNECT);
    const bool Ok = RunUntil(
                        [&]() {
                            return Heard.Done > Before || Heard.Failed > 0 ||
                                   (!D->ControllerBusy.load() && !D->Connected.load());
                        },
                        60000) &&
                    Heard.Done > Before;
    const double Seconds = T.nsecsElapsed() / 1e9;
    RunUntil([&]() { return !D->ControllerBusy.load(); }, 10000);
    const int Disconnects = Heard.Disconnects;
    Commands::ExecCommand(CMD_DEBUG_DISCONNECT);
    RunUntil([&]() { return Heard.Disconnects > Disconnects; }, 10000);
    return Ok ? Seconds : -1;
}

// gdb's side: one round connects, loads, compares and detaches; the time runs from "target remote" to
// the end of "compare-sections".
const char* GdbScript = R"(
import gdb, time
def bench(port):
    t = time.perf_counter()
    gdb.execute("target remote 127.0.0.1:%d" % port, to_string=True)
    gdb.execute("load", to_string=True)
    out = gdb.execute("compare-sections", to_string=True)
    t = time.perf_counter() - t
    gdb.execute("detach", to_string=True)
    print("RESULT %f %s" % (t if "matched" in out and "MIS" not in out else -1.0, out.strip().replace("\n", " ")))
)";

double Median(std::vector<double> V) {
    std::sort(V.begin(), V.end());
    return V.empty() ? 0 : V[V.size() / 2];
}

} // namespace

int main(int argc, char** argv) {
    QTemporaryDir Dir;
    qputenv("XDG_CONFIG_HOME", Dir.path().toUtf8());
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication App(argc, argv);
    Paths::SetInstallDirOverride(QStringLiteral(ARNEX_BIN_DIR));
    Automation::SetActive(true);
    if (qEnvironmentVariableIsSet("ARNEX_BENCH_LOG")) {
        OpenLogChannel(LOG_CHANNEL_APP, qEnvironmentVariable("ARNEX_BENCH_LOG"));
        SetLogInterval("1");
    }

    const std::string Program = Dir.filePath(QStringLiteral("program.elf")).toStdString();
    if (!WriteProgram(Program)) {
        return Fail("could not write the program file");
    }
    tarvo::QemuProcess Board;
    tarvo::QemuProcess::Options Options;
    Options.Machine = "mps2-an385";
    Options.Qmp = false;
    Options.TimeoutMs = 600000;
    std::string Error;
    if (!Board.Start(Options, Error)) {
        return Fail(Error.c_str());
    }
    const QString ProjectPath = Dir.filePath(QStringLiteral("bench.tvproj"));
    {
        QFile F(ProjectPath);
        if (!F.open(QIODevice::WriteOnly)) {
            return Fail("could not write the project");
        }
        F.write(QStringLiteral(
                    "void OnProjectLoad (void) {\n  Project.SetDevice (\"MPS2-AN385\");\n"
                    "  Project.SetHostIF (\"IP\", \"localhost:%1\");\n  Project.SetTargetIF (\"SWD\");\n"
                    "  File.Open (\"%2\");\n}\n"
                    // The program starts at its reset vector once it is there, as the demo
                    // project does it, so that the board runs it after the session.
                    "void AfterTargetDownload (void) {\n  unsigned int Base;\n"
                    "  Base = Elf.GetBaseAddr();\n  Target.SetReg(\"SP\", Target.ReadU32(Base));\n"
                    "  Target.SetReg(\"PC\", Target.ReadU32(Base + 4));\n}\n")
                    .arg(Board.GdbPort())
                    .arg(QString::fromStdString(Program))
                    .toUtf8());
    }

    CMainWindow* Window = CMainWindow::Instance();
    Commands::ExecCommand(CMD_FILE_OPEN, ProjectPath);
    if (!RunUntil(
            [&]() { return !CProject::Instance()->IsOpenPending() && !Window->GetProgramPath().isEmpty(); },
            30000) ||
        !Commands::IsCommandEnabled(CMD_DEBUG_CONNECT)) {
        return Fail("the project did not open with its program and core plug-in");
    }
    CDownloads Heard;

    char ScriptPath[] = "/tmp/arnex-bench-download-XXXXXX.py";
    const int Fd = mkstemps(ScriptPath, 3);
    if (Fd < 0 || write(Fd, GdbScript, std::strlen(GdbScript)) < 0) {
        return Fail("could not write the gdb script");
    }
    close(Fd);
    // A gdb of its own for each round, as a user runs it; the time counts from "target remote" on.
    const auto GdbRound = [&]() {
        const probetest::ProcessResult R =
            probetest::RunProcess({"gdb-multiarch", "-q", "-nx", "-batch", "-ex", "set pagination off", "-ex",
                                   "set confirm off", "-ex", std::string("source ") + ScriptPath, "-ex",
                                   "python bench(" + std::to_string(Board.GdbPort()) + ")", Program},
                                  60000);
        const size_t At = R.Output.find("RESULT ");
        return At == std::string::npos ? std::make_pair(-1.0, R.Output)
                                       : std::make_pair(std::atof(R.Output.c_str() + At + 7), R.Output);
    };

    std::vector<double> Ours;
    std::vector<double> Theirs;
    for (int Round = 0; Round < ROUNDS; ++Round) {
        // The board takes its next client only once it has seen the last one go.
        QThread::msleep(100);
        const double A = ArnexRound(Heard);
        if (A < 0) {
            unlink(ScriptPath);
            return Fail("a download of Arnex failed");
        }
        Ours.push_back(A);
        QThread::msleep(100);
        const auto [G, Output] = GdbRound();
        if (G < 0) {
            unlink(ScriptPath);
            return Fail(("gdb-multiarch failed: " + Output).c_str());
        }
        Theirs.push_back(G);
    }
    unlink(ScriptPath);
    const double A = Median(Ours);
    const double G = Median(Theirs);
    std::printf("Download of a verified 1 MiB program on the emulated board (median of %d rounds)\n", ROUNDS);
    std::printf("  Arnex Debug.Connect (connect, reset, write, read back): %7.1f ms\n", A * 1000);
    std::printf("  gdb-multiarch target remote, load, compare-sections:    %7.1f ms\n", G * 1000);
    std::printf("  ratio Arnex / gdb-multiarch: %.2f (goal at most 1.0, aim 0.8)\n", A / G);
    Window->close();
    CMainWindow::Destroy();
    return 0;
}
