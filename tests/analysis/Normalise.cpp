#include "Normalise.h"

#include <QRegularExpression>

namespace {

using Re = QRegularExpression;

#define COND "(eq|ne|cs|cc|mi|pl|vs|vc|hi|ls|ge|lt|gt|le)?"

/// The known differences between objdump's text and the plug-in's, as rewrites of objdump's text
/// after the common normalisation, applied in order. Each is the same instruction written another
/// valid way.
struct KNOWN_DIFFERENCE {
    const char* Pattern;
    const char* Replacement;
    const char* Why;
};
const KNOWN_DIFFERENCE s_KnownDifferences[] = {
    {"((?:b|bl)" COND "|cbn?z) (.*?)([0-9a-f]+)",
     "\\1 \\3"
     "0x\\4",
     "objdump writes a branch target as bare hex digits, the plug-in as a 0x address"},
    {"(ldm|stm)ia" COND " (.*)", "\\1\\2 \\3", "increment-after is the default mode of LDM and STM"},
    {"ldm" COND " sp!, (.*)", "pop\\1 \\2", "LDM from SP with write-back is POP"},
    {"stmdb" COND " sp!, (.*)", "push\\1 \\2", "STMDB to SP with write-back is PUSH"},
    {"mov(s?)" COND " (\\w+), (\\w+), (lsl|lsr|asr|ror) (.*)", "\\5\\1\\2 \\3, \\4, \\6",
     "a shifted register move is written as its shift instruction"},
    {"mov(s?)" COND " (\\w+), (\\w+), rrx", "rrx\\1\\2 \\3, \\4", "MOV with RRX is RRX"},
    {"neg(s?)" COND " (\\w+), (\\w+)", "rsb\\1\\2 \\3, \\4, #0", "NEG is RSB from zero"},
    {"mul(s?)" COND " (\\w+), (\\w+)", "mul\\1\\2 \\3, \\4, \\3", "two-register MUL repeats the destination"},
    {"add (\\w+), sp", "add \\1, sp, \\1", "ADD of SP and a register names the destination twice"},
    {"mrs (\\w+), psr", "mrs \\1, xpsr", "objdump names the M-profile xPSR by its A-profile name"},
    {"mrs (\\w+), cpsr", "mrs \\1, apsr", "objdump names the M-profile APSR by its A-profile name"},
    {"msr cpsr_f, (\\w+)", "msr apsr_nzcvq, \\1", "objdump names the M-profile APSR by its A-profile name"},
};

/// Rewrites that need more than a pattern (the comment or the address), in the same spirit:
/// - ARMv6-M's filler "mov r8, r8": objdump shows "nop" and the instruction in its comment.
/// - ADR: the plug-in shows the address formed; objdump shows ADD, ADDW or SUBW from the PC.
/// - VMOV of a floating-point constant: objdump shows the encoded 8 bits and the value in its
///   comment, the plug-in the value.
/// - BKPT and SVC: objdump writes their immediate without "#".

QString ExpandRegisterRanges(QString Ops) {
    static const Re Range(QStringLiteral("([sd])(\\d+)-[sd](\\d+)"));
    QRegularExpressionMatch M;
    while ((M = Range.match(Ops)).hasMatch()) {
        QStringList Regs;
        for (int i = M.captured(2).toInt(); i <= M.captured(3).toInt(); ++i) {
            Regs << M.captured(1) + QString::number(i);
        }
        Ops.replace(M.capturedStart(), M.capturedLength(), Regs.join(QStringLiteral(", ")));
    }
    return Ops;
}

/// Immediates in decimal, negative ones as their 32-bit pattern.
QString DecimalImmediates(const QString& Ops) {
    static const Re Imm(QStringLiteral("#(-?)(0x[0-9a-f]+|\\d+)(?![.\\de])"));
    QString Out;
    qsizetype Last = 0;
    auto It = Imm.globalMatch(Ops);
    while (It.hasNext()) {
        const QRegularExpressionMatch M = It.next();
        U64 V = M.captured(2).toULongLong(nullptr, 0);
        if (!M.captured(1).isEmpty()) {
            V = (U64(1) << 32) - V;
        }
        Out += Ops.mid(Last, M.capturedStart() - Last) + QLatin1Char('#') + QString::number(V);
        Last = M.capturedEnd();
    }
    return Out + Ops.mid(Last);
}

/// A floating-point immediate as "%g".
QString FloatImmediate(QString Text, const QString& Value) {
    static const Re Imm(QStringLiteral("#[-+\\d.e]+$"));
    return Text.replace(Imm, QLatin1Char('#') + QString::number(Value.toDouble(), 'g', 6));
}

/// Common to both sides: lower case, no width qualifier, CS and CC for HS and LO, no symbol names,
/// decimal immediates, register ranges written out, no leading zeros, no zero offset.
QString Canonical(QString Mnemonic, QString Ops) {
    Mnemonic = Mnemonic.toLower();
    Ops = Ops.toLower();
    static const Re Width(QStringLiteral("\\.[nw]$"));
    Mnemonic.remove(Width);
    static const Re Hs(QStringLiteral("hs(\\.f\\d\\d)?$")), Lo(QStringLiteral("lo(\\.f\\d\\d)?$"));
    Mnemonic.replace(Hs, QStringLiteral("cs\\1")).replace(Lo, QStringLiteral("cc\\1"));
    if (Mnemonic.startsWith(QLatin1String("it"))) {
        Ops.replace(QLatin1String("hs"), QLatin1String("cs"))
            .replace(QLatin1String("lo"), QLatin1String("cc"));
    }
    static const Re Symbol(QStringLiteral("\\s*<[^>]*>"));
    Ops.remove(Symbol);
    Ops = ExpandRegisterRanges(DecimalImmediates(Ops));
    static const Re Zeros(QStringLiteral("(^|[^#\\w])0x0+([0-9a-f])"));
    Ops.replace(Zeros, QStringLiteral("\\1"
                                      "0x\\2"));
    Ops.replace(QLatin1String(", #0]"), QLatin1String("]"));
    Ops.replace(QLatin1String(", #0.0"), QLatin1String(", #0"));
    return (Mnemonic + QLatin1Char(' ') + Ops).trimmed();
}

} // namespace

QString NormaliseObjdump(const OBJDUMP_LINE& L) {
    QString Ops = L.Operands;
    if ((L.Mnemonic == QLatin1String("bkpt") || L.Mnemonic == QLatin1String("svc")) && !Ops.startsWith('#')) {
        Ops.prepend('#');
    }
    QString T = Canonical(L.Mnemonic, Ops);
    static const QVector<Re> Patterns = [] {
        QVector<Re> P;
        for (const KNOWN_DIFFERENCE& D : s_KnownDifferences) {
            P.append(Re(QStringLiteral("^") + QLatin1String(D.Pattern) + QStringLiteral("$")));
        }
        return P;
    }();
    for (qsizetype i = 0; i < Patterns.size(); ++i) {
        if (Patterns[i].match(T).hasMatch()) {
            T.replace(Patterns[i], QLatin1String(s_KnownDifferences[i].Replacement));
        }
    }
    if (T == QLatin1String("nop") && L.Comment == QLatin1String("(mov r8, r8)")) {
        return QStringLiteral("mov r8, r8");
    }
    static const Re Adr(QStringLiteral("^\\(adr (\\w+), ([0-9a-f]+)"));
    const QRegularExpressionMatch M = Adr.match(L.Comment);
    if (M.hasMatch()) {
        return QStringLiteral("adr ") + M.captured(1) + QStringLiteral(", 0x") + M.captured(2);
    }
    static const Re AddW(QStringLiteral("^(addw|subw) (\\w+), pc, #(\\d+)$"));
    const QRegularExpressionMatch W = AddW.match(T);
    if (W.hasMatch()) {
        const U64 Base = (L.Addr + 4) & ~U64(3);
        const U64 Off = W.captured(3).toULongLong();
        const U64 Target = W.captured(1) == QLatin1String("addw") ? Base + Off : Base - Off;
        return QStringLiteral("adr ") + W.captured(2) + QStringLiteral(", 0x") + QString::number(Target, 16);
    }
    static const Re FloatComment(QStringLiteral("^0x[0-9a-f]+\\s+(\\S+)$"));
    const QRegularExpressionMatch F = FloatComment.match(L.Comment);
    if (F.hasMatch() && T.startsWith(QLatin1String("vmov"))) {
        return FloatImmediate(T, F.captured(1));
    }
    return T;
}

QString NormalisePlugin(const QString& Text) {
    const QStringList Parts = Text.split('\t');
    QString T = Canonical(Parts.value(0), Parts.value(1));
    static const Re Float(QStringLiteral("#(-?\\d\\.\\d+e[-+]\\d+)$"));
    const QRegularExpressionMatch M = Float.match(T);
    if (M.hasMatch()) {
        T = FloatImmediate(T, M.captured(1));
    }
    return T;
}

U64 ObjdumpCommentAddress(const OBJDUMP_LINE& L) {
    static const Re Addr(QStringLiteral("^\\(?([0-9a-f]+) <"));
    const QRegularExpressionMatch M = Addr.match(L.Comment);
    return M.hasMatch() ? M.captured(1).toULongLong(nullptr, 16) : ~U64(0);
}
