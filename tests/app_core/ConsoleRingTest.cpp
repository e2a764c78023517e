#include "app/core/ConsoleRing.h"
#include "app/core/Log.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

class ConsoleRingTest : public ::testing::Test {
protected:
    void SetUp() override { ConsoleRing::Clear(); }
    void TearDown() override { ConsoleRing::Clear(); }
};

TEST_F(ConsoleRingTest, TheThousandAndFirstIsLost) {
    for (int i = 0; i < 1001; ++i) {
        AppendConsoleMsg(QString::number(i), COLOR_LOGGING_USER);
    }
    CConsoleMsg Msg;
    for (int i = 0; i < 1000; ++i) {
        ASSERT_TRUE(ConsoleRing::Pop(Msg));
        EXPECT_EQ(QString::fromUtf8(Msg.Text), QString::number(i));
    }
    EXPECT_FALSE(ConsoleRing::Pop(Msg));
    AppendConsoleMsg("after", COLOR_LOGGING_USER);
    ASSERT_TRUE(ConsoleRing::Pop(Msg));
    EXPECT_STREQ(Msg.Text, "after") << "room again once the GUI took the messages";
}

TEST_F(ConsoleRingTest, FieldsOfAMessage) {
    AppendConsoleMsg("two\nlines", COLOR_LOGGING_ERROR, true);
    PrintConsole("probe", 0xFF00008Bu);
    AppendConsoleMsg(QString(), COLOR_LOGGING_USER);
    CConsoleMsg Msg;
    ASSERT_TRUE(ConsoleRing::Pop(Msg));
    EXPECT_EQ(Msg.ColorIndex, COLOR_LOGGING_ERROR);
    EXPECT_EQ(Msg.Bold, 1);
    EXPECT_EQ(Msg.LineCount, 2u);
    EXPECT_EQ(Msg.NewLine, 1);
    ASSERT_TRUE(ConsoleRing::Pop(Msg));
    EXPECT_EQ(Msg.ColorIndex, -1);
    EXPECT_EQ(Msg.ColorRGBA, 0xFF00008Bu);
    EXPECT_FALSE(ConsoleRing::Pop(Msg)) << "an empty text is ignored";
}

TEST_F(ConsoleRingTest, LongTextIsCutAt1000BytesOnACharacterBoundary) {
    AppendConsoleMsg(QString(1500, QChar(0x00E9)), COLOR_LOGGING_USER); // two bytes each in UTF-8
    CConsoleMsg Msg;
    ASSERT_TRUE(ConsoleRing::Pop(Msg));
    EXPECT_EQ(qstrlen(Msg.Text), 1000u);
    EXPECT_EQ(QString::fromUtf8(Msg.Text).size(), 500);
}

TEST_F(ConsoleRingTest, TimestampsGrowAndClearEmptiesTheRing) {
    AppendConsoleMsg("a", COLOR_LOGGING_USER);
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    AppendConsoleMsg("b", COLOR_LOGGING_USER);
    CConsoleMsg A;
    CConsoleMsg B;
    ASSERT_TRUE(ConsoleRing::Pop(A));
    ASSERT_TRUE(ConsoleRing::Pop(B));
    EXPECT_GE(B.Timestamp, A.Timestamp + 1000);
    AppendConsoleMsg("c", COLOR_LOGGING_USER);
    ConsoleRing::Clear();
    EXPECT_FALSE(ConsoleRing::Pop(A));
}

TEST_F(ConsoleRingTest, ManyThreadsPushWhileTheGuiPops) {
    std::vector<std::thread> Writers;
    for (int t = 0; t < 4; ++t) {
        Writers.emplace_back([t]() {
            for (int i = 0; i < 2000; ++i) {
                AppendConsoleMsg(QStringLiteral("%1:%2").arg(t).arg(i), COLOR_LOGGING_USER);
            }
        });
    }
    int Taken = 0;
    int LastOf[4] = {-1, -1, -1, -1};
    CConsoleMsg Msg;
    auto Drain = [&]() {
        while (ConsoleRing::Pop(Msg)) {
            const QStringList Parts = QString::fromUtf8(Msg.Text).split(':');
            const int T = Parts[0].toInt();
            const int I = Parts[1].toInt();
            EXPECT_GT(I, LastOf[T]) << "each writer's lines stay in order";
            LastOf[T] = I;
            ++Taken;
        }
    };
    for (int Round = 0; Round < 2000; ++Round) {
        Drain();
    }
    for (auto& W : Writers) {
        W.join();
    }
    Drain();
    EXPECT_GT(Taken, 0);
    EXPECT_LE(Taken, 8000);
}

} // namespace
