#pragma once

// Shared by the tests of the exported functions: collects the library's text callbacks (which may
// come from any thread) and closes the session after each test, whatever the test did.

#include "probe/FakeTarget.h"
#include "probe/Tarvo.h"

#include <chrono>
#include <gtest/gtest.h>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace probetest {

class Messages {
public:
    static Messages& Get() {
        static Messages M;
        return M;
    }
    void Add(const char* Level, const char* Text) {
        std::lock_guard<std::mutex> Lock(m_Mutex);
        m_Lines.push_back(std::string(Level) + ": " + Text);
    }
    std::vector<std::string> Lines() {
        std::lock_guard<std::mutex> Lock(m_Mutex);
        return m_Lines;
    }
    bool Contains(const std::string& Part) {
        for (const std::string& L : Lines()) {
            if (L.find(Part) != std::string::npos) {
                return true;
            }
        }
        return false;
    }
    void Clear() {
        std::lock_guard<std::mutex> Lock(m_Mutex);
        m_Lines.clear();
    }
    static void Install() {
        TARVOARM_EnableLog([](const char* T) { Get().Add("info", T); });
        TARVOARM_SetWarnOutHandler([](const char* T) { Get().Add("warning", T); });
        TARVOARM_SetErrorOutHandler([](const char* T) { Get().Add("error", T); });
    }

private:
    std::mutex m_Mutex;
    std::vector<std::string> m_Lines;
};

/// Sends a command; the answer text (empty on success).
inline std::string Exec(const std::string& Command) {
    char Answer[2049] = {};
    const int Result = TARVOARM_ExecCommand(Command.c_str(), Answer, sizeof Answer);
    EXPECT_EQ(Result == 0, Answer[0] == '\0') << Command << ": " << Answer;
    return Answer;
}

/// Polls the halt state until it is no longer "running" or the time is up; the last state.
inline int WaitHalted(int TimeoutMs = 3000) {
    const auto End = std::chrono::steady_clock::now() + std::chrono::milliseconds(TimeoutMs);
    int State = TARVOARM_IsHalted();
    while (State == 0 && std::chrono::steady_clock::now() < End) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        State = TARVOARM_IsHalted();
    }
    return State;
}

inline U64 Reg(U32 Index) {
    U64 V = 0;
    EXPECT_EQ(TARVOARM_ReadReg(Index, &V), 0) << "register " << Index;
    return V;
}

/// Each test starts unconnected with fresh callbacks and the fake target at its defaults.
class ApiTest : public ::testing::Test {
protected:
    void SetUp() override {
        TARVOARM_Close();
        tarvo::fake::Reset();
        Messages::Get().Clear();
        Messages::Install();
        Exec("Timeout=3000");
        Exec("QemuPath=");
        Exec("QemuArgs=");
    }
    void TearDown() override {
        TARVOARM_Close();
        Exec("device=");
        tarvo::fake::Reset();
    }
    /// USB, the fake device, connected.
    void ConnectFake() {
        ASSERT_EQ(TARVOARM_SelectUSB(0), 0);
        ASSERT_EQ(TARVOARM_Open(), nullptr);
        ASSERT_EQ(Exec("device=FAKE"), "");
        ASSERT_EQ(TARVOARM_Connect(), 0);
        ASSERT_TRUE(TARVOARM_IsConnected());
    }
};

} // namespace probetest
