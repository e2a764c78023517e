#pragma once

#include "app/core/Log.h"

#include <QFile>
#include <QTemporaryDir>

/// Catches what the log writes to its file while it lives.
class LogCapture {
public:
    LogCapture() { OpenLogChannel(LOG_CHANNEL_APP, m_Dir.filePath("app.log")); }
    ~LogCapture() { CloseLogChannel(LOG_CHANNEL_APP); }
    /// Every line written so far.
    QStringList Lines() {
        FlushLogBuffer();
        QFile F(m_Dir.filePath("app.log"));
        F.open(QIODevice::ReadOnly);
        return QString::fromUtf8(F.readAll()).split('\n', Qt::SkipEmptyParts);
    }

private:
    QTemporaryDir m_Dir;
};
