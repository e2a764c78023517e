// The program under debug: loading ELF and data files under the program data mutex, and the loader
// worker that does it on a thread of its own.

#include "Toolchain.h"

#include "program/ElfWrapper.h"
#include "program/FileWorker.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace {

class Loader : public ::testing::Test {
protected:
    void TearDown() override {
        QMutexLocker Lock(&ELF_GetDataMutex());
        ELF_Unload();
    }
    QTemporaryDir Dir;
};

TEST_F(Loader, AnElfProgramAndItsData) {
    for (const QString& Elf : Toolchain::AllElfs()) {
        SCOPED_TRACE(Elf.toStdString());
        QMutexLocker Lock(&ELF_GetDataMutex());
        ASSERT_EQ(ELF_Load(Elf), 0);
        EXPECT_TRUE(ELF_IsLoaded());
        EXPECT_EQ(ELF_GetProgramPath(), Elf);
        ASSERT_NE(ELF_GetProgramElfFile(), nullptr);
        EXPECT_EQ(ELF_GetCurrentFile(), ELF_GetProgramElfFile());
        const QMap<QString, QString> Header = Toolchain::ReadHeader(Elf);
        EXPECT_EQ(ELF_GetEntryPointPC(), Header["Entry point address"].toUInt(nullptr, 16) & ~1u);
        EXPECT_EQ(ELF_GetEndianess(), Header["Data"].contains("big") ? 1 : 0);
        const std::map<U32, U8> Bytes = Toolchain::LoadableBytes(Elf);
        EXPECT_EQ(ELF_GetBaseAddr(), static_cast<I64>(Bytes.begin()->first));
        // The reader used the open program and opened nothing beside it.
        EXPECT_EQ(ELF_GetSlotFile(1), nullptr);
        size_t Total = 0;
        for (const ELF_DATA_BLOCK& B : ELF_GetProgramBlocks()) {
            Total += B.Size;
        }
        EXPECT_EQ(Total, Bytes.size());
    }
}

TEST_F(Loader, DataFilesHaveNoModel) {
    const QString Hex = Dir.filePath("p.hex");
    QString Error;
    Toolchain::Run(
        Toolchain::Objcopy(),
        {"-O", "ihex", "--change-addresses", "0x08000000", Toolchain::FirmwareElfs().value(0), Hex}, &Error);
    ASSERT_TRUE(Error.isEmpty()) << Error.toStdString();
    QMutexLocker Lock(&ELF_GetDataMutex());
    ASSERT_EQ(ELF_Load(Hex), 0);
    EXPECT_EQ(ELF_GetProgramElfFile(), nullptr);
    EXPECT_EQ(ELF_GetBaseAddr(), 0x08000000);
    EXPECT_EQ(ELF_GetEntryPointPC(), -1);
    EXPECT_EQ(ELF_GetEndianess(), 2);
    // A failed load leaves no program behind, not even the former one.
    EXPECT_EQ(ELF_Load(Dir.filePath("missing.hex")), -1);
    EXPECT_FALSE(ELF_IsLoaded());
    EXPECT_EQ(ELF_GetBaseAddr(), -1);
    EXPECT_EQ(ELF_GetProgramPath(), "");
}

TEST_F(Loader, RelocationsGivenBeforeTheLoadApplyToTheNewProgram) {
    const QString Elf = Toolchain::FirmwareElfs().value(0);
    QMutexLocker Lock(&ELF_GetDataMutex());
    ASSERT_EQ(ELF_Load(Elf), 0);
    const I64 Entry = ELF_GetEntryPointPC();
    ELF_AddRelocation("*", 0x1000);
    ASSERT_EQ(ELF_Load(Elf), 0);
    EXPECT_EQ(ELF_GetEntryPointPC(), Entry + 0x1000);
    // Closing the program empties the table: the next project run fills it again.
    ELF_Unload();
    EXPECT_TRUE(ELF_GetRelocations().empty());
}

// The usual place of Project.RelocateSymbols is OnProjectLoad, ahead of File.Open: a section or a symbol
// named there takes effect at the open, stays through a reopening, and a data file read beside the
// program leaves it alone.
TEST_F(Loader, NamedRelocationsHoldAcrossOpensAndDataFiles) {
    const QString Elf = Toolchain::FirmwareElfs().value(0);
    const QString Data = Dir.filePath("data.elf");
    ASSERT_TRUE(QFile::copy(Elf, Data));
    QMutexLocker Lock(&ELF_GetDataMutex());
    ASSERT_EQ(ELF_Load(Elf), 0);
    const ELF32_SYM* Main = ELF_FindSymByName(ELF_GetProgramElfFile(), "main");
    ASSERT_NE(Main, nullptr);
    const U32 MainAddr = ELF_AlignInst(Main->st_value);
    const U32 Entry = static_cast<U32>(ELF_GetEntryPointPC());
    ASSERT_NE(MainAddr, Entry);
    ELF_Unload();

    ASSERT_EQ(ELF_AddRelocation("main", 0x4000), 0);
    ASSERT_EQ(ELF_AddRelocation(".text", 0x1000), 0);
    auto Moved = [&]() {
        return ELF_ToTargetAddr(MainAddr, 1, 0) == MainAddr + 0x4000 &&
               ELF_ToTargetAddr(Entry, 1, 0) == Entry + 0x1000 &&
               static_cast<U32>(ELF_GetEntryPointPC()) == Entry + 0x1000;
    };
    ASSERT_EQ(ELF_Load(Elf), 0);
    EXPECT_TRUE(Moved()) << "named before the open";
    ASSERT_EQ(ELF_Load(Elf), 0);
    EXPECT_TRUE(Moved()) << "and after opening the file again";
    const ELF_DATA_BLOCKS Blocks = TFile::CFileWorker::Instance()->ReadFile(Data, 0x20000000);
    ASSERT_FALSE(Blocks.empty());
    EXPECT_EQ(Blocks.front().Address, 0x20000000u);
    EXPECT_TRUE(Moved()) << "and after a data file was read";
    EXPECT_EQ(ELF_GetCurrentFile(), ELF_GetProgramElfFile());
}

TEST_F(Loader, TheWorkerWaitsForTheDataMutexAndReports) {
    const QString Elf = Toolchain::FirmwareElfs().value(0);
    CProgramLoader Worker;
    QSignalSpy Finished(&Worker, &CProgramLoader::Finished);
    ELF_GetDataMutex().lock();
    ASSERT_TRUE(Worker.Start(Elf));
    QThread::msleep(50);
    // Someone else holds the program data: the load has to wait.
    EXPECT_TRUE(Worker.IsRunning());
    EXPECT_FALSE(Worker.Start(Elf));
    ELF_GetDataMutex().unlock();
    ASSERT_TRUE(Finished.wait(10000));
    ASSERT_EQ(Finished.size(), 1);
    EXPECT_EQ(Finished[0][0].toString(), Elf);
    EXPECT_EQ(Finished[0][1].toInt(), 0);
    EXPECT_TRUE(ELF_IsLoaded());

    ASSERT_TRUE(Worker.Start(Dir.filePath("none.elf")));
    ASSERT_TRUE(Finished.wait(10000));
    EXPECT_EQ(Finished[1][1].toInt(), -1);
    EXPECT_FALSE(ELF_IsLoaded());
}

// The debug information is read on the worker; its progress reaches the owner's thread in order, from 0
// to 100, and 100 comes only with the reading complete, before the load's report.
TEST_F(Loader, DebugInfoProgressArrivesOnTheOwnersThreadAndEndsAtTheWhole) {
    CProgramLoader Worker;
    QSignalSpy Finished(&Worker, &CProgramLoader::Finished);
    std::vector<int> Seen;
    bool OtherThread = false;
    bool AfterReport = false;
    QObject Receiver;
    QObject::connect(
        &Worker, &CProgramLoader::DebugInfoProgress, &Receiver,
        [&](int Percent) {
            Seen.push_back(Percent);
            OtherThread |= QThread::currentThread() != Receiver.thread();
            AfterReport |= !Finished.isEmpty();
        },
        Qt::QueuedConnection);
    for (const QString& Elf : Toolchain::FirmwareElfs()) {
        SCOPED_TRACE(Elf.toStdString());
        Seen.clear();
        ASSERT_TRUE(Worker.Start(Elf));
        ASSERT_TRUE(Finished.wait(10000));
        ASSERT_EQ(Finished.takeLast()[1].toInt(), 0);
        ASSERT_GE(Seen.size(), 2u);
        EXPECT_EQ(Seen.front(), 0);
        EXPECT_EQ(Seen.back(), 100);
        EXPECT_TRUE(std::is_sorted(Seen.begin(), Seen.end()));
        EXPECT_EQ(std::adjacent_find(Seen.begin(), Seen.end()), Seen.end()) << "one report per percent";
        EXPECT_FALSE(OtherThread);
        EXPECT_FALSE(AfterReport);
    }
    // A data file has no debug information and no such progress.
    const QString Bin = Dir.filePath("p.bin");
    QFile Out(Bin);
    ASSERT_TRUE(Out.open(QIODevice::WriteOnly));
    Out.write(QByteArray(64, '\x5A'));
    Out.close();
    Seen.clear();
    ASSERT_TRUE(Worker.Start(Bin));
    ASSERT_TRUE(Finished.wait(10000));
    EXPECT_TRUE(Seen.empty());
}

} // namespace
