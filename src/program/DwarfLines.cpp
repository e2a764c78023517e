// The source files and line rows of one unit, from its line table.

#include "program/DwarfInternal.h"

#include <QElapsedTimer>

namespace DwarfInternal {

void ReadUnitLines(SESSION* S, Dwarf_Die UnitDie, DEBUG_INFO* Unused, UNIT_RESULT& Out) {
    Q_UNUSED(Unused);
    Dwarf_Debug Dbg = S->Dbg;
    QElapsedTimer Timer;
    Timer.start();
    Dwarf_Error Err = nullptr;
    char** Names = nullptr;
    Dwarf_Signed NameCount = 0;
    int Res = dwarf_srcfiles(UnitDie, &Names, &NameCount, &Err);
    if (Res == DW_DLV_OK) {
        Out.FileNames.reserve(static_cast<size_t>(NameCount));
        for (Dwarf_Signed i = 0; i < NameCount; ++i) {
            Out.FileNames.push_back(Keep(Out.Arena, S->File, Names[i] ? Names[i] : ""));
            dwarf_dealloc(Dbg, Names[i], DW_DLA_STRING);
        }
        dwarf_dealloc(Dbg, Names, DW_DLA_LIST);
    } else if (Res == DW_DLV_ERROR) {
        Out.Errors.push_back(LibraryError(Dbg, Err, QStringLiteral("reading the source files")));
        Out.FilesFailed = true;
        Err = nullptr;
    }
    Out.FileMs = static_cast<double>(Timer.nsecsElapsed()) / 1e6;
    Timer.restart();

    Dwarf_Unsigned Version = 0;
    Dwarf_Small TableCount = 0;
    Dwarf_Line_Context Context = nullptr;
    Res = dwarf_srclines_b(UnitDie, &Version, &TableCount, &Context, &Err);
    if (Res != DW_DLV_OK) {
        // A unit without a line table has no rows: that is reported, and the next unit goes on.
        Out.LinesFailed = true;
        if (Res == DW_DLV_ERROR) {
            Out.Errors.push_back(LibraryError(Dbg, Err, QStringLiteral("reading the line table")));
        }
        Out.LineMs = static_cast<double>(Timer.nsecsElapsed()) / 1e6;
        return;
    }
    // Files count from 0 in a version 5 table and from 1 before.
    Out.Unit.FileBase = Version >= 5 ? 0 : 1;
    Dwarf_Line* Lines = nullptr;
    Dwarf_Signed Count = 0;
    Res = dwarf_srclines_from_linecontext(Context, &Lines, &Count, &Err);
    if (Res == DW_DLV_ERROR) {
        Out.Errors.push_back(LibraryError(Dbg, Err, QStringLiteral("reading the line rows")));
        Out.LinesFailed = true;
        Err = nullptr;
    }
    if (Res == DW_DLV_OK) {
        Out.Lines.reserve(static_cast<size_t>(Count));
        bool BadFile = false;
        for (Dwarf_Signed i = 0; i < Count; ++i) {
            Dwarf_Line L = Lines[i];
            Dwarf_Addr Addr = 0;
            Dwarf_Unsigned Line = 0, Column = 0, FileNo = 0;
            Dwarf_Bool Stmt = 0, End = 0;
            if (dwarf_lineaddr(L, &Addr, &Err) != DW_DLV_OK || dwarf_lineno(L, &Line, &Err) != DW_DLV_OK ||
                dwarf_lineoff_b(L, &Column, &Err) != DW_DLV_OK ||
                dwarf_line_srcfileno(L, &FileNo, &Err) != DW_DLV_OK) {
                Out.Errors.push_back(LibraryError(Dbg, Err, QStringLiteral("reading a line row")));
                Err = nullptr;
                Out.LinesFailed = true;
                break;
            }
            dwarf_linebeginstatement(L, &Stmt, &Err);
            DropError(Dbg, Err);
            Err = nullptr;
            dwarf_lineendsequence(L, &End, &Err);
            DropError(Dbg, Err);
            Err = nullptr;
            U32 File = 0xFFFFFFFF;
            if (FileNo >= Out.Unit.FileBase && FileNo - Out.Unit.FileBase < Out.FileNames.size()) {
                File = static_cast<U32>(FileNo - Out.Unit.FileBase);
            } else if (!BadFile) {
                BadFile = true;
                Out.Errors.push_back(ReaderError(ELF_LIBERR_FILE_INDEX,
                                                 QStringLiteral("file number %1 of a line row").arg(FileNo)));
            }
            LINE R;
            R.Address = static_cast<U32>(Addr);
            R.File = File;
            R.Line = static_cast<U32>(Line);
            R.Column = static_cast<U16>(Column > 0xFFFF ? 0xFFFF : Column);
            R.Flags = static_cast<U8>((Stmt ? 1 : 0) | (End ? 2 : 0));
            R.Reserved = 0;
            R.Unit = 0;
            Out.Lines.push_back(R);
        }
    }
    dwarf_srclines_dealloc_b(Context);
    Out.LineMs = static_cast<double>(Timer.nsecsElapsed()) / 1e6;
}

} // namespace DwarfInternal
