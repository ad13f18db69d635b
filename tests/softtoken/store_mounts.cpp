#include "store_mounts.h"

#include <sys/mount.h>

#include <cerrno>
#include <cstring>

namespace softtoken::testing {

namespace {

bool permitted = false;

bool answer(bool done, std::string* why) {
    if (!done && why != nullptr) {
        *why = std::strerror(errno);
    }
    return done;
}

}  // namespace

void setMountsPermitted(bool value) {
    permitted = value;
}

bool mountsPermitted() {
    return permitted;
}

bool mountSmallDisk(const std::string& folder, const std::string& size, std::string* why) {
    const std::string options = "size=" + size + ",mode=0700";
    return answer(
        mount("tmpfs", folder.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, options.c_str()) == 0, why);
}

bool mountReadOnlyView(const std::string& folder, const std::string& view, std::string* why) {
    if (mount(folder.c_str(), view.c_str(), nullptr, MS_BIND, nullptr) != 0) {
        return answer(false, why);
    }
    if (mount(nullptr, view.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr) != 0) {
        answer(false, why);
        umount2(view.c_str(), MNT_DETACH);
        return false;
    }
    return true;
}

void unmount(const std::string& folder) {
    umount2(folder.c_str(), MNT_DETACH);
}

}  // namespace softtoken::testing
