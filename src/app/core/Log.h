#pragma once

#include "app/core/Colors.h"
#include "app/core/Types.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

/// Class, destination and origin of a log message.
enum MSG_FLAGS : U32 {
    MSG_INFO = 0x0001,
    MSG_WARNING = 0x0002,
    MSG_ERROR = 0x0004,
    MSG_TO_STDOUT = 0x0008, ///< only when -debug is set
    MSG_TO_LOGFILE = 0x0010,
    MSG_TO_CONSOLE = 0x0020,
    MSG_TO_ALL = 0x0040,
    MSG_FROM_TOOLKIT = 0x0080,
    MSG_FROM_PROGRAM_DATA = 0x0100,
    MSG_FROM_PROBE = 0x0200,
    MSG_FROM_APP = 0x0400,
    MSG_FROM_DEVICE = 0x0800,
    MSG_FROM_PLUGIN = 0x1000,
};

/// Colour of probe messages in the Console.
constexpr U32 COLOR_VALUE_PROBE = 0xFF00008B;

/// The file channels of the log.
enum LOG_CHANNELS : int {
    LOG_CHANNEL_APP = 0,        ///< application log, -logfile
    LOG_CHANNEL_CONSOLE = 1,    ///< console text
    LOG_CHANNEL_TERMINAL = 2,   ///< terminal text
    LOG_CHANNEL_TIMESTAMPS = 3, ///< binary instruction trace timestamps, -logtimestamps
    LOG_CHANNEL_COUNT = 4,
};

/// A channel file larger than this is cut to LOG_FILE_KEEP_BYTES before the next write.
constexpr qint64 LOG_FILE_MAX_BYTES = 16000000;
constexpr qint64 LOG_FILE_KEEP_BYTES = 16000;

/// The central log operation: any thread. 0, or -1 for an empty text.
int LogMessage(const QString& Text, U32 Flags);
/// -1 without doing anything when the message would reach no output, else LogMessage.
int LogMessageChecked(const QString& Text, U32 Flags);

void LogDebugMsg(const QString& Text); ///< info, log file only
void LogInfoMsg(const QString& Text);  ///< info, all outputs
void LogWarnMsg(const QString& Text);  ///< warning, standard output (with -debug) and log file
void LogErrorMsg(const QString& Text); ///< error, all outputs

/// Console lines: any thread. Colour by table id, or by ARGB value (COLOR_VALUE_TRANSPARENT for the
/// palette's text colour).
void AppendConsoleMsg(const QString& Text, COLOR_IDS Color, bool Bold = false);
void AppendConsoleMsg(const QString& Text, U32 ColorRGBA, bool Bold = false);
void AppendConsoleLines(const QStringList& Lines, COLOR_IDS Color);
void PrintConsole(const QString& Text, COLOR_IDS Color = COLOR_LOGGING_USER, bool Bold = false);
void PrintConsole(const QString& Text, U32 ColorRGBA, bool Bold = false);

/// Opens a channel file, truncated. An empty path or a channel above 3 gives false and changes nothing,
/// except that an empty path closes the channel.
bool OpenLogChannel(int Channel, const QString& Path);
void CloseLogChannel(int Channel);
bool IsLogChannelOpen(int Channel);
/// Writes to a channel with the size rule; channels 1 to 3 flush after each write.
void WriteLogChannel(int Channel, const QByteArray& Bytes);
/// Writes what the log buffer still holds to channel 0.
void FlushLogBuffer();

/// Set-up of the log from the command line and start-up; call before logging starts.
void SetLogDebugOutput(bool On);
bool IsLogDebugOutput();
void SetLogInterval(const QString& Text);
/// Whether the Console window exists; messages go to it only then.
void SetConsoleAttached(bool Attached);
/// The GUI thread is the one that calls this first (start-up records it).
void RecordGuiThread();
bool IsGuiThread();

/// Counts every error message logged or printed since the last reset (automation exit status).
U32 GetErrorCount();
void ResetErrorCount();
void CountError();
