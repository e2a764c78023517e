// The project script as the main window runs it: the report of a failing event handler, and the user's
// stop of a script that runs away.

#include "AppFixture.h"

#include "app/WarningsDialog.h"
#include "app/core/SysVars.h"
#include "script/Interp.h"
#include "script/Project.h"
#include "script/TScript.h"

#include <QAction>
#include <QApplication>
#include <QFile>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

namespace {

class ScriptFlowTest : public AppFixture {
protected:
    void SetUp() override {
        Run("File.NewProject");
        SysVars::SetVarValue(SysVars::GetVarRow(PREF_SHOW_PROJECT_WARNINGS_DIALOG), 1, true);
    }
    void TearDown() override {
        m_Answer = false;
        CProject::Instance()->SetModified(false);
        Run("File.NewProject");
    }

    void Open(const QByteArray& Text) {
        const QString Path = m_Dir.filePath(QStringLiteral("s.tvproj"));
        QFile F(Path);
        ASSERT_TRUE(F.open(QIODevice::WriteOnly | QIODevice::Truncate));
        F.write(Text);
        F.close();
        Run("File.Open (\"" + Path + "\")");
        ASSERT_EQ(CProject::Instance()->GetPath(), Path);
        ASSERT_FALSE(TScript::HasError()) << TScript::GetLastError().toStdString();
    }
    /// The Console's lines that running Id printed.
    QStringList RunHandler(int Id) {
        Console()->Drain();
        const int Before = static_cast<int>(Console()->GetText().split('\n').size());
        Main()->ExecUserFunction(Id);
        Console()->Drain();
        return Console()->GetText().split('\n').mid(Before);
    }
    /// Answers every warnings dialog with Ignore, keeping its rows.
    void IgnoreWarnings() {
        m_Answer = true;
        QTimer::singleShot(5, &m_Context, [this]() {
            if (auto* D = qobject_cast<CWarningsDialog*>(QApplication::activeModalWidget())) {
                ++m_Dialogs;
                for (int i = 0; i < D->GetList()->count(); ++i) {
                    m_Rows.append(D->GetList()->item(i)->text());
                }
                D->GetIgnoreButton()->click();
            }
            if (m_Answer) {
                IgnoreWarnings();
            }
        });
    }

    QTemporaryDir m_Dir;
    QObject m_Context;
    bool m_Answer = false;
    int m_Dialogs = 0;
    QStringList m_Rows;
};

TEST_F(ScriptFlowTest, AFailingHandlerIsReportedWithFunctionAndLineAndTheNextOneRuns) {
    Open("void OnProjectLoad (void) {\n}\n"
         "void AfterTargetHalt (void) {\n  Util.Log (\"halted\");\n  Util.Log (\"a\\qb\");\n}\n"
         "void BeforeTargetResume (void) {\n  Util.Log (\"resumed\");\n}\n");
    IgnoreWarnings();
    const QString Error = QStringLiteral(
        "script interpretation failure: unexpected escape character at line 5 in function AfterTargetHalt");
    const QStringList First = RunHandler(UF_AFTER_TARGET_HALT);
    EXPECT_TRUE(First.contains("Executing script function: AfterTargetHalt"));
    EXPECT_TRUE(First.contains("halted"));
    EXPECT_EQ(First.filter(Error).size(), 1) << First.join('\n').toStdString();
    EXPECT_FALSE(TScript::HasError()) << "cleared, so that the next handler runs";
    ASSERT_EQ(m_Dialogs, 1) << "the project's error list";
    EXPECT_EQ(m_Rows.filter(Error).size(), 1);

    EXPECT_TRUE(RunHandler(UF_BEFORE_TARGET_RESUME).contains("resumed"));
    // The next halt fails again: logged again, but the list doesn't come up at every halt.
    const QStringList Again = RunHandler(UF_AFTER_TARGET_HALT);
    EXPECT_EQ(Again.filter(Error).size(), 1);
    EXPECT_EQ(m_Dialogs, 1);
    EXPECT_TRUE(RunHandler(UF_BEFORE_TARGET_RESUME).contains("resumed"));
}

TEST_F(ScriptFlowTest, TheUserStopsARunawayScriptWithEscapeInTheConsoleOrFromTheMenu) {
    Open("void OnProjectLoad (void) {\n}\nvoid Spin (void) {\n  while (1) {\n  }\n}\n"
         "void AfterTargetHalt (void) {\n  Spin ();\n}\n");
    // Without a stop, the run ends here without an error.
    TScript::GetInterpreter()->StepLimit = 400000000;
    // Escape in the Console (its own test presses the key) while the script runs.
    QTimer::singleShot(50, &m_Context, []() { emit Console()->StopScriptRequested(); });
    const QStringList Escaped = Run("Script.Exec (\"Spin\")");
    EXPECT_EQ(Escaped.filter("script stopped by the user at line 4").size(), 1)
        << Escaped.join('\n').toStdString();

    // The menu entry, enabled while a script runs, and a handler's stop is reported but lists nothing.
    auto* Stop = Main()->findChild<QAction*>(QStringLiteral("actionToolsStopScript"));
    ASSERT_NE(Stop, nullptr);
    QMenu* Tools = nullptr;
    for (QObject* O : Stop->associatedObjects()) {
        Tools = Tools ? Tools : qobject_cast<QMenu*>(O);
    }
    ASSERT_NE(Tools, nullptr);
    emit Tools->aboutToShow();
    EXPECT_FALSE(Stop->isEnabled()) << "no script runs";
    IgnoreWarnings();
    QTimer::singleShot(50, &m_Context, [Stop, Tools]() {
        emit Tools->aboutToShow();
        Stop->trigger();
    });
    const QStringList FromMenu = RunHandler(UF_AFTER_TARGET_HALT);
    EXPECT_EQ(FromMenu.filter("script stopped by the user at line 4 in function Spin").size(), 1)
        << FromMenu.join('\n').toStdString();
    EXPECT_EQ(m_Dialogs, 0);
    EXPECT_FALSE(TScript::HasError());
}

} // namespace
