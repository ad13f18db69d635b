// Four processes change and read one token at once through the device library: no change may
// be lost, each sees its own changes at once, and no wrong PIN goes uncounted.
#include <sys/wait.h>

#include <iostream>
#include <set>

#include "store_journal.h"
#include "store_processes.h"
#include "token_fixture.h"

namespace softtoken::testing {
namespace {

using StoreLoadTest = TokenFixture;

constexpr const char* kLoadToken = "LOAD";
constexpr const char* kLockToken = "LOCK";  // takes the wrong PINs
constexpr int kProcesses = 4;
constexpr int kOperationsEach = 60;
constexpr int kRetries = 1000;

TEST_F(StoreLoadTest, FourProcessesChangingOneTokenLoseNothing) {
    createToken(kLoadToken, kPin, kRetries, 4095);
    createToken(kLockToken, kPin, kRetries, 4095);
    std::vector<pid_t> workers;
    for (int i = 0; i < kProcesses; ++i) {
        const std::string tag = "p" + std::to_string(i);
        workers.push_back(startProgram(
            workerArguments(folder_.path(), kLoadToken, kLockToken,
                            folder_.path() + "/journal-" + tag, tag, "load", kOperationsEach),
            false));
    }
    // This process reads while they work, as an application beside them would: what it sees
    // only grows, since the workers delete no more than they made before.
    std::size_t seen = 0;
    std::size_t reads = 0;
    std::vector<int> exitCodes;
    while (exitCodes.size() < workers.size()) {
        std::size_t now = ostrel_getCertificateList(kLoadToken, instance_).size();
        EXPECT_GE(now, seen);
        seen = std::max(seen, now);
        ++reads;
        int status = 0;
        if (waitpid(-1, &status, WNOHANG) > 0) {
            exitCodes.push_back(WIFEXITED(status) ? WEXITSTATUS(status) : -1);
        }
    }
    EXPECT_EQ(exitCodes, std::vector<int>(workers.size(), 0));

    std::vector<RunJournal> runs;
    for (int i = 0; i < kProcesses; ++i) {
        const std::string tag = "p" + std::to_string(i);
        runs.push_back(readJournal(folder_.path() + "/journal-" + tag, tag));
    }
    StoredToken token;
    StoredToken lock;
    ASSERT_TRUE(readStoredToken(folder_.path() + "/tokens.db", kLoadToken, token));
    ASSERT_TRUE(readStoredToken(folder_.path() + "/tokens.db", kLockToken, lock));
    JournalFindings findings = checkObjects(runs, token);
    for (const std::string& detail : findings.details) {
        ADD_FAILURE() << detail;
    }

    // Every wrong PIN took one try of its own: the counts reported are all different, and the
    // store holds the last of them.
    std::multiset<int> reported;
    int changes = 0;
    for (const RunJournal& run : runs) {
        EXPECT_EQ(run.inFlight(), nullptr) << run.tag;
        for (const JournalEntry& entry : run.entries) {
            changes += entry.committed;
            if (entry.committed && entry.kind == 'W') {
                reported.insert(std::stoi(entry.fields.at(0)));
            }
        }
    }
    std::multiset<int> expected;
    for (int left = kRetries - 1; left >= kRetries - static_cast<int>(reported.size()); --left) {
        expected.insert(left);
    }
    EXPECT_EQ(reported, expected);
    EXPECT_EQ(lock.retriesLeft, kRetries - static_cast<int>(reported.size()));
    std::cout << "store load: " << kProcesses << " processes, " << changes
              << " committed operations (" << reported.size() << " wrong PINs), lost changes "
              << findings.lost << ", unrecorded changes " << findings.unexplained
              << "; this process read the certificates " << reads << " times meanwhile, up to "
              << seen << "\n";
    EXPECT_EQ(findings.lost, 0);
    EXPECT_EQ(findings.unexplained, 0);
    EXPECT_EQ(ostrel_getKeyPairList(kLoadToken, instance_).size(), token.keyPairs.size());
    EXPECT_EQ(ostrel_getCertificateList(kLoadToken, instance_).size(), token.certificates.size());
}

}  // namespace
}  // namespace softtoken::testing
