#include "app/core/Check.h"

#include "app/core/Log.h"

#include <QCoreApplication>
#include <QThread>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>

namespace {

std::mutex HandlerLock;
Checks::HANDLER& Handler() {
    static Checks::HANDLER H;
    return H;
}
std::atomic<int> Failures{0};
std::atomic<int> Abort{-1}; // -1: not decided yet, from the environment on first use

bool AbortWanted() {
    int A = Abort.load();
    if (A < 0) {
        A = qEnvironmentVariableIntValue("ARNEX_CHECK_ABORT") == 1 ? 1 : 0;
        Abort = A;
    }
    return A == 1;
}

} // namespace

namespace Checks {

void SetHandler(HANDLER H) {
    std::lock_guard<std::mutex> Lock(HandlerLock);
    Handler() = std::move(H);
}

void SetAbortOnFailure(bool A) {
    Abort = A ? 1 : 0;
}

void Fail(const char* File, int Line, const QString& Text) {
    ++Failures;
    const QString Where =
        QString::fromUtf8(File).section(QLatin1Char('/'), -2) + QLatin1Char(':') + QString::number(Line);
    const QString Message =
        QStringLiteral("Check failed: ") + Text + QStringLiteral(" (") + Where + QLatin1Char(')');
    LogErrorMsg(Message);
    HANDLER H;
    {
        std::lock_guard<std::mutex> Lock(HandlerLock);
        H = Handler();
    }
    if (H) {
        H(Message);
        return;
    }
    if (AbortWanted()) {
        std::fprintf(stderr, "%s\n", Message.toLocal8Bit().constData());
        std::fflush(stderr);
        std::abort();
    }
}

int FailureCount() {
    return Failures.load();
}

bool IsGuiThread() {
    const QCoreApplication* App = QCoreApplication::instance();
    return !App || App->thread() == QThread::currentThread();
}

} // namespace Checks
