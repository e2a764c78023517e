#pragma once

#include "app/core/Types.h"

#include <QPair>
#include <QString>
#include <QStringList>

#include <functional>

/// The lines of a project's user file, "<project>.tvproj.user": one item per line in the form
/// `Key=value, Key=value, ...`, the first key naming the kind of the line. Reading, writing and the rules
/// of which lines a save keeps. The windows make and read their own lines. Any thread.
namespace ProjectUserFile {

/// "All session information off": every kind that has a flag bit is left out.
constexpr U32 SAVE_NOTHING = 0xFFFFFFFF;

/// One key of a line and whether its value stands in double quotes.
struct KEY_VALUE {
    QString Key;
    QString Value;
    bool Text = false;
};

/// `Key=value, Key="text", ...`. A value can't hold "," or "=": they are dropped from it.
QString MakeLine(const QList<KEY_VALUE>& Items);
/// The first key of a line: the text ahead of its first "=", trimmed.
QString LineKind(const QString& Line);
/// The value of Key: the item whose key is Key, its text behind "=" with the quotes dropped. Found, if
/// given, says whether the key was there.
QString KeyValue(const QString& Line, const QString& Key, bool* Found = nullptr);

/// The bit of PREF_SESSION_SAVE_FLAGS that keeps lines of a kind out of the file: OpenToolbar 0,
/// TableHeader 1, OpenDocument 2, Breakpoint, DataBreakpoint and Tracepoint 3, WatchedExpression and
/// GraphedExpression 4; -1 for kinds without one (OpenWindow and what the windows add).
int FlagBitOfKind(const QString& Kind);
/// Whether lines of a kind go into the file, and are read from it, with these flags.
bool IsKindSaved(const QString& Kind, U32 Flags);

/// The lines of a text: split at line feeds, carriage returns and empty lines dropped.
QStringList SplitLines(const QByteArray& Text);
/// Sorted by their kind, lines of one kind in their order, joined with a line feed.
QByteArray JoinLines(const QStringList& Lines);
/// Reads the file; false (and no lines) when there is none or it can't be read.
bool Read(const QString& Path, QStringList& Lines);
/// Writes the file whole, or leaves the old one as it was: false on any error.
bool Write(const QString& Path, const QStringList& Lines);

/// The lines a save writes: Fresh, the lines the program makes now, and of Old, the file's present lines,
/// those that Owned says the program doesn't make any more (kinds or windows of a later version, windows
/// that aren't there), each only if the flags let its kind in.
QStringList Merge(const QStringList& Fresh, const QStringList& Old,
                  const std::function<bool(const QString& Line)>& Owned, U32 Flags);

} // namespace ProjectUserFile
