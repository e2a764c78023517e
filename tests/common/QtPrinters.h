#pragma once

// Lets GoogleTest print Qt values in failure messages.

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <ostream>

inline void PrintTo(const QString& Text, std::ostream* Os) {
    *Os << '"' << Text.toStdString() << '"';
}
inline void PrintTo(const QByteArray& Bytes, std::ostream* Os) {
    *Os << '"' << Bytes.toStdString() << '"';
}
inline void PrintTo(const QStringList& List, std::ostream* Os) {
    *Os << '{';
    for (int i = 0; i < List.size(); ++i) {
        *Os << (i ? ", " : "") << '"' << List[i].toStdString() << '"';
    }
    *Os << '}';
}
