// The log's folder maker.
//
// It creates at most ONE missing folder level per message: it walks the path from its second
// character and, at each "/", tries to create the prefix before it; the first creation that
// succeeds ends the walk. On a machine without log folders the first message therefore creates
// the maker's folder and is lost, the second creates the process folder and is written. This
// is deliberate and kept (compatibility register, entry 5); do not turn it into a
// create-all-levels loop.
//
// Only "/" separates here: the backslashes of a Windows temporary folder are not separators, so
// its own levels are never tried.
#include "log/log_internal.h"
#include "platform/platform.h"

namespace logdetail {

int createLogFolder(const std::string& folder) {
    const std::string path = folder.substr(0, kPathCapacity - 1);
    for (std::size_t i = 1; i < path.size(); ++i) {
        if (path[i] == '/' && platform::createDirectory(path.substr(0, i))) {
            return -1;
        }
    }
    return platform::createDirectory(path) ? 1 : 0;
}

}  // namespace logdetail
