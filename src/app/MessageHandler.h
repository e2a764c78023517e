#pragma once

/// Routes the toolkit's messages into the log. Installed at start-up and again by the main window.
void InstallToolkitMessageHandler();
