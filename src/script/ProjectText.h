#pragma once

#include "app/core/Types.h"

#include <QString>
#include <QStringList>

/// The text of a project file as the program reads and rewrites it: the body of OnProjectLoad, its two
/// sections, the command groups of the write-back, the lines of a new project and the conversions of the
/// probe settings. Pure functions of their arguments (apart from the command table's names); any thread.
namespace ProjectText {

/// The groups of commands that dialogs write into the dialog-generated section.
enum SETTINGS_GROUPS { GROUP_PROBE, GROUP_TRACE, GROUP_SYSTEM, GROUP_MEMORY, GROUP_FURTHER };

/// The command names of a group. The system group is every command bound to a system variable; the
/// generic "Edit.SysVar", with which the system settings write variables that have no command of their
/// own, counts as one of it too.
QStringList GroupCommands(SETTINGS_GROUPS Group);
/// True if the line starts with the name of a command of any group: it belongs to the dialog section.
bool IsDialogSectionLine(const QString& Line);
/// The name of the command a line calls: the word in front of its first "(", or empty.
QString CommandNameOfLine(const QString& Line);
/// A regular expression that matches a trimmed line that calls Name.
QString CommandPattern(const QString& Name);

/// Finds the body of a script function: from behind the line feed that follows its "{" (or behind the
/// "{" when the function is on one line) to its matching "}". Comments and strings don't count, neither
/// for the name nor for the braces. False when the function or its end can't be found.
bool FindFunctionBody(const QString& Text, const QString& Name, qsizetype& Start, qsizetype& End);
/// The body of OnProjectLoad with its comments blanked out; empty when there is none.
QString LoadFunctionCode(const QString& Text);
/// Names of the commands that stand twice in OnProjectLoad, in the order of their second appearance;
/// commands that may repeat don't count.
QStringList CommandsGivenTwice(const QString& Text);

/// What a write-back gives: the new text, or why it failed; the log lines it wants written either way.
struct WRITE_RESULT {
    bool Ok = false;
    QString Text;
    QString Error;
    QStringList Log;
};
/// Replaces commands in OnProjectLoad: drops every line of the body that matches one of Patterns, then
/// puts the lines of a group into the dialog-generated section and the others into the user section,
/// ahead of what is there with Prepend, else behind it.
WRITE_RESULT ReplaceSettings(const QString& Text, bool Prepend, const QStringList& Patterns,
                             const QStringList& Lines);

/// Project.SetTIFSpeed: a plain decimal number is kHz; a speed constant ("FREQ_4_MHZ", "Auto Speed") or
/// a frequency text ("4 MHz") is taken as it reads. Anything but 0 (maximum) and 65535 (adaptive) is then
/// rounded to whole kHz, from 501 Hz up, and raised to 1000 Hz. False for a text that is no speed.
bool ParseTIFSpeed(const QString& Text, I64& Hz);
/// The text that ParseTIFSpeed reads back as Hz: "Auto Speed", "Adaptive Speed" or "4 MHz".
QString TIFSpeedText(I64 Hz);
/// "USB" for 1 and "IP" for 2; the target interfaces "JTAG" 0, "SWD" 1, "FINE" 3, "cJTAG" 7. Empty for
/// other values.
QString HostIFName(I32 Value);
QString TargetIFName(I32 Value);
/// Names without regard to case; -1 for an unknown one.
I32 ParseHostIF(const QString& Name);
I32 ParseTargetIF(const QString& Name);

/// The probe settings of a project, for the lines of a new project file.
struct PROBE_SETTINGS {
    QString Device;
    I32 HostIF = 1;
    QString HostIdent; ///< serial number or host name, empty for none
    I32 TargetIF = 0;
    I64 Speed = 0;
};
/// The settings lines of a new project: device, host and target interface, speed, one Project.AddSvdFile
/// per file (the install directory written as "$(InstallDir)"), File.Open for the program file (the
/// project directory written as "$(ProjectDir)"), and the path substitutes of the project directory.
QStringList NewProjectLines(const PROBE_SETTINGS& Probe, const QStringList& SvdFiles,
                            const QString& ProgramFile, const QString& ProjectDir, const QString& InstallDir);
/// A command line of the command table's form, e.g. Line("Project.SetDevice", {"STM32"}).
QString CommandLine(const char* Name, const QStringList& Args);

} // namespace ProjectText
