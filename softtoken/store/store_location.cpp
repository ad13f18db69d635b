#include "store/store_location.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace softtoken {

namespace {

// secure_getenv: a set-user-ID or otherwise privileged program that loads the library must not
// be pointed at a store of the caller's choosing.
std::string environment(const char* name) {
    const char* value = secure_getenv(name);
    return value != nullptr ? std::string(value) : std::string();
}

std::string homeFolder() {
    std::string home = environment("HOME");
    if (!home.empty()) {
        return home;
    }
    const passwd* entry = getpwuid(getuid());
    return entry != nullptr && entry->pw_dir != nullptr ? std::string(entry->pw_dir) : "";
}

bool makeFolders(const std::string& path) {
    if (path.empty()) {
        return false;
    }
    struct stat info {};
    if (stat(path.c_str(), &info) == 0) {
        return S_ISDIR(info.st_mode);
    }
    std::string::size_type slash = path.find_last_of('/');
    if (slash != std::string::npos && slash > 0 && !makeFolders(path.substr(0, slash))) {
        return false;
    }
    return mkdir(path.c_str(), 0700) == 0 || errno == EEXIST;
}

}  // namespace

std::string defaultStoreFolder() {
    std::string explicitFolder = environment("OSTREL_TOKEN_STORE");
    if (!explicitFolder.empty()) {
        return explicitFolder;
    }
    std::string dataHome = environment("XDG_DATA_HOME");
    if (!dataHome.empty()) {
        return dataHome + "/ostrel-token";
    }
    std::string home = homeFolder();
    return home.empty() ? std::string() : home + "/.local/share/ostrel-token";
}

std::string prepareStoreFile(const std::string& folder) {
    if (!makeFolders(folder)) {
        return {};
    }
    std::string path = folder + "/tokens.db";
    struct stat info {};
    if (stat(path.c_str(), &info) == 0) {
        return path;
    }
    // Create the file ourselves so that it is private from the start; SQLite gives its -wal and
    // -shm companions the same mode as the database file. Only a file that did not exist is
    // opened and closed here: closing any descriptor of a file drops every POSIX lock this
    // process holds on it, and another connection of ours relies on those locks (without them
    // a closing tool would think itself the last user and remove the WAL under us).
    int fd = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd >= 0) {
        close(fd);
    } else if (errno != EEXIST) {
        return {};
    }
    return path;
}

}  // namespace softtoken
