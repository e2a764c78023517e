// Source file resolution on a program whose sources were moved after the build, as happens when a
// program comes from another folder or another machine.

#include "LogCapture.h"
#include "Toolchain.h"

#include "app/core/Paths.h"
#include "program/ElfWrapper.h"
#include "program/FileFinder.h"
#include "program/SymbolStore.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

namespace {

void Write(const QString& Path, const QByteArray& Text) {
    QDir().mkpath(QFileInfo(Path).absolutePath());
    QFile F(Path);
    ASSERT_TRUE(F.open(QIODevice::WriteOnly));
    F.write(Text);
}

/// Compiles in Dir, so that the unit's compilation directory is the folder of its sources.
QString Compile(const QString& Dir, const QStringList& Args) {
    QProcess P;
    P.setWorkingDirectory(Dir);
    P.start(ARNEX_TEST_GCC, Args);
    if (!P.waitForFinished(60000) || P.exitCode() != 0) {
        return QString::fromUtf8(P.readAllStandardError()) + P.errorString();
    }
    return QString();
}

QByteArray Read(const QString& Path) {
    QFile F(Path);
    return F.open(QIODevice::ReadOnly) ? F.readAll() : QByteArray();
}

/// The console lines the finder wrote, without their time stamps.
QStringList ConsoleLines(LogCapture& Log, const QString& Start) {
    QStringList Out;
    for (const QString& L : Log.Lines()) {
        const qsizetype At = L.indexOf(Start);
        if (At >= 0) {
            Out << L.mid(At);
        }
    }
    return Out;
}

class FileFinderTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        s_Dir = new QTemporaryDir;
        const QString Built = s_Dir->filePath("build-host/proj");
        Write(Built + "/main.c", "#include \"util.h\"\nint g_Count;\nint main(void) {\n"
                                 "    g_Count = Twice(g_Count);\n    return Add(g_Count, 1);\n}\n");
        Write(Built + "/util.c", "#include \"util.h\"\nint Add(int a, int b) {\n    return a + b;\n}\n");
        Write(Built + "/inc/util.h", "static inline int Twice(int x) {\n    return 2 * x;\n}\n"
                                     "int Add(int a, int b);\n");
        // One build names its sources by absolute paths, the other (a reproducible build) relative to ".".
        const QStringList Common = {"-mcpu=cortex-m3", "-mthumb",        "-g", "-O1",
                                    "-nostdlib",       "-Wl,-e,main",    "-I", Built + "/inc",
                                    Built + "/main.c", Built + "/util.c"};
        QString Error = Compile(Built, Common + QStringList{"-o", s_Dir->filePath("abs.elf")});
        ASSERT_TRUE(Error.isEmpty()) << Error.toStdString();
        Error = Compile(Built, Common + QStringList{"-fdebug-prefix-map=" + Built + "=.", "-o",
                                                    s_Dir->filePath("rel.elf")});
        ASSERT_TRUE(Error.isEmpty()) << Error.toStdString();
        // The sources move away from where the compiler saw them.
        ASSERT_TRUE(QDir().mkpath(s_Dir->filePath("here")));
        ASSERT_TRUE(QDir().rename(s_Dir->filePath("build-host/proj"), s_Dir->filePath("here/proj")));
        Write(s_Dir->filePath("install/Config/Peripherals/Dev.svd"), "<device/>");
        Write(s_Dir->filePath("install/Plugins/OS/RtosPlugin.so"), "not a library");
    }
    static void TearDownTestSuite() {
        delete s_Dir;
        s_Dir = nullptr;
    }
    void SetUp() override {
        Paths::SetInstallDirOverride(s_Dir->filePath("install"));
        Paths::SetProjectFile(QString());
        Paths::SetProgramFile(QString());
        Finder()->Reset();
        Finder()->ClearStatistics();
    }
    void TearDown() override {
        ELF_Unload();
        Finder()->Reset();
        Paths::SetInstallDirOverride(QString());
    }
    static CFileFinder* Finder() { return CFileFinder::Instance(); }
    static QString Tmp(const QString& Rel) { return QDir::cleanPath(s_Dir->filePath(Rel)); }
    static QStringList SourcesOf(const QString& Elf) {
        EXPECT_EQ(ELF_Load(Tmp(Elf)), 0);
        QStringList Paths;
        for (U32 Id : ELF_GetFileIds()) {
            const QString P = ELF_GetFilePath(Id);
            if (P.endsWith("main.c") || P.endsWith("util.c") || P.endsWith("util.h")) {
                Paths << P;
            }
        }
        Paths.sort();
        return Paths;
    }
    static QTemporaryDir* s_Dir;
};
QTemporaryDir* FileFinderTest::s_Dir = nullptr;

TEST_F(FileFinderTest, MovedSourcesAreFoundThroughSubstitutesAliasesAndSearchDirectories) {
    const QStringList Sources = SourcesOf("abs.elf");
    ASSERT_EQ(Sources.size(), 3) << Sources.join(", ").toStdString();
    for (const QString& P : Sources) {
        EXPECT_TRUE(P.startsWith(Tmp("build-host/proj/"))) << P.toStdString();
        EXPECT_EQ(Finder()->ResolvePath(P), "") << "nothing is where the build left it";
        EXPECT_EQ(ELF_GetFileExists(static_cast<U32>(ELF_GetFileId(P))), 0);
    }
    EXPECT_EQ(Finder()->GetUnresolvedFiles(), Sources);

    // The folder the sources moved to, named by a substitute: every one is found, with its own text.
    Finder()->AddPathSubstitute(Tmp("build-host"), "$(ProgramDir)");
    EXPECT_EQ(Finder()->ResolvePath(Sources[0]), "") << "an unknown macro stays as it stands";
    Finder()->Reset();
    Finder()->AddPathSubstitute(Tmp("BUILD-HOST"), Tmp("here"));
    for (const QString& P : Sources) {
        const QString Found = Finder()->ResolvePath(P);
        EXPECT_EQ(Found, QString(P).replace("build-host", "here")) << "case is ignored in the part";
        EXPECT_EQ(Read(Found).left(8), Read(Tmp("here/proj/" + P.section("/proj/", 1))).left(8));
        EXPECT_TRUE(Finder()->GetResolvedFiles().contains(P));
    }

    // An alias goes first, and the substitute works on its result.
    Write(Tmp("here/proj/other/main.c"), "int main(void) { return 0; }\n");
    const QString Main = Sources.filter("/main.c").first();
    Finder()->AddFileAlias(Main, Tmp("build-host/proj/other/main.c"));
    EXPECT_EQ(Finder()->ResolvePath(Main), Tmp("here/proj/other/main.c"));
    EXPECT_EQ(Finder()->Reverse(Tmp("build-host/proj/other/main.c")), Main);
    // The symbol store knows the old file under the new path, and its lines answer there.
    EXPECT_EQ(ELF_GetFileId(Tmp("build-host/proj/other/main.c")), ELF_GetFileId(Main));
    EXPECT_TRUE(ELF_GetFirstAddrOfLine(
                    {static_cast<U32>(ELF_GetFileId(Tmp("build-host/proj/other/main.c"))), 4, 0}) >= 0);

    // Without a substitute, files are looked for by name in the search directories, relative ones among
    // them found from the roots; names of a machine that ignores case match any case.
    Finder()->Reset();
    Finder()->AddSearchPath("$(InstallDir)/../here/proj/inc");
    const QString Util = Sources.filter("/util.h").first();
    EXPECT_EQ(Finder()->ResolvePath(Util), Tmp("here/proj/inc/util.h"));
    EXPECT_EQ(Finder()->ResolvePath("C:\\Work\\Proj\\Inc\\UTIL.H"), Tmp("here/proj/inc/util.h"));
    EXPECT_EQ(Finder()->ResolvePath(Main), "");
    Finder()->Reset();
    Finder()->AddRootPath(Tmp("here"));
    Finder()->AddSearchPath("proj");
    EXPECT_EQ(Finder()->ResolvePath(Main), Tmp("here/proj/main.c"));
    // The other extension of the kind: a header for a source.
    EXPECT_EQ(Finder()->ResolveWithOtherExtension(Tmp("here/proj/main.h")), Tmp("here/proj/main.c"));
    EXPECT_EQ(Finder()->ResolveWithOtherExtension(Tmp("here/proj/inc/none.c")), "");
}

TEST_F(FileFinderTest, RelativeSourcesAreFoundFromTheRootsAndTheProgramsFolder) {
    const QStringList Sources = SourcesOf("rel.elf");
    ASSERT_EQ(Sources.size(), 3) << Sources.join(", ").toStdString();
    const QString Main = Sources.filter("main.c").first();
    EXPECT_EQ(Finder()->ResolvePath(Main), "");
    Finder()->AddRootPath(Tmp("here/proj"));
    for (const QString& P : Sources) {
        EXPECT_EQ(Finder()->ResolvePath(P), Tmp("here/proj/" + P)) << P.toStdString();
    }
    // A program kept beside its sources finds them without a root of the project.
    Finder()->Reset();
    Write(Tmp("here/proj/rel.elf"), Read(Tmp("rel.elf")));
    Paths::SetProgramFile(Tmp("here/proj/rel.elf"));
    EXPECT_EQ(Finder()->ResolvePath(Main), Tmp("here/proj/main.c"));
    // $(ProjectDir) without a project leaves a relative path, not one at the root of the disk.
    EXPECT_EQ(Finder()->ExpandMacros("$(ProjectDir)/main.c"), "main.c");
    EXPECT_EQ(Finder()->ResolvePath("$(projectdir)/main.c"), Tmp("here/proj/main.c"));
    Paths::SetProjectFile(Tmp("here/proj/p.tvproj"));
    EXPECT_EQ(Finder()->ExpandMacros("$(PROJECTDIR)/main.c"), Tmp("here/proj/main.c"));
}

TEST_F(FileFinderTest, OtherKindsAreSearchedWhereTheyAreKeptAndToldOnce) {
    LogCapture Log;
    QSignalSpy Stats(Finder(), &CFileFinder::SrcFileResStatsChanged);
    // A register description by either extension, from the configuration folders.
    EXPECT_EQ(Finder()->ResolvePath("Dev.xml"), Tmp("install/Config/Peripherals/Dev.svd"));
    EXPECT_EQ(Finder()->ResolvePath("Dev.xml"), Tmp("install/Config/Peripherals/Dev.svd"));
    EXPECT_EQ(Finder()->ResolvePath("$(ConfigDir)/Peripherals/Dev.svd"),
              Tmp("install/Config/Peripherals/Dev.svd"));
    EXPECT_EQ(Finder()->ResolvePath("RtosPlugin.so"), Tmp("install/Plugins/OS/RtosPlugin.so"));
    EXPECT_EQ(Finder()->ResolvePath("missing.svd"), "");
    EXPECT_EQ(Finder()->ResolvePath("missing.svd"), "");
    // Any other extension is a source: counted, never told on the console.
    EXPECT_EQ(Finder()->ResolvePath("/nowhere/a.inc"), "");
    EXPECT_EQ(Finder()->ResolveSourcePath("/usr/include/c++/type_traits_gone"), "");
    EXPECT_EQ(ConsoleLines(Log, "File "),
              QStringList({"File path resolved: \"Dev.xml\" was found at \"" +
                               Tmp("install/Config/Peripherals/Dev.svd") + "\"",
                           "File path resolved: \"$(ConfigDir)/Peripherals/Dev.svd\" was found at \"" +
                               Tmp("install/Config/Peripherals/Dev.svd") + "\"",
                           "File path resolved: \"RtosPlugin.so\" was found at \"" +
                               Tmp("install/Plugins/OS/RtosPlugin.so") + "\"",
                           "File not found: missing.svd"}));
    EXPECT_EQ(Finder()->GetUnresolvedFiles(),
              QStringList({"/nowhere/a.inc", "/usr/include/c++/type_traits_gone"}));
    EXPECT_EQ(Finder()->GetResolvedFiles(), QStringList());
    // The statistics change once for a burst of resolutions.
    Stats.clear();
    for (int i = 0; i < 20; ++i) {
        Finder()->ResolvePath(QStringLiteral("/nowhere/f%1.c").arg(i));
    }
    EXPECT_TRUE(Stats.wait(2000));
    QTest::qWait(300);
    EXPECT_EQ(Stats.size(), 1);
    EXPECT_EQ(Finder()->GetUnresolvedFiles().size(), 22);
}

TEST_F(FileFinderTest, MacrosAndEnvironmentVariables) {
    EXPECT_EQ(Finder()->ExpandMacros("no macro $"), "no macro $");
    EXPECT_EQ(Finder()->ExpandMacros("$(configDIR)a.svd"), Tmp("install/Config") + "a.svd");
    EXPECT_EQ(Finder()->CollapseMacros(Tmp("install/Config/CPU/a.svd"), "$(ConfigDir)"),
              "$(ConfigDir)/CPU/a.svd");
    EXPECT_EQ(Finder()->CollapseMacros(Tmp("install/Configs/a.svd"), "$(ConfigDir)"),
              Tmp("install/Configs/a.svd"))
        << "only at a separator";
    qputenv("ARNEX_FINDER_VAR", "/opt/x");
    qunsetenv("ARNEX_FINDER_UNSET");
    EXPECT_EQ(CFileFinder::ExpandEnvVars("$(ARNEX_FINDER_VAR)/a.c %ARNEX_FINDER_VAR%/b.c"),
              "/opt/x/a.c /opt/x/b.c");
    EXPECT_EQ(CFileFinder::ExpandEnvVars("$(ARNEX_FINDER_UNSET)/a.c 50%"), "$(ARNEX_FINDER_UNSET)/a.c 50%");
    EXPECT_FALSE(Finder()->AddSearchPath("  "));
    EXPECT_FALSE(Finder()->AddFileAlias("", "/x"));
    EXPECT_EQ(Finder()->ResolvePath(""), "");
}

} // namespace
