#include "program/FileKinds.h"

#include <QFile>
#include <QFileInfo>
#include <QStringList>

namespace TFile {

const char* const DATA_FILE_PATTERNS = "*.bin *.mot *.srec *.hex *.elf *.out *.axf";
const char* const ELF_FILE_PATTERNS = "*.elf *.out *.axf";
const char* const RECORD_FILE_PATTERNS = "*.mot *.srec *.hex";
const char* const SOURCE_FILE_PATTERNS = "*.h *.c *.hpp *.cpp *.s";
const char* const PROJECT_FILE_PATTERNS = "*.tvproj";
const char* const SVD_FILE_PATTERNS = "*.svd *.xml";
const char* const DOCUMENT_FILE_PATTERNS = "*.txt *.pdf *.html";
const char* const LIBRARY_FILE_PATTERNS = "*.dll *.so *.dylib";

namespace {

QByteArray FirstBytes(const QString& Path, int Count) {
    QFile In(Path);
    if (QFileInfo(Path).isDir() || !In.open(QIODevice::ReadOnly)) {
        return QByteArray();
    }
    return In.read(Count);
}

} // namespace

QString Extension(const QString& Path) {
    const QString Name = QFileInfo(Path).fileName();
    const qsizetype Dot = Name.lastIndexOf(QLatin1Char('.'));
    return Dot < 0 ? QString() : Name.mid(Dot + 1);
}

bool MatchesPatterns(const QString& Path, const char* Patterns) {
    const QString Ext = Extension(Path).toLower();
    if (Ext.isEmpty()) {
        return false;
    }
    const QStringList Words = QString::fromLatin1(Patterns).split(QLatin1Char(' '), Qt::SkipEmptyParts);
    return Words.contains(QStringLiteral("*.") + Ext);
}

bool IsDataFile(const QString& Path) {
    return MatchesPatterns(Path, DATA_FILE_PATTERNS);
}

bool HasElfIdentification(const QString& Path) {
    static const char Ident[12] = {0x7F, 'E', 'L', 'F', 1, 1, 1, 0, 0, 0, 0, 0};
    return FirstBytes(Path, 12) == QByteArray(Ident, 12);
}

bool HasElfMagic(const QString& Path) {
    return FirstBytes(Path, 4) == QByteArray("\x7F"
                                             "ELF",
                                             4);
}

bool IsElfFile(const QString& Path) {
    if (MatchesPatterns(Path, ELF_FILE_PATTERNS)) {
        return true;
    }
    return Extension(Path).isEmpty() && HasElfIdentification(Path);
}

bool IsTextRecordFile(const QString& Path) {
    return MatchesPatterns(Path, RECORD_FILE_PATTERNS);
}

bool IsBinFile(const QString& Path) {
    return Extension(Path).toLower() == QLatin1String("bin");
}

bool IsSourceFile(const QString& Path) {
    return MatchesPatterns(Path, SOURCE_FILE_PATTERNS);
}

bool IsProjectFile(const QString& Path) {
    return MatchesPatterns(Path, PROJECT_FILE_PATTERNS);
}

bool IsSvdFile(const QString& Path) {
    return MatchesPatterns(Path, SVD_FILE_PATTERNS);
}

bool IsDocumentFile(const QString& Path) {
    return MatchesPatterns(Path, DOCUMENT_FILE_PATTERNS);
}

bool IsLibraryFile(const QString& Path) {
    return MatchesPatterns(Path, LIBRARY_FILE_PATTERNS);
}

QString GetGeneralFilter() {
    return QStringLiteral("All Files (*);;Source Files (%1);;Data Files (%2);;Project Files (%3)")
        .arg(QLatin1String(SOURCE_FILE_PATTERNS), QLatin1String(DATA_FILE_PATTERNS),
             QLatin1String(PROJECT_FILE_PATTERNS));
}

QString GetDataFilter() {
    return QStringLiteral("Data Files (%1)")
        .arg(QString::fromLatin1(DATA_FILE_PATTERNS).remove(QStringLiteral("*.bin ")));
}

QString GetProjectFilter() {
    return QStringLiteral("Project Files (%1)").arg(QLatin1String(PROJECT_FILE_PATTERNS));
}

QString GetFileDescription(const QString& Path) {
    static const struct {
        const char* Ext;
        const char* Name;
    } Names[] = {
        {"elf", "Executable and Linkable Format File"},
        {"out", "Executable and Linkable Format File"},
        {"axf", "Executable and Linkable Format File"},
        {"bin", "Binary Data FIle"},
        {"mot", "Motorola S-Record File"},
        {"hex", "Intel Hexadecimal File"},
        {"srec", "S-Record File"},
        {"h", "C Header File"},
        {"c", "C Source File"},
        {"s", "Assembly Script"},
        {"hpp", "C++ Header File"},
        {"cpp", "C++ Source File"},
        {"svd", "System View Descr. File"},
        {"xml", "Xml File"},
        {"tarvo", "Tarvo Script file"},
    };
    const QString Ext = Extension(Path).toLower();
    for (const auto& N : Names) {
        if (Ext == QLatin1String(N.Ext)) {
            return QLatin1String(N.Name);
        }
    }
    return QString();
}

} // namespace TFile
