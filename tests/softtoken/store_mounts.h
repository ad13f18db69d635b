// Mounts for the store tests, inside the program's own mount namespace (store_test_main.cpp).
#pragma once

#include <string>

namespace softtoken::testing {

void setMountsPermitted(bool permitted);
bool mountsPermitted();

// A tmpfs of the given size at an existing folder; false with the reason in *why.
bool mountSmallDisk(const std::string& folder, const std::string& size, std::string* why);
// A read-only view of folder at view (an existing folder): writes there fail as on read-only
// media, while folder itself stays writable.
bool mountReadOnlyView(const std::string& folder, const std::string& view, std::string* why);
void unmount(const std::string& folder);

}  // namespace softtoken::testing
