// The CPU register descriptions the program brings. Each file is read here with the toolkit's XML
// reader, not the program's, and every register is held against the probe library's register table
// (its number and name) and against the registers the core plug-in maps for each core that uses the file.
#include "expr/RegisterFiles.h"

#include "analysis/CorePluginLoader.h"
#include "app/core/Paths.h"
#include "probe/TarvoCores.h"
#include "probe/backends/Devices.h"
#include "probe/backends/RegisterMap.h"

#include <QDir>
#include <QFile>
#include <QSet>
#include <QTemporaryDir>
#include <QXmlStreamReader>

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <set>

namespace {

struct Field {
    QString Name;
    int Offset = -1;
    int Width = -1;
    QList<qint64> Values;
};

struct Register {
    QString Group;
    QString Name;
    QString Description;
    QString Access;
    int Index = -1;
    int Size = -1;
    QList<Field> Fields;
};

struct CpuFile {
    QString Root;
    QList<Register> Registers;
    QString Error;
};

int Number(const QString& Text) {
    bool Ok = false;
    const int Value = Text.trimmed().toInt(&Ok, 0);
    return Ok ? Value : -1;
}

void ReadField(QXmlStreamReader& Xml, Field& F) {
    while (Xml.readNextStartElement()) {
        const auto Name = Xml.name();
        if (Name == QLatin1String("name")) {
            F.Name = Xml.readElementText();
        } else if (Name == QLatin1String("bitOffset")) {
            F.Offset = Number(Xml.readElementText());
        } else if (Name == QLatin1String("bitWidth")) {
            F.Width = Number(Xml.readElementText());
        } else if (Name == QLatin1String("enumeratedValues")) {
            while (Xml.readNextStartElement()) {
                while (Xml.readNextStartElement()) {
                    if (Xml.name() == QLatin1String("value")) {
                        F.Values.append(Number(Xml.readElementText()));
                    } else {
                        Xml.skipCurrentElement();
                    }
                }
            }
        } else {
            Xml.skipCurrentElement();
        }
    }
}

void ReadRegister(QXmlStreamReader& Xml, Register& R) {
    while (Xml.readNextStartElement()) {
        const auto Name = Xml.name();
        if (Name == QLatin1String("name")) {
            R.Name = Xml.readElementText();
        } else if (Name == QLatin1String("description")) {
            R.Description = Xml.readElementText();
        } else if (Name == QLatin1String("access")) {
            R.Access = Xml.readElementText();
        } else if (Name == QLatin1String("index")) {
            R.Index = Number(Xml.readElementText());
        } else if (Name == QLatin1String("size")) {
            R.Size = Number(Xml.readElementText());
        } else if (Name == QLatin1String("fields")) {
            while (Xml.readNextStartElement()) {
                Field F;
                ReadField(Xml, F);
                R.Fields.append(F);
            }
        } else {
            Xml.skipCurrentElement();
        }
    }
}

CpuFile ReadCpuFile(const QString& Path) {
    CpuFile Result;
    QFile File(Path);
    if (!File.open(QIODevice::ReadOnly)) {
        Result.Error = "cannot open";
        return Result;
    }
    QXmlStreamReader Xml(&File);
    if (!Xml.readNextStartElement()) {
        Result.Error = "no root";
        return Result;
    }
    Result.Root = Xml.name().toString();
    while (Xml.readNextStartElement()) {
        if (Xml.name() != QLatin1String("groups")) {
            Xml.skipCurrentElement();
            continue;
        }
        while (Xml.readNextStartElement()) {
            QString Group;
            while (Xml.readNextStartElement()) {
                if (Xml.name() == QLatin1String("name")) {
                    Group = Xml.readElementText();
                } else if (Xml.name() == QLatin1String("registers")) {
                    while (Xml.readNextStartElement()) {
                        Register R;
                        R.Group = Group;
                        ReadRegister(Xml, R);
                        Result.Registers.append(R);
                    }
                } else {
                    Xml.skipCurrentElement();
                }
            }
        }
    }
    if (Xml.hasError()) {
        Result.Error = Xml.errorString() + " at line " + QString::number(Xml.lineNumber());
    }
    return Result;
}

std::string S(const QString& Text) {
    return Text.toStdString();
}

QString CpuDir() {
    return qEnvironmentVariable("ARNEX_BIN_DIR") + "/Config/CPU";
}

/// Every core of the probe library's device table, once.
std::set<U32> LibraryCores() {
    std::set<U32> Cores;
    for (const tarvo::DeviceEntry& E : tarvo::DeviceTable()) {
        if (E.Core != 0) {
            Cores.insert(E.Core);
        }
    }
    return Cores;
}

bool IsArm(U32 Core) {
    const U32 Family = TARVO_CORE_FAMILY(Core);
    return Family == 3 || (Family >= 6 && Family <= 12) || Family == 14 || Family == 15;
}

/// The registers the core plug-in maps for a core: the indices it takes as they are.
std::set<int> PluginRegisters(U32 Core) {
    CORE_PLUGIN_CONFIG Config;
    std::memset(&Config, 0, sizeof Config);
    Config.Core = Core;
    std::set<int> Indices;
    if (CorePluginLoader::Load(Config, false) < 0 || !CorePluginLoader::GetApi().MapRegIndex) {
        return Indices;
    }
    for (U32 i = 0; i < TARVO_REG_COUNT; ++i) {
        if (CorePluginLoader::GetApi().MapRegIndex(i) == i) {
            Indices.insert(static_cast<int>(i));
        }
    }
    return Indices;
}

TEST(RegisterFiles, EveryArmCoreOfTheLibraryHasItsInstalledFile) {
    QSet<QString> Used;
    for (U32 Core : LibraryCores()) {
        const QString File = RegisterFiles::GetCpuSVDFileForCore(Core);
        if (!IsArm(Core)) {
            EXPECT_TRUE(File.isEmpty()) << std::hex << Core;
            EXPECT_FALSE(RegisterFiles::HasCpuSVDFileForCore(Core));
            continue;
        }
        ASSERT_TRUE(File.startsWith("$(InstallDir)/Config/CPU/")) << S(File);
        EXPECT_TRUE(RegisterFiles::HasCpuSVDFileForCore(Core)) << S(File);
        EXPECT_EQ(RegisterFiles::GetFileFormat(File), RegisterFiles::SVD_FORMAT_CPU) << S(File);
        Used.insert(File.section('/', -1));
    }
    EXPECT_EQ(Used, QSet<QString>({"Cortex-M0.svd", "Cortex-M3.svd", "Cortex-M4.svd", "Cortex-M7.svd",
                                   "Cortex-M33.svd"}));
    // Another core of a known family reads as its family's first member, as the plug-in treats it.
    EXPECT_EQ(RegisterFiles::GetCpuSVDFileForCore(TARVO_CORE_CORTEX_M4 | 0x7700),
              "$(InstallDir)/Config/CPU/Cortex-M4.svd");
    EXPECT_TRUE(RegisterFiles::GetCpuSVDFileForCore(0).isEmpty());

    // What the build installs is what the sources hold, file for file.
    const QDir Sources(qEnvironmentVariable("ARNEX_SOURCE_DIR") + "/config/CPU");
    const QStringList Names = Sources.entryList({"*.svd"}, QDir::Files);
    EXPECT_EQ(QSet<QString>(Names.begin(), Names.end()), Used);
    for (const QString& Name : Names) {
        QFile Source(Sources.filePath(Name));
        QFile Installed(CpuDir() + "/" + Name);
        ASSERT_TRUE(Source.open(QIODevice::ReadOnly) && Installed.open(QIODevice::ReadOnly)) << S(Name);
        EXPECT_TRUE(Source.readAll() == Installed.readAll()) << S(Name) << " is installed as it is";
    }
}

TEST(RegisterFiles, EachRegisterIsTheLibrarysAndTheCoresOwn) {
    std::map<QString, std::set<int>> PluginSets;
    for (U32 Core : LibraryCores()) {
        if (!IsArm(Core)) {
            continue;
        }
        const QString File = Paths::ExpandPath(RegisterFiles::GetCpuSVDFileForCore(Core));
        const CpuFile Cpu = ReadCpuFile(File);
        ASSERT_TRUE(Cpu.Error.isEmpty()) << S(File) << ": " << S(Cpu.Error);
        EXPECT_EQ(Cpu.Root, "cpu") << S(File);

        std::set<int> Indices;
        QSet<QString> Names;
        for (const Register& R : Cpu.Registers) {
            const QString Where = File.section('/', -1) + " " + R.Name;
            ASSERT_GE(R.Index, 0) << S(Where);
            ASSERT_LT(R.Index, static_cast<int>(TARVO_REG_COUNT)) << S(Where);
            EXPECT_EQ(R.Name.toLower(),
                      QString::fromLatin1(tarvo::RegisterMap::Name(static_cast<U32>(R.Index))))
                << S(Where) << " is number " << R.Index << " of the probe library";
            EXPECT_TRUE(Indices.insert(R.Index).second) << S(Where);
            EXPECT_FALSE(Names.contains(R.Name)) << S(Where);
            Names.insert(R.Name);
            EXPECT_EQ(R.Size, 32) << S(Where);
            EXPECT_EQ(R.Access, "read-write") << S(Where);
            EXPECT_FALSE(R.Description.trimmed().isEmpty()) << S(Where);
            EXPECT_FALSE(R.Group.isEmpty()) << S(Where);

            quint64 Taken = 0;
            QSet<QString> FieldNames;
            for (const Field& F : R.Fields) {
                ASSERT_GE(F.Offset, 0) << S(Where) << "." << S(F.Name);
                ASSERT_GE(F.Width, 1) << S(Where) << "." << S(F.Name);
                ASSERT_LE(F.Offset + F.Width, R.Size) << S(Where) << "." << S(F.Name);
                const quint64 Mask = ((quint64(1) << F.Width) - 1) << F.Offset;
                EXPECT_EQ(Taken & Mask, 0u) << S(Where) << "." << S(F.Name) << " overlaps another field";
                Taken |= Mask;
                EXPECT_FALSE(FieldNames.contains(F.Name)) << S(Where) << "." << S(F.Name);
                FieldNames.insert(F.Name);
                QSet<qint64> Values;
                for (qint64 V : F.Values) {
                    EXPECT_TRUE(V >= 0 && V < (qint64(1) << F.Width))
                        << S(Where) << "." << S(F.Name) << " = " << V;
                    EXPECT_FALSE(Values.contains(V)) << S(Where) << "." << S(F.Name) << " = " << V;
                    Values.insert(V);
                }
            }
        }
        // Exactly the registers the core plug-in reaches for this core, no more and no fewer.
        const std::set<int> Plugin = PluginRegisters(Core);
        ASSERT_FALSE(Plugin.empty()) << S(CorePluginLoader::GetLastError());
        EXPECT_EQ(Indices, Plugin) << S(File) << " for core 0x" << std::hex << Core;
        PluginSets[File].insert(Plugin.begin(), Plugin.end());
    }
    CorePluginLoader::Unload();
    EXPECT_EQ(PluginSets.size(), 5u);
}

TEST(RegisterFiles, TheKindOfAFileIsItsRootElement) {
    QTemporaryDir Dir;
    const auto Write = [&](const char* Name, const QByteArray& Text) {
        QFile F(Dir.filePath(Name));
        F.open(QIODevice::WriteOnly);
        F.write(Text);
        return Dir.filePath(Name);
    };
    using namespace RegisterFiles;
    EXPECT_EQ(GetFileFormat(Write("cpu.svd", "<?xml version=\"1.0\"?>\n<!-- c -->\n<CPU><groups/></CPU>")),
              SVD_FORMAT_CPU);
    EXPECT_EQ(GetFileFormat(Write("dev.svd", "<device schemaVersion=\"1.1\"><name>X</name></device>")),
              SVD_FORMAT_DEVICE);
    EXPECT_EQ(GetFileFormat(Write("other.xml", "<MemorySegments></MemorySegments>")), SVD_FORMAT_OTHER);
    EXPECT_EQ(GetFileFormat(Write("short.svd", "<cpu/>")), SVD_FORMAT_UNREADABLE) << "below 10 bytes";
    EXPECT_EQ(GetFileFormat(Write("broken.svd", "<cpu><groups></cpu>")), SVD_FORMAT_UNREADABLE);
    EXPECT_EQ(GetFileFormat(Write("text.svd", "just some text, no XML")), SVD_FORMAT_UNREADABLE);
    QByteArray Junk;
    for (int i = 0; i < 5000; ++i) {
        Junk.append(static_cast<char>((i * 131 + 7) % 256));
    }
    EXPECT_EQ(GetFileFormat(Write("junk.svd", Junk)), SVD_FORMAT_UNREADABLE);
    EXPECT_EQ(GetFileFormat(Dir.filePath("missing.svd")), SVD_FORMAT_UNREADABLE);
    EXPECT_EQ(GetFileFormat(Dir.path()), SVD_FORMAT_UNREADABLE) << "a folder";
}

} // namespace
