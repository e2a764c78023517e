#include "app/AppConsole.h"

CAppConsole* CAppConsole::Instance() {
    static CAppConsole s_Console;
    return &s_Console;
}
