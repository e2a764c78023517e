#include "app/core/Settings.h"

#include "app/core/Version.h"

#include <QFile>
#include <QSettings>

namespace Settings {

QVariantMap& Map() {
    static QVariantMap s_Map;
    return s_Map;
}

QVariant Value(const QString& Key, const QVariant& Default) {
    return Map().value(Key, Default);
}
void SetValue(const QString& Key, const QVariant& Value) {
    Map().insert(Key, Value);
}
void Remove(const QString& Key) {
    Map().remove(Key);
}

// On Linux the native format is an INI file, ~/.config/Tolvek/Arnex.conf.
static QSettings::Format StoreFormat() {
    return QSettings::NativeFormat;
}

QString StorePath() {
    QSettings Store(StoreFormat(), QSettings::UserScope, QLatin1String(Version::ORGANISATION),
                    QLatin1String(Version::APP_NAME));
    return Store.fileName();
}

namespace {

// The groups this version keeps. A key outside them was written by another version; it is not taken
// into the map and so vanishes at the next exit.
const char* const s_KnownGroups[] = {
    "AppData/MainWindow/",        "AppData/Perspectives/",  "AppData/Preferences/",
    "AppData/PreferencesDialog/", "AppData/ProjectWizard/", "AppData/Dialogs/",
};

bool IsKnownKey(const QString& Key) {
    for (const char* Group : s_KnownGroups) {
        if (Key.startsWith(QLatin1String(Group))) {
            return true;
        }
    }
    return false;
}

} // namespace

void Load() {
    QVariantMap& M = Map();
    M.clear();
    QString Bad;
    {
        QSettings Store(StoreFormat(), QSettings::UserScope, QLatin1String(Version::ORGANISATION),
                        QLatin1String(Version::APP_NAME));
        if (Store.status() == QSettings::NoError) {
            const QStringList Keys = Store.allKeys();
            for (const QString& Key : Keys) {
                if (IsKnownKey(Key)) {
                    M.insert(Key, Store.value(Key));
                }
            }
            return;
        }
        Bad = Store.fileName();
    }
    // Keep what a person may want to recover, and start afresh so that the exit can write.
    QFile::remove(Bad + QStringLiteral(".bad"));
    QFile::rename(Bad, Bad + QStringLiteral(".bad"));
}

bool Save() {
    QSettings Store(StoreFormat(), QSettings::UserScope, QLatin1String(Version::ORGANISATION),
                    QLatin1String(Version::APP_NAME));
    Store.clear();
    const QVariantMap& M = Map();
    for (auto It = M.constBegin(); It != M.constEnd(); ++It) {
        Store.setValue(It.key(), It.value());
    }
    Store.sync();
    return Store.status() == QSettings::NoError;
}

} // namespace Settings
