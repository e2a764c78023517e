#include "app/core/CommandArgs.h"

#include "app/core/CommandTable.h"
#include "app/core/ScriptConstants.h"

#include <QFileInfo>

CCommandArgs::CCommandArgs(U32 Id, int Min) : m_Id(Id), m_Ok(Commands::CheckCommandArgCount(Id, Min)) {
    if (m_Ok) {
        m_Args = Commands::GetCommandArgs(Id);
    }
}

bool CCommandArgs::Number(int Index, I64& Value, const QString& Error, bool WithText) {
    if (Has(Index) && ScriptConstants::ParseNumber(m_Args[Index], Value)) {
        return true;
    }
    return Fail(Error, WithText ? Text(Index) : QString());
}

bool CCommandArgs::OnOff(int Index, bool& On) {
    const I64 V = Has(Index) ? ScriptConstants::ParseConstantOrNumber(m_Args[Index]) : -1;
    if (V < 0) {
        return Fail(QStringLiteral("invalid parameter"));
    }
    On = V != 0;
    return true;
}

bool CCommandArgs::ExistingFile(int Index, QString& Path,
                                const std::function<QString(const QString&)>& Resolve) {
    const QString Resolved = Has(Index) ? Resolve(m_Args[Index]) : QString();
    if (Resolved.isEmpty() || !QFileInfo(Resolved).isFile()) {
        return Fail(QStringLiteral("file not found"));
    }
    Path = Resolved;
    return true;
}

bool CCommandArgs::Fail(const QString& Message, const QString& Detail) {
    m_Ok = false;
    Commands::SetCommandError(m_Id, Message, Detail);
    return false;
}
