// Projects in the main window: the project commands, the warnings dialog, saving, the title and the user
// file.

#include "AppFixture.h"

#include "app/WarningsDialog.h"
#include "app/core/SysVars.h"
#include "program/FileFinder.h"
#include "script/Project.h"
#include "target/DeviceConfig.h"
#include "target/DeviceDataModel.h"
#include "target/ui/DeviceSelectionDialog.h"
#include "views/DockWindow.h"

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QListWidget>
#include <QPushButton>
#include <QTableView>
#include <QTemporaryDir>
#include <QTimer>
#include <QToolBar>

#include <functional>

namespace {

class ProjectFlowTest : public AppFixture {
protected:
    void SetUp() override {
        Run("File.NewProject");
        SysVars::SetVarValue(SysVars::GetVarRow(PREF_SHOW_PROJECT_WARNINGS_DIALOG), 1, true);
    }
    void TearDown() override {
        CProject::Instance()->SetModified(false);
        Run("File.NewProject");
    }

    QString Write(const QString& Name, const QByteArray& Text) {
        const QString Path = m_Dir.filePath(Name);
        QDir().mkpath(QFileInfo(Path).absolutePath());
        QFile F(Path);
        F.open(QIODevice::WriteOnly | QIODevice::Truncate);
        F.write(Text);
        return Path;
    }
    static QByteArray Read(const QString& Path) {
        QFile F(Path);
        return F.open(QIODevice::ReadOnly) ? F.readAll() : QByteArray();
    }

    /// Answers the next warnings dialogs with one of its buttons, and counts them.
    void AnswerWarnings(std::function<QPushButton*(const CWarningsDialog*)> Button) {
        m_Answer = std::move(Button);
        Poll();
    }
    void Poll() {
        // The fixture's own context: a poll still queued dies with the test.
        QTimer::singleShot(5, &m_Context, [this]() {
            if (auto* D = qobject_cast<CWarningsDialog*>(QApplication::activeModalWidget())) {
                ++m_Dialogs;
                m_Shown = D->GetList()->count();
                m_Answer(D)->click();
            }
            if (m_Answer) {
                Poll();
            }
        });
    }

    QTemporaryDir m_Dir;
    QObject m_Context;
    std::function<QPushButton*(const CWarningsDialog*)> m_Answer;
    int m_Dialogs = 0;
    int m_Shown = 0;
};

const char* const TWICE = "void OnProjectLoad (void) {\n  Project.SetTargetIF (\"SWD\");\n"
                          "  Project.SetTargetIF (\"JTAG\");\n}\n";

TEST_F(ProjectFlowTest, ProbeCommandsFillTheDeviceConfiguration) {
    const CDeviceConfig& C = GetDeviceConfig();
    EXPECT_EQ(Run("Project.SetDevice (\"STM32F407VG\")"),
              QStringList({"Project.SetDevice (\"STM32F407VG\");"}));
    EXPECT_EQ(C.GetText(DEVICE_NAME), "STM32F407VG");
    // Without a name the user picks the device from the library's table, which marks the current one.
    QString Marked;
    QTimer::singleShot(20, &m_Context, [&Marked]() {
        for (QWidget* W : QApplication::topLevelWidgets()) {
            if (auto* D = qobject_cast<CDeviceSelectionDialog*>(W)) {
                const CDeviceDataModel* M = D->GetModel();
                Marked = M->index(M->GetMarkedRow(), CDeviceDataModel::COL_DEVICE).data().toString();
                D->GetFilterBox(CDeviceDataModel::COL_DEVICE)->setCurrentText(QStringLiteral("an386"));
                D->OnFilterTimerTimeout();
                D->GetView()->selectRow(1);
                D->accept();
            }
        }
    });
    Run("Project.SetDevice ()");
    EXPECT_EQ(Marked, "STM32F407VG");
    EXPECT_EQ(C.GetText(DEVICE_NAME), "MPS2-AN386");
    EXPECT_GT(C.GetParam(DEVICE_INDEX), 0);
    EXPECT_TRUE(CProject::Instance()->IsModified())
        << "a setting chosen in a dialog is a change of the project";
    CProject::Instance()->SetModified(false);
    QTimer::singleShot(20, &m_Context, []() {
        for (QWidget* W : QApplication::topLevelWidgets()) {
            if (auto* D = qobject_cast<CDeviceSelectionDialog*>(W)) {
                D->reject();
            }
        }
    });
    EXPECT_EQ(Run("Project.SetDevice ()").last(), "Project.SetDevice();")
        << "a canceled choice changes nothing";
    EXPECT_EQ(C.GetText(DEVICE_NAME), "MPS2-AN386");
    Run("Project.SetHostIF (USB, 0x1F)");
    EXPECT_EQ(C.GetParam(HOST_IF), 1);
    EXPECT_EQ(C.GetParam(USB_SERIAL_NO), 31);
    EXPECT_EQ(C.GetParam(USE_SERIAL_NO), 1);
    EXPECT_EQ(Run("Project.SetHostIF (USB, abc)").last(),
              "Project.SetHostIF (\"USB\", \"abc\"); invalid parameter");
    EXPECT_EQ(C.GetParam(USB_SERIAL_NO), 0);
    EXPECT_EQ(C.GetParam(USE_SERIAL_NO), 0);
    Run("Project.SetHostIF (ip, 10.0.0.1)");
    EXPECT_EQ(C.GetParam(HOST_IF), 2);
    EXPECT_EQ(C.GetText(HOST_NAME), "10.0.0.1");
    EXPECT_EQ(Run("Project.SetHostIF (COM1)").last(), "Project.SetHostIF (\"COM1\"); unknown host interface");
    Run("Project.SetTargetIF (cjtag)");
    EXPECT_EQ(C.GetParam(TARGET_IF), 7);
    EXPECT_EQ(Run("Project.SetTargetIF (SPI)").last(),
              "Project.SetTargetIF (\"SPI\"); unknown target interface");
    Run("Project.SetTIFSpeed (4000)");
    EXPECT_EQ(C.GetParam(TIF_SPEED), 4000000);
    EXPECT_EQ(SysVars::GetVarValue(VAR_TIF_SPEED), 4000000);
    Run("Project.SetTIFSpeed (\"1501 Hz\")");
    EXPECT_EQ(C.GetParam(TIF_SPEED), 2000);
    Run("Project.SetTIFSpeed (FREQ_ADAPTIVE)");
    EXPECT_EQ(C.GetParam(USE_ADAPTIVE), 1);
    EXPECT_EQ(Run("Project.SetTIFSpeed (fast)").last(), "Project.SetTIFSpeed (\"fast\"); invalid number");
    Run("Project.SetJTAGConfig (2, 5)");
    EXPECT_EQ(C.GetParam(DR_PRE), 2);
    EXPECT_EQ(C.GetParam(IR_PRE), 5);
    EXPECT_EQ(C.GetParam(MULTIPLE_TARGETS), 1);
    EXPECT_EQ(Run("Project.SetTIFScanChain (-1, 5)").last(),
              "Project.SetJTAGConfig (-1, 5); invalid parameter");
    EXPECT_EQ(Run("Project.SetTarvoScript (\"none.tarvo\")").last(),
              "Project.SetTarvoScript (\"none.tarvo\"); file not found: none.tarvo");
    Run("Project.SetTarvoLogFile (\"" + m_Dir.filePath("probe.log") + "\")");
    EXPECT_EQ(C.GetText(LOG_FILE), m_Dir.filePath("probe.log"));
    for (int i = 0; i < 50; ++i) {
        Run("Project.AddMCTSearchRange (0x20000000, 0x1000)");
    }
    EXPECT_EQ(Run("Project.AddMCTSearchRange (0x20000000, 0x1000)").last(),
              "Could not add MCT search range. Buffer full.");
    EXPECT_EQ(Run("Project.AddMCTSearchRange (0x20000000, 0)").last(),
              "Project.AddMCTSearchRange (0x20000000, 0); invalid parameter");
    // A new project starts from the defaults.
    Run("File.NewProject");
    EXPECT_EQ(C.GetText(DEVICE_NAME), "");
    EXPECT_EQ(C.GetParam(MCT_SEARCH_RANGE_COUNT), 0);
}

TEST_F(ProjectFlowTest, SessionCommandsSetTheirVariables) {
    Run("Project.SetSWO (1, \"4 MHz\", \"168 MHz\")");
    EXPECT_EQ(SysVars::GetVarValue(VAR_TRACE_SOURCE), 3);
    EXPECT_EQ(SysVars::GetVarValue(VAR_SWO_SPEED), 4000000);
    EXPECT_EQ(SysVars::GetVarValue(VAR_SWO_CPU_SPEED), 168000000);
    Run("Project.SetSWO (OFF)");
    EXPECT_EQ(SysVars::GetVarValue(VAR_TRACE_SOURCE), 0);
    Run("Project.SetTraceSource (\"Trace Pins\")");
    Run("Project.SetSWO (0)");
    EXPECT_EQ(SysVars::GetVarValue(VAR_TRACE_SOURCE), 1) << "off leaves another source alone";
    EXPECT_EQ(Run("Project.SetTraceSource (\"Nowhere\")").last(),
              "Project.SetTraceSource (\"Nowhere\"); invalid parameter");
    Run("Project.SetBPType (BP_TYPE_HARD)");
    EXPECT_EQ(SysVars::GetVarValue(VAR_BREAKPOINT_TYPE), 1);
    EXPECT_EQ(Run("Project.SetBPType (7)").last(), "Project.SetBPType (7); invalid parameter");
    Run("Project.SetMCT (ON)");
    EXPECT_EQ(SysVars::GetVarValue(VAR_MCT_ENABLED), 1);
    Run("Project.SetSemihosting (TRUE)");
    EXPECT_EQ(SysVars::GetVarValue(VAR_SEMIHOSTING_ENABLED), 1);
    Run("Project.SetTracePortWidth (2)");
    EXPECT_EQ(SysVars::GetVarValue(VAR_TRACE_PORT_WIDTH), 2);
    EXPECT_EQ(Run("Project.SetTracePortWidth (3)").last(),
              "Project.SetTracePortWidth (3); invalid parameter");
    Run("Project.SetTraceTiming (0, 120, -120, 0xFFFFFF9C)");
    EXPECT_EQ(SysVars::GetVarValue(VAR_TRACE_PORT_DELAY_1), 100) << "cut to steps of 50";
    EXPECT_EQ(SysVars::GetVarValue(VAR_TRACE_PORT_DELAY_2), -100);
    EXPECT_EQ(SysVars::GetVarValue(VAR_TRACE_PORT_DELAY_3), -100) << "a script's -100 arrives as 32-bit hex";
    EXPECT_EQ(Run("Project.SetTraceTiming (0, 0, 0, 200000)").last(),
              "Project.SetTraceTiming (0, 0, 0, 200000); invalid parameter");
    EXPECT_EQ(Run("Project.SetTraceFile (\"" + QString(120, 'x') + "\", 1000, 1)").last().right(16),
              "invalid filename");
    Run("Project.SetMemZoneRunning (\"AHB-AP\")");
    EXPECT_EQ(SysVars::GetVarString(SysVars::GetVarRow(VAR_MEM_ZONE_RUNNING)), "AHB-AP");
    Run("Project.DisableSessionSave (DISABLE_SAVE_OPEN_FILES)");
    EXPECT_EQ(SysVars::GetVarValue(PREF_SESSION_SAVE_FLAGS), 4);
    Run("Project.AddRootPath (\"C:\\\\src\\\\..\\\\proj\")");
    Run("Project.AddFileAlias (\"/old/a.c\", \"/new/a.c\")");
    EXPECT_EQ(CFileFinder::Instance()->GetRootPaths(), QStringList({"C:/proj"}));
    EXPECT_EQ(CFileFinder::Instance()->GetFileAliases().value("/old/a.c"), "/new/a.c");
    Run("File.NewProject");
    EXPECT_EQ(SysVars::GetVarValue(PREF_SESSION_SAVE_FLAGS), 0) << "for the session of that project only";
    EXPECT_TRUE(CFileFinder::Instance()->GetRootPaths().isEmpty());
    for (I32 Id : {VAR_MCT_ENABLED, VAR_SEMIHOSTING_ENABLED, VAR_TRACE_SOURCE, VAR_TRACE_PORT_WIDTH,
                   VAR_TRACE_PORT_DELAY_1, VAR_TRACE_PORT_DELAY_2, VAR_TRACE_PORT_DELAY_3, VAR_SWO_SPEED,
                   VAR_SWO_CPU_SPEED, VAR_BREAKPOINT_TYPE}) {
        SysVars::SetVarValue(SysVars::GetVarRow(Id), SysVars::GetVarRow(Id)->Default, false);
    }
    SysVars::SetVarText(SysVars::GetVarRow(VAR_MEM_ZONE_RUNNING), "Default", 0);
}

TEST_F(ProjectFlowTest, WizardLinesMakeAProjectWithoutAFile) {
    QStringList Lines = {"Project.SetDevice (\"MK66FN2M0XXX18\");", "Project.SetHostIF (\"USB\", \"\");",
                         "Project.SetTargetIF (\"SWD\");", "Project.SetTIFSpeed (\"2 MHz\");"};
    // A device of a supported core has its core's register description: the check finds nothing.
    AnswerWarnings(&CWarningsDialog::GetIgnoreButton);
    Main()->OnProjectWizardFinished(Lines);
    EXPECT_EQ(m_Dialogs, 0);
    m_Answer = nullptr;
    const CProject* P = CProject::Instance();
    EXPECT_TRUE(P->GetDefaultCpuFile().endsWith("/Config/CPU/Cortex-M4.svd"));
    EXPECT_EQ(P->GetPath(), "");
    EXPECT_TRUE(P->IsModified());
    EXPECT_EQ(GetDeviceConfig().GetText(DEVICE_NAME), "MK66FN2M0XXX18");
    EXPECT_EQ(GetDeviceConfig().GetParam(TIF_SPEED), 2000000);
    EXPECT_EQ(Main()->windowTitle(), "Arnex - New Project");
    EXPECT_TRUE(Commands::IsCommandEnabled(11));
    EXPECT_TRUE(Commands::IsCommandEnabled(12));
}

TEST_F(ProjectFlowTest, TitleFollowsTheProject) {
    EXPECT_EQ(Main()->windowTitle(), "Arnex - New Project");
    const QString Path = Write("title.tvproj", "void OnProjectLoad (void) { }\n");
    Run("File.Open (\"" + Path + "\")");
    EXPECT_EQ(Main()->windowTitle(), "Arnex - title.tvproj");
    CProject::Instance()->SetModified(true);
    EXPECT_EQ(Main()->windowTitle(), "Arnex - *title.tvproj");
    EXPECT_TRUE(Commands::IsCommandEnabled(12)) << "Save All while modified";
    CProject::Instance()->SetModified(false);
    EXPECT_FALSE(Commands::IsCommandEnabled(12));
    EXPECT_EQ(Main()->GetRecentProjects().first(), Path);
}

TEST_F(ProjectFlowTest, AProjectThatNamesNoCpuFileGetsItsCoresOwn) {
    AnswerWarnings(&CWarningsDialog::GetIgnoreButton);
    const QString Cpu = qEnvironmentVariable("ARNEX_BIN_DIR") + "/Config/CPU/Cortex-M4.svd";
    const QByteArray Device = "void OnProjectLoad (void) {\n  Project.SetDevice (\"STM32F407VG\");\n";
    QStringList Lines = Run("File.Open (\"" + Write("m4.tvproj", Device + "}\n") + "\")");
    EXPECT_EQ(m_Dialogs, 0) << Lines.join('\n').toStdString();
    EXPECT_TRUE(Lines.filter("warning").isEmpty()) << Lines.join('\n').toStdString();
    EXPECT_TRUE(Lines.contains("No CPU register set description file specified, loading default: " + Cpu));
    EXPECT_EQ(CProject::Instance()->GetDefaultCpuFile(), Cpu);
    EXPECT_TRUE(CProject::Instance()->GetSvdFiles().isEmpty()) << "not one of the project's files";
    EXPECT_FALSE(CProject::Instance()->IsModified());
    Run("File.SaveProjectAs (\"" + m_Dir.filePath("saved.tvproj") + "\")");
    EXPECT_FALSE(Read(m_Dir.filePath("saved.tvproj")).contains("AddSvdFile"))
        << "the saved project follows its device's core";

    // A description of the peripherals says nothing of the core: the core's file comes too.
    const QString Peripherals = Write("stm32.svd", "<device><name>STM32F407</name><peripherals/></device>");
    Lines =
        Run("File.Open (\"" +
            Write("periph.tvproj", Device + "  Project.AddSvdFile (\"" + Peripherals.toUtf8() + "\");\n}\n") +
            "\")");
    EXPECT_EQ(CProject::Instance()->GetSvdFiles(), QStringList({Peripherals}));
    EXPECT_EQ(CProject::Instance()->GetDefaultCpuFile(), Cpu);

    // The project's own CPU file stands.
    const QString Own = Write("own.svd", "<cpu><groups></groups></cpu>");
    Lines =
        Run("File.Open (\"" +
            Write("own.tvproj", Device + "  Project.AddSvdFile (\"" + Own.toUtf8() + "\");\n}\n") + "\")");
    EXPECT_EQ(CProject::Instance()->GetSvdFiles(), QStringList({Own}));
    EXPECT_TRUE(CProject::Instance()->GetDefaultCpuFile().isEmpty());
    EXPECT_TRUE(Lines.filter("loading default").isEmpty());
    EXPECT_EQ(m_Dialogs, 0);
    m_Answer = nullptr;
}

TEST_F(ProjectFlowTest, FilesOfTheProjectAreFoundThroughItsSearchPaths) {
    AnswerWarnings(&CWarningsDialog::GetIgnoreButton);
    const QString Svd = Write("descriptions/periph.svd", "<device><name>X</name><peripherals/></device>");
    const QByteArray Body =
        "void OnProjectLoad (void) {\n  Project.SetDevice (\"STM32F407VG\");\n"
        "  Project.AddSearchPath (\"descriptions\");\n  Project.AddSvdFile (\"periph.svd\");\n"
        "  Project.AddSvdFile (\"gone.svd\");\n}\n";
    const QStringList Lines = Run("File.Open (\"" + Write("search.tvproj", Body) + "\")");
    EXPECT_EQ(CProject::Instance()->GetSvdFiles().first(), QDir::cleanPath(Svd));
    EXPECT_EQ(Lines.filter("File path resolved: \"periph.svd\" was found at \"" + QDir::cleanPath(Svd) + "\"")
                  .size(),
              1)
        << Lines.join('\n').toStdString();
    EXPECT_EQ(Lines.filter("File not found: gone.svd").size(), 1);
    EXPECT_EQ(CFileFinder::Instance()->GetSearchPaths(), QStringList({"descriptions"}));
    Run("File.NewProject");
    EXPECT_TRUE(CFileFinder::Instance()->GetSearchPaths().isEmpty());
    m_Answer = nullptr;
}

TEST_F(ProjectFlowTest, IgnoreAndDoNotShowAgainKeepsLoggingOnly) {
    AnswerWarnings(&CWarningsDialog::GetDoNotShowButton);
    const QStringList First = Run("File.Open (\"" + Write("a.tvproj", TWICE) + "\")");
    EXPECT_EQ(m_Dialogs, 1);
    EXPECT_EQ(m_Shown, 1);
    EXPECT_EQ(SysVars::GetVarValue(PREF_SHOW_PROJECT_WARNINGS_DIALOG), 0);
    EXPECT_EQ(SysVars::GetVarStored(SysVars::GetVarRow(PREF_SHOW_PROJECT_WARNINGS_DIALOG)), 0)
        << "kept in the settings";
    EXPECT_EQ(
        First.filter("Project warning (2075): project command specified twice: Project.SetTargetIF.").size(),
        1);

    const QStringList Second = Run("File.Open (\"" + Write("b.tvproj", TWICE) + "\")");
    EXPECT_EQ(m_Dialogs, 1) << "no dialog any more";
    EXPECT_EQ(
        Second.filter("Project warning (2075): project command specified twice: Project.SetTargetIF.").size(),
        1)
        << "but the warning is logged, once";
    m_Answer = nullptr;
}

TEST_F(ProjectFlowTest, CancelInTheWarningsGivesUpTheProject) {
    AnswerWarnings(&CWarningsDialog::GetCancelButton);
    Run("File.Open (\"" + Write("c.tvproj", TWICE) + "\")");
    m_Answer = nullptr;
    EXPECT_EQ(m_Dialogs, 1);
    EXPECT_EQ(CProject::Instance()->GetPath(), "");
    EXPECT_EQ(Main()->windowTitle(), "Arnex - New Project");
    AnswerWarnings(&CWarningsDialog::GetIgnoreButton);
    Run("File.Open (\"" + Write("d.tvproj", TWICE) + "\")");
    m_Answer = nullptr;
    EXPECT_EQ(CProject::Instance()->GetPath(), m_Dir.filePath("d.tvproj")) << "Ignore goes on";
}

TEST_F(ProjectFlowTest, SaveProjectAsChecksTheName) {
    EXPECT_EQ(Run("File.SaveProjectAs (\"" + m_Dir.filePath("x.txt") + "\")").last().right(24),
              "invalid project filename");
    ASSERT_TRUE(QDir(m_Dir.path()).mkdir("dir.tvproj"));
    EXPECT_EQ(Run("File.SaveProjectAs (\"" + m_Dir.filePath("dir.tvproj") + "\")").last().right(24),
              "invalid project filename");
    Run("Project.SetDevice (\"STM32F407VG\")");
    Run("File.SaveProjectAs (\"" + m_Dir.filePath("named") + "\")");
    const QString Path = m_Dir.filePath("named.tvproj");
    EXPECT_EQ(CProject::Instance()->GetPath(), Path) << "the suffix is added";
    EXPECT_TRUE(Read(Path).contains("  Project.SetDevice (\"STM32F407VG\");\n"));
    EXPECT_EQ(Main()->GetRecentProjects().first(), Path);
}

TEST_F(ProjectFlowTest, UserFileKeepsWhatThisVersionDoesNotMake) {
    const QString Path =
        Write("u.tvproj", "void OnProjectLoad (void) {\n  Project.DisableSessionSave (4);\n}\n");
    Write("u.tvproj.user",
          "OpenDocument=\"main.c\", Line=3\n"
          "Breakpoint=\"main.c:12\", State=1\n"
          "OpenWindow=\"Watched Data\", DockArea=RIGHT, x=0, y=0, w=300, h=400, FilterBarShown=0\n"
          "OpenWindow=\"Console\", DockArea=bottom, x=0, y=0, w=640, h=150, FilterBarShown=0\n"
          "OpenToolbar=\"File\", Floating=0, x=0, y=0\n");
    Run("File.Open (\"" + Path + "\")");
    EXPECT_FALSE(Main()->FindToolBar("Debug")->isVisibleTo(Main()))
        << "a tool bar the file doesn't name is hidden";
    EXPECT_TRUE(Main()->FindToolBar("File")->isVisibleTo(Main()));
    EXPECT_TRUE(Console()->IsOpen());
    Run("File.NewProject");
    const QStringList Lines = QString::fromUtf8(Read(m_Dir.filePath("u.tvproj.user"))).split('\n');
    EXPECT_EQ(Lines.filter("OpenDocument").size(), 0) << "flag 4 leaves out the documents";
    EXPECT_EQ(Lines.filter("Breakpoint=\"main.c:12\"").size(), 1);
    EXPECT_EQ(Lines.filter("OpenWindow=\"Watched Data\"").size(), 1) << "a window of a later version stays";
    ASSERT_EQ(Lines.filter("OpenWindow=\"Console\"").size(), 1);
    EXPECT_TRUE(Lines.filter("OpenWindow=\"Console\"").first().contains("DockArea=BOTTOM"));
    EXPECT_EQ(Lines.filter("OpenToolbar").size(), 1);
    EXPECT_EQ(Lines.first().left(10), "Breakpoint") << "sorted by kind";
    Main()->FindToolBar("Debug")->show();
}

TEST_F(ProjectFlowTest, ToolbarsKeepTheirStateWhenTheProjectSavesNone) {
    const QString Path =
        Write("t.tvproj", "void OnProjectLoad (void) {\n  Project.DisableSessionSave (1);\n}\n");
    Write("t.tvproj.user",
          "OpenWindow=\"Console\", DockArea=floating, x=40, y=50, w=500, h=200, FilterBarShown=0\n");
    Main()->FindToolBar("Debug")->show();
    Run("File.Open (\"" + Path + "\")");
    EXPECT_TRUE(Main()->FindToolBar("Debug")->isVisibleTo(Main())) << "bit 0: the file has no tool bar lines";
    EXPECT_TRUE(Console()->GetDock()->isFloating()) << "\"floating\" in lower case";
    Run("File.NewProject");
    EXPECT_TRUE(QString::fromUtf8(Read(m_Dir.filePath("t.tvproj.user"))).contains("DockArea=FLOATING"));
    EXPECT_FALSE(QString::fromUtf8(Read(m_Dir.filePath("t.tvproj.user"))).contains("OpenToolbar"));
    Console()->GetDock()->setFloating(false);
}

} // namespace
