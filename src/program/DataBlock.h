#pragma once

#include "app/core/Types.h"

#include <QByteArray>

#include <vector>

/// One block of program bytes from a file reader. The byte arrays are shared by reference counting, so a
/// copied list shares its bytes.
struct ELF_DATA_BLOCK {
    U32 Address = 0;        ///< where the bytes go in the target; an ELF segment's physical address
    U32 Size = 0;           ///< number of bytes
    U32 VirtualAddress = 0; ///< the address the program uses; equals Address for all formats but ELF
    QByteArray Data;
    QByteArray Data2;   ///< never filled by the readers
    U32 RecordType = 0; ///< used only while a text record is parsed
};

/// A list of blocks; the list owns them. An empty list stands for every failure of a reader.
typedef std::vector<ELF_DATA_BLOCK> ELF_DATA_BLOCKS;
