// The project's life cycle: open, close, made from lines, and the project check.

#include "script/Project.h"

#include "app/core/Catalogue.h"
#include "app/core/CommandTable.h"
#include "app/core/Log.h"
#include "app/core/Paths.h"
#include "script/TScript.h"
#include "script/TextCodec.h"

#include <QFileInfo>
#include <QTimer>

namespace {

/// How often a pending open looks whether the running script function has returned.
constexpr int OPEN_POLL_MS = 10;

QString ReadText(const QString& Path) {
    QString Text;
    TextCodec::ReadFile(Path, Text);
    return Text;
}

QString Catalog(int Index, const QString& Arg = QString()) {
    return Arg.isNull() ? CatalogText(Index) : CatalogText(Index, Arg.toUtf8().constData());
}

} // namespace

CProject* CProject::Instance() {
    static CProject* s_Project = new CProject();
    return s_Project;
}

CProject::CProject() {
    m_OpenTimer = new QTimer(this);
    m_OpenTimer->setInterval(OPEN_POLL_MS);
    connect(m_OpenTimer, &QTimer::timeout, this, &CProject::OnOpenTimeout);
}

QString CProject::GetPath() const {
    return TScript::GetScriptPath();
}

void CProject::SetModified(bool Modified) {
    if (m_Modified != Modified) {
        m_Modified = Modified;
        emit ModifiedChanged(Modified);
    }
}

void CProject::AddSvdFile(const QString& Path) {
    if (!m_SvdFiles.contains(Path)) {
        m_SvdFiles.append(Path);
    }
}

void CProject::SetProgramFile(const QString& Path, const QDateTime& Time) {
    m_ProgramFile = Path;
    m_ProgramFileTime = Time;
}

int CProject::RunUserFunction(int Id) {
    return m_RunUserFunction ? m_RunUserFunction(Id) : TScript::ExecUserFunction(Id);
}

void CProject::Open(const QString& Path) {
    if (QFileInfo(Path).isFile()) {
        Close();
        // $(ProjectDir) in OnProjectLoad means the directory of this file.
        Paths::SetProjectFile(Path);
        TScript::LoadProject(Path);
        m_Loaded = true;
    } else {
        qWarning("file not found");
        m_Loaded = false;
    }
    m_Modified = false;
    emit ModifiedChanged(false);
    emit Opened(Path);
}

void CProject::OpenLater(const QString& Path) {
    // A running script ends at its next step; nothing new starts meanwhile.
    TScript::RequestStop();
    emit AboutToOpen(Path);
    m_PendingPath = Path;
    m_OpenTimer->start();
    // With no script running there is nothing to wait for.
    OnOpenTimeout();
}

void CProject::OnOpenTimeout() {
    if (m_PendingPath.isEmpty()) {
        m_OpenTimer->stop();
        return;
    }
    if (TScript::GetCurrentFunction() != -1 || TScript::GetCallLevel() != 0) {
        return;
    }
    m_OpenTimer->stop();
    // Cleared first: the project that opens may ask for another one in its OnProjectLoad.
    const QString Path = m_PendingPath;
    m_PendingPath.clear();
    Open(Path);
}

void CProject::Close() {
    m_ReportedWarnings.clear();
    const QString Path = TScript::GetScriptPath();
    if (!Path.isEmpty()) {
        emit AboutToClose(Path);
    }
    TScript::RequestStop();
    TScript::Close();
    m_Warnings.clear();
    m_SvdFiles.clear();
    m_DefaultCpuFile.clear();
    m_ProgramFile.clear();
    m_ProgramFileTime = QDateTime();
    m_CorePluginPath.clear();
    m_OSPluginPath.clear();
    m_SemihostingConfig.clear();
    m_FromCmdLine = false;
    Paths::SetProjectFile(QString());
    SetModified(false);
    m_Loaded = true;
    emit Closed(Path);
}

int CProject::CreateFromLines(const QStringList& Lines) {
    Paths::SetProjectFile(TScript::GetScriptPath());
    const int Result = TScript::Parse(TScript::GenerateProjectText(Lines));
    if (Result == 0) {
        RunUserFunction(UF_ON_PROJECT_LOAD);
    }
    m_Loaded = true;
    m_Modified = true;
    emit ModifiedChanged(true);
    return Result;
}

QStringList CProject::GetWarnings() {
    QStringList List = m_Warnings;
    if (TScript::HasError()) {
        List.append(Catalog(74, TScript::GetLastError()));
    }
    if (m_Checks) {
        if (!m_Checks->IsRegisterSetLoaded() && !m_Checks->HasDefaultRegisterSet()) {
            List.append(Catalog(69));
        }
        for (const QString& Svd : m_SvdFiles) {
            if (!m_Checks->CanFindFile(Svd)) {
                List.append(Catalog(69));
            }
        }
        if (m_Checks->IsDeviceCoreKnown() && !m_Checks->IsCorePluginLoaded()) {
            List.append(Catalog(68));
        }
        if (!m_Checks->IsOSPluginSet()) {
            if (m_Checks->HasProgramSymbol(QStringLiteral("OS_Global"))) {
                List.append(Catalog(72));
            }
            if (m_Checks->HasProgramSymbol(QStringLiteral("pxCurrentTCB"))) {
                List.append(Catalog(73));
            }
        }
        if (m_Checks->IsProgramOpen()) {
            if (!m_Checks->IsProgramForTarget()) {
                List.append(CatalogText(CatalogIndexOfCode(1035)));
            }
            if (!m_Checks->IsDataEndianMatching()) {
                List.append(CatalogText(CatalogIndexOfCode(1036)));
            }
            if (!m_Checks->IsInstEndianMatching()) {
                List.append(CatalogText(CatalogIndexOfCode(1037)));
            }
        }
    }
    for (const QString& Name : ProjectText::CommandsGivenTwice(ReadText(GetPath()))) {
        List.append(Catalog(75, Name));
    }
    return List;
}

bool CProject::MarkReported(const QString& Text) {
    const U32 Hash = static_cast<U32>(qHash(Text.toLower()));
    if (m_ReportedWarnings.contains(Hash)) {
        return false;
    }
    m_ReportedWarnings.insert(Hash);
    return true;
}

int CProject::ReportWarnings(const QStringList& Warnings) {
    int New = 0;
    for (const QString& W : Warnings) {
        if (MarkReported(W)) {
            LogErrorMsg(W);
            ++New;
        }
    }
    return New;
}

void CProject::AddWarning(const QString& Text) {
    if (!m_Warnings.contains(Text)) {
        m_Warnings.append(Text);
    }
}

bool CProject::ContainsInLoadFunction(const QString& Text) const {
    return ProjectText::LoadFunctionCode(ReadText(GetPath())).contains(Text);
}

QString CProject::UserFilePath(const QString& ProjectPath) {
    if (ProjectPath.isEmpty()) {
        return QString();
    }
    const qsizetype Dot = ProjectPath.lastIndexOf(QLatin1Char('.'));
    const qsizetype Slash = ProjectPath.lastIndexOf(QLatin1Char('/'));
    const QString Stem = Dot > Slash ? ProjectPath.left(Dot + 1) : ProjectPath + QLatin1Char('.');
    return Stem + QStringLiteral("tvproj.user");
}

QString CProject::ProbeScriptPath(const QString& ProjectPath) {
    if (ProjectPath.isEmpty() || !ProjectPath.contains(QLatin1String("tvproj"))) {
        return QString();
    }
    QString Script = ProjectPath;
    Script.replace(Script.lastIndexOf(QLatin1String("tvproj")), 6, QStringLiteral("tarvo"));
    return QFileInfo(Script).isFile() ? Script : QString();
}
