// POSIX implementation of the operating-system layer (Linux first; nothing here is needed on
// Windows). The log lives under the shared temporary folder, so the parts that touch it refuse
// anything another user could have planted there.
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

#include "platform/platform.h"
#include "platform/platform_posix_internal.h"

namespace platform {
namespace {

// A setuid host must not let its caller's environment steer where the module writes or reads.
const char* secureEnvironment(const char* name) {
#if defined(__GLIBC__)
    return ::secure_getenv(name);
#else
    return std::getenv(name);
#endif
}

// ---- log file --------------------------------------------------------------------------------

#if defined(O_PATH)
constexpr int kDirectoryOpenFlags = O_PATH | O_DIRECTORY | O_CLOEXEC;
#else
constexpr int kDirectoryOpenFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
#endif

class FileDescriptor {
public:
    explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor() {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
        }
    }
    int get() const { return descriptor_; }
    bool valid() const { return descriptor_ >= 0; }
    void reset(int descriptor) {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
        }
        descriptor_ = descriptor;
    }
    int release() {
        const int descriptor = descriptor_;
        descriptor_ = -1;
        return descriptor;
    }

private:
    int descriptor_;
};

// Full path of the running executable; empty when unknown.
std::string executablePath() {
    char target[4096];
    const ssize_t length = ::readlink("/proc/self/exe", target, sizeof target);
    if (length <= 0 || static_cast<std::size_t>(length) >= sizeof target) {
        return {};
    }
    return std::string(target, static_cast<std::size_t>(length));
}

std::vector<std::string> pathComponents(std::string_view path) {
    std::vector<std::string> components;
    std::size_t start = 0;
    while (start <= path.size()) {
        std::size_t end = path.find('/', start);
        if (end == std::string_view::npos) {
            end = path.size();
        }
        if (end > start) {
            components.emplace_back(path.substr(start, end - start));
        }
        start = end + 1;
    }
    return components;
}

}  // namespace

std::string temporaryFolder() {
    std::string folder = "/tmp";
    const char* variable = secureEnvironment("TMPDIR");
    if (variable != nullptr && *variable != '\0' && isDirectory(variable)) {
        folder = variable;
    }
    if (folder.back() != '/') {
        folder += '/';
    }
    return folder;
}

bool isDirectory(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

std::string executableBaseName() {
    const std::string path = executablePath();
    return path.substr(path.rfind('/') + 1);
}

bool createDirectory(const std::string& path) {
    return ::mkdir(path.c_str(), 0700) == 0;
}

LocalTime localTime() {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    std::tm local{};
    ::localtime_r(&now.tv_sec, &local);
    return LocalTime{local.tm_year + 1900,
                     local.tm_mon + 1,
                     local.tm_mday,
                     local.tm_hour,
                     local.tm_min,
                     local.tm_sec,
                     static_cast<int>(now.tv_nsec / 1000000)};
}

std::string localDateText() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    ::localtime_r(&now, &local);
    char text[80] = {};
    std::strftime(text, sizeof text, "%Y-%m-%d", &local);
    return text;
}

bool appendToFile(const std::string& path, std::size_t ownFoldersFrom, const std::string& text) {
    if (ownFoldersFrom > path.size()) {
        ownFoldersFrom = path.size();
    }
    // The temporary folder itself is the user's choice and may well be a symbolic link.
    std::string base = path.substr(0, ownFoldersFrom);
    if (base.empty()) {
        base = path.empty() || path.front() == '/' ? "/" : ".";
    }
    FileDescriptor folder(::open(base.c_str(), kDirectoryOpenFlags));
    if (!folder.valid()) {
        return false;
    }
    const std::vector<std::string> components =
        pathComponents(std::string_view(path).substr(ownFoldersFrom));
    if (components.empty()) {
        return false;
    }
    // Walk our own folders by descriptor so that nothing can be swapped between check and use.
    const uid_t user = ::geteuid();
    for (std::size_t i = 0; i + 1 < components.size(); ++i) {
        folder.reset(
            ::openat(folder.get(), components[i].c_str(), kDirectoryOpenFlags | O_NOFOLLOW));
        struct stat info {};
        if (!folder.valid() || ::fstat(folder.get(), &info) != 0 || info.st_uid != user) {
            return false;
        }
    }
    // O_NONBLOCK keeps a planted FIFO from hanging the caller; it changes nothing for a file.
    FileDescriptor file(
        ::openat(folder.get(), components.back().c_str(),
                 O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK, 0600));
    struct stat info {};
    if (!file.valid() || ::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode)) {
        return false;
    }
    // O_APPEND puts each write at the end as one piece; a regular file takes the whole line
    // in one call, the loop only guards against a signal cutting it short.
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t result = ::write(file.get(), text.data() + written, text.size() - written);
        if (result < 0 && errno == EINTR) {
            continue;
        }
        if (result <= 0) {
            return false;
        }
        written += static_cast<std::size_t>(result);
    }
    return true;
}

std::optional<std::string> environmentVariable(const char* name) {
    const char* value = secureEnvironment(name);
    if (value == nullptr) {
        return std::nullopt;
    }
    return std::string(value);
}

std::string moduleFolder() {
    std::string file;
    Dl_info info{};
    if (::dladdr(reinterpret_cast<const void*>(&moduleFolder), &info) != 0 &&
        info.dli_fname != nullptr &&
        std::string_view(info.dli_fname).find('/') != std::string_view::npos) {
        file = info.dli_fname;
    } else {
        // Linked into an executable started through PATH: only the kernel knows where it is.
        file = executablePath();
    }
    const std::size_t slash = file.rfind('/');
    if (slash == std::string::npos) {
        return {};
    }
    return file.substr(0, slash == 0 ? 1 : slash);
}

std::vector<std::string> defaultInstallationFolders() {
    return {"/opt/Kelvanetics/Ostrel"};
}

char folderSeparator() {
    return '/';
}

bool onForkChild(void (*handler)()) {
    return ::pthread_atfork(nullptr, nullptr, handler) == 0;
}

namespace {
std::atomic<void (*)()> unloadHandler{nullptr};

// Runs from the library's destructors: at dlclose, and at exit after the atexit handlers.
__attribute__((destructor)) void runUnloadHandler() {
    if (void (*handler)() = unloadHandler.exchange(nullptr)) {
        handler();
    }
    stopSettingsWatcher();
}
}  // namespace

void onModuleUnload(void (*handler)()) {
    unloadHandler.store(handler);
}

bool threadsMayBeJoinedAtUnload() {
    return true;
}

namespace {
std::atomic<bool> exiting{false};

// An exit handler that belongs to this library: dlclose() runs it (and forgets it) when the
// library is unloaded, as std::atexit would too, but sanitizers that wrap std::atexit lose the
// link to the library and would call the handler after its code is gone.
extern "C" int __cxa_atexit(void (*handler)(void*), void* argument, void* library);
extern "C" void* __dso_handle;

void registerExitHandler(void (*handler)(void*), void* argument) {
    __cxa_atexit(handler, argument, &__dso_handle);
}

void markExiting(void* /*unused*/) {
    exiting.store(true);
}

// exit() runs the handlers registered with atexit() before the libraries' destructors, while
// dlclose() runs the library's destructors first: the flag tells the two apart.
__attribute__((constructor)) void watchForExit() {
    registerExitHandler(&markExiting, nullptr);
}

void runHandler(void* handler) {
    reinterpret_cast<void (*)()>(handler)();
}
}  // namespace

bool processIsExiting() {
    return exiting.load();
}

void runEarlyAtExit(void (*handler)()) {
    registerExitHandler(&runHandler, reinterpret_cast<void*>(handler));
}

void holdModuleLoaded() {}

void releaseModuleHold() {}

}  // namespace platform
