// The debug session in the main window against the probe library's fake target: the order of the
// project's user functions around connect, reset, download and disconnect, the handlers that replace a
// step, what a failed download shows, and the state of the actions, the connection field and the title.

#include "AppFixture.h"

#include "../probe/kit/Babbler.h"

#include "app/StatusBar.h"
#include "app/core/Automation.h"
#include "app/core/SysVars.h"
#include "probe/FakeTarget.h"
#include "script/Project.h"
#include "target/Device.h"
#include "target/DeviceConfig.h"

#include <QAbstractButton>
#include <QApplication>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QMessageBox>
#include <QPushButton>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTimer>

namespace {

QString Demo() {
    return QDir::cleanPath(qEnvironmentVariable("ARNEX_BIN_DIR") +
                           QStringLiteral("/../firmware/demo-O0-dwarf4.elf"));
}

/// Every user function says that it ran.
QString Handlers(const QStringList& Skip = {}) {
    QString Text;
    for (const char* Name :
         {"BeforeTargetConnect", "AfterTargetConnect", "BeforeTargetReset", "AfterTargetReset",
          "BeforeTargetDownload", "AfterTargetDownload", "BeforeTargetDisconnect", "AfterTargetDisconnect"}) {
        if (!Skip.contains(QLatin1String(Name))) {
            Text +=
                QStringLiteral("void %1 (void) {\n  Util.Log (\"Ran %1\");\n}\n").arg(QLatin1String(Name));
        }
    }
    return Text;
}

class SessionFlow : public AppFixture {
protected:
    void SetUp() override {
        Automation::SetActive(true);
        SysVars::SetVarValue(SysVars::GetVarRow(PREF_SHOW_PROJECT_WARNINGS_DIALOG), 0, true);
        tarvo::fake::Reset();
        Run("File.NewProject");
    }
    void TearDown() override {
        if (CDevice::Instance()->Connected.load()) {
            Run("Debug.Disconnect");
            Settle();
        }
        CProject::Instance()->SetModified(false);
        Run("File.NewProject");
        SysVars::ResetAll();
        Automation::SetActive(false);
    }
    /// Opens a project of the fake device with the demo program and the given functions.
    void Open(const QString& Functions, const QString& HostIF = QStringLiteral("\"USB\", \"\"")) {
        const QString Path = m_Dir.filePath(QStringLiteral("fake.tvproj"));
        QFile F(Path);
        ASSERT_TRUE(F.open(QIODevice::WriteOnly | QIODevice::Truncate));
        F.write(QStringLiteral("void OnProjectLoad (void) {\n  Project.SetDevice (\"FAKE\");\n"
                               "  Project.SetHostIF (%3);\n  File.Open (\"%1\");\n}\n%2")
                    .arg(Demo(), Functions, HostIF)
                    .toUtf8());
        F.close();
        Run("File.Open (\"" + Path + "\")");
        ASSERT_TRUE(Settle([]() { return !CProject::Instance()->IsOpenPending(); }));
        ASSERT_FALSE(Main()->GetProgramPath().isEmpty()) << "the demo program is open";
        ASSERT_TRUE(Commands::IsCommandEnabled(CMD_DEBUG_CONNECT)) << "with the core plug-in of the device";
    }
    /// Delivers events until the session controller is idle (or Done holds), and the Console's lines.
    bool Settle(std::function<bool()> Done = nullptr) {
        QElapsedTimer T;
        T.start();
        CDevice* D = CDevice::Instance();
        while (T.elapsed() < 5000) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
            if (Done ? Done() : (!D->ControllerBusy.load() && !D->HasQueuedJobs())) {
                // Events of the last jobs arrive through the 1 ms timer of the event worker.
                QElapsedTimer Tail;
                Tail.start();
                while (Tail.elapsed() < 30) {
                    QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
                }
                return true;
            }
        }
        return false;
    }
    /// The Console's lines from the last Mark on.
    QStringList Since() {
        Console()->Drain();
        return Console()->GetText().split('\n').mid(m_Mark);
    }
    void Mark() {
        Console()->Drain();
        m_Mark = static_cast<int>(Console()->GetText().split('\n').size());
    }
    static QStringList Ran(const QStringList& Lines) { return Lines.filter(QRegularExpression("^Ran ")); }

    QTemporaryDir m_Dir;
    int m_Mark = 0;
};

TEST_F(SessionFlow, ConnectingRunsTheHandlersInTheOrderOfTheSteps) {
    Open(Handlers());
    EXPECT_EQ(CStatusBar::Instance()->GetConnectionInfo(), "Disconnected");
    EXPECT_FALSE(Commands::IsCommandEnabled(CMD_DEBUG_RESET)) << "nothing to reset without a connection";
    Mark();
    Run("Debug.Connect");
    ASSERT_TRUE(Settle());
    const QStringList Lines = Since();
    EXPECT_EQ(Ran(Lines),
              QStringList({"Ran BeforeTargetConnect", "Ran AfterTargetConnect", "Ran BeforeTargetReset",
                           "Ran AfterTargetReset", "Ran BeforeTargetDownload", "Ran AfterTargetDownload"}))
        << Lines.join('\n').toStdString();
    EXPECT_TRUE(Lines.contains("Tarvo: connected to target device"));
    EXPECT_EQ(CStatusBar::Instance()->GetStatusMessage(), "Download Complete.");
    EXPECT_EQ(CStatusBar::Instance()->GetProgressMessage(), "")
        << "\"Writing Memory...\" ends with the download";
    EXPECT_TRUE(CStatusBar::Instance()->GetConnectionInfo().startsWith("FAKE @ "))
        << CStatusBar::Instance()->GetConnectionInfo().toStdString();
    EXPECT_EQ(Main()->windowTitle(), "Arnex - demo-O0-dwarf4.elf")
        << "the program under debug names the session";
    EXPECT_TRUE(Commands::IsCommandEnabled(CMD_DEBUG_RESET));
    EXPECT_FALSE(Commands::IsCommandEnabled(CMD_SET_DEVICE)) << "the device can't change while connected";
    EXPECT_EQ(Run("Debug.Connect").last(), "Debug.Connect(); already connected");
    // A program opened during the session may go to the target: the user is asked (unattended: no).
    EXPECT_TRUE(CDevice::Instance()->SessionActive.load());
    EXPECT_TRUE(
        Run("File.Open (\"" + Demo() + "\")")
            .contains("[Download] Program file opened. Download to target? -> No (unattended: default "
                      "answer)"));
    // The program went to the target: its first word is the initial stack pointer.
    EXPECT_EQ(Run("Target.ReadU32 0x0").last(), "0x20400000");

    Mark();
    Run("Debug.Disconnect");
    ASSERT_TRUE(Settle([]() { return !CDevice::Instance()->Connected.load(); }));
    Settle();
    const QStringList After = Since();
    EXPECT_EQ(Ran(After), QStringList({"Ran BeforeTargetDisconnect", "Ran AfterTargetDisconnect"}));
    EXPECT_TRUE(After.contains("Tarvo: disconnected from target device"));
    EXPECT_EQ(CStatusBar::Instance()->GetStatusMessage(), "Ready");
    EXPECT_EQ(CStatusBar::Instance()->GetConnectionInfo(), "Disconnected");
    EXPECT_TRUE(Commands::IsCommandEnabled(CMD_SET_DEVICE));
    EXPECT_EQ(Run("Debug.Disconnect").last(), "Debug.Disconnect(); not connected");
    EXPECT_TRUE(Commands::IsCommandEnabled(CMD_DEBUG_DISCONNECT));
}

TEST_F(SessionFlow, AFailingHandlerIsReportedAndTheLaterOnesStillRun) {
    // Line 7 of the file: the project's OnProjectLoad takes five lines.
    Open("void BeforeTargetConnect (void) {\n  Util.Log (\"Ran BeforeTargetConnect\") x;\n}\n" +
         Handlers({"BeforeTargetConnect"}));
    Mark();
    Run("Debug.Connect");
    ASSERT_TRUE(Settle());
    const QStringList Lines = Since();
    EXPECT_EQ(Lines
                  .filter("script interpretation failure: Expected a ';' at line 7 in function "
                          "BeforeTargetConnect")
                  .size(),
              1)
        << Lines.join('\n').toStdString();
    EXPECT_EQ(Ran(Lines),
              QStringList({"Ran BeforeTargetConnect", "Ran AfterTargetConnect", "Ran BeforeTargetReset",
                           "Ran AfterTargetReset", "Ran BeforeTargetDownload", "Ran AfterTargetDownload"}))
        << "the program's PC and SP are set up after the download";
}

TEST_F(SessionFlow, AConnectHandlerReplacesTheConnection) {
    Open(Handlers({"AfterTargetConnect"}) +
         "void TargetConnect (void) {\n  Util.Log (\"Ran TargetConnect\");\n  Exec.Connect ();\n}\n"
         "void AfterTargetConnect (void) {\n  Util.Log (\"Ran AfterTargetConnect\");\n}\n");
    Mark();
    Run("Debug.Connect");
    ASSERT_TRUE(Settle());
    const QStringList Ran_ = Ran(Since());
    ASSERT_GE(Ran_.size(), 3);
    EXPECT_EQ(Ran_.mid(0, 3),
              QStringList({"Ran BeforeTargetConnect", "Ran TargetConnect", "Ran AfterTargetConnect"}))
        << "the handler's own connection, and the controller's sequence after it";
    EXPECT_TRUE(CDevice::Instance()->Connected.load());
    EXPECT_EQ(CStatusBar::Instance()->GetStatusMessage(), "Download Complete.");
}

TEST_F(SessionFlow, ADownloadHandlerWritesNothingOfTheSystems) {
    Open("void TargetDownload (void) {\n  Util.Log (\"Ran TargetDownload\");\n}\n");
    const std::vector<U8> Before = tarvo::fake::Peek(0, 64);
    Mark();
    Run("Debug.Connect");
    ASSERT_TRUE(Settle());
    EXPECT_TRUE(Since().contains("Ran TargetDownload"));
    EXPECT_EQ(tarvo::fake::Peek(0, 64), Before) << "the target's memory stays as it was";
    EXPECT_EQ(CStatusBar::Instance()->GetStatusMessage(), "Download Complete.");
}

TEST_F(SessionFlow, AHandlersFailedDownloadShowsThroughItsStoredError) {
    Open("void TargetDownload (void) {\n  Exec.Download (\"" + Demo() + "\");\n}\n");
    tarvo::fake::FailWrites(0x40, 4);
    Mark();
    Run("Debug.Connect");
    ASSERT_TRUE(Settle());
    const QStringList Lines = Since();
    EXPECT_EQ(CDevice::Instance()->LastDownloadError(), -3);
    EXPECT_TRUE(Lines.contains("Error during program/erase phase")) << Lines.join('\n').toStdString();
    EXPECT_EQ(Lines.filter("[Download failed] Parts of the program file could not be written.").size(), 1);
    EXPECT_EQ(CStatusBar::Instance()->GetStatusMessage(), "Download Failed.");
    tarvo::fake::FailWrites(0, 0);
}

TEST_F(SessionFlow, WithoutVerificationAFailedDownloadEndsQuietly) {
    Open(Handlers());
    Run("Edit.SysVar (VAR_VERIFY_DOWNLOAD, 0)");
    tarvo::fake::FailWrites(0x40, 4);
    Mark();
    Run("Debug.Connect");
    ASSERT_TRUE(Settle());
    const QStringList Lines = Since();
    EXPECT_EQ(CDevice::Instance()->LastDownloadError(), -3) << "the error is kept";
    EXPECT_TRUE(Lines.filter("Download failed").isEmpty()) << Lines.join('\n').toStdString();
    EXPECT_TRUE(Lines.contains("Ran AfterTargetDownload")) << "the flow ends as after a success";
    EXPECT_NE(CStatusBar::Instance()->GetStatusMessage(), "Download Failed.");
    tarvo::fake::FailWrites(0, 0);
}

TEST_F(SessionFlow, ClosingDuringASessionAsksFirst) {
    Open(QString());
    Run("Debug.Connect");
    ASSERT_TRUE(Settle());
    ASSERT_TRUE(CDevice::Instance()->Connected.load());
    // Somebody at the screen answers No.
    Automation::SetActive(false);
    QString Title;
    QString Text;
    QObject Context;
    QTimer::singleShot(20, &Context, [&]() {
        if (auto* Box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
            Title = Box->windowTitle();
            Text = Box->text();
            Box->button(QMessageBox::No)->click();
        }
    });
    EXPECT_FALSE(Main()->close()) << "the close is refused";
    Automation::SetActive(true);
    EXPECT_EQ(Title, "Stop Debugging");
    EXPECT_EQ(Text, "Close this Session?");
    ASSERT_TRUE(Settle());
    EXPECT_TRUE(CDevice::Instance()->Connected.load()) << "No keeps the session";
    EXPECT_FALSE(Main()->IsClosing());
    EXPECT_EQ(Run("Debug.Connect").last(), "Debug.Connect(); already connected");
}

TEST_F(SessionFlow, MemorySavedToAFileLoadsBack) {
    Open(QString());
    Run("Debug.Connect");
    ASSERT_TRUE(Settle());
    const QString Saved = m_Dir.filePath(QStringLiteral("flash.bin"));
    EXPECT_EQ(Run("Target.SaveMemory (\"" + Saved + "\", 0x0, 64)").last(),
              "Target.SaveMemory (\"" + Saved + "\", 0x0, 64);");
    QFile F(Saved);
    ASSERT_TRUE(F.open(QIODevice::ReadOnly));
    const QByteArray Bytes = F.readAll();
    ASSERT_EQ(Bytes.size(), 64);
    const std::vector<U8> Flash = tarvo::fake::Peek(0, 64);
    EXPECT_EQ(Bytes, QByteArray(reinterpret_cast<const char*>(Flash.data()), 64));
    Run("Target.LoadMemory (\"" + Saved + "\", 0x20000100)");
    Settle();
    EXPECT_EQ(tarvo::fake::Peek(0x20000100, 64), Flash);
    EXPECT_EQ(Run("Target.LoadMemory (\"/nowhere.bin\", 0x20000100)").last(),
              "Target.LoadMemory (\"/nowhere.bin\", 0x20000100); file not found");
    EXPECT_EQ(Run("Exec.Download (\"/nowhere.elf\")").last(),
              "Exec.Download (\"/nowhere.elf\"); file not found");
}

/// An Intel Hex file of Bytes at Address: the upper half in an extended linear address record.
QByteArray IntelHex(U32 Address, const QByteArray& Bytes) {
    auto Record = [](U8 Type, U16 Offset, const QByteArray& Data) {
        QByteArray Raw;
        Raw.append(static_cast<char>(Data.size()));
        Raw.append(static_cast<char>(Offset >> 8));
        Raw.append(static_cast<char>(Offset & 0xFF));
        Raw.append(static_cast<char>(Type));
        Raw.append(Data);
        U8 Sum = 0;
        for (char C : Raw) {
            Sum = static_cast<U8>(Sum + static_cast<U8>(C));
        }
        Raw.append(static_cast<char>(static_cast<U8>(-Sum)));
        return ":" + Raw.toHex().toUpper() + "\n";
    };
    const char Upper[2] = {static_cast<char>(Address >> 24), static_cast<char>((Address >> 16) & 0xFF)};
    return Record(4, 0, QByteArray(Upper, 2)) + Record(0, static_cast<U16>(Address), Bytes) +
           Record(1, 0, QByteArray());
}

TEST_F(SessionFlow, FileLoadPutsADataFileIntoTargetMemory) {
    Open(QString());
    EXPECT_FALSE(Commands::IsCommandEnabled(CMD_FILE_LOAD)) << "nothing to load into";
    Run("Debug.Connect");
    ASSERT_TRUE(Settle());
    EXPECT_TRUE(Commands::IsCommandEnabled(CMD_FILE_LOAD));
    EXPECT_EQ(Commands::GetCommandAction(CMD_FILE_LOAD)->shortcut(), QKeySequence("Ctrl+Shift+L"));

    QByteArray Bytes;
    for (int i = 0; i < 48; ++i) {
        Bytes.append(static_cast<char>(0xA0 + i));
    }
    const std::vector<U8> Expected(Bytes.begin(), Bytes.end());
    const QString Bin = m_Dir.filePath(QStringLiteral("table.bin"));
    QFile F(Bin);
    ASSERT_TRUE(F.open(QIODevice::WriteOnly));
    F.write(Bytes);
    F.close();
    Run("File.Load (\"" + Bin + "\", 0x20000200)");
    ASSERT_TRUE(Settle());
    EXPECT_EQ(tarvo::fake::Peek(0x20000200, 48), Expected);
    EXPECT_EQ(Main()->GetProgramPath(), Bin) << "the file is the session's program file now";

    // A record file goes where it says, or rebased to the address given.
    const QString Hex = m_Dir.filePath(QStringLiteral("table.hex"));
    QFile H(Hex);
    ASSERT_TRUE(H.open(QIODevice::WriteOnly));
    H.write(IntelHex(0x20000400, Bytes.left(16)));
    H.close();
    Run("File.Load (\"" + Hex + "\", 0xFFFFFFFF)");
    ASSERT_TRUE(Settle());
    EXPECT_EQ(tarvo::fake::Peek(0x20000400, 16), std::vector<U8>(Expected.begin(), Expected.begin() + 16));
    Run("File.Load (\"" + Hex + "\", 0x20000600)");
    ASSERT_TRUE(Settle());
    EXPECT_EQ(tarvo::fake::Peek(0x20000600, 16), std::vector<U8>(Expected.begin(), Expected.begin() + 16));

    EXPECT_EQ(Run("File.Load (\"/nowhere.bin\", 0x20000100)").last(),
              "File.Load (\"/nowhere.bin\", 0x20000100); file not found");
    EXPECT_EQ(Run("File.Load (\"" + Bin + "\", 0x123456789)").last(),
              "File.Load (\"" + Bin + "\", 0x123456789); invalid parameter");
    Run("Debug.Disconnect");
    ASSERT_TRUE(Settle());
    EXPECT_FALSE(Commands::IsCommandEnabled(CMD_FILE_LOAD));
}

// The reason of a failed connection is a warning of the log file; the Console shows it with the failure.
TEST_F(SessionFlow, AFailedConnectionNamesItsReasonInTheConsole) {
    struct CASE {
        const char* HostIF;
        QStringList Lines;
    } Cases[] = {
        {"\"USB\", \"1234\"", {"Connect: serial number not found on usb", "Connection failed"}},
        {"\"IP\", \"localhost:99999\"",
         {"Invalid port in \"localhost:99999\"", "Connect: error during configuration of IP interface",
          "Connection failed"}},
    };
    for (const CASE& C : Cases) {
        Open(QString(), QLatin1String(C.HostIF));
        Mark();
        Run("Debug.Connect");
        ASSERT_TRUE(Settle());
        const QStringList Lines = Since();
        for (const QString& L : C.Lines) {
            EXPECT_TRUE(Lines.contains(L)) << C.HostIF << ": " << L.toStdString() << " in\n"
                                           << Lines.join('\n').toStdString();
        }
        EXPECT_FALSE(CDevice::Instance()->Connected.load());
    }
}

// A port that babbles instead of answering holds the connection until its time-outs; Debug.Disconnect
// gives it up at once and the session controller is free again.
TEST_F(SessionFlow, DisconnectCancelsAConnectionUnderWay) {
    probetest::Babbler Port;
    Open(Handlers(), QStringLiteral("\"IP\", \"127.0.0.1:%1\"").arg(Port.Port()));
    Mark();
    Run("Debug.Connect");
    QElapsedTimer T;
    T.start();
    while (Port.Connections() == 0 && T.elapsed() < 2000) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    }
    ASSERT_EQ(Port.Connections(), 1);
    T.restart();
    EXPECT_EQ(Run("Debug.Disconnect"), QStringList({"Debug.Disconnect();", "Connection aborted"}));
    ASSERT_TRUE(Settle());
    EXPECT_LT(T.elapsed(), 1000);
    const QStringList Lines = Since();
    EXPECT_TRUE(Lines.contains("Connection aborted")) << Lines.join('\n').toStdString();
    EXPECT_FALSE(Lines.contains("Connection failed")) << "the user's cancel is no failure";
    EXPECT_EQ(CStatusBar::Instance()->GetStatusMessage(), "Ready");
    EXPECT_FALSE(CDevice::Instance()->Connected.load());
    EXPECT_FALSE(CDevice::Instance()->ControllerBusy.load());
    EXPECT_EQ(Port.Connections(), 1) << "no second try";
    EXPECT_EQ(Run("Debug.Disconnect").last(), "Debug.Disconnect(); not connected");
}

// After "Target Connection Lost" (answered No, so that the session stands) nothing of the sequence
// runs against the dead link, and the commands that need the target say why they can't.
TEST_F(SessionFlow, AfterTheConnectionIsLostTheSequenceStops) {
    Open(Handlers());
    Run("Debug.SetConnectMode (CM_ATTACH_HALT)");
    Run("Debug.Connect");
    ASSERT_TRUE(Settle());
    ASSERT_TRUE(CDevice::Instance()->HaltDone.load());
    Automation::SetActive(false);
    QStringList Titles;
    QTimer Answer;
    QObject::connect(&Answer, &QTimer::timeout, [&Titles]() {
        if (auto* Box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
            Titles << Box->windowTitle();
            if (QAbstractButton* No = Box->button(QMessageBox::No)) {
                No->click();
            } else {
                Box->done(0);
            }
        }
    });
    Answer.start(10);
    Mark();
    tarvo::fake::SetFault(tarvo::fake::DeadConnection, true);
    Run("Debug.Download");
    CDevice* D = CDevice::Instance();
    ASSERT_TRUE(Settle([&]() { return Titles.contains("Target Connection Lost") && !D->HasQueuedJobs(); }));
    Settle();
    Answer.stop();
    Automation::SetActive(true);
    const QStringList Lines = Since();
    EXPECT_EQ(Titles, QStringList{"Target Connection Lost"}) << "no dialog of a failed download after it";
    EXPECT_TRUE(Ran(Lines).filter("AfterTargetDownload").isEmpty()) << Lines.join('\n').toStdString();
    EXPECT_TRUE(D->Connected.load() && D->ConnectionLost.load()) << "the session stands, as answered";
    EXPECT_FALSE(D->ControllerBusy.load());
    EXPECT_EQ(Run("Debug.Reset").last(), "Debug.Reset(); connection lost");
    EXPECT_EQ(Run("Debug.Download").last(), "Debug.Download(); connection lost");
    EXPECT_EQ(Run("Target.ReadU32 0x20000000").last(),
              "Target.ReadU32 (0x20000000); cannot access target memory: connection lost");
    EXPECT_EQ(Run("Target.GetReg (\"PC\")").last(),
              "Target.GetReg (\"PC\"); cannot access target registers: connection lost");
    tarvo::fake::SetFault(tarvo::fake::DeadConnection, false);
}

} // namespace
