#include "app/core/CmdLineArgs.h"

#include "app/core/Paths.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

namespace {

/// One pair of surrounding double quotes and the blanks around the value go.
QString CleanValue(QString Value) {
    Value = Value.trimmed();
    if (Value.startsWith(QLatin1Char('"'))) {
        Value.remove(0, 1);
    }
    if (Value.endsWith(QLatin1Char('"'))) {
        Value.chop(1);
    }
    return Value.trimmed();
}

QByteArray ByteCopy(const QString& Path) {
    return Path.toLocal8Bit().left(511);
}

} // namespace

void CCmdLineArgs::Parse(const QStringList& Args) {
    for (int i = 0; i < Args.size(); ++i) {
        const QString& Arg = Args[i];
        if (!Arg.startsWith(QLatin1Char('-'))) {
            continue;
        }
        int Start = 0;
        while (Start < Arg.size() && Arg[Start] == QLatin1Char('-')) {
            ++Start;
        }
        const QString Name = Arg.mid(Start).toLower();

        // A value is the next argument, and only if it exists and is not an option itself.
        const bool HasValue = i + 1 < Args.size() && !Args[i + 1].startsWith(QLatin1Char('-'));
        auto TakeValue = [&]() { return CleanValue(Args[++i]); };

        if (Name == QLatin1String("usb") || Name == QLatin1String("ip")) {
            HostIF = Name.toUpper();
            if (HasValue) {
                HostIdent = TakeValue();
            }
        } else if (Name == QLatin1String("vanta")) {
            Device = QStringLiteral("MK66FN2M0XXX18");
            TargetIF = QStringLiteral("SWD");
            Speed = QStringLiteral("2000");
        } else if (Name == QLatin1String("debug")) {
            Debug = true;
        } else if (Name == QLatin1String("quit")) {
            Quit = true;
        } else if (!HasValue) {
            continue;
        } else if (Name == QLatin1String("exec")) {
            // A console line keeps its quotes: they belong to its arguments.
            ExecLines.append(Args[++i]);
        } else if (Name == QLatin1String("device")) {
            Device = TakeValue();
        } else if (Name == QLatin1String("select")) {
            const QString Sel = TakeValue().toLower();
            const int Eq = Sel.indexOf(QLatin1Char('='));
            const QString Kind = Eq < 0 ? Sel : Sel.left(Eq);
            if (Kind == QLatin1String("usb") || Kind == QLatin1String("ip")) {
                HostIF = Kind.toUpper();
                if (Eq >= 0) {
                    HostIdent = Sel.mid(Eq + 1).trimmed();
                }
            }
        } else if (Name == QLatin1String("if")) {
            TargetIF = TakeValue();
        } else if (Name == QLatin1String("speed")) {
            Speed = TakeValue();
        } else if (Name == QLatin1String("datafile") || Name == QLatin1String("programfile")) {
            ProgramFile = Paths::ExpandPath(TakeValue());
        } else if (Name == QLatin1String("project")) {
            ProjectFile = Paths::ExpandPath(TakeValue());
        } else if (Name == QLatin1String("logfile")) {
            LogFile = Paths::ExpandPath(TakeValue());
            LogFileBytes = ByteCopy(LogFile);
        } else if (Name == QLatin1String("loginterval")) {
            LogInterval = TakeValue();
        } else if (Name == QLatin1String("logtimestamps")) {
            TimestampLogFile = Paths::ExpandPath(TakeValue());
            TimestampLogFileBytes = ByteCopy(TimestampLogFile);
        } else if (Name == QLatin1String("tarvoscriptfile")) {
            TarvoScriptFile = TakeValue();
        } else if (Name == QLatin1String("jtagconfig")) {
            JTAGConfig = TakeValue();
        }
    }
}

CCmdLineArgs& GetCmdLineArgs() {
    static CCmdLineArgs Args;
    return Args;
}

QStringList GetCmdLineArguments() {
    return QCoreApplication::arguments().mid(1);
}

QString GetCmdLineText() {
    QStringList Parts = QCoreApplication::arguments();
    if (Parts.isEmpty()) {
        return QString();
    }
    const QString Canonical = QFileInfo(QCoreApplication::applicationFilePath()).canonicalFilePath();
    Parts[0] = Canonical.isEmpty() ? Parts[0] : Canonical;
    return Parts.join(QLatin1Char(' '));
}

QString GetCurrentWorkingDir() {
    return QDir::currentPath();
}
