// The text of project files: the generated file, the write-back into OnProjectLoad, the command check and
// the conversions of the probe settings.

#include "script/ProjectText.h"
#include "script/TScript.h"
#include "script/TextCodec.h"

#include <QRandomGenerator>

#include <gtest/gtest.h>

namespace {

using namespace ProjectText;

const QString HEAD = "/" + QString(69, '*');

QString LoadBody(const QString& Text) {
    qsizetype Start = 0;
    qsizetype End = 0;
    EXPECT_TRUE(FindFunctionBody(Text, "OnProjectLoad", Start, End));
    return Text.mid(Start, End - Start);
}

TEST(ProjectText, GeneratedFileHasAllFifteenBlocks) {
    const QString Text = TScript::GenerateProjectText({"Project.SetDevice (\"X\");"});
    EXPECT_TRUE(Text.startsWith(HEAD));
    EXPECT_EQ(Text.count(HEAD), 15);
    // One line feed between two blocks: each block ends in its own, so an empty line parts them.
    EXPECT_EQ(Text.count("\n\n" + HEAD), 14);
    EXPECT_TRUE(Text.endsWith(QString("//}").leftJustified(70) + "\n"));
    EXPECT_FALSE(Text.endsWith("\n\n"));
    for (int Id = 1; Id <= USER_FUNCTION_COUNT; ++Id) {
        const QString Name = TScript::GetUserFunctionName(Id);
        const QString Indent = Id == 2 || Id == 11 ? QString(6, ' ') : QString(7, ' ');
        EXPECT_TRUE(Text.contains(("*" + Indent + Name).leftJustified(70) + "\n")) << Name.toStdString();
    }
    EXPECT_TRUE(Text.contains("  //\n  // Dialog-generated settings\n  //\n  Project.SetDevice (\"X\");\n"
                              "  //\n  // User settings\n  //\n}\n"));
    ASSERT_EQ(TScript::Parse(Text), 0) << TScript::GetLastError().toStdString();
    EXPECT_TRUE(TScript::HasUserFunction(1));
    EXPECT_FALSE(TScript::HasUserFunction(2)) << "optional functions stand commented out";
    TScript::Close();
}

TEST(ProjectText, FileOpenGoesToTheUserSectionTheRestInOrder) {
    const QString Text = TScript::GenerateProjectText(
        {"Project.SetDevice (\"X\");", "File.Open (\"a.elf\");", "Project.SetHostIF (\"USB\", \"\");",
         "File.Open (\"b.elf\");", "Project.SetTargetIF (\"SWD\");"});
    EXPECT_EQ(LoadBody(Text), "  //\n  // Dialog-generated settings\n  //\n"
                              "  Project.SetDevice (\"X\");\n  Project.SetHostIF (\"USB\", \"\");\n"
                              "  File.Open (\"b.elf\");\n  Project.SetTargetIF (\"SWD\");\n"
                              "  //\n  // User settings\n  //\n  File.Open (\"a.elf\");\n");
}

TEST(ProjectText, GroupsDecideTheSection) {
    EXPECT_TRUE(IsDialogSectionLine("  Project.SetDevice (\"X\");"));
    EXPECT_TRUE(IsDialogSectionLine("Project.SetTIFScanChain (1, 2);")) << "a second name counts too";
    EXPECT_TRUE(IsDialogSectionLine("Debug.SetResetMode (RM_RESET_HALT);")) << "bound to a system variable";
    EXPECT_TRUE(IsDialogSectionLine("Edit.SysVar (VAR_VERIFY_DOWNLOAD, 0);"));
    EXPECT_TRUE(IsDialogSectionLine("Target.AddMemorySegment (\"RAM\", 0x20000000, 0x1000);"));
    EXPECT_TRUE(IsDialogSectionLine("Project.AddPathSubstitute (\"a\", \"b\");"));
    EXPECT_FALSE(IsDialogSectionLine("File.Open (\"a.elf\");"));
    EXPECT_FALSE(IsDialogSectionLine("Project.SetDeviceX (\"X\");"));
    EXPECT_FALSE(IsDialogSectionLine("// Project.SetDevice (\"X\");"));
    EXPECT_EQ(CommandNameOfLine("  Util.Log (\"a\");"), "Util.Log");
    EXPECT_EQ(CommandNameOfLine("x = 1;"), "");
}

const char* const SECTIONED = "void Helper (void) { Util.Log(\"{\"); }\n"
                              "// OnProjectLoad (void) { was here\n"
                              "void OnProjectLoad (void) {\n"
                              "  //\n  // Dialog-generated settings\n  //\n"
                              "  Project.SetDevice (\"OLD\");\n"
                              "  Project.SetTargetIF (\"JTAG\");\n"
                              "  //\n  // User settings\n  //\n"
                              "  Util.Log(\"} in a string\");\n"
                              "}\n"
                              "void After (void) { }\n";

TEST(ProjectText, WriteBackReplacesCommandsInTheirSections) {
    const WRITE_RESULT R = ReplaceSettings(SECTIONED, true, {CommandPattern("Project.SetDevice")},
                                           {"Project.SetDevice (\"NEW\");", "File.Open (\"p.elf\");"});
    ASSERT_TRUE(R.Ok) << R.Error.toStdString();
    EXPECT_TRUE(R.Log.isEmpty());
    EXPECT_EQ(LoadBody(R.Text), "  //\n  // Dialog-generated settings\n  //\n"
                                "  Project.SetDevice (\"NEW\");\n  Project.SetTargetIF (\"JTAG\");\n"
                                "  //\n  // User settings\n  //\n"
                                "  File.Open (\"p.elf\");\n  Util.Log(\"} in a string\");\n");
    EXPECT_TRUE(R.Text.startsWith("void Helper (void) { Util.Log(\"{\"); }\n// OnProjectLoad (void) {"));
    EXPECT_TRUE(R.Text.endsWith("}\nvoid After (void) { }\n"));

    const WRITE_RESULT Behind =
        ReplaceSettings(SECTIONED, false, {}, {"Project.SetHostIF (\"IP\", \"1.2.3.4\");"});
    ASSERT_TRUE(Behind.Ok);
    EXPECT_TRUE(LoadBody(Behind.Text)
                    .contains("  Project.SetTargetIF (\"JTAG\");\n  Project.SetHostIF (\"IP\", "
                              "\"1.2.3.4\");\n  //\n  // User settings"));
}

TEST(ProjectText, MissingMarkerPutsTheLinesAtTheEndAndSaysWhich) {
    const QString Text =
        "void OnProjectLoad (void) {\n  Project.SetDevice (\"OLD\");\n  Util.Log(\"x\");\n}\n";
    const WRITE_RESULT R =
        ReplaceSettings(Text, true, {CommandPattern("Project.SetDevice")}, {"Project.SetDevice (\"NEW\");"});
    ASSERT_TRUE(R.Ok);
    EXPECT_EQ(
        R.Log,
        QStringList({"could not find dialog-generated text section in script function 'OnProjectLoad'"}));
    EXPECT_EQ(R.Text, "void OnProjectLoad (void) {\n  Util.Log(\"x\");\n  Project.SetDevice (\"NEW\");\n}\n");

    // Only the user marker: dialog lines go behind it, user lines into it.
    const QString UserOnly =
        "void OnProjectLoad (void) {\n  //\n  // User settings\n  //\n  Util.Log(\"x\");\n}\n";
    const WRITE_RESULT U =
        ReplaceSettings(UserOnly, true, {}, {"Project.SetDevice (\"D\");", "Util.Log(\"y\");"});
    ASSERT_TRUE(U.Ok);
    EXPECT_EQ(U.Log.size(), 1);
    EXPECT_EQ(LoadBody(U.Text), "  //\n  // User settings\n  //\n  Util.Log(\"y\");\n  Util.Log(\"x\");\n"
                                "  Project.SetDevice (\"D\");\n");
}

TEST(ProjectText, OneLineFunctionGetsItsLinesOnLinesOfTheirOwn) {
    const WRITE_RESULT R = ReplaceSettings("void OnProjectLoad (void) { Util.Log(\"x\"); }", true, {},
                                           {"Project.SetDevice (\"D\");"});
    ASSERT_TRUE(R.Ok);
    EXPECT_EQ(R.Text, "void OnProjectLoad (void) { Util.Log(\"x\"); \n  Project.SetDevice (\"D\");\n}");
    ASSERT_EQ(TScript::Parse(R.Text), 0) << TScript::GetLastError().toStdString();
    TScript::Close();
}

TEST(ProjectText, NoLoadFunctionNoWrite) {
    for (const QString& Text :
         {QString("void Other (void) { }\n"), QString("// void OnProjectLoad (void) { }\n"),
          QString("void OnProjectLoad (void) {\n  Util.Log(\"x\");\n"), QString()}) {
        const WRITE_RESULT R = ReplaceSettings(Text, true, {}, {"Project.SetDevice (\"D\");"});
        EXPECT_FALSE(R.Ok) << Text.toStdString();
        EXPECT_EQ(R.Error, "could not determine text insertion position.\nVerify that script function "
                           "'OnProjectLoad' is present.");
        EXPECT_EQ(R.Log, QStringList({"Could not determine text bounds of script function OnProjectLoad"}));
    }
}

TEST(ProjectText, CommandsGivenTwice) {
    const QString Text = "void OnProjectLoad (void) {\n"
                         "  Project.SetDevice (\"A\");\n"
                         "  Project.AddSvdFile (\"a.svd\");\n"
                         "  Project.AddSvdFile (\"b.svd\");\n"
                         "  // Project.SetTargetIF (\"JTAG\");\n"
                         "  Project.SetTargetIF (\"SWD\");\n"
                         "  Project.SetTIFScanChain (1, 2);\n"
                         "  /* Project.SetHostIF (\"USB\", \"\");\n  Project.SetHostIF (\"USB\", \"\"); */\n"
                         "  Project.SetDevice (\"B\");\n"
                         "  Project.SetJTAGConfig (1, 2);\n"
                         "  project.setdevice (\"C\");\n"
                         "}\n"
                         "void Other (void) { Project.SetTargetIF (\"JTAG\"); }\n";
    // The second name of a command is the same command; names are found with their case.
    EXPECT_EQ(CommandsGivenTwice(Text), QStringList({"Project.SetDevice", "Project.SetJTAGConfig"}));
    EXPECT_TRUE(
        CommandsGivenTwice("void Other (void) { Project.SetDevice(\"A\"); Project.SetDevice(\"B\"); }")
            .isEmpty());
}

TEST(ProjectText, TIFSpeedTexts) {
    const struct {
        const char* Text;
        I64 Hz;
    } Good[] = {{"4000", 4000000},        {"0", 0},
                {"1500 Hz", 1000},        {"1501 Hz", 2000},
                {"1.5 kHz", 1000},        {"999 Hz", 1000},
                {"500 Hz", 1000},         {"1 Hz", 1000},
                {"4 MHz", 4000000},       {"12.5 kHz", 12000},
                {"Auto Speed", 0},        {"FREQ_AUTO", 0},
                {"FREQ_ADAPTIVE", 65535}, {"Adaptive Speed", 65535},
                {"65535 Hz", 65535},      {"FREQ_4_MHZ", 4000000},
                {" 2000 ", 2000000},      {"2 kHz", 2000}};
    for (const auto& G : Good) {
        I64 Hz = -1;
        EXPECT_TRUE(ParseTIFSpeed(G.Text, Hz)) << G.Text;
        EXPECT_EQ(Hz, G.Hz) << G.Text;
    }
    for (const char* Bad : {"", "abc", "-5", "SWD", "4 MHz!", "99999999999999999999"}) {
        I64 Hz = -1;
        EXPECT_FALSE(ParseTIFSpeed(Bad, Hz)) << Bad;
    }
    // What is written reads back as the same speed.
    for (I64 Hz : {0LL, 65535LL, 1000LL, 12000LL, 4000000LL, 3700000LL}) {
        I64 Back = -1;
        ASSERT_TRUE(ParseTIFSpeed(TIFSpeedText(Hz), Back)) << Hz;
        EXPECT_EQ(Back, Hz);
    }
}

TEST(ProjectText, InterfaceNames) {
    EXPECT_EQ(ParseHostIF("usb"), 1);
    EXPECT_EQ(ParseHostIF(" IP "), 2);
    EXPECT_EQ(ParseHostIF("COM1"), -1);
    EXPECT_EQ(ParseTargetIF("cjtag"), 7);
    EXPECT_EQ(ParseTargetIF("Fine"), 3);
    EXPECT_EQ(ParseTargetIF("SWO"), -1);
    EXPECT_EQ(TargetIFName(7), "cJTAG");
    EXPECT_EQ(HostIFName(3), "");
}

TEST(ProjectText, NewProjectLines) {
    PROBE_SETTINGS Probe;
    Probe.Device = "STM32F407VG";
    Probe.HostIF = 2;
    Probe.HostIdent = "10.0.0.7";
    Probe.TargetIF = 1;
    Probe.Speed = 4000000;
    const QStringList Lines =
        NewProjectLines(Probe, {"/opt/arnex/Config/Peripherals/a.svd", "/elsewhere/b.svd"},
                        "/work/Proj/build/app.elf", "/work/Proj", "/opt/arnex");
    EXPECT_EQ(Lines, QStringList({"Project.SetDevice (\"STM32F407VG\");",
                                  "Project.SetHostIF (\"IP\", \"10.0.0.7\");",
                                  "Project.SetTargetIF (\"SWD\");", "Project.SetTIFSpeed (\"4 MHz\");",
                                  "Project.AddSvdFile (\"$(InstallDir)/Config/Peripherals/a.svd\");",
                                  "Project.AddSvdFile (\"/elsewhere/b.svd\");",
                                  "File.Open (\"$(ProjectDir)/build/app.elf\");",
                                  "Project.AddPathSubstitute (\"/work/Proj\", \"$(ProjectDir)\");",
                                  "Project.AddPathSubstitute (\"/work/proj\", \"$(ProjectDir)\");"}));
    // No device yet and a lower-case directory: neither line is written twice or empty.
    const QStringList Bare = NewProjectLines(PROBE_SETTINGS(), {}, QString(), "/work/p", "/opt/arnex");
    EXPECT_EQ(Bare, QStringList({"Project.SetHostIF (\"USB\", \"\");", "Project.SetTargetIF (\"JTAG\");",
                                 "Project.SetTIFSpeed (\"Auto Speed\");",
                                 "Project.AddPathSubstitute (\"/work/p\", \"$(ProjectDir)\");"}));
}

// Any bytes with one line end style decode and encode back to themselves, with one line feed for each
// line end.
TEST(TextCodec, EveryFileOfOneLineEndStyleRoundTrips) {
    QRandomGenerator Random(1234);
    const QByteArray Alphabet("a\n\xC3\xA9\xE9\xEF\xBB\xBF\x80\xFF\x00 ;\r", 15);
    for (int Round = 0; Round < 4000; ++Round) {
        QByteArray Bytes;
        const int Size = static_cast<int>(Random.bounded(40));
        for (int i = 0; i < Size; ++i) {
            Bytes.append(Alphabet[static_cast<int>(Random.bounded(Alphabet.size()))]);
        }
        const bool Crlf = Round % 2 == 0;
        // One style: every line feed behind a carriage return, or none.
        while (Bytes.contains("\r\n")) {
            Bytes.replace("\r\n", "\n");
        }
        if (Crlf) {
            Bytes.replace("\n", "\r\n");
        }
        TextCodec::TEXT_FORM Form;
        const QString Text = TextCodec::Decode(Bytes, &Form);
        EXPECT_EQ(Text.count('\n'), Bytes.count('\n'));
        EXPECT_EQ(TextCodec::Encode(Text, Form), Bytes) << Bytes.toHex().toStdString();
        EXPECT_EQ(Form.Crlf, Crlf && Bytes.contains('\n')) << Bytes.toHex().toStdString();
    }
    // Mixed line ends come back in the style of most of them.
    TextCodec::TEXT_FORM Form;
    const QString Text = TextCodec::Decode("a\r\nb\r\nc\nd", &Form);
    EXPECT_EQ(Text, "a\nb\nc\nd");
    EXPECT_EQ(TextCodec::Encode(Text, Form), "a\r\nb\r\nc\r\nd");
    EXPECT_EQ(TextCodec::Decode("caf\xE9", &Form), QString::fromUtf8("caf\xC3\xA9"));
    EXPECT_TRUE(Form.Latin1);
}

} // namespace
