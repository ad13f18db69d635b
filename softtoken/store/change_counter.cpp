#include "store/change_counter.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace softtoken {

static_assert(std::atomic<std::uint64_t>::is_always_lock_free,
              "the counter is shared memory between processes: it must need no lock");

ChangeCounter::ChangeCounter(const std::string& folder) {
    const std::string path = folder + "/tokens.changes";
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0) {
        return;
    }
    struct stat file {};
    // A file shorter than the counter would make the mapping fault on access: grow it first
    // (to zeros; concurrent creators may both do so, harmlessly).
    if (::fstat(fd, &file) != 0 || !S_ISREG(file.st_mode) ||
        (file.st_size < static_cast<off_t>(sizeof(std::uint64_t)) &&
         ::ftruncate(fd, sizeof(std::uint64_t)) != 0)) {
        ::close(fd);
        return;
    }
    void* mapped =
        ::mmap(nullptr, sizeof(std::uint64_t), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    ::close(fd);
    if (mapped != MAP_FAILED) {
        counter_ = static_cast<std::atomic<std::uint64_t>*>(mapped);
    }
}

ChangeCounter::~ChangeCounter() {
    if (counter_ != nullptr) {
        ::munmap(counter_, sizeof(std::uint64_t));
    }
}

}  // namespace softtoken
