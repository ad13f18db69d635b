#include "store/fault_writes.h"

#include "common/token_error.h"
#include "store/database.h"

namespace softtoken {

int setFault(Database& database, const std::string& operation, int code, int times) {
    Statement upsert(database,
                     "INSERT INTO faults (operation, code, remaining) VALUES (?1, ?2, ?3) "
                     "ON CONFLICT (operation) DO UPDATE SET code = ?2, remaining = ?3");
    upsert.bind(1, operation).bind(2, code).bind(3, times);
    return upsert.run() ? kOk : kStoreWriteFailed;
}

int clearFaults(Database& database, const std::string& operation) {
    Statement remove(database, "DELETE FROM faults WHERE ?1 = '' OR operation = ?1");
    remove.bind(1, operation);
    return remove.run() ? kOk : kStoreWriteFailed;
}

int takeFault(Database& database, const std::string& operation, int* code, bool* fired) {
    *fired = false;
    Statement query(database, "SELECT code, remaining FROM faults WHERE operation = ?");
    query.bind(1, operation);
    if (!query.step()) {
        return query.failed() ? kStoreWriteFailed : kOk;
    }
    *code = static_cast<int>(query.integer(0));
    std::int64_t remaining = query.integer(1);
    *fired = true;
    if (remaining == 0) {
        return kOk;  // permanent until cleared
    }
    Statement use(database,
                  remaining <= 1
                      ? "DELETE FROM faults WHERE operation = ?"
                      : "UPDATE faults SET remaining = remaining - 1 WHERE operation = ?");
    use.bind(1, operation);
    return use.run() ? kOk : kStoreWriteFailed;
}

}  // namespace softtoken
