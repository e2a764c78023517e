// Path resolution: macros, then aliases, then substitutes; a file that is not where the text says is
// looked for by its kind in the directories the project and the installation name.

#include "program/FileFinder.h"

#include "app/core/Log.h"
#include "app/core/Paths.h"
#include "program/SymbolStore.h"

#include <QDir>
#include <QFileInfo>
#include <QMutex>
#include <QProcessEnvironment>
#include <QRegularExpression>
#include <QTimer>

namespace {

/// A burst of resolutions (a program opens) refreshes the statistics once.
constexpr int STATS_DELAY_MS = 200;

QString Slashes(QString Path) {
    Path.replace(QLatin1Char('\\'), QLatin1Char('/'));
    return Path;
}

/// Separators "/", "." and ".." removed; empty stays empty.
QString Clean(const QString& Path) {
    return Path.isEmpty() ? Path : QDir::cleanPath(Slashes(Path));
}

QString NoTrailingSlash(QString Dir) {
    while (Dir.size() > 1 && Dir.endsWith(QLatin1Char('/'))) {
        Dir.chop(1);
    }
    return Dir;
}

/// The file name without directories, whichever separator the machine that wrote it used.
QString BaseName(const QString& Path) {
    return Slashes(Path).section(QLatin1Char('/'), -1);
}

bool IsRelative(const QString& Path) {
    // A drive letter makes a path absolute too, though no such file exists here.
    static const QRegularExpression s_Drive(QStringLiteral("^[A-Za-z]:[/\\\\]"));
    return !Path.startsWith(QLatin1Char('/')) && !Path.startsWith(QLatin1Char('\\')) &&
           !s_Drive.match(Path).hasMatch();
}

bool IsFile(const QString& Path) {
    return !Path.isEmpty() && QFileInfo(Path).isFile();
}

struct REDIRECTS {
    QMutex Mutex;
    QHash<U32, U32> NewToOld;
    QSet<U32> Sources;
};

REDIRECTS& R() {
    static REDIRECTS Instance;
    return Instance;
}

} // namespace

CFileFinder* CFileFinder::Instance() {
    static CFileFinder* s_Instance = new CFileFinder;
    return s_Instance;
}

CFileFinder::CFileFinder() {
    m_DelayTimer = new QTimer(this);
    m_DelayTimer->setSingleShot(true);
    m_DelayTimer->setInterval(STATS_DELAY_MS);
    connect(m_DelayTimer, &QTimer::timeout, this, &CFileFinder::OnDelayTimerTimeout);
}

QString CFileFinder::ExpandMacros(const QString& Path) const {
    if (!Path.contains(QLatin1Char('$'))) {
        return Path;
    }
    auto DirOf = [](const QString& File) {
        return File.isEmpty() ? QString() : QFileInfo(File).absolutePath();
    };
    const QString Install = Paths::GetInstallDir();
    const struct {
        const char* Macro;
        QString Dir;
    } Macros[] = {
        {"$(DocDir)", Paths::GetDocDir()},
        {"$(PluginDir)", Paths::GetPluginDir()},
        {"$(ProjectDir)", DirOf(Paths::GetProjectFile())},
        {"$(InstallDir)", Install},
        {"$(ExecutableDir)", Install},
        {"$(AppDir)", DirOf(Paths::GetProgramFile())},
        {"$(AppBundleDir)", Install},
        {"$(ConfigDir)", Paths::GetConfigDir()},
        {"$(LibraryDir)", Paths::GetLibraryDir()},
    };
    QString Result = Path;
    for (const auto& M : Macros) {
        const QString Macro = QLatin1String(M.Macro);
        const QString Dir = NoTrailingSlash(Slashes(M.Dir));
        for (qsizetype At = Result.indexOf(Macro, 0, Qt::CaseInsensitive); At >= 0;
             At = Result.indexOf(Macro, At + Dir.size(), Qt::CaseInsensitive)) {
            qsizetype Length = Macro.size();
            // An empty directory leaves a relative rest, not one at the root.
            if (Dir.isEmpty() && At + Length < Result.size() &&
                (Result[At + Length] == QLatin1Char('/') || Result[At + Length] == QLatin1Char('\\'))) {
                ++Length;
            }
            Result.replace(At, Length, Dir);
        }
    }
    if (Result != Path) {
        LogDebugMsg(QStringLiteral("FileFinder: expanded ") + Path + QStringLiteral(" to ") + Result);
    }
    return Result;
}

QString CFileFinder::CollapseMacros(const QString& Path, const QString& Macro) const {
    const QString Dir = NoTrailingSlash(Slashes(ExpandMacros(Macro)));
    if (Dir.isEmpty() || Dir == Macro) {
        return Path;
    }
    const QString Text = Slashes(Path);
    if (!Text.startsWith(Dir, Qt::CaseInsensitive) ||
        (Text.size() > Dir.size() && Text[Dir.size()] != QLatin1Char('/'))) {
        return Path;
    }
    const QString Result = Macro + Text.mid(Dir.size());
    LogDebugMsg(QStringLiteral("FileFinder: collapsed ") + Path + QStringLiteral(" to ") + Result);
    return Result;
}

QString CFileFinder::ExpandEnvVars(const QString& Path) {
    static const QRegularExpression s_Ref(QStringLiteral("\\$\\(([^)]+)\\)|%([^%]+)%"));
    const QProcessEnvironment Env = QProcessEnvironment::systemEnvironment();
    QString Result;
    qsizetype From = 0;
    QRegularExpressionMatchIterator It = s_Ref.globalMatch(Path);
    while (It.hasNext()) {
        const QRegularExpressionMatch M = It.next();
        const QString Name = M.captured(1).isEmpty() ? M.captured(2) : M.captured(1);
        Result += Path.mid(From, M.capturedStart() - From);
        Result += Env.contains(Name) ? Env.value(Name) : M.captured();
        From = M.capturedEnd();
    }
    return Result + Path.mid(From);
}

CFileFinder::FILE_KIND CFileFinder::KindOf(const QString& Path) {
    const QString Name = BaseName(Path);
    const qsizetype Dot = Name.lastIndexOf(QLatin1Char('.'));
    if (Dot < 0) {
        return KIND_PROGRAM;
    }
    const QString Ext = Name.mid(Dot + 1).toLower();
    static const struct {
        FILE_KIND Kind;
        QStringList Exts;
    } Kinds[] = {
        {KIND_SOURCE, {"h", "c", "hpp", "cpp", "s"}},
        {KIND_SVD, {"svd", "xml"}},
        {KIND_LIBRARY, {"dll", "so", "dylib"}},
        {KIND_PROGRAM, {"bin", "mot", "srec", "hex", "elf", "out", "axf"}},
        {KIND_PROJECT, {"tvproj"}},
        {KIND_DOCUMENT, {"txt", "pdf", "html"}},
    };
    for (const auto& K : Kinds) {
        if (K.Exts.contains(Ext)) {
            return K.Kind;
        }
    }
    return KIND_SOURCE;
}

QString CFileFinder::ResolvePath(const QString& Path) {
    return Resolve(Path, false);
}

QString CFileFinder::ResolveSourcePath(const QString& Path) {
    return Resolve(Path, true);
}

QString CFileFinder::Resolve(const QString& Path, bool Source) {
    if (Path.isEmpty()) {
        return QString();
    }
    LogDebugMsg(QStringLiteral("Starting to resolve: ") + Path);
    QString Text = Path;
    const QString Expanded = ExpandMacros(Text);
    if (!Expanded.isEmpty()) {
        Text = Expanded;
    }
    const QString Aliased = ApplyAliases(Text);
    if (!Aliased.isEmpty()) {
        Text = Aliased;
    }
    const QString Substituted = ApplySubstitutes(Text);
    if (!Substituted.isEmpty()) {
        Text = Substituted;
    }
    Text = Clean(Text);
    QString Found;
    if (IsFile(Text)) {
        Found = Text;
    } else {
        switch (Source ? KIND_SOURCE : KindOf(Text)) {
        case KIND_SOURCE:
            Found = ResolveSource(Text);
            break;
        case KIND_SVD:
            Found = ResolveSvd(Text);
            break;
        case KIND_LIBRARY:
            Found = ResolveLibrary(Text);
            break;
        case KIND_PROGRAM:
        case KIND_PROJECT:
            Found = ResolveInDirs(Text, m_SearchDirs);
            break;
        case KIND_DOCUMENT:
            Found = ResolveInDirs(Text, QStringList{Paths::GetDocDir(), Paths::GetInstallDir() + "/Doc"} +
                                            m_SearchDirs);
            break;
        }
    }
    Report(Path, Found, Source || KindOf(Path) == KIND_SOURCE);
    m_RootPathUsed = false;
    return Found;
}

QString CFileFinder::ResolveWithOtherExtension(const QString& Path) {
    const QString Found = ResolvePath(Path);
    if (!Found.isEmpty()) {
        return Found;
    }
    static const QHash<QString, QString> s_Other = {{"c", "h"},     {"h", "c"},     {"cpp", "hpp"},
                                                    {"hpp", "cpp"}, {"svd", "xml"}, {"xml", "svd"}};
    const qsizetype Dot = Path.lastIndexOf(QLatin1Char('.'));
    if (Dot < 0 || Path.indexOf(QLatin1Char('/'), Dot) >= 0) {
        return QString();
    }
    const QString Ext = Path.mid(Dot + 1);
    const QString Other = s_Other.value(Ext.toLower());
    if (Other.isEmpty()) {
        return QString();
    }
    // Keep the spelling's case: "MAIN.C" looks for "MAIN.H".
    const bool Upper = Ext == Ext.toUpper() && Ext != Ext.toLower();
    return ResolvePath(Path.left(Dot + 1) + (Upper ? Other.toUpper() : Other));
}

QString CFileFinder::ApplyAliases(const QString& Path) const {
    if (m_FileAliases.isEmpty()) {
        return QString();
    }
    LogDebugMsg(QStringLiteral("Applying file aliases to ") + Path);
    const QString Asked = Slashes(Path);
    const QString Cleaned = Clean(Path);
    for (auto It = m_FileAliases.constBegin(); It != m_FileAliases.constEnd(); ++It) {
        if (It.key().compare(Asked, Qt::CaseInsensitive) == 0 ||
            Clean(It.key()).compare(Cleaned, Qt::CaseInsensitive) == 0) {
            LogDebugMsg(QStringLiteral("mapped ") + Path + QStringLiteral(" to ") + It.value());
            return It.value();
        }
    }
    return QString();
}

QString CFileFinder::ApplySubstitutes(const QString& Path) const {
    if (m_PathSubstitutes.isEmpty()) {
        return QString();
    }
    LogDebugMsg(QStringLiteral("Applying path substitutes in : ") + Path);
    QString Text = Slashes(Path);
    bool Replaced = false;
    for (auto It = m_PathSubstitutes.constBegin(); It != m_PathSubstitutes.constEnd(); ++It) {
        if (Text.contains(It.key(), Qt::CaseInsensitive)) {
            Text.replace(It.key(), It.value(), Qt::CaseInsensitive);
            LogDebugMsg(QStringLiteral("Path substituted: ") + It.key() + QStringLiteral(" -> ") +
                        It.value());
            Replaced = true;
        }
    }
    return Replaced ? Text : QString();
}

QString CFileFinder::ResolveSource(const QString& Path) {
    LogDebugMsg(QStringLiteral("Resolving source file path: ") + Path);
    if (IsRelative(Path)) {
        const QString Found = ResolveRelative(Path, true);
        if (IsFile(Found)) {
            return Found;
        }
        // Relative names of the line tables are relative to the unit's compilation directory.
        for (const QString& Dir : ELF_GetCompDirsOfFile(Path)) {
            const QString Joined = Clean(Dir + QLatin1Char('/') + Path);
            if (IsFile(Joined)) {
                return Joined;
            }
        }
    }
    return FindInDirs(BaseName(Path), m_SearchDirs);
}

QString CFileFinder::ResolveSvd(const QString& Path) {
    const qsizetype Dot = Path.lastIndexOf(QLatin1Char('.'));
    const QString Stem = Dot > Path.lastIndexOf(QLatin1Char('/')) ? Path.left(Dot) : Path;
    const QString Config = Paths::GetConfigDir();
    const QStringList Dirs = QStringList{Config, Config + "CPU", Config + "Peripherals"} + m_SearchDirs;
    for (const char* Ext : {".svd", ".xml"}) {
        const QString Candidate = Stem + QLatin1String(Ext);
        if (IsRelative(Candidate)) {
            const QString Found = ResolveRelative(Candidate, false);
            if (IsFile(Found)) {
                return Found;
            }
        } else if (IsFile(Candidate)) {
            return Candidate;
        }
        const QString Found = FindInDirs(BaseName(Candidate), Dirs);
        if (!Found.isEmpty()) {
            return Found;
        }
    }
    return QString();
}

QString CFileFinder::ResolveLibrary(const QString& Path) {
    if (IsRelative(Path)) {
        const QString Found = ResolveRelative(Path, false);
        if (IsFile(Found)) {
            return Found;
        }
    }
    const QString Plugins = Paths::GetPluginDir();
    return FindInDirs(BaseName(Path), QStringList{Plugins, Paths::GetCorePluginDir(), Plugins + "OS",
                                                  Paths::GetLibraryDir()} +
                                          m_SearchDirs);
}

QString CFileFinder::ResolveInDirs(const QString& Path, const QStringList& Dirs) {
    if (IsRelative(Path)) {
        const QString Found = ResolveRelative(Path, true);
        if (IsFile(Found)) {
            return Found;
        }
    }
    return FindInDirs(BaseName(Path), Dirs);
}

QString CFileFinder::ResolveRelative(const QString& Path, bool StopEarly) {
    auto JoinAndTest = [](const QString& Dir, const QString& Rel) -> QString {
        if (Dir.isEmpty() || Rel.isEmpty()) {
            return QString();
        }
        const QString Joined = Dir.endsWith(QLatin1Char('/')) || Rel.startsWith(QLatin1Char('/'))
                                   ? Dir + Rel
                                   : Dir + QLatin1Char('/') + Rel;
        LogDebugMsg(QStringLiteral("Testing ") + Joined);
        return QFileInfo::exists(Joined) ? Clean(Joined) : QString();
    };
    for (const QString& Root : m_RootPaths) {
        const QString Found = JoinAndTest(Root, Path);
        if (!Found.isEmpty()) {
            return Found;
        }
    }
    // The project's own root: the directory of the program it debugs.
    const QString Program = Paths::GetProgramFile();
    if (!Program.isEmpty()) {
        const QString Found = JoinAndTest(QFileInfo(Program).absolutePath(), Path);
        if (!Found.isEmpty()) {
            m_RootPathUsed = true;
            return Found;
        }
    }
    QString Found = JoinAndTest(Paths::GetInstallDir(), Path);
    if (Found.isEmpty() && !Paths::GetProjectFile().isEmpty()) {
        Found = JoinAndTest(QFileInfo(Paths::GetProjectFile()).absolutePath(), Path);
    }
    if (Found.isEmpty() && !StopEarly) {
        Found = JoinAndTest(QDir::currentPath(), Path);
    }
    return Found;
}

QString CFileFinder::FindInDirs(const QString& Name, const QStringList& Dirs) {
    if (Dirs.isEmpty() || Name.isEmpty()) {
        return QString();
    }
    LogDebugMsg(QStringLiteral("Looking for ") + Name + QStringLiteral(" in search directories."));
    for (const QString& Given : Dirs) {
        QString Dir = Given;
        if (IsRelative(Dir)) {
            Dir = ResolveRelative(Dir, false);
            if (Dir.isEmpty()) {
                continue;
            }
        }
        QString Candidate = Clean(Dir + QLatin1Char('/') + Name);
        if (!IsFile(Candidate)) {
            // Names from a machine that ignores case: compare the directory's entries without it.
            Candidate.clear();
            const QStringList Entries = QDir(Dir).entryList(QDir::Files);
            for (const QString& Entry : Entries) {
                if (Entry.compare(Name, Qt::CaseInsensitive) == 0) {
                    Candidate = Clean(Dir + QLatin1Char('/') + Entry);
                    break;
                }
            }
        }
        if (!Candidate.isEmpty()) {
            LogDebugMsg(QStringLiteral("Found ") + Name + QStringLiteral(" in ") + Dir);
            return Candidate;
        }
    }
    return QString();
}

void CFileFinder::Report(const QString& Asked, const QString& Found, bool Source) {
    const bool Exists = IsFile(Found);
    if (Source) {
        // The statistics hold the latest outcome of each path.
        m_Outcome.insert(Asked, Exists);
        if (Exists) {
            emit SrcFilePathResolved(Asked, Found);
        }
        m_DelayTimer->start();
        return;
    }
    if (Exists && (Found == Asked || m_RootPathUsed)) {
        return;
    }
    if (m_Seen[Asked]++ == 0 && m_LogResolution) {
        if (Exists) {
            LogMessage(QStringLiteral("File path resolved: \"%1\" was found at \"%2\"").arg(Asked, Found),
                       MSG_INFO | MSG_TO_CONSOLE | MSG_TO_LOGFILE | MSG_FROM_APP);
        } else {
            LogMessage(QStringLiteral("File not found: %1").arg(Asked),
                       MSG_WARNING | MSG_TO_CONSOLE | MSG_TO_LOGFILE | MSG_FROM_APP);
        }
    }
}

void CFileFinder::OnDelayTimerTimeout() {
    emit SrcFileResStatsChanged();
}

bool CFileFinder::AddFileAlias(const QString& OldPath, const QString& NewPath) {
    const QString Old = Clean(ExpandMacros(OldPath.trimmed()));
    if (Old.isEmpty()) {
        return false;
    }
    m_FileAliases.insert(Old, Clean(ExpandMacros(NewPath.trimmed())));
    UpdateRedirects();
    emit SrcFileResStatsChanged();
    return true;
}

bool CFileFinder::AddPathSubstitute(const QString& Path, const QString& Substitute) {
    // A part of a path may be a bare name or end in "/": not cleaned, only given "/" separators.
    const QString Part = Slashes(ExpandMacros(Path.trimmed()));
    if (Part.isEmpty()) {
        return false;
    }
    m_PathSubstitutes.insert(Part, Slashes(ExpandMacros(Substitute.trimmed())));
    emit SrcFileResStatsChanged();
    return true;
}

bool CFileFinder::AddSearchPath(const QString& Path) {
    const QString Dir = Clean(ExpandMacros(Path.trimmed()));
    if (Dir.isEmpty()) {
        return false;
    }
    if (!m_SearchDirs.contains(Dir)) {
        m_SearchDirs.append(Dir);
    }
    emit SrcFileResStatsChanged();
    return true;
}

bool CFileFinder::AddRootPath(const QString& Path) {
    const QString Dir = Clean(ExpandMacros(Path.trimmed()));
    if (Dir.isEmpty()) {
        return false;
    }
    if (!m_RootPaths.contains(Dir)) {
        m_RootPaths.append(Dir);
    }
    emit SrcFileResStatsChanged();
    return true;
}

QStringList CFileFinder::FilesWithOutcome(bool Found) const {
    QStringList Files;
    for (auto It = m_Outcome.constBegin(); It != m_Outcome.constEnd(); ++It) {
        if (It.value() == Found) {
            Files.append(It.key());
        }
    }
    Files.sort();
    return Files;
}

QString CFileFinder::Reverse(const QString& Path) const {
    const QString Cleaned = Clean(Path);
    for (auto It = m_FileAliases.constBegin(); It != m_FileAliases.constEnd(); ++It) {
        if (It.value().compare(Cleaned, Qt::CaseInsensitive) == 0) {
            return It.key();
        }
    }
    return QString();
}

void CFileFinder::ClearStatistics() {
    m_Outcome.clear();
    m_DelayTimer->start();
}

void CFileFinder::Reset() {
    m_FileAliases.clear();
    m_PathSubstitutes.clear();
    m_SearchDirs.clear();
    m_RootPaths.clear();
    m_Seen.clear();
    UpdateRedirects();
    emit SrcFileResStatsChanged();
}

void CFileFinder::UpdateRedirects() {
    REDIRECTS& Rd = R();
    QMutexLocker Lock(&Rd.Mutex);
    Rd.NewToOld.clear();
    Rd.Sources.clear();
    for (auto It = m_FileAliases.constBegin(); It != m_FileAliases.constEnd(); ++It) {
        const U32 Old = ELF_FileIdOfPath(It.key());
        const U32 New = ELF_FileIdOfPath(It.value());
        if (Old != New) {
            Rd.NewToOld.insert(New, Old);
            Rd.Sources.insert(Old);
        }
    }
}

bool CFileFinder::RedirectFileId(U32 Id, U32& Target) {
    REDIRECTS& Rd = R();
    QMutexLocker Lock(&Rd.Mutex);
    const auto It = Rd.NewToOld.constFind(Id);
    if (It == Rd.NewToOld.constEnd()) {
        return false;
    }
    Target = It.value();
    return true;
}

bool CFileFinder::IsAliasSource(U32 Id) {
    REDIRECTS& Rd = R();
    QMutexLocker Lock(&Rd.Mutex);
    return Rd.Sources.contains(Id);
}

bool CFileFinder::IsAliasTarget(U32 Id) {
    REDIRECTS& Rd = R();
    QMutexLocker Lock(&Rd.Mutex);
    return Rd.NewToOld.contains(Id);
}
