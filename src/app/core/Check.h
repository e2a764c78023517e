#pragma once

// Checks of the program's own invariants: a broken one is logged, and aborts the process where a test run
// asked for that, so that a wrong transition or a call from the wrong thread cannot pass unnoticed.

#include <QString>

#include <functional>

namespace Checks {

/// What a failed check calls instead of aborting; an empty function restores the default.
using HANDLER = std::function<void(const QString& Text)>;
void SetHandler(HANDLER Handler);
/// Abort on a failed check when no handler is installed (tests); the default is to log and go on, unless
/// the environment variable ARNEX_CHECK_ABORT is 1.
void SetAbortOnFailure(bool Abort);
/// Logs "Check failed: ..." with the place, then calls the handler, or aborts, or returns.
void Fail(const char* File, int Line, const QString& Text);
/// Number of failed checks since the start.
int FailureCount();

/// True on the thread of the application object (or on any thread while there is none).
bool IsGuiThread();

} // namespace Checks

/// Always compiled: the state machines check their transitions with it.
#define ARNEX_CHECK(Cond, Text)                                                                              \
    do {                                                                                                     \
        if (!(Cond)) {                                                                                       \
            Checks::Fail(__FILE__, __LINE__, (Text));                                                        \
        }                                                                                                    \
    } while (0)

// Thread affinity: compiled in where ARNEX_THREAD_CHECKS is defined (debug builds and builds with tests),
// out of release builds, since they sit on paths that run for every job.
#ifdef ARNEX_THREAD_CHECKS
#define ARNEX_CHECK_THREAD(Cond, What)                                                                       \
    ARNEX_CHECK(Cond, QStringLiteral("called from the wrong thread: ") + What)
#define ARNEX_CHECK_GUI_THREAD()                                                                             \
    ARNEX_CHECK_THREAD(Checks::IsGuiThread(),                                                                \
                       QLatin1String(Q_FUNC_INFO) + QStringLiteral(" is GUI-thread only"))
#else
#define ARNEX_CHECK_THREAD(Cond, What)                                                                       \
    do {                                                                                                     \
    } while (0)
#define ARNEX_CHECK_GUI_THREAD()                                                                             \
    do {                                                                                                     \
    } while (0)
#endif
