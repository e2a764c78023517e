#pragma once

/// Whether the program runs unattended (-exec or -quit): no dialog waits for a person, and every Console
/// line is also written to standard output. Set once at start-up; read on the GUI thread.
namespace Automation {

void SetActive(bool Active);
bool IsActive();

} // namespace Automation
