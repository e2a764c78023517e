#pragma once

#include "app/core/SysVars.h"
#include "script/HostFixture.h"
#include "script/Project.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>

/// The script host with the command table bound (HostFixture), and the project reset to "no project" with no
/// hooks installed. Signals of the project are recorded as "Name(argument)".
class ProjectFixture : public HostFixture {
protected:
    void SetUp() override {
        HostFixture::SetUp();
        SysVars::ResetAll();
        CProject* P = Project();
        P->SetChecks(nullptr);
        P->SetAskSaveAsHook(nullptr);
        P->SetUserFunctionRunner(nullptr);
        P->SetProbeSettingsHook(nullptr);
        P->SetCmdLineLinesHook(nullptr);
        P->Close();
        TakeConsole();
        m_Signals.clear();
        m_Connections << QObject::connect(P, &CProject::ModifiedChanged, [this](bool M) {
            m_Signals << QStringLiteral("ModifiedChanged(%1)").arg(M ? "true" : "false");
        }) << QObject::connect(P, &CProject::AboutToOpen, [this](const QString& F) {
            m_Signals << "AboutToOpen(" + F + ")";
        }) << QObject::connect(P, &CProject::AboutToClose, [this](const QString& F) {
            m_Signals << "AboutToClose(" + F + ")";
        }) << QObject::connect(P, &CProject::Opened, [this](const QString& F) {
            m_Signals << "Opened(" + F + ")";
        }) << QObject::connect(P, &CProject::Closed, [this](const QString& F) {
            m_Signals << "Closed(" + F + ")";
        });
    }

    void TearDown() override {
        for (const QMetaObject::Connection& C : m_Connections) {
            QObject::disconnect(C);
        }
        m_Connections.clear();
        Project()->Close();
        HostFixture::TearDown();
    }

    static CProject* Project() { return CProject::Instance(); }

    QString Write(const QString& Name, const QByteArray& Text) {
        const QString Path = m_Dir.filePath(Name);
        QFile F(Path);
        F.open(QIODevice::WriteOnly | QIODevice::Truncate);
        F.write(Text);
        return Path;
    }

    static QByteArray Read(const QString& Path) {
        QFile F(Path);
        return F.open(QIODevice::ReadOnly) ? F.readAll() : QByteArray();
    }

    /// Lets the event loop run until Done or a second has passed.
    template <typename F>
    static bool WaitFor(F Done) {
        QElapsedTimer T;
        T.start();
        while (!Done() && T.elapsed() < 1000) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        }
        return Done();
    }

    QStringList m_Signals;
    QList<QMetaObject::Connection> m_Connections;
};
