#include "Objdump.h"

#include <QProcess>
#include <QRegularExpression>

namespace {

QString Run(const QString& Program, const QStringList& Args, QString& Output) {
    QProcess P;
    P.start(Program, Args);
    if (!P.waitForStarted(10000)) {
        return Program + QStringLiteral(" did not start");
    }
    if (!P.waitForFinished(60000) || P.exitStatus() != QProcess::NormalExit || P.exitCode() != 0) {
        P.kill();
        return Program + QStringLiteral(" failed: ") + QString::fromUtf8(P.readAllStandardError());
    }
    Output = QString::fromUtf8(P.readAllStandardOutput());
    return QString();
}

} // namespace

QString RunObjdump(const QString& ElfPath, QVector<OBJDUMP_LINE>& Lines) {
    QString Text;
    const QString Error = Run(QStringLiteral(ARNEX_OBJDUMP), {QStringLiteral("-d"), ElfPath}, Text);
    if (!Error.isEmpty()) {
        return Error;
    }
    // "  4c:\tfb00 f000 \tmul.w\tr0, r0, r0" and "  68:\t20000000 \t.word\t0x20000000"
    static const QRegularExpression Re(
        QStringLiteral("^\\s*([0-9a-f]+):\\t([0-9a-f ]+)\\t([^\\t]+)(?:\\t(.*))?$"));
    for (const QString& L : Text.split('\n')) {
        const QRegularExpressionMatch M = Re.match(L);
        if (!M.hasMatch()) {
            continue;
        }
        OBJDUMP_LINE Line;
        Line.Addr = M.captured(1).toULongLong(nullptr, 16);
        Line.Size = M.captured(2).simplified().remove(' ').size() / 2;
        Line.Mnemonic = M.captured(3).trimmed();
        QString Rest = M.captured(4);
        const qsizetype At = Rest.indexOf(QStringLiteral("\t@"));
        if (At >= 0) {
            Line.Comment = Rest.mid(At + 2).trimmed();
            Rest.truncate(At);
        }
        Line.Operands = Rest.trimmed();
        Line.IsData = Line.Mnemonic.startsWith('.');
        Lines.append(Line);
    }
    return Lines.isEmpty() ? QStringLiteral("no instructions in ") + ElfPath : QString();
}

QString ReadCpuArch(const QString& ElfPath, QString& Arch, QString& FpArch) {
    QString Text;
    const QString Error = Run(QStringLiteral(ARNEX_READELF), {QStringLiteral("-A"), ElfPath}, Text);
    if (!Error.isEmpty()) {
        return Error;
    }
    static const QRegularExpression ArchRe(QStringLiteral("Tag_CPU_arch: (\\S+)"));
    static const QRegularExpression FpRe(QStringLiteral("Tag_FP_arch: (.+)"));
    Arch = ArchRe.match(Text).captured(1);
    FpArch = FpRe.match(Text).captured(1).trimmed();
    return Arch.isEmpty() ? QStringLiteral("no Tag_CPU_arch in ") + ElfPath : QString();
}
