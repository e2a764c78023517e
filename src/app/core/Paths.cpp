#include "app/core/Paths.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

namespace Paths {
namespace {

QString s_InstallDir;
QString s_InstallDirOverride;
bool s_Computing = false;
QString s_ProjectFile;
QString s_ProgramFile;

QString DirOf(const QString& File) {
    if (File.isEmpty()) {
        return QString();
    }
    return QFileInfo(File).absolutePath();
}

} // namespace

QString GetInstallDir() {
    if (!s_InstallDirOverride.isEmpty()) {
        return s_InstallDirOverride;
    }
    if (!s_InstallDir.isEmpty()) {
        return s_InstallDir;
    }
    // A look-up that re-enters while the first one runs (e.g. from a message handler) gets nothing.
    if (s_Computing) {
        return QString();
    }
    s_Computing = true;
    QString Dir = QCoreApplication::applicationDirPath();
    QString Canonical = QFileInfo(Dir).canonicalFilePath();
    s_InstallDir = Canonical.isEmpty() ? Dir : Canonical;
    s_Computing = false;
    return s_InstallDir;
}

void SetInstallDirOverride(const QString& Dir) {
    s_InstallDirOverride = QDir::cleanPath(Dir);
}

QString GetConfigDir() {
    return GetInstallDir() + QStringLiteral("/Config/");
}
QString GetPeripheralsDir() {
    return GetInstallDir() + QStringLiteral("/Config/Peripherals/");
}
QString GetLibraryDir() {
    return GetInstallDir() + QStringLiteral("/Lib/");
}
QString GetPluginDir() {
    return GetInstallDir() + QStringLiteral("/Plugins/");
}
QString GetCorePluginDir() {
    return GetInstallDir() + QStringLiteral("/Plugins/Core/");
}
QString GetDocDir() {
    return GetInstallDir() + QStringLiteral("/Doc/");
}

void SetProjectFile(const QString& Path) {
    s_ProjectFile = Path;
}
void SetProgramFile(const QString& Path) {
    s_ProgramFile = Path;
}

QString GetProjectFile() {
    return s_ProjectFile;
}

QString GetProgramFile() {
    return s_ProgramFile;
}

QString ExpandMacros(const QString& Text) {
    if (!Text.contains(QStringLiteral("$("))) {
        return Text;
    }
    const QString Install = GetInstallDir();
    const struct {
        const char* Macro;
        QString Dir;
    } Macros[] = {
        {"$(InstallDir)", Install},          {"$(ExecutableDir)", Install},
        {"$(AppBundleDir)", Install},        {"$(ConfigDir)", GetConfigDir()},
        {"$(LibraryDir)", GetLibraryDir()},  {"$(PluginDir)", GetPluginDir()},
        {"$(DocDir)", GetDocDir()},          {"$(ProjectDir)", DirOf(s_ProjectFile)},
        {"$(AppDir)", DirOf(s_ProgramFile)},
    };
    QString Result = Text;
    for (const auto& M : Macros) {
        Result.replace(QLatin1String(M.Macro), M.Dir, Qt::CaseSensitive);
    }
    return Result;
}

QString ExpandPath(const QString& Path) {
    QString Expanded = ExpandMacros(Path);
    return Expanded.isEmpty() ? Expanded : QDir::cleanPath(Expanded);
}

QString GetDefaultDir(const QString& FileName) {
    QFileInfo Info(FileName);
    if (Info.isFile()) {
        return Info.canonicalPath();
    }
    const QString Suffix = Info.suffix().toLower();
    if (Suffix == QLatin1String("svd") || Suffix == QLatin1String("xml")) {
        return GetPeripheralsDir();
    }
    if (Suffix == QLatin1String("txt") || Suffix == QLatin1String("pdf") || Suffix == QLatin1String("html")) {
        return GetDocDir();
    }
    if (Suffix == QLatin1String("dll") || Suffix == QLatin1String("so") || Suffix == QLatin1String("dylib")) {
        return GetPluginDir();
    }
    return GetInstallDir();
}

bool MatchesAny(const QString& Name, const char* Patterns) {
    for (const QString& P : QString::fromLatin1(Patterns).split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
        const QRegularExpression Re(QRegularExpression::wildcardToRegularExpression(P),
                                    QRegularExpression::CaseInsensitiveOption);
        if (Re.match(Name).hasMatch()) {
            return true;
        }
    }
    return false;
}

} // namespace Paths
