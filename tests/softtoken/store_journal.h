// The journals that store workers keep, and the check of a store against them.
//
// A worker writes one line before each change ("? KIND ...", the intent) and one after the
// operation answered success ("+ KIND ..."): a change is committed exactly when its "+" line is
// there. A killed worker's journal can end in one intent without its "+": that change is in
// flight and may or may not be in the store, but never half.
//
//   K label [reference]   a key pair generated with that label
//   C label [reference]   a certificate imported with that label
//   L reference label     a key pair relabelled
//   D reference           a key pair deleted
//   W [left]              a wrong PIN, and the tries it reported left
//   R [left], S           the right PIN checked, a signature made (the right PIN restores the
//                         count)
// Labels are TAG-N, TAG naming the worker's run. A reference is the device library's name of the
// object; a worker that goes through the PKCS #11 module never sees that name and gives every
// object a CKA_ID of its own instead, which then stands where the reference would.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

namespace softtoken::testing {

std::string hexText(const unsigned char* data, std::size_t size);
std::vector<unsigned char> hexBytes(const std::string& hex);

struct JournalEntry {
    bool committed = false;
    char kind = 0;
    std::vector<std::string> fields;
};

struct RunJournal {
    std::string tag;
    std::vector<JournalEntry> entries;
    // The change in flight when the worker stopped: the last entry when it is an intent.
    const JournalEntry* inFlight() const;
};

// Reads a journal; a last line without its newline is left out (it was never complete).
RunJournal readJournal(const std::string& path, const std::string& tag);

// How the journals of a token name its objects (hex in both cases).
enum class ObjectNames { References, ObjectIds };

// One token as the store file holds it, read with SQLite directly.
struct StoredToken {
    std::map<std::string, std::string> keyPairs;      // name -> label
    std::map<std::string, std::string> certificates;  // name -> label
    std::string label;
    int retriesLeft = -1;
};
bool readStoredToken(const std::string& databasePath, const std::string& serial, StoredToken& token,
                     ObjectNames names = ObjectNames::References);

// PRAGMA integrity_check through a connection of its own: "ok" for a sound store.
std::string integrityCheck(const std::string& databasePath);

struct JournalFindings {
    int lost = 0;         // committed changes not in the store
    int unexplained = 0;  // objects of the runs' tags that no journal line accounts for
    std::vector<std::string> details;
};

// Every committed change must be in the store; the store may hold more only for a change in
// flight, at most one per run.
JournalFindings checkObjects(const std::vector<RunJournal>& runs, const StoredToken& token);

// Runs one after the other on one token: replays every PIN check in order and tells whether
// each reported count and the stored one could have come from it (no decrement lost).
bool pinCountsFollow(const std::vector<RunJournal>& runs, int maximum, int stored,
                     std::string& why);

}  // namespace softtoken::testing
