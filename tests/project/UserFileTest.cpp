// The user file's lines: keys, the session flags, the order of the file and what a save carries over.

#include "script/ProjectUserFile.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

using namespace ProjectUserFile;

const QString WINDOW = "OpenWindow=\"Console\", DockArea=BOTTOM, x=0, y=1, w=640, h=200, FilterBarShown=0";

TEST(UserFile, KeysOfALine) {
    EXPECT_EQ(MakeLine({{"OpenWindow", "Console", true},
                        {"DockArea", "BOTTOM"},
                        {"x", "0"},
                        {"y", "1"},
                        {"w", "640"},
                        {"h", "200"},
                        {"FilterBarShown", "0"}}),
              WINDOW);
    EXPECT_EQ(LineKind(WINDOW), "OpenWindow");
    EXPECT_EQ(KeyValue(WINDOW, "OpenWindow"), "Console");
    // "w" is found as a key of its own, not inside "OpenWindow" or "FilterBarShown".
    EXPECT_EQ(KeyValue(WINDOW, "w"), "640");
    EXPECT_EQ(KeyValue(WINDOW, "h"), "200");
    bool Found = true;
    EXPECT_EQ(KeyValue(WINDOW, "DisplayFormat", &Found), "");
    EXPECT_FALSE(Found);
    EXPECT_EQ(KeyValue("TableHeader=\"Watch\", SortCol=\"Name\"", "SortCol", &Found), "Name");
    EXPECT_TRUE(Found);
    // A value can't carry the separators of the line.
    const QString Odd = MakeLine({{"OpenWindow", "a,b=c\"d", true}, {"x", "1"}});
    EXPECT_EQ(Odd, "OpenWindow=\"abcd\", x=1");
    EXPECT_EQ(KeyValue(Odd, "x"), "1");
}

TEST(UserFile, SessionFlagsPickTheKinds) {
    const QStringList Kinds = {"OpenWindow",        "OpenToolbar", "TableHeader",    "OpenDocument",
                               "Breakpoint",        "Tracepoint",  "DataBreakpoint", "WatchedExpression",
                               "GraphedExpression", "SomethingNew"};
    for (const QString& Kind : Kinds) {
        EXPECT_TRUE(IsKindSaved(Kind, 0)) << Kind.toStdString();
        // Only the document lines go with flag 4.
        EXPECT_EQ(IsKindSaved(Kind, 4), Kind != "OpenDocument") << Kind.toStdString();
        EXPECT_EQ(IsKindSaved(Kind, 8),
                  Kind != "Breakpoint" && Kind != "Tracepoint" && Kind != "DataBreakpoint");
        // All ones is "nothing": every kind with a flag goes, the window lines stay.
        EXPECT_EQ(IsKindSaved(Kind, SAVE_NOTHING), Kind == "OpenWindow" || Kind == "SomethingNew");
    }
    EXPECT_FALSE(IsKindSaved("OpenToolbar", 1));
    EXPECT_FALSE(IsKindSaved("TableHeader", 2));
    EXPECT_FALSE(IsKindSaved("GraphedExpression", 16));
    EXPECT_TRUE(IsKindSaved("GraphedExpression", 32));
}

TEST(UserFile, SaveWithFlagFourLeavesOutDocumentsOnly) {
    const QStringList Old = {
        "OpenDocument=\"main.c\", Line=12",
        "Breakpoint=\"main.c:12\", State=1",
        "WatchedExpression=\"counter\"",
        "OpenWindow=\"Watched Data\", DockArea=RIGHT, x=0, y=0, w=300, h=400, FilterBarShown=0",
        "OpenWindow=\"Console\", DockArea=LEFT, x=0, y=0, w=1, h=1, FilterBarShown=0",
        "TableHeader=\"Watched Data\", SortCol=\"Name\", SortOrder=\"ASCENDING\""};
    auto Owned = [](const QString& Line) {
        return LineKind(Line) == "OpenWindow" && KeyValue(Line, "OpenWindow") == "Console";
    };
    const QStringList Lines = Merge({WINDOW, "OpenToolbar=\"Debug\", Floating=0, x=0, y=0"}, Old, Owned, 4);
    EXPECT_EQ(Lines, QStringList({WINDOW, "OpenToolbar=\"Debug\", Floating=0, x=0, y=0", Old[1], Old[2],
                                  Old[3], Old[5]}));
    // The Console's old line is replaced by the new one, never kept beside it.
    EXPECT_EQ(Lines.filter("\"Console\"").size(), 1);
}

TEST(UserFile, FileIsSortedByKindAndReadsBack) {
    QTemporaryDir Dir;
    const QString Path = Dir.filePath("app.tvproj.user");
    const QStringList Lines = {"WatchedExpression=\"b\"", WINDOW, "Breakpoint=\"x\"",
                               "WatchedExpression=\"a\"", "OpenToolbar=\"File\", Floating=0, x=0, y=0"};
    ASSERT_TRUE(Write(Path, Lines));
    QFile F(Path);
    ASSERT_TRUE(F.open(QIODevice::ReadOnly));
    // Sorted by the text ahead of the first "=", lines of a kind in their order, no line feed at the end.
    EXPECT_EQ(F.readAll(), "Breakpoint=\"x\"\nOpenToolbar=\"File\", Floating=0, x=0, y=0\n" +
                               WINDOW.toUtf8() + "\nWatchedExpression=\"b\"\nWatchedExpression=\"a\"");
    QStringList Back;
    ASSERT_TRUE(Read(Path, Back));
    EXPECT_EQ(Back.size(), 5);
    EXPECT_EQ(SplitLines("a=1\r\n\r\n  \nb=2\n"), QStringList({"a=1", "b=2"}));
    EXPECT_FALSE(Read(Dir.filePath("none.user"), Back));
    EXPECT_TRUE(Back.isEmpty());
}

TEST(UserFile, FailedWriteLeavesTheOldFile) {
    QTemporaryDir Dir;
    const QString Path = Dir.filePath("app.tvproj.user");
    ASSERT_TRUE(Write(Path, {WINDOW}));
    // A directory where the file should be, and a directory that doesn't exist: nothing is written.
    ASSERT_TRUE(QDir(Dir.path()).mkdir("blocked.user"));
    EXPECT_FALSE(Write(Dir.filePath("blocked.user"), {WINDOW}));
    EXPECT_FALSE(Write(Dir.filePath("no/such/dir/app.tvproj.user"), {WINDOW}));
    EXPECT_FALSE(Write(QString(), {WINDOW}));
    QStringList Back;
    ASSERT_TRUE(Read(Path, Back));
    EXPECT_EQ(Back, QStringList({WINDOW}));
    EXPECT_EQ(QDir(Dir.path()).entryList(QDir::Files), QStringList({"app.tvproj.user"}))
        << "no stray temporary file";
}

} // namespace
