// A store on a full disk and a store that cannot be written: writes answer an error code of the
// shared table, nothing crashes, reading goes on, and what was there before stays whole.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <iostream>
#include <set>

#include "common/token_error.h"
#include "store/database.h"
#include "store_journal.h"
#include "store_mounts.h"
#include "store_processes.h"
#include "token_fixture.h"

namespace softtoken::testing {
namespace {

constexpr const char* kSerial = "MEDIA";
constexpr const char* kPin = "1234";
constexpr int kRetries = 10;

class StoreMediaTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!mountsPermitted()) {
            GTEST_SKIP() << "no mount namespace of its own here (needs root): the full and "
                            "read-only stores cannot be made";
        }
        ASSERT_FALSE(base_.path().empty());
        signingKey_.reset(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
    }

    void TearDown() override {
        ostrel_releaseInstance(instance_);
        instance_ = nullptr;
        if (holder_ > 0) {
            kill(holder_, SIGKILL);
            waitForProgram(holder_);
        }
        for (auto mount = mounts_.rbegin(); mount != mounts_.rend(); ++mount) {
            unmount(*mount);
        }
        unsetenv("OSTREL_TOKEN_STORE");
    }

    std::string folder(const std::string& name) {
        std::string path = base_.path() + "/" + name;
        mkdir(path.c_str(), 0700);
        return path;
    }

    void makeToken(const std::string& store) {
        TokenService admin(store);
        TokenSettings settings;
        settings.serial = kSerial;
        settings.label = "before";
        settings.userPin = kPin;
        settings.retries = kRetries;
        settings.capacity = 4095;
        ASSERT_EQ(createToken(admin, settings), 0);
        admin.shutDown();
    }

    // The library of this process on store (its first instance reads the location).
    void openLibrary(const std::string& store) {
        ostrel_releaseInstance(instance_);
        setenv("OSTREL_TOKEN_STORE", store.c_str(), 1);
        ostrel_createInstance(&instance_);
    }

    int importCertificate(const std::string& label) {
        static long serial = 1;
        Bytes der = selfSignedCertificate(signingKey_.get(), label, ++serial);
        OstrelCertificate record = certificateRecord(der, label);
        return ostrel_importCertificate(kSerial, "", &record, instance_);
    }

    int generate(const std::string& label, OstrelKeyPair* made = nullptr) {
        OstrelKeyPair pair{};
        pair.keyType = kKeyTypeEcP256;
        std::copy(label.begin(), label.end(), pair.alias);
        int result = ostrel_generateKeyPair(kSerial, kPin, &pair, instance_);
        if (made != nullptr) {
            *made = pair;
        }
        return result;
    }

    int sign(const OstrelKeyPair& pair) {
        const unsigned char digest[32] = {1};
        unsigned char signature[128];
        int length = sizeof signature;
        return ostrel_signHash(kSerial, pair.keyReference, kPin, digest, sizeof digest, signature,
                               &length, false, instance_, false);
    }

    std::set<std::string> listedLabels() {
        std::set<std::string> labels;
        for (const OstrelKeyPair& pair : ostrel_getKeyPairList(kSerial, instance_)) {
            labels.insert(pair.alias);
        }
        for (const OstrelCertificate& certificate : ostrel_getCertificateList(kSerial, instance_)) {
            labels.insert(certificate.label);
        }
        return labels;
    }

    // Another process that keeps the store open, as a running application would: SQLite's
    // shared files stay, so the store can be read through a read-only view.
    void holdOpen(const std::string& store) {
        int ready[2];
        ASSERT_EQ(pipe(ready), 0);
        holder_ = fork();
        if (holder_ == 0) {
            std::unique_ptr<Database> database = Database::open(store + "/tokens.db");
            Statement read(*database, "SELECT COUNT(*) FROM devices");
            const char byte = read.step() ? 1 : 0;
            if (write(ready[1], &byte, 1) == 1) {
                for (;;) {
                    pause();
                }
            }
            _exit(1);
        }
        close(ready[1]);
        char byte = 0;
        ASSERT_EQ(read(ready[0], &byte, 1), 1);
        close(ready[0]);
        ASSERT_EQ(byte, 1);
    }

    void expectSame(const StoredToken& before, const std::string& store) {
        StoredToken after;
        ASSERT_TRUE(readStoredToken(store + "/tokens.db", kSerial, after));
        EXPECT_EQ(after.keyPairs, before.keyPairs);
        EXPECT_EQ(after.certificates, before.certificates);
        EXPECT_EQ(after.label, before.label);
        EXPECT_EQ(after.retriesLeft, before.retriesLeft);
        EXPECT_EQ(integrityCheck(store + "/tokens.db"), "ok");
    }

    TemporaryFolder base_;
    DeviceInstance instance_ = nullptr;
    std::vector<std::string> mounts_;
    pid_t holder_ = 0;
    PkeyPtr signingKey_;
};

// Fills the file system that holds path to the last byte.
void fillDisk(const std::string& path) {
    int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ASSERT_GE(file, 0);
    std::vector<char> block(65536, 'x');
    for (std::size_t size = block.size(); size > 0; size /= 2) {
        while (write(file, block.data(), size) == static_cast<ssize_t>(size)) {
        }
    }
    close(file);
}

TEST_F(StoreMediaTest, FullDiskAnswers50AndLosesNothing) {
    const std::string disk = folder("disk");
    std::string why;
    ASSERT_TRUE(mountSmallDisk(disk, "2m", &why)) << why;
    mounts_.push_back(disk);
    const std::string store = disk + "/store";
    makeToken(store);
    openLibrary(store);
    ASSERT_NE(instance_, nullptr);
    OstrelKeyPair first{};
    ASSERT_EQ(generate("key-before", &first), 0);
    ASSERT_EQ(importCertificate("certificate-before"), 0);
    fillDisk(disk + "/filler");

    // Reading and signing need no room.
    EXPECT_EQ(sign(first), 0);
    std::set<std::string> committed = listedLabels();
    std::set<std::string> refused;
    std::string firstLabel = "key-before";
    int wrongPinsCounted = 0;
    for (int i = 0; i < 40; ++i) {
        const std::string label = "full-" + std::to_string(i);
        int result = 0;
        if (i % 4 == 1) {
            result = generate(label);
        } else if (i % 4 == 2) {
            result = ostrel_updateKeyPairDetails(kSerial, first.keyReference, kPin, label.c_str(),
                                                 nullptr, 0, instance_);
        } else {
            result = importCertificate(label);
        }
        ASSERT_TRUE(result == 0 || result == kStoreWriteFailed) << label << ": " << result;
        if (result != 0) {
            refused.insert(label);
        } else if (i % 4 == 2) {
            committed.erase(firstLabel);
            committed.insert(firstLabel = label);
        } else {
            committed.insert(label);
        }
        EXPECT_EQ(listedLabels(), committed) << label;
    }
    ASSERT_FALSE(refused.empty()) << "the disk never filled up";
    std::cout << "store on a full disk: " << 40 - refused.size() << " of 40 writes still fit, "
              << refused.size() << " answered 50\n";
    // A wrong PIN is either counted for good or refused without judging the PIN: never a free
    // guess.
    int left = -1;
    int wrongPin = ostrel_validatePassword(kSerial, "0000", 1, &left, instance_);
    ASSERT_TRUE(wrongPin == kPinIncorrect || wrongPin == kStoreWriteFailed) << wrongPin;
    wrongPinsCounted += wrongPin == kPinIncorrect;
    ProcessResult tool = runProgram(
        {OSTREL_TOKEN_TOOL, "--store", store, "set", kSerial, "label", "tool-on-full-disk"});
    EXPECT_TRUE(tool.exitCode == 0 || tool.output.find("(code 50)") != std::string::npos)
        << tool.output;
    std::string label = tool.exitCode == 0 ? "tool-on-full-disk" : "before";

    ASSERT_EQ(unlink((disk + "/filler").c_str()), 0);
    StoredToken stored;
    ASSERT_TRUE(readStoredToken(store + "/tokens.db", kSerial, stored));
    EXPECT_EQ(integrityCheck(store + "/tokens.db"), "ok");
    std::set<std::string> storedLabels;
    for (const auto& objects : {stored.keyPairs, stored.certificates}) {
        for (const auto& entry : objects) {
            storedLabels.insert(entry.second);
        }
    }
    EXPECT_EQ(storedLabels, committed);
    EXPECT_EQ(stored.label, label);
    EXPECT_EQ(stored.retriesLeft, kRetries - wrongPinsCounted);
    // With room again, writing works at once.
    EXPECT_EQ(importCertificate("after"), 0);
    EXPECT_EQ(generate("key-after"), 0);
    EXPECT_EQ(sign(first), 0);
}

TEST_F(StoreMediaTest, ReadOnlyStoreIsReadAndRefusesEveryWrite) {
    const std::string store = folder("store");
    const std::string view = folder("view");
    makeToken(store);
    openLibrary(store);
    OstrelKeyPair pair{};
    ASSERT_EQ(generate("key", &pair), 0);
    ASSERT_EQ(importCertificate("certificate"), 0);
    const OstrelCertificate certificate = ostrel_getCertificateList(kSerial, instance_).at(0);
    StoredToken before;
    ASSERT_TRUE(readStoredToken(store + "/tokens.db", kSerial, before));
    holdOpen(store);
    std::string why;
    ASSERT_TRUE(mountReadOnlyView(store, view, &why)) << why;
    mounts_.push_back(view);
    openLibrary(view);
    ASSERT_NE(instance_, nullptr);

    EXPECT_EQ(ostrel_getConnectedDeviceList(false, instance_), std::vector<std::string>{kSerial});
    EXPECT_EQ(listedLabels(), (std::set<std::string>{"key", "certificate"}));
    EXPECT_EQ(sign(pair), 0);
    EXPECT_EQ(generate("new"), kStoreWriteFailed);
    EXPECT_EQ(importCertificate("new"), kStoreWriteFailed);
    EXPECT_EQ(
        ostrel_updateKeyPairDetails(kSerial, pair.keyReference, kPin, "new", nullptr, 0, instance_),
        kStoreWriteFailed);
    EXPECT_EQ(ostrel_deleteKeyPair(kSerial, pair.keyReference, kPin, false, instance_),
              kStoreWriteFailed);
    EXPECT_EQ(ostrel_deleteCertificate(kSerial, certificate.certificateReference, "", instance_),
              kStoreWriteFailed);
    // A wrong PIN whose try cannot be counted is not judged: no free guesses.
    int left = -1;
    EXPECT_EQ(ostrel_validatePassword(kSerial, "0000", 1, &left, instance_), kStoreWriteFailed);
    EXPECT_FALSE(ostrel_changeUserPassword(kSerial, kPin, "5678", &left, false, false, instance_));
    EXPECT_EQ(ostrel_validatePassword(kSerial, kPin, 1, &left, instance_), 0);
    EXPECT_EQ(left, kRetries);
    ProcessResult tool =
        runProgram({OSTREL_TOKEN_TOOL, "--store", view, "set", kSerial, "label", "new"});
    EXPECT_EQ(tool.exitCode, 1);
    EXPECT_NE(tool.output.find("(code 50)"), std::string::npos) << tool.output;
    EXPECT_EQ(listedLabels(), (std::set<std::string>{"key", "certificate"}));

    ostrel_releaseInstance(instance_);
    instance_ = nullptr;
    expectSame(before, store);
    openLibrary(store);
    EXPECT_EQ(sign(pair), 0);
    EXPECT_EQ(generate("writable again"), 0);
}

// Without another process holding it open, SQLite cannot open a store on read-only media at
// all: every operation answers that the device cannot be reached.
TEST_F(StoreMediaTest, ReadOnlyStoreNobodyHoldsOpenIsUnreachableAndKept) {
    const std::string store = folder("store");
    const std::string view = folder("view");
    makeToken(store);
    StoredToken before;
    ASSERT_TRUE(readStoredToken(store + "/tokens.db", kSerial, before));
    std::string why;
    ASSERT_TRUE(mountReadOnlyView(store, view, &why)) << why;
    mounts_.push_back(view);
    openLibrary(view);

    EXPECT_EQ(instance_, nullptr);
    EXPECT_TRUE(ostrel_getConnectedDeviceList(false, instance_).empty());
    EXPECT_EQ(generate("new"), kDeviceUnreachable);
    EXPECT_EQ(importCertificate("new"), kDeviceUnreachable);
    int left = -1;
    EXPECT_EQ(ostrel_validatePassword(kSerial, "0000", 1, &left, instance_), kDeviceUnreachable);
    EXPECT_EQ(left, -1);
    ProcessResult tool = runProgram({OSTREL_TOKEN_TOOL, "--store", view, "list"});
    EXPECT_EQ(tool.exitCode, 1);
    EXPECT_NE(tool.output.find("(code 48)"), std::string::npos) << tool.output;

    unmount(view);
    mounts_.clear();
    expectSame(before, store);
}

}  // namespace
}  // namespace softtoken::testing
