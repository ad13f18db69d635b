// What the POSIX files of the platform layer share with each other; not for the rest of the
// module.
#pragma once

namespace platform {

// Ends the settings watcher's thread for good (the module's code is about to go away).
void stopSettingsWatcher();

}  // namespace platform
