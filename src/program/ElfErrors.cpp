// The parser's single way out for errors: a callback with a numeric code, and the catalogue that turns the
// code into a log line.

#include "program/ElfInternal.h"

#include "app/core/Catalogue.h"
#include "app/core/Log.h"

#include <QFileInfo>

using namespace ElfInternal;

void ELF_SetErrorCallback(ELF_ERROR_CALLBACK Callback, void* User) {
    S().Callback = Callback;
    S().CallbackUser = User;
}

void ELF_ReportError(const ELF_ERROR_RECORD& Record) {
    if (S().Callback) {
        S().Callback(Record, S().CallbackUser);
    }
}

void ELF_ReportError(I32 Code, const QString& Detail) {
    ELF_ERROR_RECORD Record;
    Record.Code = Code;
    Record.Detail = Detail;
    ELF_ReportError(Record);
}

int ELF_CatalogIndexOfCode(I32 Code) {
    // The DWARF library's errors come as the catalogue entries they are.
    if (Code >= 0 && Code <= 48) {
        return Code;
    }
    if (Code >= 100 && Code <= 117) {
        return Code - 100 + 49;
    }
    if (Code >= 118 && Code <= 128) {
        return Code - 118 + 23;
    }
    if (Code == ELF_ERR_DEBUG_INFO) {
        return 34;
    }
    return -1;
}

void ELF_LogErrorRecord(const ELF_ERROR_RECORD& Record, void* User) {
    Q_UNUSED(User);
    const int Index = ELF_CatalogIndexOfCode(Record.Code);
    if (Index < 0) {
        return;
    }
    // Arguments that are paths are shortened to the file name.
    QByteArray Args[4];
    for (int i = 0; i < 4; ++i) {
        const QString& A = Record.Args[i];
        Args[i] = (A.contains(QLatin1Char('/')) ? QFileInfo(A).fileName() : A).toUtf8();
    }
    const QString Text = CatalogText(Index, Args[0].constData(), Args[1].constData(), Args[2].constData(),
                                     Args[3].constData());
    LogMessage(Text, Record.Severity | MSG_FROM_PROGRAM_DATA);
    if (!Record.Detail.isEmpty()) {
        LogMessage(Record.Detail, MSG_INFO | MSG_TO_ALL | MSG_FROM_PROGRAM_DATA);
    }
}
