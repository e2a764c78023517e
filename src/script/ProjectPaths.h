#pragma once

#include <QMap>
#include <QString>
#include <QStringList>

/// What the project's path commands (Project.AddRootPath, Project.AddSearchPath, Project.AddFileAlias,
/// Project.AddPathSubstitute) have given: the lists that source file resolution works from. Entries are
/// kept macro-expanded and with "/" as separator. Cleared when the project closes. GUI thread only.
namespace ProjectPaths {

/// A path with backslashes turned into "/" and "." and ".." removed; empty stays empty.
QString Normalise(const QString& Path);

/// Each adds its entry once; the second of two equal entries changes nothing. False for an empty path.
bool AddRootPath(const QString& Path);
bool AddSearchPath(const QString& Path);
/// An alias maps an old path to a new one; a later alias of the same old path replaces the earlier.
bool AddFileAlias(const QString& OldPath, const QString& NewPath);
/// A substitute replaces a part of a path; a later substitute of the same part replaces the earlier.
bool AddPathSubstitute(const QString& Path, const QString& Substitute);

QStringList GetRootPaths();
QStringList GetSearchPaths();
/// Sorted by the old path.
QMap<QString, QString> GetFileAliases();
/// Sorted by the part that is replaced.
QMap<QString, QString> GetPathSubstitutes();

/// Empties every list (the project closes).
void Reset();
/// Counts every change, so that a reader can tell that the lists changed since it last looked.
unsigned GetGeneration();

} // namespace ProjectPaths
