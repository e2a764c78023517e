#pragma once

#include "app/core/Types.h"

#include <QString>
#include <QStringList>

#include <functional>

/// Reads the pending arguments of one command for its handler: the count first, then arguments as numbers,
/// on/off values or existing files. A failure sets the command's error text itself, with the table's
/// fixed texts, and the handler only returns. GUI thread only, like the command table.
class CCommandArgs {
public:
    /// Checks that the count lies between Min (-1: the parameter count) and the parameter count;
    /// "wrong parameter count" otherwise, and Ok() is false.
    explicit CCommandArgs(U32 Id, int Min = -1);

    bool Ok() const { return m_Ok; }
    int Count() const { return static_cast<int>(m_Args.size()); }
    bool Has(int Index) const { return Index >= 0 && Index < Count(); }
    /// The argument as stored (quotes removed), empty when absent.
    QString Text(int Index) const { return Has(Index) ? m_Args[Index] : QString(); }
    const QStringList& All() const { return m_Args; }

    /// A script constant or an integer of automatic base. Otherwise the error is Error, followed by the
    /// argument's text when WithText (the command's "Message: Detail" form).
    bool Number(int Index, I64& Value, const QString& Error = QStringLiteral("invalid parameter"),
                bool WithText = false);
    /// A constant or a non-negative number, zero for off; "invalid parameter" otherwise.
    bool OnOff(int Index, bool& On);
    /// The argument turned into a path by Resolve (macros, base folder); "file not found" when no file
    /// stands there.
    bool ExistingFile(int Index, QString& Path, const std::function<QString(const QString&)>& Resolve);
    /// Sets Message as the command's error; always false, so that a handler can return it.
    bool Fail(const QString& Message, const QString& Detail = QString());

private:
    U32 m_Id;
    QStringList m_Args;
    bool m_Ok = true;
};
