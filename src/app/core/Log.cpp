#include "app/core/Log.h"

#include "app/core/ConsoleRing.h"

#include <QFile>

#include <atomic>
#include <cstdio>
#include <memory>
#include <mutex>
#include <thread>

namespace {

constexpr int MESSAGE_MAX = 2048;

struct LogState {
    std::mutex Lock;        // message buffer, log buffer, channel 0
    std::mutex ChannelLock; // the channel files; taken after Lock when both are needed
    std::unique_ptr<QFile> Channels[LOG_CHANNEL_COUNT];
    QByteArray LogBuffer;
    int Portion = 0; // read once from the interval text
    QString IntervalText;
    std::atomic<bool> DebugOutput{false};
    std::atomic<bool> ConsoleAttached{false};
    std::thread::id GuiThread;
    std::atomic<bool> GuiThreadKnown{false};
    std::atomic<U32> ErrorCount{0};
};

LogState& State() {
    static LogState s_State;
    return s_State;
}

const char* ClassPrefix(U32 Flags) {
    if (Flags & MSG_ERROR) {
        return "[E] ";
    }
    if (Flags & MSG_WARNING) {
        return "[W] ";
    }
    return " i  ";
}

/// Cuts a UTF-8 text at Max bytes without splitting a character.
QByteArray CutUtf8(QByteArray Bytes, int Max) {
    if (Bytes.size() <= Max) {
        return Bytes;
    }
    int End = Max;
    while (End > 0 && (static_cast<unsigned char>(Bytes[End]) & 0xC0) == 0x80) {
        --End;
    }
    Bytes.truncate(End);
    return Bytes;
}

void WriteStdout(const QByteArray& Line) {
    static std::mutex s_StdoutLock;
    std::lock_guard<std::mutex> Guard(s_StdoutLock);
    std::fwrite(Line.constData(), 1, static_cast<size_t>(Line.size()), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

/// Channel write under ChannelLock: the size rule, then the bytes.
void WriteChannelLocked(LogState& S, int Channel, const QByteArray& Bytes) {
    QFile* File = S.Channels[Channel].get();
    if (!File || !File->isOpen()) {
        return;
    }
    if (File->size() > LOG_FILE_MAX_BYTES) {
        File->flush();
        File->resize(LOG_FILE_KEEP_BYTES);
        File->seek(LOG_FILE_KEEP_BYTES);
    }
    File->write(Bytes);
    if (Channel != LOG_CHANNEL_APP) {
        File->flush();
    }
}

int PortionSize(LogState& S) {
    if (S.Portion == 0) {
        bool Ok = false;
        const int Value = S.IntervalText.trimmed().toInt(&Ok, 10);
        S.Portion = Ok && Value > 0 ? Value : 512;
    }
    return S.Portion;
}

} // namespace

int LogMessage(const QString& Text, U32 Flags) {
    if (Text.isEmpty()) {
        return -1;
    }
    LogState& S = State();
    if (Flags & MSG_ERROR) {
        S.ErrorCount.fetch_add(1);
    }
    std::lock_guard<std::mutex> Guard(S.Lock);

    QByteArray Buffer = CutUtf8(Text.toUtf8(), MESSAGE_MAX);
    while (!Buffer.isEmpty() && (Buffer.endsWith('\n') || Buffer.endsWith('\r') || Buffer.endsWith(' '))) {
        Buffer.chop(1);
    }
    if (Buffer.isEmpty()) {
        return 0;
    }
    if (Buffer[0] >= 'a' && Buffer[0] <= 'z') {
        Buffer[0] = static_cast<char>(Buffer[0] - 'a' + 'A');
    }
    const QString Clean = QString::fromUtf8(Buffer);

    const bool ToAll = Flags & MSG_TO_ALL;
    if ((ToAll || (Flags & MSG_TO_CONSOLE)) && S.ConsoleAttached.load()) {
        if (Flags & (MSG_ERROR | MSG_WARNING)) {
            AppendConsoleMsg(Clean, COLOR_LOGGING_ERROR);
        } else if (Flags & MSG_FROM_PROBE) {
            PrintConsole(Clean, COLOR_VALUE_PROBE);
        } else {
            PrintConsole(Clean, COLOR_VALUE_TRANSPARENT);
        }
    }

    if ((ToAll || (Flags & MSG_TO_STDOUT)) && S.DebugOutput.load()) {
        const QByteArray Prefix(ClassPrefix(Flags));
        WriteStdout(Prefix.size() + Buffer.size() > MESSAGE_MAX ? Buffer : Prefix + Buffer);
    }

    if (!(ToAll || (Flags & MSG_TO_LOGFILE))) {
        return 0;
    }
    std::lock_guard<std::mutex> ChannelGuard(S.ChannelLock);
    if (!S.Channels[LOG_CHANNEL_APP] || !S.Channels[LOG_CHANNEL_APP]->isOpen()) {
        return 0;
    }
    // The file is written in portions, so that a burst of messages is not a burst of writes.
    if (S.LogBuffer.size() >= PortionSize(S)) {
        WriteChannelLocked(S, LOG_CHANNEL_APP, S.LogBuffer);
        S.Channels[LOG_CHANNEL_APP]->flush();
        S.LogBuffer.clear();
    }
    S.LogBuffer += ClassPrefix(Flags);
    S.LogBuffer += Buffer;
    S.LogBuffer += '\n';
    return 0;
}

int LogMessageChecked(const QString& Text, U32 Flags) {
    LogState& S = State();
    const bool ToAll = Flags & MSG_TO_ALL;
    const bool Console = (ToAll || (Flags & MSG_TO_CONSOLE)) && S.ConsoleAttached.load();
    const bool Stdout = (ToAll || (Flags & MSG_TO_STDOUT)) && S.DebugOutput.load();
    const bool File = (ToAll || (Flags & MSG_TO_LOGFILE)) && IsLogChannelOpen(LOG_CHANNEL_APP);
    if (!Console && !Stdout && !File) {
        return -1;
    }
    return LogMessage(Text, Flags);
}

void LogDebugMsg(const QString& Text) {
    LogMessage(Text, MSG_INFO | MSG_TO_LOGFILE | MSG_FROM_APP);
}
void LogInfoMsg(const QString& Text) {
    LogMessage(Text, MSG_INFO | MSG_TO_ALL | MSG_FROM_APP);
}
void LogWarnMsg(const QString& Text) {
    LogMessage(Text, MSG_WARNING | MSG_TO_STDOUT | MSG_TO_LOGFILE | MSG_FROM_APP);
}
void LogErrorMsg(const QString& Text) {
    LogMessage(Text, MSG_ERROR | MSG_TO_ALL | MSG_FROM_APP);
}

void AppendConsoleMsg(const QString& Text, COLOR_IDS Color, bool Bold) {
    ConsoleRing::Push(Text, Color, 0, Bold);
}

void AppendConsoleMsg(const QString& Text, U32 ColorRGBA, bool Bold) {
    ConsoleRing::Push(Text, -1, ColorRGBA, Bold);
}

void AppendConsoleLines(const QStringList& Lines, COLOR_IDS Color) {
    for (const QString& Line : Lines) {
        ConsoleRing::Push(Line.isEmpty() ? QStringLiteral(" ") : Line, Color, 0, true);
    }
}

void PrintConsole(const QString& Text, COLOR_IDS Color, bool Bold) {
    AppendConsoleMsg(Text, Color, Bold);
}

void PrintConsole(const QString& Text, U32 ColorRGBA, bool Bold) {
    // Transparent stays as it is: the Console replaces it with the palette's text colour when it draws,
    // because the palette belongs to the GUI thread.
    AppendConsoleMsg(Text, ColorRGBA, Bold);
}

/// Writes what channel 0 still buffers before its file goes; both locks held.
static void FlushAppBufferLocked(LogState& S) {
    if (!S.LogBuffer.isEmpty()) {
        WriteChannelLocked(S, LOG_CHANNEL_APP, S.LogBuffer);
        S.LogBuffer.clear();
    }
}

bool OpenLogChannel(int Channel, const QString& Path) {
    if (Channel < 0 || Channel >= LOG_CHANNEL_COUNT) {
        return false;
    }
    LogState& S = State();
    std::lock_guard<std::mutex> Guard(S.Lock);
    std::lock_guard<std::mutex> ChannelGuard(S.ChannelLock);
    if (Channel == LOG_CHANNEL_APP) {
        FlushAppBufferLocked(S);
    }
    S.Channels[Channel].reset();
    if (Path.isEmpty()) {
        return false;
    }
    auto File = std::make_unique<QFile>(Path);
    const QIODevice::OpenMode Mode =
        QIODevice::ReadWrite | QIODevice::Truncate |
        (Channel == LOG_CHANNEL_TIMESTAMPS ? QIODevice::NotOpen : QIODevice::Text);
    if (!File->open(Mode)) {
        return false;
    }
    S.Channels[Channel] = std::move(File);
    return true;
}

void CloseLogChannel(int Channel) {
    if (Channel < 0 || Channel >= LOG_CHANNEL_COUNT) {
        return;
    }
    LogState& S = State();
    std::lock_guard<std::mutex> Guard(S.Lock);
    std::lock_guard<std::mutex> ChannelGuard(S.ChannelLock);
    if (Channel == LOG_CHANNEL_APP) {
        FlushAppBufferLocked(S);
    }
    S.Channels[Channel].reset();
}

bool IsLogChannelOpen(int Channel) {
    if (Channel < 0 || Channel >= LOG_CHANNEL_COUNT) {
        return false;
    }
    LogState& S = State();
    std::lock_guard<std::mutex> Guard(S.ChannelLock);
    return S.Channels[Channel] && S.Channels[Channel]->isOpen();
}

void WriteLogChannel(int Channel, const QByteArray& Bytes) {
    if (Channel < 0 || Channel >= LOG_CHANNEL_COUNT || Bytes.isEmpty()) {
        return;
    }
    LogState& S = State();
    std::lock_guard<std::mutex> Guard(S.ChannelLock);
    WriteChannelLocked(S, Channel, Bytes);
}

void FlushLogBuffer() {
    LogState& S = State();
    std::lock_guard<std::mutex> Guard(S.Lock);
    std::lock_guard<std::mutex> ChannelGuard(S.ChannelLock);
    FlushAppBufferLocked(S);
    if (S.Channels[LOG_CHANNEL_APP]) {
        S.Channels[LOG_CHANNEL_APP]->flush();
    }
}

void SetLogDebugOutput(bool On) {
    State().DebugOutput = On;
}
bool IsLogDebugOutput() {
    return State().DebugOutput.load();
}

void SetLogInterval(const QString& Text) {
    LogState& S = State();
    std::lock_guard<std::mutex> Guard(S.Lock);
    S.IntervalText = Text;
    S.Portion = 0;
}

void SetConsoleAttached(bool Attached) {
    State().ConsoleAttached = Attached;
}

void RecordGuiThread() {
    LogState& S = State();
    S.GuiThread = std::this_thread::get_id();
    S.GuiThreadKnown = true;
}

bool IsGuiThread() {
    LogState& S = State();
    return S.GuiThreadKnown.load() && S.GuiThread == std::this_thread::get_id();
}

U32 GetErrorCount() {
    return State().ErrorCount.load();
}
void ResetErrorCount() {
    State().ErrorCount = 0;
}
void CountError() {
    State().ErrorCount.fetch_add(1);
}
