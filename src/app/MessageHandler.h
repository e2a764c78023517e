#pragma once

/// Routes the toolkit's messages into the log. Installed early in the main window's construction, and
/// again before the window is shown.
void InstallToolkitMessageHandler();
