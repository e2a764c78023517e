#pragma once

#include <QProcessEnvironment>
#include <QStringList>
#include <QTemporaryDir>

/// One run of build/bin/arnex, offscreen, with a settings folder of its own.
struct ArnexRun {
    int ExitCode = -1;
    bool Finished = false;
    QStringList Lines; ///< standard output, line by line, without the start-up line below
    QString Startup;   ///< the start-up line that names the probe library, when it is there
    QString Stderr;
};

class ArnexProcess {
public:
    ArnexProcess();
    /// The settings folder (XDG_CONFIG_HOME) of the runs.
    QString ConfigHome() const { return m_Config.path(); }
    QString SettingsFile() const;
    QString TempPath(const QString& Name) const { return m_Config.filePath(Name); }
    ArnexRun Run(const QStringList& Args, int TimeoutMs = 30000) const;
    /// Runs with "-exec" before each line and "-quit" at the end.
    ArnexRun Exec(const QStringList& Lines, const QStringList& Extra = {}) const;

    static QString Binary();

private:
    QTemporaryDir m_Config;
};
