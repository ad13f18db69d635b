// Reads the whole store into a Snapshot.
#pragma once

#include "store/records.h"

namespace softtoken {

class Database;

// Loads every table inside one read transaction, so the snapshot is consistent even while other
// processes write. Null on an SQLite failure.
std::shared_ptr<Snapshot> loadSnapshot(Database& database);

}  // namespace softtoken
