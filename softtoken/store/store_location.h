// Where the token store lives, and creating it private to the user.
#pragma once

#include <string>

namespace softtoken {

// $OSTREL_TOKEN_STORE when set and not empty, else $XDG_DATA_HOME/ostrel-token, else
// ~/.local/share/ostrel-token. Empty when none of them can be worked out.
std::string defaultStoreFolder();

// Creates the folder (and missing parents) with mode 0700 and the database file inside it with
// mode 0600, then answers the database path. Empty on failure.
std::string prepareStoreFile(const std::string& folder);

}  // namespace softtoken
