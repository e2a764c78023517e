#include "script/ProjectText.h"

#include "app/core/CommandTable.h"
#include "app/core/Numbers.h"
#include "app/core/ScriptConstants.h"

#include <QHash>
#include <QRegularExpression>

namespace ProjectText {
namespace {

const char* const LOAD_FUNCTION = "OnProjectLoad";
const char* const DIALOG_MARKER = "// Dialog-generated settings";
const char* const USER_MARKER = "// User settings";

/// The text with comments (and, with Strings, the insides of string and character literals) replaced by
/// blanks; line feeds and the length stay, so that positions carry over to the original.
QString Mask(const QString& Text, bool Strings) {
    QString M = Text;
    const qsizetype N = M.size();
    qsizetype i = 0;
    while (i < N) {
        const QChar C = M[i];
        const QChar Next = i + 1 < N ? M[i + 1] : QChar();
        if (C == QLatin1Char('/') && Next == QLatin1Char('/')) {
            while (i < N && M[i] != QLatin1Char('\n')) {
                M[i++] = QLatin1Char(' ');
            }
        } else if (C == QLatin1Char('/') && Next == QLatin1Char('*')) {
            M[i++] = QLatin1Char(' ');
            M[i++] = QLatin1Char(' ');
            while (i < N && !(M[i] == QLatin1Char('*') && i + 1 < N && M[i + 1] == QLatin1Char('/'))) {
                if (M[i] != QLatin1Char('\n')) {
                    M[i] = QLatin1Char(' ');
                }
                ++i;
            }
            for (int k = 0; k < 2 && i < N; ++k) {
                M[i++] = QLatin1Char(' ');
            }
        } else if (C == QLatin1Char('"') || C == QLatin1Char('\'')) {
            // A literal ends at its closing quote or, unclosed, at the end of its line.
            ++i;
            while (i < N && M[i] != C && M[i] != QLatin1Char('\n')) {
                if (M[i] == QLatin1Char('\\') && i + 1 < N && M[i + 1] != QLatin1Char('\n')) {
                    if (Strings) {
                        M[i] = QLatin1Char(' ');
                    }
                    ++i;
                }
                if (Strings) {
                    M[i] = QLatin1Char(' ');
                }
                ++i;
            }
            if (i < N && M[i] == C) {
                ++i;
            }
        } else {
            ++i;
        }
    }
    return M;
}

/// A marker line of a section: [Start, End) covers it with the "//" lines around it.
bool FindMarker(const QString& Body, const char* Marker, qsizetype& Start, qsizetype& End) {
    const QStringList Lines = Body.split(QLatin1Char('\n'));
    qsizetype Pos = 0;
    QList<qsizetype> Starts;
    for (const QString& L : Lines) {
        Starts.append(Pos);
        Pos += L.size() + 1;
    }
    for (int i = 0; i < Lines.size(); ++i) {
        if (Lines[i].trimmed().compare(QLatin1String(Marker), Qt::CaseInsensitive) != 0) {
            continue;
        }
        const bool Above = i > 0 && Lines[i - 1].trimmed() == QLatin1String("//");
        const bool Below = i + 1 < Lines.size() && Lines[i + 1].trimmed() == QLatin1String("//");
        Start = Starts[Above ? i - 1 : i];
        const int Last = Below ? i + 1 : i;
        End = qMin(Starts[Last] + Lines[Last].size() + 1, Body.size());
        return true;
    }
    return false;
}

QString Indented(const QStringList& Lines) {
    QString Text;
    for (const QString& L : Lines) {
        const QString T = L.trimmed();
        if (!T.isEmpty()) {
            Text += QStringLiteral("  ") + T + QLatin1Char('\n');
        }
    }
    return Text;
}

/// A section with new lines ahead of or behind its own.
QString MergeSection(const QString& Section, const QStringList& New, bool Prepend) {
    QStringList Old;
    for (const QString& L : Section.split(QLatin1Char('\n'))) {
        if (!L.trimmed().isEmpty()) {
            Old.append(L);
        }
    }
    return Indented(Prepend ? New + Old : Old + New);
}

/// Text appended at the end of a body, on a line of its own.
QString AppendLines(const QString& Body, const QStringList& Lines) {
    if (Lines.isEmpty()) {
        return Body;
    }
    QString Text = Body;
    if (!Text.isEmpty() && !Text.endsWith(QLatin1Char('\n'))) {
        Text += QLatin1Char('\n');
    }
    return Text + Indented(Lines);
}

QStringList WithAliases(const QStringList& Names) {
    QStringList All;
    for (const QString& Name : Names) {
        All.append(Name);
        const I32 Id = Commands::FindCommand(Name);
        if (Id >= 0 && !Commands::GetCommandAlias(static_cast<U32>(Id)).isEmpty()) {
            All.append(Commands::GetCommandAlias(static_cast<U32>(Id)));
        }
    }
    return All;
}

} // namespace

QStringList GroupCommands(SETTINGS_GROUPS Group) {
    switch (Group) {
    case GROUP_PROBE:
        return WithAliases({QStringLiteral("Project.SetCorePlugin"), QStringLiteral("Project.SetDevice"),
                            QStringLiteral("Project.SetHostIF"), QStringLiteral("Project.SetTargetIF"),
                            QStringLiteral("Project.SetTIFSpeed"), QStringLiteral("Project.SetJTAGConfig"),
                            QStringLiteral("Target.SetEndianess")});
    case GROUP_TRACE:
        return WithAliases({QStringLiteral("Project.SetTraceSource"),
                            QStringLiteral("Project.SetTraceTiming"), QStringLiteral("Project.SetTraceFile"),
                            QStringLiteral("Project.SetTracePortWidth"),
                            QStringLiteral("Project.ConfigSWO")});
    case GROUP_SYSTEM: {
        QStringList Names;
        for (U32 Id = 0; Id < COMMAND_COUNT; ++Id) {
            if (g_CommandRows[Id].SysVar != COMMAND_NO_SYSVAR) {
                Names.append(Commands::GetCommandName(Id));
            }
        }
        Names.append(QStringLiteral("Edit.SysVar"));
        return WithAliases(Names);
    }
    case GROUP_MEMORY:
        return WithAliases({QStringLiteral("Target.AddMemorySegment")});
    case GROUP_FURTHER:
        return WithAliases(
            {QStringLiteral("Project.AddSvdFile"), QStringLiteral("Project.AddPathSubstitute")});
    }
    return QStringList();
}

bool IsDialogSectionLine(const QString& Line) {
    static const QStringList s_All = GroupCommands(GROUP_PROBE) + GroupCommands(GROUP_TRACE) +
                                     GroupCommands(GROUP_SYSTEM) + GroupCommands(GROUP_MEMORY) +
                                     GroupCommands(GROUP_FURTHER);
    const QString Name = CommandNameOfLine(Line);
    return !Name.isEmpty() && s_All.contains(Name);
}

QString CommandNameOfLine(const QString& Line) {
    static const QRegularExpression s_Call(QStringLiteral("^([A-Za-z_][A-Za-z0-9_.]*)\\s*\\("));
    const QRegularExpressionMatch M = s_Call.match(Line.trimmed());
    return M.hasMatch() ? M.captured(1) : QString();
}

QString CommandPattern(const QString& Name) {
    return QLatin1Char('^') + QRegularExpression::escape(Name) + QStringLiteral("\\s*\\(");
}

bool FindFunctionBody(const QString& Text, const QString& Name, qsizetype& Start, qsizetype& End) {
    const QString Code = Mask(Text, true);
    const QRegularExpression Head(QStringLiteral("\\b") + QRegularExpression::escape(Name) +
                                  QStringLiteral("\\s*\\(([^()]*)\\)\\s*\\{"));
    const QRegularExpressionMatch M = Head.match(Code);
    if (!M.hasMatch()) {
        return false;
    }
    const qsizetype Open = M.capturedEnd() - 1;
    int Depth = 0;
    for (qsizetype i = Open; i < Code.size(); ++i) {
        if (Code[i] == QLatin1Char('{')) {
            ++Depth;
        } else if (Code[i] == QLatin1Char('}') && --Depth == 0) {
            const qsizetype Feed = Text.indexOf(QLatin1Char('\n'), Open);
            Start = Feed >= 0 && Feed < i ? Feed + 1 : Open + 1;
            End = i;
            return true;
        }
    }
    return false;
}

QString LoadFunctionCode(const QString& Text) {
    qsizetype Start = 0;
    qsizetype End = 0;
    if (!FindFunctionBody(Text, QLatin1String(LOAD_FUNCTION), Start, End)) {
        return QString();
    }
    return Mask(Text, false).mid(Start, End - Start);
}

QStringList CommandsGivenTwice(const QString& Text) {
    QHash<I32, int> Counts;
    QStringList Twice;
    for (const QString& Line : LoadFunctionCode(Text).split(QLatin1Char('\n'))) {
        const I32 Id = Commands::FindCommand(CommandNameOfLine(Line));
        if (Id < 0 || (g_CommandRows[Id].Flags & CF_REPEATABLE)) {
            continue;
        }
        if (++Counts[Id] == 2) {
            Twice.append(Commands::GetCommandName(static_cast<U32>(Id)));
        }
    }
    return Twice;
}

WRITE_RESULT ReplaceSettings(const QString& Text, bool Prepend, const QStringList& Patterns,
                             const QStringList& Lines) {
    WRITE_RESULT R;
    qsizetype Start = 0;
    qsizetype End = 0;
    if (!FindFunctionBody(Text, QLatin1String(LOAD_FUNCTION), Start, End)) {
        R.Log.append(QStringLiteral("Could not determine text bounds of script function ") +
                     QLatin1String(LOAD_FUNCTION));
        R.Error = QStringLiteral(
            "could not determine text insertion position.\nVerify that script function 'OnProjectLoad' is "
            "present.");
        return R;
    }
    QList<QRegularExpression> Drop;
    for (const QString& P : Patterns) {
        Drop.append(QRegularExpression(P));
    }
    QStringList Kept;
    for (const QString& Line : Text.mid(Start, End - Start).split(QLatin1Char('\n'))) {
        const QString T = Line.trimmed();
        const bool Matches = std::any_of(Drop.cbegin(), Drop.cend(),
                                         [&T](const QRegularExpression& E) { return E.match(T).hasMatch(); });
        if (!Matches) {
            Kept.append(Line);
        }
    }
    const QString Body = Kept.join(QLatin1Char('\n'));

    QStringList Dialog;
    QStringList User;
    for (const QString& L : Lines) {
        (IsDialogSectionLine(L) ? Dialog : User).append(L.trimmed());
    }
    qsizetype DStart = 0, DEnd = 0, UStart = 0, UEnd = 0;
    bool HasDialog = FindMarker(Body, DIALOG_MARKER, DStart, DEnd);
    const bool HasUser = FindMarker(Body, USER_MARKER, UStart, UEnd);
    if (HasDialog && HasUser && DEnd > UStart) {
        // A user marker above the dialog marker leaves no room between them: the dialog lines go last.
        HasDialog = false;
    }
    if (!HasDialog && !Dialog.isEmpty()) {
        R.Log.append(QStringLiteral(
            "could not find dialog-generated text section in script function 'OnProjectLoad'"));
    }
    if (!HasUser && !User.isEmpty()) {
        R.Log.append(
            QStringLiteral("could not find user settings text section in script function 'OnProjectLoad'"));
    }

    QString NewBody;
    if (HasDialog && HasUser) {
        const QString Sec0 = Body.mid(DEnd, UStart - DEnd);
        const QString Sec1 = Body.mid(UEnd);
        NewBody = Body.left(DEnd) + (Dialog.isEmpty() ? Sec0 : MergeSection(Sec0, Dialog, Prepend)) +
                  Body.mid(UStart, UEnd - UStart) +
                  (User.isEmpty() ? Sec1 : MergeSection(Sec1, User, Prepend));
    } else if (HasDialog) {
        const QString Sec0 = Body.mid(DEnd);
        NewBody = AppendLines(
            Body.left(DEnd) + (Dialog.isEmpty() ? Sec0 : MergeSection(Sec0, Dialog, Prepend)), User);
    } else if (HasUser) {
        const QString Sec1 = Body.mid(UEnd);
        NewBody = AppendLines(Body.left(UEnd) + (User.isEmpty() ? Sec1 : MergeSection(Sec1, User, Prepend)),
                              Dialog);
    } else {
        NewBody = AppendLines(Body, Dialog + User);
    }
    R.Ok = true;
    R.Text = Text.left(Start) + NewBody + Text.mid(End);
    return R;
}

bool ParseTIFSpeed(const QString& Text, I64& Hz) {
    static const QRegularExpression s_Decimal(QStringLiteral("^\\d+$"));
    const QString T = Text.trimmed();
    I64 Value = -1;
    if (s_Decimal.match(T).hasMatch()) {
        bool Ok = false;
        const qulonglong KHz = T.toULongLong(&Ok);
        if (!Ok || KHz > 1000000000ULL) {
            return false;
        }
        Value = static_cast<I64>(KHz) * 1000;
    } else if (const SCRIPT_CONST* C = ScriptConstants::Lookup(T);
               C && C->Name.startsWith(QLatin1String("FREQ_"))) {
        Value = C->Value;
    } else {
        Value = Numbers::ParseFrequency(T);
    }
    if (Value < 0) {
        return false;
    }
    if (Value != 0 && Value != 65535) {
        I64 KHz = Value / 1000;
        if (Value % 1000 >= 501) {
            ++KHz;
        }
        Value = qMax<I64>(KHz, 1) * 1000;
    }
    Hz = Value;
    return true;
}

QString TIFSpeedText(I64 Hz) {
    if (Hz == 0) {
        return QStringLiteral("Auto Speed");
    }
    if (Hz == 65535) {
        return QStringLiteral("Adaptive Speed");
    }
    return Numbers::FormatFrequency(static_cast<U64>(Hz));
}

namespace {

const struct {
    I32 Value;
    const char* Name;
} s_HostIFs[] = {{1, "USB"}, {2, "IP"}}, s_TargetIFs[] = {{0, "JTAG"}, {1, "SWD"}, {3, "FINE"}, {7, "cJTAG"}};

} // namespace

QString HostIFName(I32 Value) {
    for (const auto& H : s_HostIFs) {
        if (H.Value == Value) {
            return QLatin1String(H.Name);
        }
    }
    return QString();
}

QString TargetIFName(I32 Value) {
    for (const auto& T : s_TargetIFs) {
        if (T.Value == Value) {
            return QLatin1String(T.Name);
        }
    }
    return QString();
}

I32 ParseHostIF(const QString& Name) {
    for (const auto& H : s_HostIFs) {
        if (Name.trimmed().compare(QLatin1String(H.Name), Qt::CaseInsensitive) == 0) {
            return H.Value;
        }
    }
    return -1;
}

I32 ParseTargetIF(const QString& Name) {
    for (const auto& T : s_TargetIFs) {
        if (Name.trimmed().compare(QLatin1String(T.Name), Qt::CaseInsensitive) == 0) {
            return T.Value;
        }
    }
    return -1;
}

QString CommandLine(const char* Name, const QStringList& Args) {
    const I32 Id = Commands::FindCommand(QLatin1String(Name));
    return Id < 0 ? QString() : Commands::FormatCommandText(static_cast<U32>(Id), Args);
}

namespace {

/// Path with a leading directory written as its macro.
QString Collapse(const QString& Path, const QString& Dir, const char* Macro) {
    if (!Dir.isEmpty() && Path.startsWith(Dir + QLatin1Char('/'))) {
        return QLatin1String(Macro) + Path.mid(Dir.size());
    }
    return Path;
}

} // namespace

QStringList NewProjectLines(const PROBE_SETTINGS& Probe, const QStringList& SvdFiles,
                            const QString& ProgramFile, const QString& ProjectDir,
                            const QString& InstallDir) {
    QStringList Lines;
    // A project without a device yet gets none: an empty name would stop the next load with an error.
    if (!Probe.Device.isEmpty()) {
        Lines << CommandLine("Project.SetDevice", {Probe.Device});
    }
    Lines << CommandLine("Project.SetHostIF", {HostIFName(Probe.HostIF), Probe.HostIdent})
          << CommandLine("Project.SetTargetIF", {TargetIFName(Probe.TargetIF)})
          << CommandLine("Project.SetTIFSpeed", {TIFSpeedText(Probe.Speed)});
    for (const QString& Svd : SvdFiles) {
        Lines << CommandLine("Project.AddSvdFile", {Collapse(Svd, InstallDir, "$(InstallDir)")});
    }
    if (!ProgramFile.isEmpty()) {
        Lines << CommandLine("File.Open", {Collapse(ProgramFile, ProjectDir, "$(ProjectDir)")});
    }
    if (!ProjectDir.isEmpty()) {
        Lines << CommandLine("Project.AddPathSubstitute", {ProjectDir, QStringLiteral("$(ProjectDir)")});
        // Paths in debug information may come in another case than the directory on this machine.
        if (ProjectDir.toLower() != ProjectDir) {
            Lines << CommandLine("Project.AddPathSubstitute",
                                 {ProjectDir.toLower(), QStringLiteral("$(ProjectDir)")});
        }
    }
    return Lines;
}

} // namespace ProjectText
