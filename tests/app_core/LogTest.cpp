#include "app/core/Log.h"
#include "app/core/ConsoleRing.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

class LogTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(m_Dir.isValid());
        ConsoleRing::Clear();
        SetConsoleAttached(true);
        SetLogInterval(QString());
    }
    void TearDown() override {
        for (int C = 0; C < LOG_CHANNEL_COUNT; ++C) {
            CloseLogChannel(C);
        }
        SetConsoleAttached(false);
        ConsoleRing::Clear();
    }
    QString Console() {
        CConsoleMsg Msg;
        QStringList Lines;
        while (ConsoleRing::Pop(Msg)) {
            Lines << QString::fromUtf8(Msg.Text);
        }
        return Lines.join('\n');
    }
    static QByteArray Read(const QString& Path) {
        QFile F(Path);
        return F.open(QIODevice::ReadOnly) ? F.readAll() : QByteArray();
    }

    QTemporaryDir m_Dir;
};

TEST_F(LogTest, TrailingBlanksGoAndTheFirstLetterIsRaised) {
    EXPECT_EQ(LogMessage("  hello \n", MSG_INFO | MSG_TO_ALL), 0);
    EXPECT_EQ(Console(), "  hello");
    LogMessage("not connected", MSG_ERROR | MSG_TO_CONSOLE);
    EXPECT_EQ(Console(), "Not connected");
    EXPECT_EQ(LogMessage("", MSG_INFO | MSG_TO_ALL), -1);
}

TEST_F(LogTest, ColoursByClassAndOrigin) {
    LogMessage("w", MSG_WARNING | MSG_TO_CONSOLE);
    LogMessage("p", MSG_INFO | MSG_TO_CONSOLE | MSG_FROM_PROBE);
    LogMessage("i", MSG_INFO | MSG_TO_CONSOLE);
    CConsoleMsg Msg;
    ASSERT_TRUE(ConsoleRing::Pop(Msg));
    EXPECT_EQ(Msg.ColorIndex, COLOR_LOGGING_ERROR);
    ASSERT_TRUE(ConsoleRing::Pop(Msg));
    EXPECT_EQ(Msg.ColorRGBA, 0xFF00008Bu);
    ASSERT_TRUE(ConsoleRing::Pop(Msg));
    EXPECT_EQ(Msg.ColorIndex, -1);
    EXPECT_EQ(Msg.ColorRGBA, COLOR_VALUE_TRANSPARENT);
}

TEST_F(LogTest, NothingReachesTheConsoleWithoutIt) {
    SetConsoleAttached(false);
    LogMessage("hidden", MSG_INFO | MSG_TO_ALL);
    EXPECT_TRUE(Console().isEmpty());
    EXPECT_EQ(LogMessageChecked("hidden", MSG_INFO | MSG_TO_CONSOLE), -1);
}

TEST_F(LogTest, LongMessagesAreCutForFileAndConsole) {
    const QString Path = m_Dir.filePath("app.log");
    ASSERT_TRUE(OpenLogChannel(LOG_CHANNEL_APP, Path));
    SetLogInterval("1");
    LogMessage(QString(3000, 'a'), MSG_INFO | MSG_TO_ALL);
    LogMessage("next", MSG_INFO | MSG_TO_LOGFILE);
    EXPECT_EQ(Console().size(), 1000);
    const QByteArray File = Read(Path);
    EXPECT_EQ(File, " i  " + QByteArray(2048, 'A').replace(1, 2047, QByteArray(2047, 'a')) + "\n");
}

TEST_F(LogTest, TheFileIsWrittenInPortions) {
    const QString Path = m_Dir.filePath("portions.log");
    ASSERT_TRUE(OpenLogChannel(LOG_CHANNEL_APP, Path));
    SetLogInterval("1");
    LogMessage("first", MSG_INFO | MSG_TO_LOGFILE);
    EXPECT_TRUE(Read(Path).isEmpty()) << "a message waits for the next one";
    LogMessage("second", MSG_WARNING | MSG_TO_LOGFILE);
    EXPECT_EQ(Read(Path), " i  First\n");
    LogMessage("third", MSG_ERROR | MSG_TO_ALL);
    EXPECT_EQ(Read(Path), " i  First\n[W] Second\n");
    FlushLogBuffer();
    EXPECT_EQ(Read(Path), " i  First\n[W] Second\n[E] Third\n");
}

TEST_F(LogTest, IntervalZeroOrJunkMeans512) {
    for (const char* Interval : {"0", "abc", "-5"}) {
        const QString Path = m_Dir.filePath(QStringLiteral("i%1.log").arg(Interval));
        ASSERT_TRUE(OpenLogChannel(LOG_CHANNEL_APP, Path));
        SetLogInterval(Interval);
        for (int i = 0; i < 60; ++i) {
            LogMessage("0123456789", MSG_INFO | MSG_TO_LOGFILE); // 15 bytes a line
        }
        EXPECT_EQ(Read(Path).size(), 35 * 15) << Interval << ": the buffer goes out once it holds 512 bytes";
        CloseLogChannel(LOG_CHANNEL_APP);
    }
}

TEST_F(LogTest, MessagesWithoutFileFlagsNeverReachTheFile) {
    const QString Path = m_Dir.filePath("flags.log");
    ASSERT_TRUE(OpenLogChannel(LOG_CHANNEL_APP, Path));
    SetLogInterval("1");
    for (U32 Class : {MSG_INFO, MSG_WARNING, MSG_ERROR}) {
        LogMessage("console only", Class | MSG_TO_CONSOLE | MSG_TO_STDOUT);
    }
    FlushLogBuffer();
    EXPECT_TRUE(Read(Path).isEmpty());
}

TEST_F(LogTest, BigFilesShrinkTo16000BytesAndGrowOn) {
    const QString Path = m_Dir.filePath("big.txt");
    ASSERT_TRUE(OpenLogChannel(LOG_CHANNEL_CONSOLE, Path));
    WriteLogChannel(LOG_CHANNEL_CONSOLE, QByteArray(LOG_FILE_MAX_BYTES, 'x'));
    EXPECT_EQ(QFile(Path).size(), LOG_FILE_MAX_BYTES) << "exactly the limit is not above it";
    WriteLogChannel(LOG_CHANNEL_CONSOLE, "y");
    EXPECT_EQ(QFile(Path).size(), LOG_FILE_MAX_BYTES + 1);
    WriteLogChannel(LOG_CHANNEL_CONSOLE, "tail\n");
    const QByteArray Content = Read(Path);
    EXPECT_EQ(Content.size(), LOG_FILE_KEEP_BYTES + 5);
    EXPECT_TRUE(Content.endsWith("xtail\n"));
}

TEST_F(LogTest, ChannelOpeningRules) {
    EXPECT_FALSE(OpenLogChannel(4, m_Dir.filePath("x")));
    EXPECT_FALSE(OpenLogChannel(-1, m_Dir.filePath("x")));
    EXPECT_FALSE(OpenLogChannel(LOG_CHANNEL_TERMINAL, m_Dir.filePath("missing/dir/t.log")));
    EXPECT_FALSE(IsLogChannelOpen(LOG_CHANNEL_TERMINAL));
    EXPECT_FALSE(OpenLogChannel(LOG_CHANNEL_TERMINAL, m_Dir.path())) << "a directory is no log file";
    ASSERT_TRUE(OpenLogChannel(LOG_CHANNEL_TERMINAL, m_Dir.filePath("t.log")));
    EXPECT_FALSE(OpenLogChannel(LOG_CHANNEL_TERMINAL, QString()));
    EXPECT_FALSE(IsLogChannelOpen(LOG_CHANNEL_TERMINAL)) << "an empty path closes the channel";
    WriteLogChannel(LOG_CHANNEL_TERMINAL, "nowhere");

    QFile Old(m_Dir.filePath("old.log"));
    ASSERT_TRUE(Old.open(QIODevice::WriteOnly));
    Old.write("previous session");
    Old.close();
    ASSERT_TRUE(OpenLogChannel(LOG_CHANNEL_TERMINAL, Old.fileName()));
    EXPECT_EQ(QFile(Old.fileName()).size(), 0) << "opening truncates";
}

TEST_F(LogTest, ErrorsAreCounted) {
    ResetErrorCount();
    LogMessage("fine", MSG_INFO | MSG_TO_ALL);
    LogWarnMsg("careful");
    EXPECT_EQ(GetErrorCount(), 0u);
    LogErrorMsg("broken");
    EXPECT_EQ(GetErrorCount(), 1u);
    ResetErrorCount();
}

} // namespace
