#include "app/core/Version.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QFileInfo>

namespace Version {

QString FormatVersion(int Major, int Minor, int Patch) {
    QString Text = QStringLiteral("V%1.%2").arg(Major).arg(Minor, 2, 10, QLatin1Char('0'));
    if (Patch >= 1 && Patch <= 26) {
        Text += QChar('a' + Patch - 1);
    } else if (Patch > 26) {
        Text += QStringLiteral("z%1").arg(Patch - 26, 2, 10, QLatin1Char('0'));
    }
    return Text;
}

QString GetVersionText() {
    return FormatVersion(MAJOR, MINOR, PATCH);
}

QString GetBuildDate() {
    QFileInfo Exe(QCoreApplication::applicationFilePath());
    // Linux file systems often keep no birth time; the last write of the executable is the build.
    QDateTime Made = Exe.birthTime();
    if (!Made.isValid()) {
        Made = Exe.lastModified();
    }
    return Made.toString(Qt::ISODate).left(10);
}

QString GetAppName(bool WithVersion, bool WithTagline) {
    QString Name = QString::fromLatin1(APP_NAME);
    if (WithVersion) {
        Name += QLatin1Char(' ') + GetVersionText();
    }
    if (WithTagline) {
        Name += QStringLiteral(" - ") + QString::fromLatin1(TAGLINE);
    }
    return Name;
}

} // namespace Version
