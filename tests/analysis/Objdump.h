#pragma once

#include "app/core/Types.h"

#include <QString>
#include <QVector>

/// One line of `arm-none-eabi-objdump -d`: an instruction, or a data item of a literal pool.
struct OBJDUMP_LINE {
    U64 Addr = 0;
    int Size = 0;
    QString Mnemonic;
    QString Operands;
    QString Comment; ///< behind "@", without it
    bool IsData = false;
};

/// Disassembles a program with the binutils oracle. An error text on failure.
QString RunObjdump(const QString& ElfPath, QVector<OBJDUMP_LINE>& Lines);
/// The Tag_CPU_arch and Tag_FP_arch texts of the program's attributes.
QString ReadCpuArch(const QString& ElfPath, QString& Arch, QString& FpArch);
