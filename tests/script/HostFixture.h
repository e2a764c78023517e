#pragma once

#include "app/core/Log.h"
#include "app_core/CommandFixture.h"
#include "script/TScript.h"

#include <QAction>
#include <QTemporaryDir>

#include <functional>

/// The command table bound to plain actions (as CommandFixture does), the script host reset, and the
/// Console attached so that log lines can be taken. Commands record the arguments of each run; a test may
/// give a command a body of its own.
class HostFixture : public CommandFixture {
protected:
    struct RUN {
        QString Name;
        QStringList Args;
    };

    void SetUp() override {
        CommandFixture::SetUp();
        TScript::Init();
        TScript::Close();
        SetConsoleAttached(true);
        m_Runs.clear();
        for (U32 Id = 0; Id < COMMAND_COUNT; ++Id) {
            if (QAction* A = Commands::GetCommandAction(Id)) {
                QObject::connect(A, &QAction::triggered, A, [this, Id]() {
                    m_Runs.append({Commands::GetCommandName(Id), Commands::GetCommandArgs(Id)});
                    if (m_Bodies.contains(Id)) {
                        m_Bodies[Id]();
                    }
                });
            }
        }
    }

    void TearDown() override {
        TScript::Close();
        SetConsoleAttached(false);
        m_Bodies.clear();
        CommandFixture::TearDown();
    }

    /// Gives a command a body that runs when it is triggered.
    void OnCommand(const char* Name, std::function<void()> Body) { m_Bodies[Id(Name)] = std::move(Body); }

    /// Loads a script text; 0 or -1.
    int Load(const QString& Text) { return TScript::Parse(Text); }
    /// Runs a function by name with arguments; its return value, or the failure below 0 as I64 min.
    int Exec(const QString& Name, QList<U64> Args, U64* Result = nullptr) {
        U64 Ignored = 0;
        if (Args.isEmpty()) {
            Args.append(0);
            return TScript::ExecFunction(Name, 100, 0, Args.constData(), Result ? Result : &Ignored);
        }
        return TScript::ExecFunction(Name, 100, static_cast<int>(Args.size()), Args.constData(),
                                     Result ? Result : &Ignored);
    }

    QList<RUN> m_Runs;
    QStringList m_Errors;
    QHash<U32, std::function<void()>> m_Bodies;
    QTemporaryDir m_Dir;
};
