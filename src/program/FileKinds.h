#pragma once

#include <QString>

/// The kinds of files the program knows by their names, the file-dialog filters built from them, and
/// descriptive names. Any thread.
namespace TFile {

extern const char* const DATA_FILE_PATTERNS;   ///< "*.bin *.mot *.srec *.hex *.elf *.out *.axf"
extern const char* const ELF_FILE_PATTERNS;    ///< "*.elf *.out *.axf"
extern const char* const RECORD_FILE_PATTERNS; ///< "*.mot *.srec *.hex"
extern const char* const SOURCE_FILE_PATTERNS;
extern const char* const PROJECT_FILE_PATTERNS;
extern const char* const SVD_FILE_PATTERNS;
extern const char* const DOCUMENT_FILE_PATTERNS;
extern const char* const LIBRARY_FILE_PATTERNS;

/// The text after the last "." of the file name, as written; empty if there is none.
QString Extension(const QString& Path);
/// Whether the lower-cased extension is one of the patterns of the list, compared as whole words.
bool MatchesPatterns(const QString& Path, const char* Patterns);

bool IsDataFile(const QString& Path);
/// An ELF name, or a name without extension whose first 12 bytes identify a little-endian 32-bit ELF.
bool IsElfFile(const QString& Path);
/// The 12 identification bytes of a little-endian 32-bit ELF with default ABI bytes.
bool HasElfIdentification(const QString& Path);
/// Whether the first four bytes are the ELF magic number.
bool HasElfMagic(const QString& Path);
bool IsTextRecordFile(const QString& Path);
bool IsBinFile(const QString& Path);
bool IsSourceFile(const QString& Path);
bool IsProjectFile(const QString& Path);
bool IsSvdFile(const QString& Path);
bool IsDocumentFile(const QString& Path);
bool IsLibraryFile(const QString& Path);

/// "All Files (*);;Source Files (...);;Data Files (...);;Project Files (...)".
QString GetGeneralFilter();
/// "Data Files (...)" without "*.bin".
QString GetDataFilter();
QString GetProjectFilter();

/// "Executable and Linkable Format File" and the like, by lower-cased extension; empty if unknown.
QString GetFileDescription(const QString& Path);

} // namespace TFile
