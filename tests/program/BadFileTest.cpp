// Files that are not what they claim: truncated, empty, directories, unreadable, 2 GB and sparse. Each
// gives its catalogue message; none crashes or makes the reader allocate what the file claims.

#include "ElfBuilder.h"
#include "LogCapture.h"
#include "Toolchain.h"

#include "program/ElfParser.h"
#include "program/ElfWrapper.h"
#include "program/FileWorker.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <functional>
#include <sys/wait.h>
#include <unistd.h>

namespace {

void Collect(const ELF_ERROR_RECORD& Record, void* User) {
    static_cast<std::vector<I32>*>(User)->push_back(Record.Code);
}

class BadFile : public ::testing::Test {
protected:
    void SetUp() override {
        ELF_SetErrorCallback(Collect, &Codes);
        QFile F(Toolchain::FirmwareElfs().value(0));
        ASSERT_TRUE(F.open(QIODevice::ReadOnly));
        Firmware = F.readAll();
        ASSERT_GT(Firmware.size(), 1000);
    }
    void TearDown() override {
        ELF_CloseAll();
        ELF_SetErrorCallback(nullptr, nullptr);
    }
    QString Write(const QString& Name, const QByteArray& Bytes) {
        QFile F(Dir.filePath(Name));
        EXPECT_TRUE(F.open(QIODevice::WriteOnly | QIODevice::Truncate));
        F.write(Bytes);
        return F.fileName();
    }
    /// The codes that opening Path gives; the open must fail.
    std::vector<I32> OpenCodes(const QString& Path) {
        Codes.clear();
        EXPECT_EQ(ELF_Open(Path, true), nullptr);
        EXPECT_EQ(ELF_GetSlotFile(0), nullptr);
        return Codes;
    }
    QTemporaryDir Dir;
    QByteArray Firmware;
    std::vector<I32> Codes;
};

TEST_F(BadFile, TruncatedProgramsAreRefusedWhereverTheyEnd) {
    const std::vector<I32> NoMagic{ELF_ERR_NO_MAGIC};
    const std::vector<I32> Short{ELF_ERR_READ};
    for (qsizetype Length = 1; Length < Firmware.size(); Length += Length < 64 ? 1 : 97) {
        SCOPED_TRACE(Length);
        const std::vector<I32> Got = OpenCodes(Write("cut.elf", Firmware.left(Length)));
        EXPECT_EQ(Got, Length < 4 ? NoMagic : Short);
        EXPECT_TRUE(TFile::CFileWorker::Instance()->ReadFile(Dir.filePath("cut.elf")).empty());
    }
}

TEST_F(BadFile, TablesOutsideTheFileOrWithShortEntries) {
    const struct {
        int Offset;
        U16 Value;
    } Patches[] = {{44, 0xFFFF}, {48, 0xFFFF}, {42, 0}, {46, 8}};
    for (const auto& P : Patches) {
        SCOPED_TRACE(P.Offset);
        QByteArray Bytes = Firmware;
        std::memcpy(Bytes.data() + P.Offset, &P.Value, 2);
        EXPECT_EQ(OpenCodes(Write("patched.elf", Bytes)), std::vector<I32>{ELF_ERR_READ});
    }
    // A symbol table that claims more bytes than the file has.
    ElfBuilder B;
    B.AddCode(".text", 0, 16);
    B.AddSymbol({"f", 1, 2, 2, 1, 1});
    QByteArray Bytes = B.Build();
    const U32 ShOff = *reinterpret_cast<const U32*>(Bytes.constData() + 32);
    const U32 SymTab = ShOff + 40 * 3; // null, .text, .strtab, .symtab
    const U32 Huge = 0x7FFFFFF0;
    std::memcpy(Bytes.data() + SymTab + 20, &Huge, 4);
    EXPECT_EQ(OpenCodes(Write("symtab.elf", Bytes)), std::vector<I32>{ELF_ERR_READ});
}

TEST_F(BadFile, EmptyFiles) {
    EXPECT_EQ(OpenCodes(Write("empty.elf", {})), std::vector<I32>{ELF_ERR_FILE_SIZE});
    for (const char* Name : {"empty.bin", "empty.hex", "empty.srec", "empty.elf"}) {
        const QString Path = Write(Name, {});
        EXPECT_TRUE(TFile::CFileWorker::Instance()->ReadFile(Path).empty()) << Name;
        EXPECT_EQ(TFile::CheckDataFile(Path), 31) << Name;
    }
}

TEST_F(BadFile, Directories) {
    const QString Path = Dir.filePath("dir.elf");
    ASSERT_TRUE(QDir().mkdir(Path));
    EXPECT_EQ(OpenCodes(Path), std::vector<I32>{ELF_ERR_OPEN});
    EXPECT_TRUE(TFile::CFileWorker::Instance()->ReadFile(Path).empty());
    EXPECT_TRUE(TFile::CFileWorker::Instance()->ReadBinFile(Path).empty());
    EXPECT_EQ(TFile::CheckDataFile(Path), 30);
    EXPECT_EQ(TFile::CheckDataFile(Dir.filePath("missing.hex")), 95);
    EXPECT_EQ(OpenCodes(Dir.filePath("missing.elf")), std::vector<I32>{ELF_ERR_OPEN});
}

/// Runs Check as an unprivileged user when the tests run as root (root reads any file); its exit code.
int RunUnprivileged(const std::function<int()>& Check) {
    if (geteuid() != 0) {
        return Check();
    }
    const pid_t Child = fork();
    if (Child == 0) {
        if (setgid(65534) != 0 || setuid(65534) != 0) {
            _exit(255);
        }
        _exit(Check());
    }
    int Status = 0;
    waitpid(Child, &Status, 0);
    return WIFEXITED(Status) ? WEXITSTATUS(Status) : 254;
}

TEST_F(BadFile, UnreadableFiles) {
    // The folder stays open to everyone: only the files are locked.
    ASSERT_TRUE(QFile::setPermissions(Dir.path(), QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                                      QFileDevice::ExeOwner | QFileDevice::ReadOther |
                                                      QFileDevice::ExeOther));
    const QString Elf = Write("locked.elf", Firmware);
    const QString Hex = Write("locked.hex", ":00000001FF\n");
    ASSERT_TRUE(QFile::setPermissions(Elf, QFileDevice::Permissions()));
    ASSERT_TRUE(QFile::setPermissions(Hex, QFileDevice::Permissions()));
    EXPECT_EQ(RunUnprivileged([&]() {
                  std::vector<I32> Heard;
                  ELF_SetErrorCallback(Collect, &Heard);
                  const bool Refused = ELF_Open(Elf, true) == nullptr;
                  return Refused && Heard.size() == 1 ? Heard[0] : 0;
              }),
              ELF_ERR_OPEN);
    EXPECT_EQ(RunUnprivileged([&]() {
                  const bool Empty = TFile::CFileWorker::Instance()->ReadFile(Hex).empty();
                  return Empty ? TFile::CheckDataFile(Hex) : 0;
              }),
              30);
}

TEST_F(BadFile, SparseFilesOfTwoGigabytes) {
    for (const char* Name : {"huge.elf", "huge.bin", "huge.hex"}) {
        SCOPED_TRACE(Name);
        QFile F(Dir.filePath(Name));
        ASSERT_TRUE(F.open(QIODevice::WriteOnly));
        F.write(Firmware);
        ASSERT_TRUE(F.resize(0x80000000ll));
        F.close();
        if (QByteArray(Name).endsWith(".elf")) {
            EXPECT_EQ(OpenCodes(F.fileName()), std::vector<I32>{ELF_ERR_FILE_SIZE});
        }
        EXPECT_TRUE(TFile::CFileWorker::Instance()->ReadFile(F.fileName()).empty());
        EXPECT_EQ(TFile::CheckDataFile(F.fileName()), 31);
        F.remove();
    }
}

TEST_F(BadFile, TheLoadLogsTheCatalogueText) {
    LogCapture Log;
    QMutexLocker Lock(&ELF_GetDataMutex());
    EXPECT_EQ(ELF_Load(Write("empty.elf", "\x7F"
                                          "ELF")),
              -1);
    EXPECT_FALSE(ELF_IsLoaded());
    const QStringList Lines = Log.Lines();
    EXPECT_EQ(Lines.filter("ELF error (1033): error reading file data.").size(), 1);
    EXPECT_EQ(Lines.filter("shorter than an ELF header").size(), 1);
}

} // namespace
