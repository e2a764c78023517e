// Writing the project file: a new file, and the write-back of settings into OnProjectLoad.

#include "script/Project.h"

#include "app/core/CommandTable.h"
#include "app/core/Log.h"
#include "app/core/Paths.h"
#include "app/core/ScriptConstants.h"
#include "app/core/SysVars.h"
#include "script/TScript.h"
#include "script/TextCodec.h"

#include <QFileInfo>
#include <QRegularExpression>

namespace {

/// Patterns that drop the earlier lines of the commands that Lines give again. A path substitute is one
/// of possibly many of the user's: only the very same line goes.
QStringList PatternsOfLines(const QStringList& Lines) {
    QStringList Patterns;
    for (const QString& Line : Lines) {
        const QString Name = ProjectText::CommandNameOfLine(Line);
        if (Name.isEmpty()) {
            continue;
        }
        QStringList New;
        if (Name == QLatin1String("Project.AddPathSubstitute")) {
            New.append(QLatin1Char('^') + QRegularExpression::escape(Line.trimmed()) + QLatin1Char('$'));
        } else {
            New.append(ProjectText::CommandPattern(Name));
            const I32 Id = Commands::FindCommand(Name);
            const QString Alias = Id >= 0 ? Commands::GetCommandAlias(static_cast<U32>(Id)) : QString();
            if (!Alias.isEmpty()) {
                New.append(ProjectText::CommandPattern(Alias));
            }
        }
        for (const QString& P : New) {
            if (!Patterns.contains(P)) {
                Patterns.append(P);
            }
        }
    }
    return Patterns;
}

bool IsWrittenVariable(const SYSVAR_INFO* Row) {
    // Rows without storage of their own live in the device configuration: the probe settings write them.
    return Row && Row->HasStorage;
}

/// The system group, and Edit.SysVar lines of the variables the system settings write.
QStringList SystemPatterns() {
    QStringList Patterns;
    for (const QString& Name : ProjectText::GroupCommands(ProjectText::GROUP_SYSTEM)) {
        if (Name != QLatin1String("Edit.SysVar")) {
            Patterns.append(ProjectText::CommandPattern(Name));
        }
    }
    QStringList Vars;
    for (I32 Id = 0; Id < FIRST_PREFERENCE; ++Id) {
        const SYSVAR_INFO* Row = SysVars::GetVarRow(Id);
        if (IsWrittenVariable(Row)) {
            Vars << QLatin1String(Row->Name) << QString::number(Id);
        }
    }
    Patterns.append(ProjectText::CommandPattern(QStringLiteral("Edit.SysVar")) + QStringLiteral("\\s*(") +
                    Vars.join(QLatin1Char('|')) + QStringLiteral(")\\s*,"));
    return Patterns;
}

} // namespace

bool CProject::Fail(const QString& Error) {
    m_LastWriteError = Error;
    LogErrorMsg(QStringLiteral("Error writing project settings :") + Error);
    return false;
}

QStringList CProject::NewProjectLines(const QString& Path) const {
    const ProjectText::PROBE_SETTINGS Probe =
        m_ProbeSettings ? m_ProbeSettings() : ProjectText::PROBE_SETTINGS();
    const QString Dir = Path.isEmpty() ? QString() : QFileInfo(Path).absolutePath();
    return ProjectText::NewProjectLines(Probe, m_SvdFiles, m_ProgramFile, Dir, Paths::GetInstallDir());
}

bool CProject::SaveNew(const QString& Path) {
    m_LastWriteError.clear();
    const QString OldPath = GetPath();
    TScript::SetScriptPath(Path);
    Paths::SetProjectFile(Path);
    auto Restore = [&OldPath]() {
        TScript::SetScriptPath(OldPath);
        Paths::SetProjectFile(OldPath);
    };

    static const QRegularExpression s_Project(QStringLiteral("\\.tvproj$"),
                                              QRegularExpression::CaseInsensitiveOption);
    if (m_FromCmdLine && s_Project.match(Path).hasMatch() && QFileInfo(Path).isFile() && m_CmdLineLines) {
        const QStringList Lines = m_CmdLineLines();
        if (!Lines.isEmpty()) {
            if (!WriteProjectSettings(Lines)) {
                Restore();
                return false;
            }
            m_Modified = false;
            emit ModifiedChanged(false);
            return true;
        }
    }

    // The base is the project's file as it is on disk now: whatever the user or a dialog put there since
    // the script was loaded stays. The text in memory counts only for a project that has no file.
    const QStringList Lines = NewProjectLines(Path);
    const bool Running = !TScript::GetScriptText().isEmpty();
    TextCodec::TEXT_FORM Form = TScript::GetFileForm();
    QByteArray Raw;
    QString Base;
    const bool OnDisk = QFileInfo(OldPath).isFile() && TextCodec::ReadFile(OldPath, Base, &Form, &Raw);
    if (!OnDisk && Running) {
        Base = QString::fromUtf8(TScript::GetScriptText());
    }
    QString Text;
    if (!Base.isEmpty() && (!Running || TScript::HasError())) {
        // A script that failed hasn't set the session up: its settings lines stay as the user wrote them.
        Text = Base;
    } else if (!Base.isEmpty()) {
        if (OnDisk && TScript::HashText(Raw) != TScript::GetScriptHash() &&
            !(m_ConfirmChangedFile && m_ConfirmChangedFile(OldPath))) {
            Restore();
            m_LastWriteError = QStringLiteral("the project file was changed by another program: ") + OldPath;
            LogErrorMsg(QStringLiteral("Project not saved: ") + m_LastWriteError);
            return false;
        }
        const ProjectText::WRITE_RESULT R =
            ProjectText::ReplaceSettings(Base, true, PatternsOfLines(Lines), Lines);
        for (const QString& Line : R.Log) {
            LogDebugMsg(Line);
        }
        if (!R.Ok) {
            // Never a generated text over a file of the user's.
            Restore();
            return Fail(R.Error);
        }
        Text = R.Text;
    }
    if (Text.isEmpty()) {
        Text = TScript::GenerateProjectText(Lines);
        if (!Running) {
            TScript::Parse(Text);
        }
    }
    if (TScript::SetText(Path, Text, &Form) < 0) {
        Restore();
        m_LastWriteError = QStringLiteral("file could not be written");
        LogErrorMsg(QStringLiteral("Could not write project file ") + Path);
        return false;
    }
    m_Modified = false;
    emit ModifiedChanged(false);
    return true;
}

bool CProject::WriteSettings(const QString& Path, bool Prepend, const QStringList& Patterns,
                             const QStringList& Lines) {
    m_LastWriteError.clear();
    QString Target = Path;
    if (!QFileInfo(Target).isFile()) {
        const QString Chosen = AskSaveAs();
        if (Chosen.isEmpty()) {
            return Fail(QStringLiteral("project file path not specified"));
        }
        if (!SaveNew(Chosen)) {
            return Fail(m_LastWriteError);
        }
        Target = Chosen;
    }
    QString Text;
    TextCodec::TEXT_FORM Form;
    if (!TextCodec::ReadFile(Target, Text, &Form)) {
        return Fail(QStringLiteral("file contents could not be read"));
    }
    const ProjectText::WRITE_RESULT R = ProjectText::ReplaceSettings(Text, Prepend, Patterns, Lines);
    for (const QString& Line : R.Log) {
        LogWarnMsg(Line);
    }
    if (!R.Ok) {
        return Fail(R.Error);
    }
    if (TScript::SetText(Target, R.Text, &Form) < 0) {
        return Fail(QStringLiteral("file could not be written"));
    }
    return true;
}

bool CProject::WriteGroup(ProjectText::SETTINGS_GROUPS Group, const QStringList& Lines, const char* Done) {
    QStringList Patterns;
    for (const QString& Name : ProjectText::GroupCommands(Group)) {
        Patterns.append(ProjectText::CommandPattern(Name));
    }
    if (!WriteSettings(GetPath(), true, Patterns, Lines)) {
        return false;
    }
    LogInfoMsg(QLatin1String(Done));
    return true;
}

bool CProject::WriteTraceSettings(const QStringList& Lines) {
    return WriteGroup(ProjectText::GROUP_TRACE, Lines, "Trace settings were written to the project file");
}

bool CProject::WriteTarvoSettings(const QStringList& Lines) {
    return WriteGroup(ProjectText::GROUP_PROBE, Lines, "Tarvo settings were written to the project file");
}

bool CProject::WriteSystemSettings() {
    if (!WriteSettings(GetPath(), true, SystemPatterns(), SystemSettingsLines())) {
        return false;
    }
    LogInfoMsg(QStringLiteral("System settings were written to the project file"));
    return true;
}

bool CProject::WriteProjectSettings(const QStringList& Lines, const QString& Path) {
    if (!WriteSettings(Path.isEmpty() ? GetPath() : Path, true, PatternsOfLines(Lines), Lines)) {
        return false;
    }
    LogInfoMsg(QStringLiteral("Project settings were written to the project file"));
    return true;
}

QStringList CProject::SystemSettingsLines() {
    QStringList Lines;
    for (I32 Id = 0; Id < FIRST_PREFERENCE; ++Id) {
        const SYSVAR_INFO* Row = SysVars::GetVarRow(Id);
        if (!IsWrittenVariable(Row) || !SysVars::IsVarChanged(Row)) {
            continue;
        }
        const bool Text = Row->Type == &SYSVAR_TYPE_STRING;
        // A value is written as its constant where it has one ("RM_RESET_HALT"), else as its number, so
        // that the line reads back as the same value.
        QString Value = Text ? SysVars::GetVarString(Row) : SysVars::GetVarText(Row);
        if (!Text && !ScriptConstants::Lookup(Value)) {
            Value = QString::number(SysVars::GetVarValue(Row));
        }
        I32 Bound = -1;
        for (U32 C = 0; C < COMMAND_COUNT && Bound < 0; ++C) {
            if (g_CommandRows[C].SysVar == Id) {
                Bound = static_cast<I32>(C);
            }
        }
        if (Bound >= 0) {
            Lines.append(Commands::FormatCommandText(static_cast<U32>(Bound), {Value}));
        } else if (Text) {
            Lines.append(QStringLiteral("Edit.SysVar (%1, \"%2\");").arg(QLatin1String(Row->Name), Value));
        } else {
            Lines.append(Commands::FormatCommandText(
                static_cast<U32>(Commands::FindCommand(QStringLiteral("Edit.SysVar"))),
                {QLatin1String(Row->Name), Value}));
        }
    }
    return Lines;
}
