// The project's user file as the main window writes and reads it: where the debug windows and the tool
// bars stand. Lines of kinds that this version doesn't make are carried over as they are.

#include "app/MainWindow.h"

#include "app/core/Log.h"
#include "app/core/SysVars.h"
#include "script/ProjectUserFile.h"
#include "views/DockWindow.h"

#include <QEventLoop>
#include <QTimer>
#include <QToolBar>

#include <algorithm>

namespace {

using ProjectUserFile::KEY_VALUE;

/// DockArea values of the file.
const struct {
    Qt::DockWidgetArea Area;
    const char* Name;
} s_Areas[] = {{Qt::BottomDockWidgetArea, "BOTTOM"},
               {Qt::LeftDockWidgetArea, "LEFT"},
               {Qt::RightDockWidgetArea, "RIGHT"},
               {Qt::TopDockWidgetArea, "TOP"}};

/// Reading takes the first of these that the text contains; 0 for none.
int ReadDockArea(const QString& Text) {
    const QString Lower = Text.toLower();
    if (Lower.contains(QLatin1String("bottom"))) {
        return Qt::BottomDockWidgetArea;
    }
    if (Lower.contains(QLatin1String("left"))) {
        return Qt::LeftDockWidgetArea;
    }
    if (Lower.contains(QLatin1String("right"))) {
        return Qt::RightDockWidgetArea;
    }
    if (Lower.contains(QLatin1String("floating"))) {
        return 22;
    }
    return 0;
}

/// The index of a coordinate among the different ones of its neighbours: column or row.
int IndexAmong(const QList<int>& Values, int Value) {
    QList<int> Distinct = Values;
    std::sort(Distinct.begin(), Distinct.end());
    Distinct.erase(std::unique(Distinct.begin(), Distinct.end()), Distinct.end());
    return static_cast<int>(Distinct.indexOf(Value));
}

int IntKey(const QString& Line, const char* Key, int Default) {
    bool Ok = false;
    const int Value = ProjectUserFile::KeyValue(Line, QLatin1String(Key)).toInt(&Ok);
    return Ok ? Value : Default;
}

struct PLACED {
    CDockWindow* Dock;
    int Area, X, Y, W, H;
};

} // namespace

bool CMainWindow::SaveUserFile(const QString& Path) {
    if (Path.isEmpty()) {
        return false;
    }
    QStringList Old;
    ProjectUserFile::Read(Path, Old);
    const U32 Flags = static_cast<U32>(SysVars::GetVarValue(PREF_SESSION_SAVE_FLAGS));

    QStringList Fresh;
    for (CWindow* W : m_DebugWindows) {
        CDockWindow* Dock = W->GetDock();
        if (!Dock || !W->IsOpen()) {
            continue;
        }
        QString Area = QStringLiteral("FLOATING");
        int X = Dock->x();
        int Y = Dock->y();
        if (!Dock->isFloating()) {
            const Qt::DockWidgetArea A = dockWidgetArea(Dock);
            for (const auto& S : s_Areas) {
                if (S.Area == A) {
                    Area = QLatin1String(S.Name);
                }
            }
            QList<int> Xs;
            QList<int> Ys;
            for (CWindow* Other : m_DebugWindows) {
                CDockWindow* D = Other->GetDock();
                if (D && Other->IsOpen() && !D->isFloating() && dockWidgetArea(D) == A) {
                    Xs.append(D->x());
                    Ys.append(D->y());
                }
            }
            X = IndexAmong(Xs, Dock->x());
            Y = IndexAmong(Ys, Dock->y());
        }
        QList<KEY_VALUE> Items = {{QStringLiteral("OpenWindow"), W->GetName(), true},
                                  {QStringLiteral("DockArea"), Area},
                                  {QStringLiteral("x"), QString::number(X)},
                                  {QStringLiteral("y"), QString::number(Y)},
                                  {QStringLiteral("w"), QString::number(Dock->width())},
                                  {QStringLiteral("h"), QString::number(Dock->height())},
                                  {QStringLiteral("FilterBarShown"), QStringLiteral("0")}};
        for (const auto& [Key, Value] : W->GetUserFileKeys()) {
            Items.append({Key, Value, false});
        }
        Fresh.append(ProjectUserFile::MakeLine(Items));
    }
    for (QToolBar* Bar : m_ToolBars) {
        if (Bar->isHidden()) {
            continue;
        }
        int X = Bar->x();
        int Y = Bar->y();
        if (!Bar->isFloating()) {
            QList<int> Rows;
            QList<int> InRow;
            for (QToolBar* Other : m_ToolBars) {
                if (!Other->isHidden() && !Other->isFloating() && toolBarArea(Other) == toolBarArea(Bar)) {
                    Rows.append(Other->y());
                    if (Other->y() == Bar->y()) {
                        InRow.append(Other->x());
                    }
                }
            }
            X = IndexAmong(Rows, Bar->y());
            Y = IndexAmong(InRow, Bar->x());
        }
        Fresh.append(ProjectUserFile::MakeLine({{QStringLiteral("OpenToolbar"), Bar->windowTitle(), true},
                                                {QStringLiteral("Floating"), Bar->isFloating() ? "1" : "0"},
                                                {QStringLiteral("x"), QString::number(X)},
                                                {QStringLiteral("y"), QString::number(Y)}}));
    }
    // Lines of windows and tool bars that this version has are made anew; the rest stays as it was.
    auto Owned = [this](const QString& Line) {
        const QString Kind = ProjectUserFile::LineKind(Line);
        if (Kind == QLatin1String("OpenWindow")) {
            return FindDebugWindow(ProjectUserFile::KeyValue(Line, Kind)) != nullptr;
        }
        if (Kind == QLatin1String("OpenToolbar")) {
            return FindToolBar(ProjectUserFile::KeyValue(Line, Kind)) != nullptr;
        }
        return false;
    };
    if (!ProjectUserFile::Write(Path, ProjectUserFile::Merge(Fresh, Old, Owned, Flags))) {
        LogWarnMsg(QStringLiteral("Could not write the project's user file ") + Path);
        return false;
    }
    return true;
}

bool CMainWindow::LoadUserFile(const QString& Path) {
    QStringList Lines;
    if (!ProjectUserFile::Read(Path, Lines) || Lines.isEmpty()) {
        // A missing or empty file leaves the layout as it is.
        return false;
    }
    const U32 Flags = static_cast<U32>(SysVars::GetVarValue(PREF_SESSION_SAVE_FLAGS));
    QList<PLACED> Docked;
    QList<PLACED> Floating;
    for (CWindow* W : m_DebugWindows) {
        CDockWindow* Dock = W->GetDock();
        if (!Dock) {
            continue;
        }
        const auto It = std::find_if(Lines.cbegin(), Lines.cend(), [W](const QString& L) {
            return ProjectUserFile::LineKind(L) == QLatin1String("OpenWindow") &&
                   W->IsMatched(ProjectUserFile::KeyValue(L, QStringLiteral("OpenWindow")));
        });
        if (It == Lines.cend()) {
            Dock->hide();
            continue;
        }
        W->ReadUserFileKeys(*It);
        const PLACED P{Dock,
                       ReadDockArea(ProjectUserFile::KeyValue(*It, QStringLiteral("DockArea"))),
                       IntKey(*It, "x", 0),
                       IntKey(*It, "y", 0),
                       IntKey(*It, "w", -1),
                       IntKey(*It, "h", -1)};
        (P.Area == 22 ? Floating : Docked).append(P);
    }

    if (!Docked.isEmpty()) {
        // The window keeps its size while the docks move, so that their sizes come out as saved.
        const QSize Size = size();
        setFixedSize(Size);
        std::stable_sort(Docked.begin(), Docked.end(), [](const PLACED& A, const PLACED& B) {
            return A.Area != B.Area ? A.Area < B.Area : (A.X != B.X ? A.X < B.X : A.Y < B.Y);
        });
        const PLACED* Previous = nullptr;
        const PLACED* ColumnHead = nullptr;
        for (const PLACED& P : Docked) {
            P.Dock->setFloating(false);
            if (P.Area == 0) {
                // An unknown area leaves the window where the perspective put it.
            } else if (!Previous || Previous->Area != P.Area) {
                addDockWidget(static_cast<Qt::DockWidgetArea>(P.Area), P.Dock);
                ColumnHead = &P;
            } else if (Previous->X != P.X) {
                splitDockWidget(ColumnHead->Dock, P.Dock, Qt::Horizontal);
                ColumnHead = &P;
            } else if (Previous->Y != P.Y) {
                splitDockWidget(Previous->Dock, P.Dock, Qt::Vertical);
            } else {
                tabifyDockWidget(Previous->Dock, P.Dock);
            }
            P.Dock->show();
            Previous = &P;
        }
        QEventLoop Loop;
        QTimer::singleShot(10, &Loop, &QEventLoop::quit);
        Loop.exec();
        for (const PLACED& P : Docked) {
            if (P.W > 0) {
                resizeDocks({P.Dock}, {P.W}, Qt::Horizontal);
            }
            if (P.H > 0) {
                resizeDocks({P.Dock}, {P.H}, Qt::Vertical);
            }
        }
        setMinimumSize(0, 0);
        setMaximumSize(QWIDGETSIZE_MAX, QWIDGETSIZE_MAX);
    }
    for (const PLACED& P : Floating) {
        P.Dock->setFloating(true);
        P.Dock->move(P.X, P.Y);
        if (P.W > 0 && P.H > 0) {
            P.Dock->resize(P.W, P.H);
        }
        P.Dock->show();
    }

    if (ProjectUserFile::IsKindSaved(QStringLiteral("OpenToolbar"), Flags)) {
        // Tool bars that the file doesn't name are hidden; the named ones go back to their rows. A tool
        // bar that was floating comes back docked: the toolkit has no way to float one by program.
        QList<QPair<QToolBar*, QPoint>> Named;
        for (QToolBar* Bar : m_ToolBars) {
            const auto It = std::find_if(Lines.cbegin(), Lines.cend(), [Bar](const QString& L) {
                return ProjectUserFile::LineKind(L) == QLatin1String("OpenToolbar") &&
                       ProjectUserFile::KeyValue(L, QStringLiteral("OpenToolbar"))
                               .compare(Bar->windowTitle(), Qt::CaseInsensitive) == 0;
            });
            if (It == Lines.cend()) {
                Bar->hide();
            } else {
                Named.append({Bar, QPoint(IntKey(*It, "x", 0), IntKey(*It, "y", 0))});
            }
        }
        std::stable_sort(Named.begin(), Named.end(), [](const auto& A, const auto& B) {
            return A.second.x() != B.second.x() ? A.second.x() < B.second.x() : A.second.y() < B.second.y();
        });
        int Row = -1;
        for (const auto& [Bar, Place] : Named) {
            if (!Bar->isFloating() && toolBarArea(Bar) == Qt::TopToolBarArea) {
                removeToolBar(Bar);
                if (Row >= 0 && Place.x() != Row) {
                    addToolBarBreak(Qt::TopToolBarArea);
                }
                addToolBar(Qt::TopToolBarArea, Bar);
                Row = Place.x();
            }
            Bar->show();
        }
    }
    return true;
}
