// Windows implementation of the operating-system layer: the registry, the Win32 file and
// process calls, and the C runtime's shared file opening.
#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
// psapi.h needs windows.h first.
#include <psapi.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <ctime>

#include "platform/platform.h"

namespace platform {
namespace {

constexpr DWORD kPathBufferSize = 1024;

}  // namespace

std::optional<std::int8_t> logLevelSettingFirstByte() {
    // Any value type is accepted; data longer than the buffer makes the read fail.
    BYTE data[32] = {};
    DWORD size = sizeof data;
    const LSTATUS status = ::RegGetValueA(HKEY_LOCAL_MACHINE, "Software\\Kelvanetics\\Ostrel",
                                          "logLevel", RRF_RT_ANY, nullptr, data, &size);
    if (status != ERROR_SUCCESS) {
        return std::nullopt;
    }
    return static_cast<std::int8_t>(data[0]);
}

std::string temporaryFolder() {
    char folder[kPathBufferSize] = {};
    const DWORD length = ::GetTempPathA(kPathBufferSize, folder);
    if (length == 0 || length >= kPathBufferSize) {
        return {};
    }
    return std::string(folder, length);
}

bool isDirectory(const std::string& path) {
    const DWORD attributes = ::GetFileAttributesA(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

std::string executableBaseName() {
    char name[kPathBufferSize] = {};
    const DWORD length =
        ::K32GetModuleBaseNameA(::GetCurrentProcess(), nullptr, name, kPathBufferSize);
    return std::string(name, length < kPathBufferSize ? length : 0);
}

bool createDirectory(const std::string& path) {
    return ::CreateDirectoryA(path.c_str(), nullptr) != FALSE;
}

LocalTime localTime() {
    SYSTEMTIME now = {};
    ::GetLocalTime(&now);
    return LocalTime{now.wYear,   now.wMonth,  now.wDay,         now.wHour,
                     now.wMinute, now.wSecond, now.wMilliseconds};
}

std::string localDateText() {
    const std::time_t now = std::time(nullptr);
    std::tm local = {};
    ::localtime_s(&local, &now);
    char text[80] = {};
    std::strftime(text, sizeof text, "%Y-%m-%d", &local);
    return text;
}

bool appendToFile(const std::string& path, std::size_t /*ownFoldersFrom*/,
                  const std::string& text) {
    // The temporary folder is private to the user here. Other writers (the device monitor,
    // other threads, other processes of the same name) append at the same time, hence full
    // sharing. The handle has append access only and the write names the end of the file as
    // its offset, so that Windows puts each line at the end as one piece; the C runtime's "a"
    // mode seeks and then writes, and two writers could overwrite each other's lines.
    const HANDLE file = ::CreateFileA(path.c_str(), FILE_APPEND_DATA | SYNCHRONIZE,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return false;
    }
    OVERLAPPED endOfFile{};
    endOfFile.Offset = 0xFFFFFFFF;
    endOfFile.OffsetHigh = 0xFFFFFFFF;
    DWORD written = 0;
    const BOOL wrote =
        ::WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, &endOfFile);
    ::CloseHandle(file);
    return wrote != FALSE && written == text.size();
}

std::optional<std::string> environmentVariable(const char* name) {
    const DWORD size = ::GetEnvironmentVariableA(name, nullptr, 0);
    if (size == 0) {
        return std::nullopt;  // not set (a set but empty variable needs one byte, its NUL)
    }
    std::string value(size, '\0');
    const DWORD length = ::GetEnvironmentVariableA(name, value.data(), size);
    if (length >= size) {
        return std::nullopt;  // changed between the two calls
    }
    value.resize(length);
    return value;
}

std::string moduleFolder() {
    HMODULE module = nullptr;
    if (!::GetModuleHandleExA(
            GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
            reinterpret_cast<LPCSTR>(&moduleFolder), &module)) {
        return {};
    }
    char file[kPathBufferSize] = {};
    const DWORD length = ::GetModuleFileNameA(module, file, kPathBufferSize);
    if (length == 0 || length >= kPathBufferSize) {
        return {};
    }
    const std::string path(file, length);
    const std::size_t separator = path.find_last_of("\\/");
    if (separator == std::string::npos) {
        return {};
    }
    return path.substr(0, separator);
}

std::vector<std::string> defaultInstallationFolders() {
    return {"C:/Program Files (x86)/Kelvanetics/Ostrel", "C:/Program Files/Kelvanetics/Ostrel"};
}

char folderSeparator() {
    return '\\';
}

bool onForkChild(void (* /*handler*/)()) {
    return true;
}

namespace {
std::atomic<void (*)()> unloadHandler{nullptr};

// Its destructor runs when the DLL is unloaded (or the process ends), from the C runtime's
// DLL_PROCESS_DETACH handling, under the loader lock.
struct UnloadHandlerRunner {
    ~UnloadHandlerRunner() {
        if (void (*handler)() = unloadHandler.exchange(nullptr)) {
            handler();
        }
    }
} unloadHandlerRunner;
}  // namespace

void onModuleUnload(void (*handler)()) {
    unloadHandler.store(handler);
}

bool threadsMayBeJoinedAtUnload() {
    return false;
}

// The unload handler on Windows calls into no other library either way.
bool processIsExiting() {
    return false;
}

void runEarlyAtExit(void (* /*handler*/)()) {}

void holdModuleLoaded() {
    HMODULE module = nullptr;
    // Without GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT this takes a reference, which the
    // FreeLibrary of releaseModuleHold gives back.
    static_cast<void>(::GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                                           reinterpret_cast<LPCSTR>(&holdModuleLoaded), &module));
}

void releaseModuleHold() {
    HMODULE module = nullptr;
    if (::GetModuleHandleExA(
            GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
            reinterpret_cast<LPCSTR>(&releaseModuleHold), &module)) {
        ::FreeLibrary(module);
    }
}

}  // namespace platform
