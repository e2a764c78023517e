// Opening programs from the Console and asking about them, checked against the ARM toolchain.

#include "ArnexProcess.h"

#include "app/core/Types.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>

#include <algorithm>

#include <gtest/gtest.h>

namespace {

/// Every target program of the build.
QStringList FirmwareElfs() {
    const QDir Dir(qEnvironmentVariable("ARNEX_BIN_DIR") + QStringLiteral("/../firmware"));
    QStringList Paths;
    for (const QString& Name : Dir.entryList({"*.elf"}, QDir::Files, QDir::Name)) {
        Paths << Dir.absoluteFilePath(Name);
    }
    return Paths;
}

QString Tool(const char* Name) {
    return QStandardPaths::findExecutable(QLatin1String(Name));
}

QString RunTool(const char* Name, const QStringList& Args) {
    QProcess P;
    P.start(Tool(Name), Args);
    P.waitForFinished(30000);
    return QString::fromUtf8(P.readAllStandardOutput());
}

/// The line that a command printed after its echo, from the Index-th echo on.
QString AnswerOf(const QStringList& Lines, const QString& Echo, int Index) {
    int Seen = 0;
    for (qsizetype i = 0; i + 1 < Lines.size(); ++i) {
        if (Lines[i] == Echo && Seen++ == Index) {
            return Lines[i + 1];
        }
    }
    return QString();
}

QString Hex8(U32 Value) {
    return "0x" + QString::number(Value, 16).toUpper().rightJustified(8, '0');
}

TEST(Program, OpensEveryTargetProgramAndAnswersLikeReadelf) {
    const QStringList Elfs = FirmwareElfs();
    ASSERT_FALSE(Elfs.isEmpty());
    ASSERT_FALSE(Tool("arm-none-eabi-readelf").isEmpty());
    QStringList Lines;
    for (const QString& Elf : Elfs) {
        Lines << "File.Open " + Elf << "Elf.GetEntryPointPC"
              << "Elf.GetBaseAddr"
              << "Elf.GetEndianess"
              << "Elf.GetEntryFuncPC";
    }
    ArnexProcess Arnex;
    const ArnexRun R = Arnex.Exec(Lines);
    ASSERT_TRUE(R.Finished);
    EXPECT_EQ(R.ExitCode, 0) << R.Lines.join('\n').toStdString();
    for (int i = 0; i < Elfs.size(); ++i) {
        SCOPED_TRACE(Elfs[i].toStdString());
        const QString Header = RunTool("arm-none-eabi-readelf", {"-h", Elfs[i]});
        const QRegularExpressionMatch Entry =
            QRegularExpression("Entry point address:\\s+0x([0-9a-f]+)").match(Header);
        ASSERT_TRUE(Entry.hasMatch());
        EXPECT_EQ(AnswerOf(R.Lines, "Elf.GetEntryPointPC();", i),
                  Hex8(Entry.captured(1).toUInt(nullptr, 16) & ~1u));
        EXPECT_EQ(AnswerOf(R.Lines, "Elf.GetEndianess();", i), Header.contains("little endian") ? "0" : "1");
        // The lowest physical address of a load segment with bytes in the file.
        U32 Base = 0xFFFFFFFF;
        for (const QString& L : RunTool("arm-none-eabi-readelf", {"-W", "-l", Elfs[i]}).split('\n')) {
            const QStringList T = L.split(' ', Qt::SkipEmptyParts);
            if (T.size() >= 8 && T[0] == "LOAD" && T[4].toUInt(nullptr, 16) != 0) {
                Base = std::min(Base, T[3].toUInt(nullptr, 16));
            }
        }
        EXPECT_EQ(AnswerOf(R.Lines, "Elf.GetBaseAddr();", i), Hex8(Base));
        // The start function is main, where nm puts it.
        const QRegularExpressionMatch Main =
            QRegularExpression("^([0-9a-f]+) T main$", QRegularExpression::MultilineOption)
                .match(RunTool("arm-none-eabi-nm", {Elfs[i]}));
        ASSERT_TRUE(Main.hasMatch());
        EXPECT_EQ(AnswerOf(R.Lines, "Elf.GetEntryFuncPC();", i),
                  Hex8(Main.captured(1).toUInt(nullptr, 16) & ~1u));
    }
    EXPECT_EQ(R.Lines.filter(QRegularExpression("^File.Open: completed in \\d+ ms$")).size(), Elfs.size());
}

TEST(Program, DataFilesAndBadFiles) {
    ArnexProcess Arnex;
    const QString Hex = Arnex.TempPath("p.hex");
    QProcess::execute(Tool("arm-none-eabi-objcopy"),
                      {"-O", "ihex", "--change-addresses", "0x08000000", FirmwareElfs().value(0), Hex});
    ASSERT_TRUE(QFile::exists(Hex));
    QFile Empty(Arnex.TempPath("empty.elf"));
    ASSERT_TRUE(Empty.open(QIODevice::WriteOnly));
    Empty.close();
    ArnexRun R = Arnex.Exec({"File.Open " + Hex, "Elf.GetBaseAddr", "Elf.GetEntryPointPC", "Elf.GetEndianess",
                             "Elf.GetEntryFuncPC"});
    EXPECT_EQ(AnswerOf(R.Lines, "Elf.GetBaseAddr();", 0), "0x08000000");
    EXPECT_EQ(AnswerOf(R.Lines, "Elf.GetEntryPointPC();", 0), "0xFFFFFFFF");
    EXPECT_EQ(AnswerOf(R.Lines, "Elf.GetEndianess();", 0), "2");
    EXPECT_EQ(AnswerOf(R.Lines, "Elf.GetEntryFuncPC();", 0), "0xFFFFFFFF")
        << "a record file has no functions";

    R = Arnex.Exec({"File.Open " + Empty.fileName(), "Elf.GetBaseAddr"});
    EXPECT_EQ(R.ExitCode, 1);
    // One report, the ELF parser's own.
    EXPECT_EQ(R.Lines.filter("ELF error").size(), 1) << R.Lines.join('\n').toStdString();
    EXPECT_TRUE(R.Lines.contains("ELF error (1031): unexpected file size."));
    EXPECT_EQ(AnswerOf(R.Lines, "Elf.GetBaseAddr();", 0), "0xFFFFFFFF");
    // An empty record file is no ELF file: it says that nothing is in it, once.
    QFile EmptyHex(Arnex.TempPath("empty.hex"));
    ASSERT_TRUE(EmptyHex.open(QIODevice::WriteOnly));
    EmptyHex.close();
    R = Arnex.Exec({"File.Open " + EmptyHex.fileName()});
    EXPECT_EQ(R.ExitCode, 1);
    EXPECT_TRUE(R.Lines.filter("ELF error").isEmpty()) << R.Lines.join('\n').toStdString();
    EXPECT_EQ(R.Lines.filter("The file contains no loadable data: " + EmptyHex.fileName()).size(), 1);
}

TEST(Program, SymbolsRelocatedBeforeTheOpen) {
    const QString Elf = FirmwareElfs().value(0);
    ArnexProcess Arnex;
    const ArnexRun Plain = Arnex.Exec({"File.Open " + Elf, "Elf.GetEntryPointPC"});
    const ArnexRun Moved = Arnex.Exec({"Project.RelocateSymbols (\"*\", 0x1000)", "File.Open " + Elf,
                                       "Elf.GetEntryPointPC", "Project.RelocateSymbols (\".nosuch\", 4)"});
    const U32 Entry = AnswerOf(Plain.Lines, "Elf.GetEntryPointPC();", 0).toUInt(nullptr, 16);
    ASSERT_NE(Entry, 0u);
    EXPECT_EQ(AnswerOf(Moved.Lines, "Elf.GetEntryPointPC();", 0), Hex8(Entry + 0x1000));
    EXPECT_EQ(Moved.Lines.last(), "Project.RelocateSymbols (\".nosuch\", 4); invalid parameter");
    EXPECT_EQ(Moved.ExitCode, 1);
    // A section named before the open, and the same file opened again.
    const ArnexRun Named = Arnex.Exec({"Project.RelocateSymbols (\".text\", 0x2000)", "File.Open " + Elf,
                                       "Elf.GetEntryPointPC", "File.Open " + Elf, "Elf.GetEntryPointPC"});
    EXPECT_EQ(Named.ExitCode, 0) << Named.Lines.join('\n').toStdString();
    EXPECT_EQ(AnswerOf(Named.Lines, "Elf.GetEntryPointPC();", 0), Hex8(Entry + 0x2000));
    EXPECT_EQ(AnswerOf(Named.Lines, "Elf.GetEntryPointPC();", 1), Hex8(Entry + 0x2000));
}

} // namespace
