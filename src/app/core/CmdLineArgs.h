#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

/// What the command line gave. One instance lives for the process (`GetCmdLineArgs`); GUI thread.
struct CCmdLineArgs {
    QString Device;           ///< -device, -vanta
    QString HostIF;           ///< -usb, -ip, -select: "USB" or "IP"
    QString HostIdent;        ///< probe serial number or network address
    QString TargetIF;         ///< -if, -vanta
    QString Speed;            ///< -speed, -vanta
    QString ProgramFile;      ///< -datafile, -programfile
    QString ProjectFile;      ///< -project
    QString LogFile;          ///< -logfile
    QString LogInterval;      ///< -loginterval
    QString TarvoScriptFile;  ///< -tarvoscriptfile
    QString JTAGConfig;       ///< -jtagconfig
    QString TimestampLogFile; ///< -logtimestamps
    bool Debug = false;       ///< -debug

    /// Console lines of -exec, in order, and -quit: the automation of the program.
    QStringList ExecLines;
    bool Quit = false;

    /// Zero-terminated copies of at most 511 bytes for the byte-string logging layer.
    QByteArray LogFileBytes;
    QByteArray TimestampLogFileBytes;

    /// Parses the arguments behind the program name. Unknown options and non-option arguments are
    /// skipped; the last option of a kind wins.
    void Parse(const QStringList& Args);
    /// True when -exec or -quit was given: no dialog waits for a person.
    bool IsAutomated() const { return Quit || !ExecLines.isEmpty(); }
};

/// The process-wide instance.
CCmdLineArgs& GetCmdLineArgs();

/// Command line accessors: arguments without the program name, the whole line with the program path made
/// canonical, and the working directory.
QStringList GetCmdLineArguments();
QString GetCmdLineText();
QString GetCurrentWorkingDir();
