#include "store_journal.h"

#include <sqlite3.h>

#include <fstream>
#include <sstream>

namespace softtoken::testing {

namespace {

bool usesRightPin(char kind) {
    return kind == 'K' || kind == 'L' || kind == 'D' || kind == 'R' || kind == 'S';
}

std::string tagOf(const std::string& label) {
    return label.substr(0, label.find('-'));
}

struct Expected {
    std::map<std::string, std::string> keyPairs;  // reference -> label
    std::set<std::string> deletedKeyPairs;
    std::set<std::string> certificates;
};

Expected replayObjects(const RunJournal& run) {
    Expected expected;
    for (const JournalEntry& entry : run.entries) {
        if (!entry.committed || entry.fields.empty()) {
            continue;
        }
        const std::vector<std::string>& f = entry.fields;
        if (entry.kind == 'K' && f.size() == 2) {
            expected.keyPairs[f[1]] = f[0];
        } else if (entry.kind == 'C' && f.size() == 2) {
            expected.certificates.insert(f[1]);
        } else if (entry.kind == 'L' && f.size() == 2) {
            expected.keyPairs[f[0]] = f[1];
        } else if (entry.kind == 'D') {
            expected.keyPairs.erase(f[0]);
            expected.deletedKeyPairs.insert(f[0]);
        }
    }
    return expected;
}

bool inFlightIs(const JournalEntry* entry, char kind, const std::string& field) {
    return entry != nullptr && entry->kind == kind && !entry->fields.empty() &&
           entry->fields[0] == field;
}

}  // namespace

std::string hexText(const unsigned char* data, std::size_t size) {
    static const char kDigits[] = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < size; ++i) {
        text += kDigits[data[i] >> 4];
        text += kDigits[data[i] & 15];
    }
    return text;
}

std::vector<unsigned char> hexBytes(const std::string& hex) {
    std::vector<unsigned char> bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes.push_back(static_cast<unsigned char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

const JournalEntry* RunJournal::inFlight() const {
    return !entries.empty() && !entries.back().committed ? &entries.back() : nullptr;
}

RunJournal readJournal(const std::string& path, const std::string& tag) {
    RunJournal run;
    run.tag = tag;
    std::ifstream file(path);
    std::string contents((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    std::istringstream lines(contents.substr(0, contents.rfind('\n') + 1));
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream words(line);
        std::string mark, kind, field;
        words >> mark >> kind;
        JournalEntry entry;
        entry.committed = mark == "+";
        entry.kind = kind.empty() ? '?' : kind[0];
        while (words >> field) {
            entry.fields.push_back(field);
        }
        run.entries.push_back(std::move(entry));
    }
    return run;
}

bool readStoredToken(const std::string& databasePath, const std::string& serial, StoredToken& token,
                     ObjectNames names) {
    sqlite3* database = nullptr;
    // Read and write, never create: a connection that may have to recover the log of a killed
    // writer needs to write.
    if (sqlite3_open_v2(databasePath.c_str(), &database, SQLITE_OPEN_READWRITE, nullptr) !=
        SQLITE_OK) {
        sqlite3_close(database);
        return false;
    }
    sqlite3_busy_timeout(database, 10000);
    bool ok = true;
    auto query = [&](const char* sql, auto onRow) {
        sqlite3_stmt* statement = nullptr;
        if (sqlite3_prepare_v2(database, sql, -1, &statement, nullptr) != SQLITE_OK) {
            ok = false;
            return;
        }
        sqlite3_bind_text(statement, 1, serial.c_str(), -1, SQLITE_TRANSIENT);
        int step = SQLITE_ROW;
        while ((step = sqlite3_step(statement)) == SQLITE_ROW) {
            onRow(statement);
        }
        ok = ok && step == SQLITE_DONE;
        sqlite3_finalize(statement);
    };
    auto name = [](sqlite3_stmt* statement) {
        return hexText(static_cast<const unsigned char*>(sqlite3_column_blob(statement, 0)),
                       static_cast<std::size_t>(sqlite3_column_bytes(statement, 0)));
    };
    auto text = [](sqlite3_stmt* statement, int column) {
        const unsigned char* value = sqlite3_column_text(statement, column);
        return value != nullptr ? std::string(reinterpret_cast<const char*>(value)) : "";
    };
    // A read transaction makes the three queries one consistent reading.
    sqlite3_exec(database, "BEGIN", nullptr, nullptr, nullptr);
    const std::string column = names == ObjectNames::References ? "reference" : "object_id";
    query(("SELECT " + column + ", alias FROM key_pairs WHERE device_id = ?").c_str(),
          [&](sqlite3_stmt* s) { token.keyPairs[name(s)] = text(s, 1); });
    query(("SELECT " + column + ", label FROM certificates WHERE device_id = ?").c_str(),
          [&](sqlite3_stmt* s) { token.certificates[name(s)] = text(s, 1); });
    query("SELECT retries_left, label FROM devices WHERE device_id = ?", [&](sqlite3_stmt* s) {
        token.retriesLeft = sqlite3_column_int(s, 0);
        token.label = text(s, 1);
    });
    sqlite3_exec(database, "COMMIT", nullptr, nullptr, nullptr);
    sqlite3_close(database);
    return ok;
}

std::string integrityCheck(const std::string& databasePath) {
    sqlite3* database = nullptr;
    std::string answer = "cannot open";
    if (sqlite3_open_v2(databasePath.c_str(), &database, SQLITE_OPEN_READWRITE, nullptr) ==
        SQLITE_OK) {
        sqlite3_busy_timeout(database, 10000);
        sqlite3_stmt* check = nullptr;
        answer = "cannot check";
        if (sqlite3_prepare_v2(database, "PRAGMA integrity_check", -1, &check, nullptr) ==
                SQLITE_OK &&
            sqlite3_step(check) == SQLITE_ROW) {
            answer = reinterpret_cast<const char*>(sqlite3_column_text(check, 0));
        }
        sqlite3_finalize(check);
    }
    sqlite3_close(database);
    return answer;
}

JournalFindings checkObjects(const std::vector<RunJournal>& runs, const StoredToken& token) {
    JournalFindings findings;
    std::map<std::string, const RunJournal*> byTag;
    std::map<std::string, std::string> committedKeys;  // reference -> label, all runs
    std::set<std::string> committedCertificates;
    for (const RunJournal& run : runs) {
        byTag[run.tag] = &run;
        const Expected expected = replayObjects(run);
        const JournalEntry* flight = run.inFlight();
        for (const auto& [reference, label] : expected.keyPairs) {
            committedKeys[reference] = label;
            auto stored = token.keyPairs.find(reference);
            const bool relabelInFlight = inFlightIs(flight, 'L', reference) &&
                                         stored != token.keyPairs.end() &&
                                         stored->second == flight->fields[1];
            const bool deleteInFlight = inFlightIs(flight, 'D', reference);
            if ((stored == token.keyPairs.end() && !deleteInFlight) ||
                (stored != token.keyPairs.end() && stored->second != label && !relabelInFlight)) {
                ++findings.lost;
                findings.details.push_back("key pair " + label + " lost or not relabelled");
            }
        }
        for (const std::string& reference : expected.deletedKeyPairs) {
            if (token.keyPairs.count(reference) != 0 && expected.keyPairs.count(reference) == 0) {
                ++findings.lost;
                findings.details.push_back("deleted key pair " + reference + " still stored");
            }
        }
        for (const std::string& reference : expected.certificates) {
            committedCertificates.insert(reference);
            if (token.certificates.count(reference) == 0) {
                ++findings.lost;
                findings.details.push_back("certificate " + reference + " lost");
            }
        }
    }
    // Objects no committed line accounts for: each run may leave its one change in flight.
    std::map<std::string, int> unaccounted;
    auto account = [&](const std::string& label, char kind) {
        auto run = byTag.find(tagOf(label));
        if (run == byTag.end()) {
            return;  // not made by a worker
        }
        const JournalEntry* flight = run->second->inFlight();
        if (!inFlightIs(flight, kind, label) || ++unaccounted[run->first] > 1) {
            ++findings.unexplained;
            findings.details.push_back("unrecorded object " + label);
        }
    };
    for (const auto& [reference, label] : token.keyPairs) {
        if (committedKeys.count(reference) == 0) {
            account(label, 'K');
        }
    }
    for (const auto& [reference, label] : token.certificates) {
        if (committedCertificates.count(reference) == 0) {
            account(label, 'C');
        }
    }
    return findings;
}

bool pinCountsFollow(const std::vector<RunJournal>& runs, int maximum, int stored,
                     std::string& why) {
    std::set<int> possible = {maximum};
    auto lowered = [](const std::set<int>& counts) {
        std::set<int> out;
        for (int count : counts) {
            out.insert(count > 0 ? count - 1 : 0);
        }
        return out;
    };
    for (const RunJournal& run : runs) {
        for (const JournalEntry& entry : run.entries) {
            if (!entry.committed) {
                continue;  // only a run's last entry; settled below
            }
            if (entry.kind == 'W') {
                const int left = entry.fields.empty() ? -1 : std::stoi(entry.fields[0]);
                if (lowered(possible).count(left) == 0) {
                    why = run.tag + ": a wrong PIN reported " + std::to_string(left) + " tries";
                    return false;
                }
                possible = {left};
            } else if (usesRightPin(entry.kind)) {
                possible = {maximum};
            }
        }
        if (const JournalEntry* flight = run.inFlight(); flight != nullptr) {
            if (flight->kind == 'W') {
                const std::set<int> less = lowered(possible);
                possible.insert(less.begin(), less.end());
            } else if (usesRightPin(flight->kind)) {
                possible.insert(maximum);
            }
        }
    }
    if (possible.count(stored) == 0) {
        why = "the store holds " + std::to_string(stored) + " tries left";
        return false;
    }
    return true;
}

}  // namespace softtoken::testing
