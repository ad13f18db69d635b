// Certificate files on disk, PEM or DER.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "common/secret_bytes.h"

namespace softtoken {

// The DER of a certificate given as PEM (the first certificate of the file) or as DER; empty
// when the bytes hold neither.
Bytes certificateToDer(const Bytes& contents);

bool readWholeFile(const std::string& path, Bytes& contents);

// Every regular file of the folder whose name ends in one of the extensions (compared without
// regard to case), grouped by extension in the order given and by name within a group, as
// (file name, DER) pairs. Files that are not certificates are left out. A folder written with
// Windows separators is also looked for with '/' in their place.
std::vector<std::pair<std::string, Bytes>> readCertificateFolder(
    const std::string& folder, const std::vector<std::string>& extensions);

}  // namespace softtoken
