// The thin operating-system layer: everything the module needs from Windows or POSIX, behind
// one set of plain functions. One implementation file per platform; no other file of the module
// includes <windows.h> or POSIX headers.
//
// None of these functions throws, except for std::bad_alloc from building the strings.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

namespace platform {

// First byte of the machine-wide log-level setting, as a signed 8-bit number; nothing when no
// usable setting exists. Read anew on every call.
//  - Windows: the value "logLevel" under HKEY_LOCAL_MACHINE "Software\Kelvanetics\Ostrel", any
//    type, at most 32 bytes.
//  - POSIX: the line "logLevel=N" (decimal, may be negative) of the settings file; the low byte
//    of N stands in for the registry value's first byte.
std::optional<std::int8_t> logLevelSettingFirstByte();

#if !defined(_WIN32)
// Points the settings file elsewhere, for tests; an empty path restores the built-in one
// (OSTREL_SETTINGS_FILE). Not to be called from two threads at once.
void setSettingsFilePathForTesting(const std::string& path);
#endif

// The user's temporary folder with its trailing separator, as the OS reports it (POSIX: $TMPDIR
// when it names an existing directory, else /tmp). Empty when it cannot be had.
std::string temporaryFolder();

// Whether path names an existing directory (following symbolic links).
bool isDirectory(const std::string& path);

// Base name of the host process's executable file ("certutil.exe"); empty when unknown.
std::string executableBaseName();

// Creates one directory (its parent must exist). True when it was created now; false when it
// already existed or could not be made. POSIX creates it for the owner only (0700).
bool createDirectory(const std::string& path);

struct LocalTime {
    int year;
    int month;  // 1 to 12
    int day;    // 1 to 31
    int hour;
    int minute;
    int second;
    int millisecond;
};
// Wall-clock local time with milliseconds.
LocalTime localTime();

// Today's local date as "%Y-%m-%d".
std::string localDateText();

// Appends text to the file at path, creating it when missing, as one write at the end of the
// file, so that lines of concurrent writers (other threads, other processes) stay whole; the
// file is opened and closed again, nothing is kept. False when it cannot be opened or written.
//
// The folders of path that lie after its first ownFoldersFrom bytes are the module's own. On
// POSIX, where the temporary folder is shared by all users, each of them must be a real
// directory (not a symbolic link) owned by the current user, and the file itself must not be a
// symbolic link; otherwise nothing is written. A created file is readable by its owner only.
bool appendToFile(const std::string& path, std::size_t ownFoldersFrom, const std::string& text);

// Value of an environment variable; nothing when it is not set.
std::optional<std::string> environmentVariable(const char* name);

// The folder that holds the module's own file (the shared library, or the executable it is
// linked into), without a trailing separator; empty when unknown.
std::string moduleFolder();

// The folders an installation of the module lives in when nothing says otherwise, most
// preferred first: on Windows the 32-bit and then the 64-bit program folder of the maker
// ("C:/Program Files (x86)/Kelvanetics/Ostrel", "C:/Program Files/Kelvanetics/Ostrel"), on
// POSIX "/opt/Kelvanetics/Ostrel".
std::vector<std::string> defaultInstallationFolders();

// The character that separates folder levels in the paths the module builds: '\\' on Windows,
// '/' on POSIX.
char folderSeparator();

// Registers a function to run in the child process after fork(), for state that must not be
// inherited. False when it could not be registered. Windows has no fork: nothing to do.
bool onForkChild(void (*handler)());

// A thread of the module must never outlive the module's code. The two platforms unload code
// differently, so each gets the safe rule of its own:
//  - POSIX: unloading (dlclose) and process exit run the library's destructors, which may wait
//    for a thread: onModuleUnload's handler runs there and stops and joins the thread.
//  - Windows: the loader calls DllMain under its lock, and a thread cannot end while another
//    thread holds that lock, so DllMain must never wait for one. Instead the thread holds a
//    reference to the DLL from its start (holdModuleLoaded) until C_Finalize has joined it
//    (releaseModuleHold). An application that unloads the DLL without C_Finalize leaves it
//    loaded, with its idle thread, until the process ends; its code never goes away under it.
// Registers the one handler to run when the module's code is about to go away: the library is
// unloaded or the process ends. Windows runs it under the loader lock (from the DLL's static
// destructors), where it must not wait for a thread.
void onModuleUnload(void (*handler)());
// Whether the unload handler may join a thread of the module: true on POSIX, false on Windows.
bool threadsMayBeJoinedAtUnload();
// True while the process is ending (exit() has begun), false while the module is merely being
// unloaded. At exit the libraries the module uses may already have cleaned up after themselves
// (OpenSSL does so from its exit handler), so the unload handler must not call into them.
bool processIsExiting();
// Runs the handler when the process ends (exit()), before the handlers that were registered
// earlier: registered once the device library has started, it runs before that library's
// dependencies clean up after themselves at exit (OpenSSL does so from its own exit handler).
// Nothing to do on Windows, where the process's other threads are gone by then.
void runEarlyAtExit(void (*handler)());
// Takes (Windows) one reference to the module's own file, so that it stays loaded; does
// nothing on POSIX. Each call is undone by one releaseModuleHold.
void holdModuleLoaded();
void releaseModuleHold();

}  // namespace platform
