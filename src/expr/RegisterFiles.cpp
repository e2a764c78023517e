#include "expr/RegisterFiles.h"

#include "app/core/Paths.h"
#include "probe/TarvoCores.h"

#include <QFile>
#include <QFileInfo>

#include <rapidxml/rapidxml.hpp>

namespace RegisterFiles {
namespace {

constexpr qint64 MIN_FILE_SIZE = 10;

/// The file name for a core; cores the table doesn't name follow the first member of their family, as
/// the core plug-in's register map does.
const char* CpuFileName(U32 Core) {
    switch (Core) {
    case TARVO_CORE_CORTEX_M0:
    case TARVO_CORE_CORTEX_M0P:
    case TARVO_CORE_CORTEX_M23:
        return "Cortex-M0";
    case TARVO_CORE_CORTEX_M3:
        return "Cortex-M3";
    case TARVO_CORE_CORTEX_M4:
        return "Cortex-M4";
    case TARVO_CORE_CORTEX_M7:
        return "Cortex-M7";
    case TARVO_CORE_CORTEX_M33:
        return "Cortex-M33";
    default:
        break;
    }
    switch (TARVO_CORE_FAMILY(Core)) {
    case TARVO_CORE_FAMILY(TARVO_CORE_CORTEX_M0):
        return "Cortex-M0";
    case TARVO_CORE_FAMILY(TARVO_CORE_CORTEX_M3):
        return "Cortex-M3";
    case TARVO_CORE_FAMILY(TARVO_CORE_CORTEX_M4):
        return "Cortex-M4";
    default:
        return nullptr;
    }
}

} // namespace

QString GetCpuSVDFileForCore(U32 Core) {
    const char* Name = CpuFileName(Core);
    return Name ? QStringLiteral("$(InstallDir)/Config/CPU/") + QLatin1String(Name) + QStringLiteral(".svd")
                : QString();
}

bool HasCpuSVDFileForCore(U32 Core) {
    const QString Path = GetCpuSVDFileForCore(Core);
    return !Path.isEmpty() && QFileInfo(Paths::ExpandPath(Path)).isFile();
}

int GetFileFormat(const QString& Path) {
    QFile File(Paths::ExpandPath(Path));
    if (File.size() < MIN_FILE_SIZE || !File.open(QIODevice::ReadOnly)) {
        return SVD_FORMAT_UNREADABLE;
    }
    // rapidxml parses in place and needs the terminating zero that QByteArray keeps.
    QByteArray Text = File.readAll();
    rapidxml::xml_document<char> Document;
    try {
        Document.parse<rapidxml::parse_fastest>(Text.data());
    } catch (const rapidxml::parse_error&) {
        return SVD_FORMAT_UNREADABLE;
    }
    const rapidxml::xml_node<char>* Root = Document.first_node();
    if (!Root) {
        return SVD_FORMAT_UNREADABLE;
    }
    const QString Tag = QString::fromUtf8(Root->name(), static_cast<qsizetype>(Root->name_size())).toLower();
    if (Tag == QLatin1String("cpu")) {
        return SVD_FORMAT_CPU;
    }
    return Tag == QLatin1String("device") ? SVD_FORMAT_DEVICE : SVD_FORMAT_OTHER;
}

} // namespace RegisterFiles
