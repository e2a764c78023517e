#pragma once

// Maps a path as given (by the debug information of another machine, or by a project written
// elsewhere) to a file on this machine, through directory macros, the user's aliases and
// substitutes, and the root and search directories. Counts how the program's sources resolved.

#include "app/core/Types.h"

#include <QHash>
#include <QMap>
#include <QObject>
#include <QSet>
#include <QStringList>

class QTimer;

class CFileFinder : public QObject {
    Q_OBJECT
public:
    /// The one finder of the process. GUI thread.
    static CFileFinder* Instance();

    /// Every directory macro replaced, names compared without case; a macro of an empty directory takes
    /// the separator behind it along, so that the rest stays relative. Text without "$" as it stands.
    QString ExpandMacros(const QString& Path) const;
    /// The macro's directory at the start of Path replaced by the macro.
    QString CollapseMacros(const QString& Path, const QString& Macro) const;
    /// Environment variables "$(NAME)" and "%NAME%" replaced; unset ones left as they stand.
    static QString ExpandEnvVars(const QString& Path);

    /// The file on this machine that Path stands for, or an empty text.
    QString ResolvePath(const QString& Path);
    /// As ResolvePath for a source named by the program's debug information, whatever its name says
    /// (C++ headers have no extension).
    QString ResolveSourcePath(const QString& Path);
    /// As ResolvePath, then with the other extension of the same kind (.c and .h, .svd and .xml).
    QString ResolveWithOtherExtension(const QString& Path);

    /// The project's path commands. False (nothing changes) for an empty path.
    bool AddFileAlias(const QString& OldPath, const QString& NewPath);
    bool AddPathSubstitute(const QString& Path, const QString& Substitute);
    bool AddSearchPath(const QString& Path);
    bool AddRootPath(const QString& Path);
    /// The old path an alias maps to this new path, or empty.
    QString Reverse(const QString& Path) const;

    QMap<QString, QString> GetFileAliases() const { return m_FileAliases; }
    QMap<QString, QString> GetPathSubstitutes() const { return m_PathSubstitutes; }
    QStringList GetSearchPaths() const { return m_SearchDirs; }
    QStringList GetRootPaths() const { return m_RootPaths; }

    /// Source paths asked for and found, and not found, each once by its latest outcome, sorted.
    QStringList GetResolvedFiles() const { return FilesWithOutcome(true); }
    QStringList GetUnresolvedFiles() const { return FilesWithOutcome(false); }
    /// Forgets the statistics (a new program opens).
    void ClearStatistics();

    /// Whether "File path resolved" and "File not found" go to the console.
    void SetLogResolution(bool On) { m_LogResolution = On; }

    /// Drops aliases, substitutes, search and root directories and what was told (the project closes).
    void Reset();

    /// Id redirections of the aliases for the symbol store: the id of a new path gives the id of the old
    /// one. Any thread.
    static bool RedirectFileId(U32 Id, U32& Target);
    static bool IsAliasSource(U32 Id);
    static bool IsAliasTarget(U32 Id);

signals:
    void SrcFilePathResolved(const QString& Asked, const QString& Found);
    void SrcFileResStatsChanged();

private slots:
    void OnDelayTimerTimeout();

private:
    enum FILE_KIND { KIND_SOURCE, KIND_SVD, KIND_LIBRARY, KIND_PROGRAM, KIND_PROJECT, KIND_DOCUMENT };

    CFileFinder();
    static FILE_KIND KindOf(const QString& Path);
    QString ApplyAliases(const QString& Path) const;
    QString ApplySubstitutes(const QString& Path) const;
    QString ResolveSource(const QString& Path);
    QString ResolveSvd(const QString& Path);
    QString ResolveLibrary(const QString& Path);
    QString ResolveInDirs(const QString& Path, const QStringList& Dirs);
    QString ResolveRelative(const QString& Path, bool StopEarly);
    QString FindInDirs(const QString& Name, const QStringList& Dirs);
    QString Resolve(const QString& Path, bool Source);
    void Report(const QString& Asked, const QString& Found, bool Source);
    void UpdateRedirects();
    QStringList FilesWithOutcome(bool Found) const;

    QMap<QString, QString> m_FileAliases;
    QMap<QString, QString> m_PathSubstitutes;
    QStringList m_SearchDirs;
    QStringList m_RootPaths;
    /// Source path asked to whether it was found.
    QHash<QString, bool> m_Outcome;
    QHash<QString, int> m_Seen;
    bool m_RootPathUsed = false;
    bool m_LogResolution = true;
    QTimer* m_DelayTimer = nullptr;
};
