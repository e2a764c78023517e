#include "script/ProjectPaths.h"

#include <QDir>

namespace ProjectPaths {
namespace {

struct STORE {
    QStringList RootPaths;
    QStringList SearchDirs;
    QMap<QString, QString> FileAliases;
    QMap<QString, QString> PathSubstitutes;
    unsigned Generation = 0;
};

STORE& S() {
    static STORE s_Store;
    return s_Store;
}

bool AddOnce(QStringList& List, const QString& Path) {
    const QString Clean = Normalise(Path);
    if (Clean.isEmpty()) {
        return false;
    }
    if (!List.contains(Clean)) {
        List.append(Clean);
        ++S().Generation;
    }
    return true;
}

} // namespace

QString Normalise(const QString& Path) {
    if (Path.trimmed().isEmpty()) {
        return QString();
    }
    QString Text = Path.trimmed();
    Text.replace(QLatin1Char('\\'), QLatin1Char('/'));
    return QDir::cleanPath(Text);
}

bool AddRootPath(const QString& Path) {
    return AddOnce(S().RootPaths, Path);
}

bool AddSearchPath(const QString& Path) {
    return AddOnce(S().SearchDirs, Path);
}

bool AddFileAlias(const QString& OldPath, const QString& NewPath) {
    const QString Old = Normalise(OldPath);
    if (Old.isEmpty()) {
        return false;
    }
    S().FileAliases.insert(Old, Normalise(NewPath));
    ++S().Generation;
    return true;
}

bool AddPathSubstitute(const QString& Path, const QString& Substitute) {
    // A part of a path may be a bare name or end in "/", so it is not cleaned, only given "/" separators.
    QString Part = Path.trimmed();
    Part.replace(QLatin1Char('\\'), QLatin1Char('/'));
    if (Part.isEmpty()) {
        return false;
    }
    QString With = Substitute.trimmed();
    With.replace(QLatin1Char('\\'), QLatin1Char('/'));
    S().PathSubstitutes.insert(Part, With);
    ++S().Generation;
    return true;
}

QStringList GetRootPaths() {
    return S().RootPaths;
}

QStringList GetSearchPaths() {
    return S().SearchDirs;
}

QMap<QString, QString> GetFileAliases() {
    return S().FileAliases;
}

QMap<QString, QString> GetPathSubstitutes() {
    return S().PathSubstitutes;
}

void Reset() {
    STORE& St = S();
    St.RootPaths.clear();
    St.SearchDirs.clear();
    St.FileAliases.clear();
    St.PathSubstitutes.clear();
    ++St.Generation;
}

unsigned GetGeneration() {
    return S().Generation;
}

} // namespace ProjectPaths
