// POSIX: the machine-wide log-level setting, the line "logLevel=N" of the settings file.
//
// Every message asks for the level, and a change to the file must count from the next message
// on. Reading the file, or even stat()ing it, for every message costs microseconds on the calls
// that should cost almost nothing (a session's information, a digest of a few bytes). So a
// thread of ours watches the file's folder (inotify) and counts what happens there; a message
// reads the file again only when that count moved. Where the folder cannot be watched (no
// inotify, a symbolic link in the way), the file is stat()ed per message and read again only
// when its identity, size or times changed.
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <chrono>
#include <ctime>
#include <fstream>
#include <memory>
#include <mutex>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/platform.h"
#include "platform/platform_posix_internal.h"

namespace platform {
namespace {

std::atomic<const std::string*> settingsFileOverride{nullptr};
// Moves on whenever a test points the settings elsewhere or rewrites them: what was cached
// before no longer counts.
std::atomic<std::uint64_t> forcedRereads{0};

std::string settingsPath() {
    const std::string* override = settingsFileOverride.load();
    return override != nullptr ? *override : OSTREL_SETTINGS_FILE;
}

std::string_view trimmed(std::string_view text) {
    const std::string_view blanks = " \t\r";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) {
        return {};
    }
    const std::size_t last = text.find_last_not_of(blanks);
    return text.substr(first, last - first + 1);
}

// The registry value stands behind this setting on Windows, and only its first byte counts
// there; the low byte of the number plays that part here, so 256 reads as 0 and 255 as -1.
std::optional<std::int8_t> lowByteOf(std::string_view number) {
    long long value = 0;
    const char* end = number.data() + number.size();
    const auto [stop, error] = std::from_chars(number.data(), end, value);
    if (number.empty() || error != std::errc() || stop != end) {
        return std::nullopt;
    }
    return static_cast<std::int8_t>(static_cast<std::uint8_t>(value & 0xFF));
}

std::optional<std::int8_t> readLogLevelSetting(const std::string& path) {
    try {
        std::ifstream settings(path);
        std::string line;
        while (std::getline(settings, line)) {
            std::string_view text = trimmed(line);
            const std::string_view key = "logLevel";
            if (text.substr(0, key.size()) != key) {
                continue;
            }
            text = trimmed(text.substr(key.size()));
            if (text.empty() || text.front() != '=') {
                continue;
            }
            // The first logLevel line decides, even when it holds no number.
            return lowByteOf(trimmed(text.substr(1)));
        }
    } catch (...) {
    }
    return std::nullopt;
}

std::string parentFolder(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

// ---- the watcher ---------------------------------------------------------------------------

constexpr std::uint32_t kFolderEvents = IN_MODIFY | IN_ATTRIB | IN_CLOSE_WRITE | IN_MOVED_FROM |
                                        IN_MOVED_TO | IN_CREATE | IN_DELETE | IN_DELETE_SELF |
                                        IN_MOVE_SELF;

class SettingsWatcher {
public:
    explicit SettingsWatcher(std::string path) : path_(std::move(path)) {}

    const std::string& path() const { return path_; }
    // Moves on at every event in the watched folder and whenever the watch is set up anew.
    std::uint64_t changes() const { return changes_.load(std::memory_order_acquire); }
    bool watching() const { return watching_.load(std::memory_order_acquire); }

    // False when the file cannot be watched; the caller then checks the file itself.
    bool start() {
        struct stat link {};
        if (::lstat(path_.c_str(), &link) == 0 && S_ISLNK(link.st_mode)) {
            return false;  // the target may change in a folder we do not watch
        }
        inotify_ = ::inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
        stop_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        if (inotify_ < 0 || stop_ < 0) {
            closeDescriptors();
            return false;
        }
        try {
            thread_ = std::thread([this] { run(); });
        } catch (...) {
            closeDescriptors();
            return false;
        }
        return true;
    }

    void stopAndJoin() {
        if (!thread_.joinable()) {
            return;
        }
        const std::uint64_t one = 1;
        static_cast<void>(::write(stop_, &one, sizeof one));
        thread_.join();
        closeDescriptors();
    }

    // In a fork() child, where the thread does not exist: only the descriptors are given back.
    // The thread object is never joined nor destroyed there (the watcher is never deleted).
    void abandonAfterFork() { closeDescriptors(); }

private:
    // Watches the file's folder, or, while that folder does not exist, the nearest folder above
    // it that does (to learn when it appears). Counts the new watch as a change: whatever
    // happened before it was in place must be read again.
    void establishWatch() {
        if (watch_ >= 0) {
            ::inotify_rm_watch(inotify_, watch_);
        }
        watching_.store(false, std::memory_order_release);
        for (std::string folder = parentFolder(path_);; folder = parentFolder(folder)) {
            watch_ = ::inotify_add_watch(inotify_, folder.c_str(), kFolderEvents);
            if (watch_ >= 0) {
                watchesFileFolder_ = folder == parentFolder(path_);
                watching_.store(true, std::memory_order_release);
                break;
            }
            if (folder == "/" || folder == ".") {
                break;
            }
        }
        changes_.fetch_add(1, std::memory_order_acq_rel);
    }

    void run() {
        establishWatch();
        pollfd waits[2] = {{inotify_, POLLIN, 0}, {stop_, POLLIN, 0}};
        alignas(inotify_event) char events[4096];
        for (;;) {
            if (::poll(waits, 2, -1) < 0) {
                continue;  // interrupted by a signal
            }
            if ((waits[1].revents & POLLIN) != 0) {
                return;
            }
            bool watchAgain = false;
            for (;;) {
                const ssize_t length = ::read(inotify_, events, sizeof events);
                if (length <= 0) {
                    break;
                }
                for (ssize_t offset = 0; offset < length;) {
                    const auto* event = reinterpret_cast<const inotify_event*>(events + offset);
                    // The folder itself went, or the folder we wait for may have appeared.
                    watchAgain =
                        watchAgain ||
                        (event->mask & (IN_IGNORED | IN_DELETE_SELF | IN_MOVE_SELF)) != 0 ||
                        (!watchesFileFolder_ && (event->mask & (IN_CREATE | IN_MOVED_TO)));
                    offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
                }
            }
            if (watchAgain) {
                establishWatch();
            } else {
                changes_.fetch_add(1, std::memory_order_acq_rel);
            }
        }
    }

    void closeDescriptors() {
        if (inotify_ >= 0) {
            ::close(inotify_);
        }
        if (stop_ >= 0) {
            ::close(stop_);
        }
        inotify_ = stop_ = watch_ = -1;
    }

    const std::string path_;
    int inotify_ = -1;
    int stop_ = -1;
    int watch_ = -1;                  // touched by the watcher thread only
    bool watchesFileFolder_ = false;  // touched by the watcher thread only
    std::atomic<std::uint64_t> changes_{0};
    std::atomic<bool> watching_{false};
    std::thread thread_;
};

// The level last read, and what told that it was still current.
struct CachedLevel {
    bool valid = false;
    std::string path;
    std::uint64_t changes = 0;  // the watcher's count when the file was read
    std::uint64_t forcedRereads = 0;
    std::chrono::steady_clock::time_point readAt;
    std::optional<std::int8_t> value;
};

// The stat()-per-message fallback: how to recognise the file last read.
struct StatIdentity {
    bool valid = false;
    std::string path;
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    struct timespec modified {};
    struct timespec changed {};
    std::optional<std::int8_t> value;
};

struct SettingsState {
    std::mutex mutex;
    SettingsWatcher* watcher = nullptr;  // guarded by mutex; null: none started for the path
    bool watchingImpossible = false;     // guarded by mutex; for watcher's path
    bool unloading = false;              // guarded by mutex; no thread starts any more
    CachedLevel cached;                  // guarded by mutex
    StatIdentity identity;               // guarded by mutex
    unsigned callsSinceClockCheck = 0;   // guarded by mutex
};

std::atomic<SettingsState*> currentSettings{nullptr};

// A fork() child starts with a state of its own: the inherited mutex may have been held by
// another thread of the parent, and the watcher thread does not exist in the child.
void startAfreshInForkChild() {
    SettingsState* inherited = currentSettings.load();
    if (inherited != nullptr && inherited->watcher != nullptr) {
        inherited->watcher->abandonAfterFork();
    }
    currentSettings.store(new SettingsState());
}

// Kept until the module's code is unloaded (never destroyed at exit: the monitor thread may still
// log while a process exits). Made anew when missing.
SettingsState& settingsState() {
    static const bool registered = [] {
        ::pthread_atfork(nullptr, nullptr, &startAfreshInForkChild);
        return true;
    }();
    static_cast<void>(registered);
    SettingsState* state = currentSettings.load(std::memory_order_acquire);
    if (state == nullptr) {
        auto* made = new SettingsState();
        if (currentSettings.compare_exchange_strong(state, made)) {
            state = made;
        } else {
            delete made;
        }
    }
    return *state;
}

// Even a watched file is read again now and then, in case a change escaped the watch (a
// network file system, a full event queue).
constexpr auto kLongestTrust = std::chrono::seconds(2);
constexpr unsigned kCallsPerClockCheck = 16;

// The watcher for the path, started when none watches it; null when watching is impossible.
SettingsWatcher* watcherFor(SettingsState& state, const std::string& path) {
    if (state.watcher != nullptr && state.watcher->path() == path) {
        return state.watchingImpossible ? nullptr : state.watcher;
    }
    if (state.unloading) {
        return nullptr;
    }
    if (state.watcher != nullptr) {
        state.watcher->stopAndJoin();  // tests point the settings elsewhere
        delete state.watcher;
    }
    state.watcher = new SettingsWatcher(path);
    state.watchingImpossible = !state.watcher->start();
    state.cached.valid = false;
    return state.watchingImpossible ? nullptr : state.watcher;
}

bool sameTime(const struct timespec& a, const struct timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

// File times advance in clock ticks of a few milliseconds: a file changed twice within one tick
// keeps its times (and perhaps its size). So a file is trusted to the cache only once it has
// been left alone for longer than any tick; a file that was just written is read every time.
bool settledLongAgo(const struct stat& file) {
    struct timespec now {};
    ::clock_gettime(CLOCK_REALTIME, &now);
    const std::time_t newest = std::max(file.st_mtim.tv_sec, file.st_ctim.tv_sec);
    return now.tv_sec - newest >= 2;
}

std::optional<std::int8_t> levelByStat(SettingsState& state, const std::string& path) {
    struct stat file {};
    if (::stat(path.c_str(), &file) != 0) {
        return std::nullopt;  // no settings file: nothing configured
    }
    StatIdentity& known = state.identity;
    if (known.valid && known.path == path && known.device == file.st_dev &&
        known.inode == file.st_ino && known.size == file.st_size &&
        sameTime(known.modified, file.st_mtim) && sameTime(known.changed, file.st_ctim)) {
        return known.value;
    }
    const std::optional<std::int8_t> value = readLogLevelSetting(path);
    known = StatIdentity{settledLongAgo(file), path,         file.st_dev,  file.st_ino,
                         file.st_size,         file.st_mtim, file.st_ctim, value};
    return value;
}

bool stillCurrent(SettingsState& state, const std::string& path, const SettingsWatcher& watcher) {
    const CachedLevel& cached = state.cached;
    if (!cached.valid || cached.path != path || cached.changes != watcher.changes() ||
        cached.forcedRereads != forcedRereads.load(std::memory_order_acquire)) {
        return false;
    }
    if (++state.callsSinceClockCheck < kCallsPerClockCheck) {
        return true;
    }
    state.callsSinceClockCheck = 0;
    return std::chrono::steady_clock::now() - cached.readAt < kLongestTrust;
}

}  // namespace

std::optional<std::int8_t> logLevelSettingFirstByte() {
    try {
        const std::string path = settingsPath();
        SettingsState& state = settingsState();
        std::lock_guard<std::mutex> lock(state.mutex);
        SettingsWatcher* watcher = watcherFor(state, path);
        if (watcher == nullptr || !watcher->watching()) {
            return levelByStat(state, path);
        }
        if (stillCurrent(state, path, *watcher)) {
            return state.cached.value;
        }
        // Counted before the file is read: a change while it is read makes the next message
        // read it again.
        const std::uint64_t changes = watcher->changes();
        const std::uint64_t rereads = forcedRereads.load(std::memory_order_acquire);
        const std::optional<std::int8_t> value = readLogLevelSetting(path);
        state.cached =
            CachedLevel{true, path, changes, rereads, std::chrono::steady_clock::now(), value};
        state.callsSinceClockCheck = 0;
        return value;
    } catch (...) {
        return std::nullopt;
    }
}

void setSettingsFilePathForTesting(const std::string& path) {
    // Earlier paths stay alive: a thread that is logging may still be reading one.
    static auto* paths = new std::vector<std::unique_ptr<const std::string>>();
    forcedRereads.fetch_add(1, std::memory_order_acq_rel);
    if (path.empty()) {
        settingsFileOverride.store(nullptr);
        return;
    }
    paths->push_back(std::make_unique<const std::string>(path));
    settingsFileOverride.store(paths->back().get());
}

void stopSettingsWatcher() {
    SettingsState* state = currentSettings.load();
    if (state == nullptr) {
        return;
    }
    {
        std::lock_guard<std::mutex> lock(state->mutex);
        state->unloading = true;
        if (state->watcher != nullptr) {
            state->watcher->stopAndJoin();
        }
    }
    // Unloaded, not exiting: none of the module's code runs after this, so the memory goes back
    // (loading and unloading the module again and again leaks nothing).
    if (!processIsExiting()) {
        currentSettings.store(nullptr);
        delete state->watcher;
        delete state;
    }
}

}  // namespace platform
