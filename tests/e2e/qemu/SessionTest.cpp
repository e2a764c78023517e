// The debug session end to end on the emulated board: the demo project connects, downloads and reads back
// its program, on the emulated probe and through a GDB server of the test's own, with gdb-multiarch as
// the oracle of target memory; and the ways a session fails leave the program usable.

#include "../ArnexProcess.h"
#include "CutProxy.h"

#include "kit/Babbler.h"
#include "kit/ElfImage.h"
#include "kit/ElfWriter.h"
#include "kit/QemuHarness.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QRegularExpression>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

using probetest::ElfImage;

QString FirmwareDir() {
    return QDir::cleanPath(qEnvironmentVariable("ARNEX_BIN_DIR") + QStringLiteral("/../firmware"));
}

QByteArray ReadFile(const QString& Path) {
    QFile F(Path);
    return F.open(QIODevice::ReadOnly) ? F.readAll() : QByteArray();
}

bool WriteFile(const QString& Path, const QByteArray& Bytes) {
    QFile F(Path);
    return F.open(QIODevice::WriteOnly | QIODevice::Truncate) && F.write(Bytes) == Bytes.size();
}

/// A loopback port that nothing listens on.
uint16_t FreePort() {
    const int Fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in A = {};
    A.sin_family = AF_INET;
    A.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t Length = sizeof(A);
    bind(Fd, reinterpret_cast<sockaddr*>(&A), sizeof(A));
    getsockname(Fd, reinterpret_cast<sockaddr*>(&A), &Length);
    close(Fd);
    return ntohs(A.sin_port);
}

/// The lowest address and the end of an ELF's loadable bytes.
std::pair<uint32_t, uint32_t> Span(const ElfImage& Elf) {
    uint32_t Low = 0xFFFFFFFF;
    uint32_t High = 0;
    for (const probetest::Segment& S : Elf.Segments()) {
        Low = std::min(Low, S.Address);
        High = std::max(High, static_cast<uint32_t>(S.Address + S.Bytes.size()));
    }
    return {Low, High};
}

/// The first segment whose bytes differ from memory read from Low on, as a message; empty if all match.
std::string Difference(const ElfImage& Elf, const QByteArray& Memory, uint32_t Low) {
    for (const probetest::Segment& S : Elf.Segments()) {
        const qsizetype At = static_cast<qsizetype>(S.Address - Low);
        if (At + static_cast<qsizetype>(S.Bytes.size()) > Memory.size() ||
            std::memcmp(Memory.constData() + At, S.Bytes.data(), S.Bytes.size()) != 0) {
            return "segment at " + QString::number(S.Address, 16).toStdString() + " differs";
        }
    }
    return {};
}

QString Hex(uint32_t Value) {
    return QStringLiteral("0x") + QString::number(Value, 16).toUpper().rightJustified(8, QLatin1Char('0'));
}

class Session : public ::testing::Test {
protected:
    /// The demo project and its program in the run's folder, with another host interface line if given.
    QString DemoProject(const QString& HostLine = QString()) {
        QByteArray Text = ReadFile(FirmwareDir() + QStringLiteral("/demo.tvproj"));
        EXPECT_FALSE(Text.isEmpty()) << "the build puts the demo project beside the programs";
        if (!HostLine.isEmpty()) {
            Text.replace("Project.SetHostIF (\"USB\", \"\");", HostLine.toUtf8());
        }
        const QString Path = m_Arnex.TempPath(QStringLiteral("demo.tvproj"));
        EXPECT_TRUE(WriteFile(Path, Text));
        QFile::remove(m_Arnex.TempPath(QStringLiteral("demo-O0-dwarf4.elf")));
        EXPECT_TRUE(QFile::copy(FirmwareDir() + QStringLiteral("/demo-O0-dwarf4.elf"),
                                m_Arnex.TempPath(QStringLiteral("demo-O0-dwarf4.elf"))));
        return Path;
    }
    /// A project of its own: a device, a host interface line and a program.
    QString Project(const QString& Device, const QString& HostLine, const QString& Program) {
        const QString Text =
            QStringLiteral("void OnProjectLoad (void) {\n  Project.SetDevice (\"%1\");\n  %2\n"
                           "  Project.SetTargetIF (\"SWD\");\n  File.Open (\"%3\");\n}\n")
                .arg(Device, HostLine, Program);
        const QString Path = m_Arnex.TempPath(QStringLiteral("own.tvproj"));
        EXPECT_TRUE(WriteFile(Path, Text.toUtf8()));
        return Path;
    }
    ArnexRun Run(const QString& ProjectPath, const QStringList& Lines) {
        QStringList Args = {ProjectPath};
        for (const QString& L : Lines) {
            Args << QStringLiteral("-exec") << L;
        }
        Args << QStringLiteral("-quit");
        return m_Arnex.Run(Args, 60000);
    }
    /// The session of the done criteria, with the loadable range saved to a file.
    ArnexRun ConnectDownloadRead(const QString& ProjectPath, const QString& Dump) {
        std::string Error;
        EXPECT_TRUE(m_Elf.Load(FirmwarePath(), Error)) << Error;
        const auto [Low, High] = Span(m_Elf);
        return Run(ProjectPath, {"Debug.Connect()", "Debug.Download()", "Target.ReadU32 0x0",
                                 QStringLiteral("Target.SaveMemory (\"%1\", %2, %3)")
                                     .arg(Dump, Hex(Low), QString::number(High - Low))});
    }
    static std::string FirmwarePath() {
        return (FirmwareDir() + QStringLiteral("/demo-O0-dwarf4.elf")).toStdString();
    }
    /// The word at 0 as the program file has it: the initial stack pointer.
    uint32_t FirstWord() const {
        for (const probetest::Segment& S : m_Elf.Segments()) {
            if (S.Address == 0 && S.Bytes.size() >= 4) {
                uint32_t W = 0;
                std::memcpy(&W, S.Bytes.data(), 4);
                return W;
            }
        }
        return 0;
    }
    static void ExpectConnectedAndDownloaded(const ArnexRun& R) {
        const QString All = R.Lines.join('\n');
        EXPECT_EQ(R.ExitCode, 0) << All.toStdString();
        EXPECT_TRUE(R.Lines.contains("Tarvo: connected to target device")) << All.toStdString();
        // The download ran twice (the connection's and the command's); the project's handler followed each.
        EXPECT_EQ(R.Lines.count("Executing script function: AfterTargetDownload"), 2) << All.toStdString();
        EXPECT_TRUE(R.Lines.filter("Download failed").isEmpty()) << All.toStdString();
        EXPECT_TRUE(R.Lines.contains("Tarvo: disconnected from target device"))
            << "the session ends at the exit";
    }

    ArnexProcess m_Arnex;
    ElfImage m_Elf;
};

TEST_F(Session, TheDemoProjectDownloadsOnTheEmulatedBoard) {
    const QString Dump = m_Arnex.TempPath(QStringLiteral("usb.bin"));
    const ArnexRun R = ConnectDownloadRead(DemoProject(), Dump);
    ExpectConnectedAndDownloaded(R);
    const qsizetype Read = R.Lines.indexOf("Target.ReadU32 (0x0);");
    ASSERT_GE(Read, 0);
    ASSERT_LT(Read + 1, R.Lines.size());
    EXPECT_EQ(R.Lines[Read + 1], Hex(FirstWord()));
    EXPECT_EQ(Difference(m_Elf, ReadFile(Dump), Span(m_Elf).first), "");
}

TEST_F(Session, ThroughAGdbServerTheMemoryIsWhatGdbReads) {
    probetest::QemuHarness Board;
    std::string Error;
    ASSERT_TRUE(Board.Start("mps2-an385", "", 30000, Error)) << Error;
    const QString Host = QStringLiteral("Project.SetHostIF (\"IP\", \"localhost:%1\");").arg(Board.Port());
    const ArnexRun R = ConnectDownloadRead(DemoProject(Host), m_Arnex.TempPath(QStringLiteral("ip.bin")));
    ExpectConnectedAndDownloaded(R);
    // The session detached from the server; the oracle reads the board's memory after it.
    const auto [Low, High] = Span(m_Elf);
    const std::string Oracle = m_Arnex.TempPath(QStringLiteral("gdb.bin")).toStdString();
    const std::string Output = probetest::RunGdb(
        Board, "", {"dump binary memory " + Oracle + " " + std::to_string(Low) + " " + std::to_string(High)});
    const QByteArray Memory = ReadFile(QString::fromStdString(Oracle));
    ASSERT_EQ(Memory.size(), static_cast<qsizetype>(High - Low)) << Output;
    EXPECT_EQ(Difference(m_Elf, Memory, Low), "");
    EXPECT_EQ(Memory, ReadFile(m_Arnex.TempPath(QStringLiteral("ip.bin"))))
        << "the session read the same bytes";
}

TEST_F(Session, NoServerListeningFailsTheConnection) {
    const QString Host = QStringLiteral("Project.SetHostIF (\"IP\", \"localhost:%1\");").arg(FreePort());
    const ArnexRun R = Run(DemoProject(Host), {"Debug.Connect()", "Debug.Download()", "Util.Log alive"});
    const std::string All = R.Lines.join('\n').toStdString();
    EXPECT_EQ(R.ExitCode, 1) << All;
    EXPECT_TRUE(R.Lines.contains("Connection failed")) << All;
    EXPECT_FALSE(R.Lines.contains("Tarvo: connected to target device")) << All;
    EXPECT_TRUE(R.Lines.contains("Debug.Download(); not connected")) << All;
    EXPECT_EQ(R.Lines.last(), "alive") << "the program goes on";
}

TEST_F(Session, AServerThatDiesDuringTheDownloadEndsIt) {
    // A program large enough that the connection breaks in the middle of writing it.
    const QString Program = m_Arnex.TempPath(QStringLiteral("large.elf"));
    std::vector<uint8_t> Bytes = probetest::PatternBytes(256 * 1024, 7);
    ASSERT_TRUE(probetest::WriteElf(Program.toStdString(), {{0, Bytes}}, 0x101));
    probetest::QemuHarness Board;
    std::string Error;
    ASSERT_TRUE(Board.Start("mps2-an385", "", 30000, Error)) << Error;
    CCutProxy Proxy;
    ASSERT_TRUE(Proxy.Start(
        Board.Port(), 20, [&Board]() { Board.Stop(); }, Error))
        << Error;
    const QString Host = QStringLiteral("Project.SetHostIF (\"IP\", \"localhost:%1\");").arg(Proxy.Port());
    const ArnexRun R = Run(Project("MPS2-AN385", Host, Program), {"Debug.Connect()", "Util.Log alive"});
    const std::string All = R.Lines.join('\n').toStdString();
    EXPECT_TRUE(Proxy.WasCut()) << All;
    // The loss is told once; the sequence stops there: no failed download after it, no handler, no
    // first program operation against the dead link.
    EXPECT_EQ(R.Lines.filter("[Target Connection Lost] Failed to read target status.").size(), 1) << All;
    EXPECT_TRUE(R.Lines.filter("Download failed").isEmpty()) << All;
    EXPECT_TRUE(R.Lines.filter("Executing script function: AfterTargetDownload").isEmpty()) << All;
    // The program goes on; the lost session's disconnection may finish after the line.
    EXPECT_TRUE(R.Lines.contains("alive")) << All;
}

TEST_F(Session, ADeviceTheTableDoesNotKnowHasNoTargetControl) {
    const ArnexRun R =
        Run(Project("NOPE", "Project.SetHostIF (\"USB\", \"\");", FirmwareDir() + "/demo-O0-dwarf4.elf"),
            {"Debug.Connect()", "Util.Log alive"});
    const std::string All = R.Lines.join('\n').toStdString();
    EXPECT_TRUE(R.Lines.contains("Project Warning: unknown target device specified.")) << All;
    EXPECT_TRUE(R.Lines.contains("Debug.Connect: Command disabled")) << All;
    EXPECT_EQ(R.Lines.last(), "alive") << All;
}

TEST_F(Session, AProgramLargerThanTheMemoryFailsItsVerification) {
    // The board's code memory ends at 8 MiB; this program runs 4 KiB past it.
    const QString Program = m_Arnex.TempPath(QStringLiteral("beyond.elf"));
    ASSERT_TRUE(probetest::WriteElf(Program.toStdString(), {{0x007FF000, probetest::PatternBytes(8192, 3)}},
                                    0x7FF001));
    const ArnexRun R = Run(Project("MPS2-AN385", "Project.SetHostIF (\"USB\", \"\");", Program),
                           {"Debug.Connect()", "Util.Log alive"});
    const std::string All = R.Lines.join('\n').toStdString();
    EXPECT_TRUE(R.Lines.contains("Tarvo: connected to target device")) << All;
    // Where the difference lies reaches the Console, not only the log file.
    EXPECT_TRUE(R.Lines.contains("Download: target memory differs from the program at 0x00800000")) << All;
    EXPECT_TRUE(R.Lines.contains("Error during verification phase")) << All;
    EXPECT_EQ(R.Lines.filter("[Download failed] Parts of the program file could not be written.").size(), 1)
        << All;
    EXPECT_TRUE(R.Lines.contains("alive")) << All;
}

/// The value a Console line after the echo of Line shows, or -1.
qint64 ValueAfter(const ArnexRun& R, const QString& Line) {
    const qsizetype At = R.Lines.indexOf(Line);
    bool Ok = false;
    const qint64 V = At >= 0 && At + 1 < R.Lines.size() ? R.Lines[At + 1].toLongLong(&Ok, 16) : -1;
    return Ok ? V : -1;
}

// Cortex-M runs Thumb code only. The session resets before it downloads, while the board's memory is
// still empty; the program must start in Thumb state at its reset vector, on the emulated board and
// behind a GDB server.
TEST_F(Session, TheDemoStartsInThumbStateAtItsResetVector) {
    std::string Error;
    ASSERT_TRUE(m_Elf.Load(FirmwarePath(), Error)) << Error;
    probetest::QemuHarness Board;
    ASSERT_TRUE(Board.Start("mps2-an385", "", 30000, Error)) << Error;
    for (const QString& Host :
         {QString(), QStringLiteral("Project.SetHostIF (\"IP\", \"localhost:%1\");").arg(Board.Port())}) {
        const ArnexRun R = Run(DemoProject(Host), {"Debug.Connect()", "Target.GetReg (\"XPSR\")",
                                                   "Target.GetReg (\"PC\")", "Target.GetReg (\"SP\")"});
        const std::string All = R.Lines.join('\n').toStdString();
        EXPECT_EQ(R.ExitCode, 0) << All;
        const qint64 Xpsr = ValueAfter(R, QStringLiteral("Target.GetReg (\"XPSR\");"));
        EXPECT_EQ(Xpsr & 0x01000000, 0x01000000) << All;
        EXPECT_EQ(ValueAfter(R, QStringLiteral("Target.GetReg (\"PC\");")), m_Elf.Symbol("Reset_Handler"))
            << All;
        EXPECT_EQ(ValueAfter(R, QStringLiteral("Target.GetReg (\"SP\");")), FirstWord()) << All;
    }
}

// A connection that halts returns with the halt known: the next line reads registers.
TEST_F(Session, AnAttachmentThatHaltsReadsRegistersAtOnce) {
    const ArnexRun R = Run(DemoProject(), {"Debug.SetConnectMode (CM_ATTACH_HALT)", "Debug.Connect()",
                                           "Target.GetReg (\"PC\")"});
    const std::string All = R.Lines.join('\n').toStdString();
    EXPECT_EQ(R.ExitCode, 0) << All;
    EXPECT_GE(ValueAfter(R, QStringLiteral("Target.GetReg (\"PC\");")), 0) << All;
    EXPECT_TRUE(R.Lines.filter("not halted").isEmpty()) << All;
}

// A serial port given for a GDB server keeps sending bytes that never form an answer: the connection
// fails after its time-outs, says why, and the program goes on.
TEST_F(Session, ABabblingPortFailsTheConnectionInTime) {
    probetest::Babbler Port;
    const QString Host = QStringLiteral("Project.SetHostIF (\"IP\", \"localhost:%1\");").arg(Port.Port());
    QElapsedTimer T;
    T.start();
    const ArnexRun R = Run(DemoProject(Host), {"Debug.Connect()", "Util.Log alive"});
    const std::string All = R.Lines.join('\n').toStdString();
    EXPECT_LT(T.elapsed(), 15000) << "two tries of 3 s each, and the start";
    EXPECT_TRUE(R.Lines.contains("Connection failed")) << All;
    EXPECT_TRUE(R.Lines.contains("GDB server did not answer: no answer from the GDB server within 3000 ms"))
        << All;
    EXPECT_EQ(R.Lines.last(), "alive") << All;
}

TEST_F(Session, AnInvalidPortIsNamedInTheConsole) {
    const ArnexRun R =
        Run(DemoProject("Project.SetHostIF (\"IP\", \"localhost:99999\");"), {"Debug.Connect()"});
    const std::string All = R.Lines.join('\n').toStdString();
    EXPECT_TRUE(R.Lines.contains("Invalid port in \"localhost:99999\"")) << All;
    EXPECT_TRUE(R.Lines.contains("Connection failed")) << All;
}

} // namespace
