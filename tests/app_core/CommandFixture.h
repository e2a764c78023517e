#pragma once

#include "app/core/CommandTable.h"
#include "app/core/ConsoleRing.h"

#include <QAction>
#include <QObject>

#include <gtest/gtest.h>

#include <memory>

/// Binds one action per named row to a window-like owner, enabled, so that the table can be exercised
/// without the main window. Console lines printed meanwhile are collected from the ring.
class CommandFixture : public ::testing::Test {
protected:
    void SetUp() override {
        ConsoleRing::Clear();
        m_Owner = std::make_unique<QObject>();
        for (U32 Id = 0; Id < COMMAND_COUNT; ++Id) {
            const COMMAND_ROW_DEF& Row = g_CommandRows[Id];
            if (!*Row.Prototype) {
                continue;
            }
            auto* A = new QAction(QString::fromLatin1(Row.Text), m_Owner.get());
            A->setObjectName(QString::fromLatin1(Row.ActionName));
            A->setEnabled(true);
        }
        Commands::BindActions(m_Owner.get());
    }

    void TearDown() override {
        m_Owner.reset();
        Commands::UnbindAll();
        ConsoleRing::Clear();
    }

    /// Texts queued for the Console since the last call.
    QStringList TakeConsole() {
        QStringList Lines;
        CConsoleMsg Msg;
        while (ConsoleRing::Pop(Msg)) {
            Lines << QString::fromUtf8(Msg.Text);
        }
        return Lines;
    }

    static U32 Id(const char* Name) {
        return static_cast<U32>(Commands::FindCommand(QString::fromLatin1(Name)));
    }

    std::unique_ptr<QObject> m_Owner;
};
