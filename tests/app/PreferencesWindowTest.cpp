#include "AppFixture.h"

#include "app/PreferencesDialog.h"
#include "app/SysVarsEditor.h"
#include "app/core/Settings.h"
#include "app/core/SysVars.h"

#include <QCheckBox>
#include <QComboBox>
#include <QTableWidget>
#include <QTreeWidget>

namespace {

using DialogTest = AppFixture;

TEST_F(DialogTest, SystemVariablesEditorListsAndChecks) {
    CSysVarsEditor Editor(Main());
    QTableWidget* Table = Editor.GetTable();
    ASSERT_EQ(Table->rowCount(), 7);
    EXPECT_EQ(Table->horizontalHeaderItem(0)->text(), "Name");
    EXPECT_EQ(Table->horizontalHeaderItem(3)->text(), "Description");
    EXPECT_EQ(Table->item(0, 0)->text(), "MemoryAccessWidth");
    EXPECT_EQ(Table->item(0, 2)->text(), "Auto Access, Byte, HalfWord, Word");

    Console()->Drain();
    const int Row = 0;
    EXPECT_TRUE(Editor.SetValueText(Row, "Word"));
    EXPECT_EQ(SysVars::GetVarValue(VAR_ACCESS_WIDTH), 4);
    EXPECT_EQ(Table->item(Row, 1)->text(), "Word");
    EXPECT_FALSE(Editor.SetValueText(Row, "Dword"));
    EXPECT_EQ(SysVars::GetVarValue(VAR_ACCESS_WIDTH), 4) << "a refused text leaves the value";
    Console()->Drain();
    EXPECT_TRUE(Console()->GetText().endsWith("Edit.SysVar (VAR_ACCESS_WIDTH, AW_WORD);"))
        << "the change is echoed as the command";

    int Symbol = -1;
    for (int R = 0; R < Table->rowCount(); ++R) {
        if (Table->item(R, 0)->text() == "BreakAtThisSymbol") {
            Symbol = R;
        }
    }
    ASSERT_GE(Symbol, 0);
    Table->item(Symbol, 1)->setText("  app_main  ");
    EXPECT_EQ(SysVars::GetVarString(SysVars::GetVarRow(VAR_BREAK_AT_THIS_SYMBOL)), "app_main");
    EXPECT_EQ(Table->item(Symbol, 1)->text(), "app_main");
}

TEST_F(DialogTest, PreferencesDialogPagesAndImmediateChanges) {
    Settings::Remove("AppData/PreferencesDialog/RecentPageID");
    {
        CPreferencesDialog Dialog(Main());
        const QStringList Pages = Dialog.GetPageTitles();
        EXPECT_EQ(Pages.first(), "General/Application");
        EXPECT_TRUE(Pages.contains("General/Table Windows"));
        EXPECT_TRUE(Pages.contains("Appearance/Source Viewer"));
        EXPECT_EQ(Pages.size(), 17);

        auto* Stamps = Dialog.findChild<QCheckBox*>("PREF_SHOW_TIMESTAMPS_CONSOLE");
        ASSERT_NE(Stamps, nullptr);
        Console()->Drain();
        Stamps->setChecked(true);
        Console()->Drain();
        EXPECT_TRUE(
            Console()->GetText().endsWith("Edit.Preference (PREF_SHOW_TIMESTAMPS_CONSOLE, 1, 1, 1);"));
        EXPECT_TRUE(Console()->IsSidebarVisible());
        EXPECT_EQ(SysVars::GetVarStored(SysVars::GetVarRow(PREF_SHOW_TIMESTAMPS_CONSOLE)), 1);
        Stamps->setChecked(false);

        auto* Layout = Dialog.findChild<QComboBox*>("PREF_CALLSTACK_LAYOUT");
        ASSERT_NE(Layout, nullptr);
        EXPECT_EQ(Layout->count(), 2);

        // Open the Table Windows page and close: the dialog remembers it.
        for (QTreeWidgetItemIterator It(Dialog.GetTree()); *It; ++It) {
            if ((*It)->text(0) == "Table Windows") {
                Dialog.GetTree()->setCurrentItem(*It);
            }
        }
        Dialog.accept();
    }
    CPreferencesDialog Again(Main());
    EXPECT_EQ(Again.GetTree()->currentItem()->text(0), "Table Windows");
}

TEST_F(DialogTest, ResetSwitchClearsRememberedAnswersAndNeverStays) {
    Settings::SetValue("AppData/Dialogs/DoNotShowAgain/Reload Program File", 1);
    CPreferencesDialog Dialog(Main());
    SysVars::SetVarValue(SysVars::GetVarRow(PREF_RESET_DIALOG_DNSA), 1, true);
    Dialog.accept();
    EXPECT_FALSE(Settings::Map().contains("AppData/Dialogs/DoNotShowAgain/Reload Program File"));
    EXPECT_EQ(SysVars::GetVarValue(PREF_RESET_DIALOG_DNSA), 0);
}

} // namespace
