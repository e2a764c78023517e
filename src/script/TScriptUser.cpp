// The user functions: the fixed points of a session at which the project's script is called, and the text
// of each in a generated project file.

#include "script/TScript.h"

#include <iterator>
#include <vector>

namespace TScript {
namespace {

/// Width to which every line of a comment head and of a default body is padded.
constexpr int LINE_WIDTH = 70;

enum DEFAULT_BODIES { BODY_LIVE, BODY_COMMENTED, BODY_SAMPLE };

struct USER_FUNCTION {
    const char* Prototype;
    const char* Description;
    bool ResetLines; ///< the description goes on with the two lines on PC and SP
    DEFAULT_BODIES Body;
};

/// In the order of USER_FUNCTION_IDS: row Id - 1 is the function Id.
const USER_FUNCTION s_UserFunctions[] = {
    {"void OnProjectLoad (void);", "Project load routine. Required.", false, BODY_LIVE},
    {"void TargetReset (void);", "Replaces the default target device reset routine. Optional.", false,
     BODY_SAMPLE},
    {"void BeforeTargetReset (void);", "Event handler routine. Optional.", false, BODY_COMMENTED},
    {"void AfterTargetReset (void);", "Event handler routine.", true, BODY_COMMENTED},
    {"void DebugStart (void);", "Replaces the default debug session startup routine. Optional.", false,
     BODY_COMMENTED},
    {"void TargetConnect (void);", "Replaces the default target IF connection routine. Optional.", false,
     BODY_COMMENTED},
    {"void BeforeTargetConnect (void);", "Event handler routine. Optional.", false, BODY_COMMENTED},
    {"void AfterTargetConnect (void);", "Event handler routine. Optional.", false, BODY_COMMENTED},
    {"void TargetDownload (void);", "Replaces the default program download routine. Optional.", false,
     BODY_COMMENTED},
    {"void BeforeTargetDownload (void);", "Event handler routine. Optional.", false, BODY_COMMENTED},
    {"void AfterTargetDownload (void);", "Event handler routine.", true, BODY_SAMPLE},
    {"void BeforeTargetDisconnect (void);", "Event handler routine. Optional.", false, BODY_COMMENTED},
    {"void AfterTargetDisconnect (void);", "Event handler routine. Optional.", false, BODY_COMMENTED},
    {"void AfterTargetHalt (void);", "Event handler routine. Optional.", false, BODY_COMMENTED},
    {"void BeforeTargetResume (void);", "Event handler routine. Optional.", false, BODY_COMMENTED},
};
static_assert(std::size(s_UserFunctions) == USER_FUNCTION_COUNT, "one row per user function id");

USER_FUNCTION_BODY_PROVIDER s_BodyProvider = nullptr;
/// Capacity of the buffer a core plug-in fills with a body.
constexpr int BODY_CAPACITY = 10000;

const USER_FUNCTION* Row(int Id) {
    return Id >= 1 && Id <= USER_FUNCTION_COUNT ? &s_UserFunctions[Id - 1] : nullptr;
}

QString Padded(const QString& Line) {
    return Line.leftJustified(LINE_WIDTH, QLatin1Char(' ')) + QLatin1Char('\n');
}

QString CommentHead(int Id, const QString& Name) {
    const USER_FUNCTION* F = Row(Id);
    // Two of the samples have their name one column further left.
    const bool Sample = F->Body == BODY_SAMPLE;
    QString Text = Padded(QLatin1Char('/') + QString(LINE_WIDTH - 1, QLatin1Char('*')));
    Text += Padded(QStringLiteral("*"));
    Text += Padded(QLatin1Char('*') + QString(Sample ? 6 : 7, QLatin1Char(' ')) + Name);
    Text += Padded(QStringLiteral("*"));
    Text += Padded(QStringLiteral("* Function description"));
    Text += Padded(QStringLiteral("*   ") + QLatin1String(F->Description));
    if (F->ResetLines) {
        Text += Padded(QStringLiteral("*    - Sets the PC register to program reset value."));
        Text += Padded(QStringLiteral("*    - Sets the SP register to program reset value on Cortex-M."));
    }
    if (Id == 2) {
        Text += Padded(QStringLiteral("*"));
        Text += Padded(QStringLiteral("* Notes"));
        Text += Padded(QStringLiteral("*   This example demonstrates the usage when"));
        Text += Padded(QStringLiteral("*   debugging a RAM program on a Cortex-M target device"));
    }
    Text += Padded(QStringLiteral("*"));
    Text += Padded(QString(LINE_WIDTH, QLatin1Char('*')));
    Text += Padded(QStringLiteral("*/"));
    return Text;
}

/// The reset sample of TargetReset, or its download variant for AfterTargetDownload.
QStringList SampleLines(int Id, const QString& Name) {
    const bool Reset = Id == 2;
    QStringList Lines{QStringLiteral("void ") + Name + QStringLiteral(" (void) {"),
                      QString(),
                      QStringLiteral("  unsigned int SP;"),
                      QStringLiteral("  unsigned int PC;"),
                      QStringLiteral("  unsigned int VectorTableAddr;"),
                      QString()};
    if (Reset) {
        Lines << QStringLiteral("  Exec.Reset();") << QString();
    }
    Lines << QStringLiteral("  VectorTableAddr = Elf.GetBaseAddr();") << QString()
          << QStringLiteral("  if (VectorTableAddr != 0xFFFFFFFF) {") << QString()
          << (Reset ? QStringLiteral("    Util.Log(\"Resetting Program.\");")
                    : QStringLiteral("    Util.Log(\"Initializing PC and SP.\");"))
          << QString() << QStringLiteral("    SP = Target.ReadU32(VectorTableAddr);")
          << QStringLiteral("    Target.SetReg(\"SP\", SP);") << QString()
          << QStringLiteral("    PC = Target.ReadU32(VectorTableAddr + 4);")
          << QStringLiteral("    Target.SetReg(\"PC\", PC);") << QStringLiteral("  }") << QStringLiteral("}");
    return Lines;
}

/// OnProjectLoad of a generated project: the dialog section, then the user section with File.Open.
QString LoadFunctionBody(const QStringList& CommandLines) {
    QString Text = QStringLiteral("void OnProjectLoad (void) {\n");
    Text += QStringLiteral("  //\n  // Dialog-generated settings\n  //\n");
    QString OpenLine;
    for (const QString& Line : CommandLines) {
        if (OpenLine.isEmpty() && Line.contains(QLatin1String("File.Open"))) {
            OpenLine = Line;
            continue;
        }
        Text += QStringLiteral("  ") + Line + QLatin1Char('\n');
    }
    Text += QStringLiteral("  //\n  // User settings\n  //\n");
    if (!OpenLine.isEmpty()) {
        Text += QStringLiteral("  ") + OpenLine + QLatin1Char('\n');
    }
    return Text + QStringLiteral("}\n");
}

} // namespace

QString GetUserFunctionPrototype(int Id) {
    const USER_FUNCTION* F = Row(Id);
    return F ? QLatin1String(F->Prototype) : QString();
}

QString GetUserFunctionName(int Id) {
    const QString Proto = GetUserFunctionPrototype(Id);
    const int Open = Proto.indexOf(QLatin1Char('('));
    if (Open < 0) {
        return QString();
    }
    const QStringList Words = Proto.left(Open).split(QLatin1Char(' '), Qt::SkipEmptyParts);
    return Words.size() >= 2 ? Words.last() : QString();
}

namespace {

/// The plug-in's body of a function, or empty when there is no plug-in or it has none.
QString ProvidedBody(int Id) {
    if (!s_BodyProvider) {
        return QString();
    }
    std::vector<char> Buffer(BODY_CAPACITY + 1, '\0');
    if (s_BodyProvider(Id, Buffer.data(), BODY_CAPACITY) != 0) {
        return QString();
    }
    Buffer[BODY_CAPACITY] = '\0';
    return QString::fromUtf8(Buffer.data());
}

/// One block; a generated project always has the two sections in OnProjectLoad.
QString BlockText(int Id, const QStringList& CommandLines, bool Generated) {
    const USER_FUNCTION* F = Row(Id);
    if (!F) {
        return QString();
    }
    const QString Name = GetUserFunctionName(Id);
    QString Text = CommentHead(Id, Name);
    if (Id == 1 && (Generated || !CommandLines.isEmpty())) {
        return Text + LoadFunctionBody(CommandLines);
    }
    if (Id != 1) {
        const QString Body = ProvidedBody(Id);
        if (!Body.isEmpty()) {
            return Text + QStringLiteral("void ") + Name + QStringLiteral(" (void) {\n") + Body +
                   QStringLiteral("\n}\n");
        }
    }
    const QString Head = QStringLiteral("void ") + Name + QStringLiteral(" (void) {");
    switch (F->Body) {
    case BODY_LIVE:
        return Text + Padded(Head) + Padded(QStringLiteral("}"));
    case BODY_COMMENTED:
        return Text + Padded(QStringLiteral("//") + Head) + Padded(QStringLiteral("//}"));
    case BODY_SAMPLE:
        for (const QString& Line : SampleLines(Id, Name)) {
            Text += Padded(QStringLiteral("//") + Line);
        }
        return Text;
    }
    return Text;
}

} // namespace

QString GetUserFunctionText(int Id, const QStringList& CommandLines) {
    return BlockText(Id, CommandLines, false);
}

QString GenerateProjectText(const QStringList& CommandLines) {
    QStringList Blocks;
    for (int Id = 1; Id <= USER_FUNCTION_COUNT; ++Id) {
        Blocks.append(BlockText(Id, CommandLines, true));
    }
    return Blocks.join(QLatin1Char('\n'));
}

void SetUserFunctionBodyProvider(USER_FUNCTION_BODY_PROVIDER Provider) {
    s_BodyProvider = Provider;
}

} // namespace TScript
