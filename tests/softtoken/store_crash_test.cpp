// kill -9 of store writers at random moments: a process that signs and changes a token through
// the device library (store_worker.cpp), one that does the same through the built PKCS #11
// module (module_worker.cpp), and the ostrel-token tool, taking turns on one store, each on a
// token of its own. After every kill the store must pass SQLite's integrity check; at the end
// every committed change must be there, and nothing else but the one change each killed process
// had in flight. OSTREL_STORE_KILLS sets the number of kills of each (100 unless set).
#include <signal.h>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <map>
#include <random>
#include <thread>

#include "store_journal.h"
#include "store_processes.h"
#include "token_fixture.h"

namespace softtoken::testing {
namespace {

constexpr const char* kWorkerToken = "CRASH";
constexpr const char* kToolToken = "TOOL";
constexpr const char* kModuleToken = "MODULE";
constexpr int kRetries = 100;

int killsOfEach() {
    const char* value = std::getenv("OSTREL_STORE_KILLS");
    return value != nullptr && std::atoi(value) > 0 ? std::atoi(value) : 100;
}

// One run of the tool: what it was asked to do, and how it ended.
struct ToolRun {
    char kind = 0;  // 'S' set label, 'K' keygen, 'C' import-cert
    std::string label;
    bool committed = false;  // exited 0
    bool killed = false;
};

class StoreCrashTest : public TokenFixture {
protected:
    void SetUp() override {
        TokenFixture::SetUp();
        createToken(kWorkerToken, kPin, kRetries, 4095);
        createToken(kToolToken, kPin, kRetries, 4095);
        createToken(kModuleToken, kPin, kRetries, 4095);
        seed_ = std::random_device{}();
        random_.seed(seed_);
        signingKey_.reset(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
    }

    std::string database() const { return folder_.path() + "/tokens.db"; }

    // After a kill: SQLite's own check, and the library still reads the store.
    void checkStore(const std::string& afterWhat) {
        const std::string answer = integrityCheck(database());
        if (answer != "ok") {
            ++corruptStores_;
            ADD_FAILURE() << "after " << afterWhat << ": " << answer;
        }
        EXPECT_EQ(ostrel_getConnectedDeviceList(false, instance_).size(), 4u) << afterWhat;
    }

    void pause(double maximumMs) {
        std::uniform_real_distribution<double> delay(0.0, maximumMs);
        std::this_thread::sleep_for(std::chrono::duration<double, std::milli>(delay(random_)));
    }

    // Starts a worker, lets it work for a random while after its first operation, kills it.
    // Device-library workers are tagged w0, w1, ..., module workers m0, m1, ...
    RunJournal killWorker(int number, bool throughModule) {
        const std::string tag = (throughModule ? "m" : "w") + std::to_string(number);
        const std::string journal = folder_.path() + "/journal-" + tag;
        pid_t worker = startProgram(
            throughModule ? moduleWorkerArguments(folder_.path(), kModuleToken, journal, tag, 0)
                          : workerArguments(folder_.path(), kWorkerToken, kWorkerToken, journal,
                                            tag, "crash", 0),
            false, true);
        EXPECT_GT(worker, 0) << tag;
        if (worker > 0) {
            pause(40.0);
            kill(worker, SIGKILL);
            Ending ending = waitForProgram(worker);
            EXPECT_TRUE(ending.killed) << tag << " stopped by itself: " << ending.exitCode;
        }
        checkStore(tag);
        return readJournal(journal, tag);
    }

    static char toolKind(int number) { return "SKC"[number % 3]; }

    std::vector<std::string> toolCommand(ToolRun& run, int number) {
        run.kind = toolKind(number);
        run.label = "t" + std::to_string(number);
        std::vector<std::string> command = {OSTREL_TOKEN_TOOL, "--store", folder_.path()};
        if (run.kind == 'S') {
            command.insert(command.end(), {"set", kToolToken, "label", run.label});
        } else if (run.kind == 'K') {
            command.insert(command.end(), {"keygen", kToolToken, "--type", "p256", "--pin", kPin,
                                           "--label", run.label});
        } else {
            const std::string file = folder_.path() + "/" + run.label + ".der";
            writeFile(file, selfSignedCertificate(signingKey_.get(), run.label, number + 1));
            command.insert(command.end(), {"import-cert", kToolToken, file, "--label", run.label});
        }
        return command;
    }

    // Runs one tool command and kills it after a random part of killAfterMs (never, when 0).
    ToolRun runTool(int number, double killAfterMs) {
        ToolRun run;
        pid_t tool = startProgram(toolCommand(run, number), true);
        EXPECT_GT(tool, 0);
        if (killAfterMs > 0) {
            std::uniform_real_distribution<double> part(0.2, 1.0);
            std::this_thread::sleep_for(
                std::chrono::duration<double, std::milli>(part(random_) * killAfterMs));
            kill(tool, SIGKILL);
        }
        Ending ending = waitForProgram(tool);
        run.killed = ending.killed;
        run.committed = ending.exitCode == 0;
        EXPECT_TRUE(run.killed || run.committed) << run.label << " failed: " << ending.exitCode;
        checkStore(run.label);
        return run;
    }

    unsigned seed_ = 0;
    std::mt19937 random_;
    PkeyPtr signingKey_;
    int corruptStores_ = 0;
};

// The tool's runs against its token: committed objects once, killed ones at most once, the
// label the last committed one or one set by a later killed run.
JournalFindings checkToolRuns(const std::vector<ToolRun>& runs, const StoredToken& token) {
    JournalFindings findings;
    std::map<std::string, int> stored;
    for (const auto& objects : {token.keyPairs, token.certificates}) {
        for (const auto& entry : objects) {
            ++stored[entry.second];
        }
    }
    std::set<std::string> possibleLabels = {"Token TOOL"};
    for (const ToolRun& run : runs) {
        if (run.kind == 'S') {
            if (run.committed) {
                possibleLabels = {run.label};
            } else {
                possibleLabels.insert(run.label);
            }
            continue;
        }
        const int count = stored.count(run.label) != 0 ? stored[run.label] : 0;
        stored.erase(run.label);
        if (run.committed && count != 1) {
            ++findings.lost;
            findings.details.push_back(run.label + " committed but stored " +
                                       std::to_string(count) + " times");
        } else if (!run.committed && count > 1) {
            ++findings.unexplained;
            findings.details.push_back(run.label + " stored twice");
        }
    }
    for (const auto& [label, count] : stored) {
        findings.unexplained += count;
        findings.details.push_back("unrecorded object " + label);
    }
    if (possibleLabels.count(token.label) == 0) {
        ++findings.lost;
        findings.details.push_back("token label " + token.label);
    }
    return findings;
}

// Every key pair left must still be whole: its private key unseals and signs.
int keyPairsThatDoNotSign(const char* serial, DeviceInstance instance) {
    int broken = 0;
    const unsigned char digest[32] = {7};
    for (const OstrelKeyPair& pair : ostrel_getKeyPairList(serial, instance)) {
        unsigned char signature[256];
        int length = sizeof signature;
        broken += ostrel_signHash(serial, pair.keyReference, "1234", digest, sizeof digest,
                                  signature, &length, false, instance, false) != 0;
    }
    return broken;
}

TEST_F(StoreCrashTest, KilledWritersLeaveASoundStoreWithEveryCommittedChange) {
    const int kills = killsOfEach();
    std::vector<RunJournal> workerRuns;
    std::vector<RunJournal> moduleRuns;
    std::vector<ToolRun> toolRuns;
    // How long after its start each tool command is killed, at most: first as long as one
    // unkilled run took, then shorter after a run that ended before its kill and longer after
    // one that was killed, so that the kills come late in the tool's life, where it writes.
    std::map<char, double> toolMs;
    for (int number = 0; number < 3; ++number) {
        auto start = std::chrono::steady_clock::now();
        toolRuns.push_back(runTool(number, 0));
        toolMs[toolRuns.back().kind] =
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
                .count();
    }
    int toolKills = 0;
    int toolNumber = 3;
    for (int round = 0; round < kills && !HasFailure(); ++round) {
        workerRuns.push_back(killWorker(round, false));
        moduleRuns.push_back(killWorker(round, true));
        // A run that ended before its kill counts as a committed run, not as a kill.
        for (int tries = 0; tries < 5 && toolKills <= round; ++tries, ++toolNumber) {
            double& limit = toolMs[toolKind(toolNumber)];
            toolRuns.push_back(runTool(toolNumber, limit));
            toolKills += toolRuns.back().killed;
            limit *= toolRuns.back().killed ? 1.05 : 0.8;
        }
    }
    ASSERT_FALSE(HasFailure()) << "seed " << seed_;

    StoredToken workerToken;
    StoredToken moduleToken;
    StoredToken toolToken;
    ASSERT_TRUE(readStoredToken(database(), kWorkerToken, workerToken));
    ASSERT_TRUE(readStoredToken(database(), kModuleToken, moduleToken, ObjectNames::ObjectIds));
    ASSERT_TRUE(readStoredToken(database(), kToolToken, toolToken));
    JournalFindings worker = checkObjects(workerRuns, workerToken);
    JournalFindings module = checkObjects(moduleRuns, moduleToken);
    JournalFindings tool = checkToolRuns(toolRuns, toolToken);
    std::string why;
    EXPECT_TRUE(pinCountsFollow(workerRuns, kRetries, workerToken.retriesLeft, why)) << why;
    EXPECT_TRUE(pinCountsFollow(moduleRuns, kRetries, moduleToken.retriesLeft, why)) << why;
    // "N (I inside an operation, C committed operations)" of a worker's runs.
    auto summary = [](const std::vector<RunJournal>& runs) {
        int inFlight = 0;
        int changes = 0;
        for (const RunJournal& run : runs) {
            inFlight += run.inFlight() != nullptr;
            for (const JournalEntry& entry : run.entries) {
                changes += entry.committed;
            }
        }
        return std::to_string(runs.size()) + " (" + std::to_string(inFlight) +
               " inside an operation, " + std::to_string(changes) + " committed operations)";
    };
    int toolChanges = 0;
    for (const ToolRun& run : toolRuns) {
        toolChanges += run.committed;
    }
    const int lost = worker.lost + module.lost + tool.lost;
    const int unexplained = worker.unexplained + module.unexplained + tool.unexplained;
    std::cout << "store kills: worker " << summary(workerRuns) << ", module worker "
              << summary(moduleRuns) << ", tool " << toolKills << " (" << toolRuns.size()
              << " runs, " << toolChanges << " committed); corrupt stores " << corruptStores_
              << "; lost changes " << lost << "; unrecorded changes " << unexplained << "; seed "
              << seed_ << "\n";
    EXPECT_EQ(static_cast<int>(workerRuns.size()), kills);
    EXPECT_EQ(static_cast<int>(moduleRuns.size()), kills);
    EXPECT_EQ(toolKills, kills);
    EXPECT_EQ(corruptStores_, 0);
    EXPECT_EQ(lost, 0);
    EXPECT_EQ(unexplained, 0);
    for (const auto& details : {worker.details, module.details, tool.details}) {
        for (const std::string& detail : details) {
            ADD_FAILURE() << detail;
        }
    }
    EXPECT_EQ(keyPairsThatDoNotSign(kWorkerToken, instance_), 0);
    EXPECT_EQ(keyPairsThatDoNotSign(kToolToken, instance_), 0);
    EXPECT_EQ(keyPairsThatDoNotSign(kModuleToken, instance_), 0);
}

}  // namespace
}  // namespace softtoken::testing
