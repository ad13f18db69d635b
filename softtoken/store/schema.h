// The tables of the token store.
#pragma once

namespace softtoken {

class Database;

// Creates the tables when the store is new; answers false when the store cannot be used (an
// SQLite failure, or a store made by a newer version of this library).
bool ensureSchema(Database& database);

}  // namespace softtoken
