#include "ArnexProcess.h"

#include <QDir>
#include <QProcess>

ArnexProcess::ArnexProcess() = default;

QString ArnexProcess::Binary() {
    return qEnvironmentVariable("ARNEX_BIN_DIR") + QStringLiteral("/arnex");
}

QString ArnexProcess::SettingsFile() const {
    return m_Config.filePath(QStringLiteral("Tolvek/Arnex.conf"));
}

ArnexRun ArnexProcess::Run(const QStringList& Args, int TimeoutMs) const {
    QProcess P;
    QProcessEnvironment Env = QProcessEnvironment::systemEnvironment();
    Env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    Env.insert(QStringLiteral("XDG_CONFIG_HOME"), m_Config.path());
    Env.insert(QStringLiteral("XDG_RUNTIME_DIR"), m_Config.path());
    P.setProcessEnvironment(Env);
    P.setWorkingDirectory(m_Config.path());
    P.start(Binary(), Args);
    ArnexRun Result;
    if (!P.waitForStarted(10000)) {
        return Result;
    }
    Result.Finished = P.waitForFinished(TimeoutMs);
    if (!Result.Finished) {
        P.kill();
        P.waitForFinished(5000);
    }
    Result.ExitCode = P.exitStatus() == QProcess::NormalExit ? P.exitCode() : -2;
    const QString Out = QString::fromUtf8(P.readAllStandardOutput());
    Result.Lines = Out.split(QLatin1Char('\n'));
    if (!Result.Lines.isEmpty() && Result.Lines.last().isEmpty()) {
        Result.Lines.removeLast();
    }
    // The first paint announces the probe library beside the program; the runs' own lines follow.
    if (!Result.Lines.isEmpty() &&
        Result.Lines.first().startsWith(QStringLiteral("Tarvo software found at: "))) {
        Result.Startup = Result.Lines.takeFirst();
    }
    Result.Stderr = QString::fromUtf8(P.readAllStandardError());
    return Result;
}

ArnexRun ArnexProcess::Exec(const QStringList& Lines, const QStringList& Extra) const {
    QStringList Args = Extra;
    for (const QString& Line : Lines) {
        Args << QStringLiteral("-exec") << Line;
    }
    Args << QStringLiteral("-quit");
    return Run(Args);
}
