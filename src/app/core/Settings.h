#pragma once

#include <QString>
#include <QVariant>
#include <QVariantMap>

/// The in-memory settings map: paths joined by "/" to values. Loaded at start, written back whole at exit.
/// GUI thread only.
namespace Settings {

QVariantMap& Map();
QVariant Value(const QString& Key, const QVariant& Default = QVariant());
void SetValue(const QString& Key, const QVariant& Value);
void Remove(const QString& Key);

/// Reads the store of organisation "Tolvek", application "Arnex" into the map: the keys of the groups this
/// version knows. A store that cannot be parsed is moved aside to "<file>.bad" and the map starts empty.
void Load();
/// Clears the store and writes every key of the map, so that stale keys vanish. False on a write error.
bool Save();
/// Path of the store's file (INI under the user's configuration directory).
QString StorePath();

} // namespace Settings
