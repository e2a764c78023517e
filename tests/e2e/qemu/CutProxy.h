#pragma once

// A GDB server that dies in the middle of a download: a loopback proxy in front of a real server that
// passes everything on, and after the client's Nth memory write closes both connections and lets the
// test end the server.

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>

class CCutProxy {
public:
    CCutProxy() = default;
    ~CCutProxy();
    CCutProxy(const CCutProxy&) = delete;
    CCutProxy& operator=(const CCutProxy&) = delete;

    /// Listens on a free loopback port for one client and connects it to the server at ServerPort.
    bool Start(uint16_t ServerPort, int CutAfterWrites, std::function<void()> OnCut, std::string& Error);
    uint16_t Port() const { return m_Port; }
    bool WasCut() const { return m_Cut.load(); }

private:
    void Run();

    int m_Listen = -1;
    uint16_t m_Port = 0;
    uint16_t m_ServerPort = 0;
    int m_CutAfter = 0;
    std::function<void()> m_OnCut;
    std::atomic<bool> m_Stop{false};
    std::atomic<bool> m_Cut{false};
    std::thread m_Thread;
};
