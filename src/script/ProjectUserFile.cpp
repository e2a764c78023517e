#include "script/ProjectUserFile.h"

#include <QFile>
#include <QSaveFile>

#include <algorithm>

namespace ProjectUserFile {

QString MakeLine(const QList<KEY_VALUE>& Items) {
    QStringList Parts;
    for (const KEY_VALUE& I : Items) {
        QString Value = I.Value;
        Value.remove(QLatin1Char(',')).remove(QLatin1Char('=')).remove(QLatin1Char('"'));
        Parts.append(I.Key + QLatin1Char('=') +
                     (I.Text ? QLatin1Char('"') + Value + QLatin1Char('"') : Value));
    }
    return Parts.join(QStringLiteral(", "));
}

QString LineKind(const QString& Line) {
    const qsizetype Eq = Line.indexOf(QLatin1Char('='));
    return Eq < 0 ? Line.trimmed() : Line.left(Eq).trimmed();
}

QString KeyValue(const QString& Line, const QString& Key, bool* Found) {
    for (const QString& Item : Line.split(QLatin1Char(','))) {
        const qsizetype Eq = Item.indexOf(QLatin1Char('='));
        if (Eq < 0 || Item.left(Eq).trimmed() != Key) {
            continue;
        }
        if (Found) {
            *Found = true;
        }
        return Item.mid(Eq + 1).trimmed().remove(QLatin1Char('"'));
    }
    if (Found) {
        *Found = false;
    }
    return QString();
}

int FlagBitOfKind(const QString& Kind) {
    const struct {
        const char* Kind;
        int Bit;
    } Bits[] = {{"OpenToolbar", 0},       {"TableHeader", 1},      {"OpenDocument", 2},
                {"Breakpoint", 3},        {"DataBreakpoint", 3},   {"Tracepoint", 3},
                {"WatchedExpression", 4}, {"GraphedExpression", 4}};
    for (const auto& B : Bits) {
        if (Kind == QLatin1String(B.Kind)) {
            return B.Bit;
        }
    }
    return -1;
}

bool IsKindSaved(const QString& Kind, U32 Flags) {
    const int Bit = FlagBitOfKind(Kind);
    if (Bit < 0) {
        return true;
    }
    return Flags != SAVE_NOTHING && (Flags & (1u << Bit)) == 0;
}

QStringList SplitLines(const QByteArray& Text) {
    QStringList Lines;
    for (QString Line : QString::fromUtf8(Text).split(QLatin1Char('\n'))) {
        Line.remove(QLatin1Char('\r'));
        if (!Line.trimmed().isEmpty()) {
            Lines.append(Line);
        }
    }
    return Lines;
}

QByteArray JoinLines(const QStringList& Lines) {
    QStringList Sorted = Lines;
    std::stable_sort(Sorted.begin(), Sorted.end(),
                     [](const QString& A, const QString& B) { return LineKind(A) < LineKind(B); });
    return Sorted.join(QLatin1Char('\n')).toUtf8();
}

bool Read(const QString& Path, QStringList& Lines) {
    Lines.clear();
    QFile File(Path);
    if (Path.isEmpty() || !File.open(QIODevice::ReadOnly)) {
        return false;
    }
    Lines = SplitLines(File.readAll());
    return true;
}

bool Write(const QString& Path, const QStringList& Lines) {
    const QByteArray Bytes = JoinLines(Lines);
    QSaveFile File(Path);
    return !Path.isEmpty() && File.open(QIODevice::WriteOnly) && File.write(Bytes) == Bytes.size() &&
           File.commit();
}

QStringList Merge(const QStringList& Fresh, const QStringList& Old,
                  const std::function<bool(const QString& Line)>& Owned, U32 Flags) {
    QStringList Lines;
    for (const QString& L : Fresh) {
        if (IsKindSaved(LineKind(L), Flags)) {
            Lines.append(L);
        }
    }
    for (const QString& L : Old) {
        if (!Owned(L) && IsKindSaved(LineKind(L), Flags)) {
            Lines.append(L);
        }
    }
    return Lines;
}

} // namespace ProjectUserFile
