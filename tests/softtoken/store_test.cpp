// The token store: plug order, blank devices, capacity, file modes, and what several processes,
// fork() and a killed writer do to it.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <set>

#include "common/token_error.h"
#include "store/database.h"
#include "store/device_writes.h"
#include "token_fixture.h"

namespace softtoken::testing {
namespace {

using StoreTest = TokenFixture;

std::vector<std::string> deviceList(DeviceInstance instance) {
    return ostrel_getConnectedDeviceList(false, instance);
}

TEST_F(StoreTest, DevicesAreListedInPlugOrderWithBlankDevicesIncluded) {
    createToken("ST0002");
    ASSERT_EQ(admin().store().write(
                  [](Database& database) { return insertBlankDevice(database, "BLANK"); }),
              0);
    EXPECT_EQ(deviceList(instance_), (std::vector<std::string>{"ST0001", "ST0002", "BLANK"}));

    ASSERT_EQ(tool({"unplug", "ST0001"}).exitCode, 0);
    EXPECT_EQ(deviceList(instance_), (std::vector<std::string>{"ST0002", "BLANK"}));
    EXPECT_TRUE(ostrel_getTokenInfo("ST0001", instance_).serialNumber.empty());
    EXPECT_EQ(ostrel_initDevice("ST0001", true, instance_), kDeviceUnreachable);

    ASSERT_EQ(tool({"plug", "ST0001"}).exitCode, 0);
    ASSERT_EQ(tool({"plug", "ST0002"}).exitCode, 0);  // already plugged: keeps its place
    EXPECT_EQ(deviceList(instance_), (std::vector<std::string>{"ST0002", "BLANK", "ST0001"}));

    TokenInfo blank = ostrel_getTokenInfo("BLANK", instance_);
    EXPECT_TRUE(blank.serialNumber.empty());
    EXPECT_FALSE(blank.deviceName.empty());
    EXPECT_EQ(ostrel_initDevice("BLANK", true, instance_), kBlankDevice);
    EXPECT_EQ(ostrel_getTokenInfo("ST0002", instance_).serialNumber, "ST0002");
}

TEST_F(StoreTest, FullTokenAnswers40AndReportsNoFreeSpace) {
    createToken("SMALL", kPin, 10, 2);
    EXPECT_EQ(ostrel_getTokenInfo("SMALL", instance_).freeObjectSpace, 2);
    generate(kKeyTypeEcP256, 3, "SMALL");
    generate(kKeyTypeEcP256, 3, "SMALL");
    EXPECT_EQ(ostrel_getTokenInfo("SMALL", instance_).freeObjectSpace, 0);

    OstrelKeyPair third{};
    third.keyType = kKeyTypeEcP256;
    EXPECT_EQ(ostrel_generateKeyPair("SMALL", kPin, &third, instance_), 40);
    EXPECT_EQ(ostrel_getKeyPairList("SMALL", instance_).size(), 2u);
}

TEST_F(StoreTest, StoreIsPrivateToItsUser) {
    ostrel_getConnectedDeviceList(false, instance_);
    struct stat info {};
    ASSERT_EQ(stat(folder_.path().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0700u);
    for (const char* name : {"/tokens.db", "/tokens.db-wal", "/tokens.db-shm"}) {
        std::string path = folder_.path() + name;
        if (stat(path.c_str(), &info) == 0) {
            EXPECT_EQ(info.st_mode & 0777, 0600u) << name;
        }
    }
}

// Children use the store through the device operations, as separate applications would.
pid_t spawn(const std::function<bool()>& work) {
    pid_t child = fork();
    if (child == 0) {
        _exit(work() ? 0 : 1);
    }
    return child;
}

int waitFor(pid_t child) {
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool generateMany(int count) {
    DeviceInstance instance = nullptr;
    ostrel_createInstance(&instance);
    bool ok = instance != nullptr;
    for (int i = 0; ok && i < count; ++i) {
        OstrelKeyPair pair{};
        pair.keyType = kKeyTypeEcP256;
        ok = ostrel_generateKeyPair("ST0001", "1234", &pair, instance) == 0;
    }
    ostrel_releaseInstance(instance);
    return ok;
}

TEST_F(StoreTest, TwoProcessesWritingAtOnceLoseNothing) {
    constexpr int kEach = 15;
    pid_t first = spawn([] { return generateMany(kEach); });
    pid_t second = spawn([] { return generateMany(kEach); });
    EXPECT_EQ(waitFor(first), 0);
    EXPECT_EQ(waitFor(second), 0);

    const std::vector<OstrelKeyPair>& pairs = ostrel_getKeyPairList(kSerial, instance_);
    ASSERT_EQ(pairs.size(), 2u * kEach);
    std::set<std::uint32_t> ids;
    for (const OstrelKeyPair& pair : pairs) {
        ids.insert(pair.id);
    }
    EXPECT_EQ(ids.size(), pairs.size());
    EXPECT_LE(*ids.rbegin(), 0xFFFu);
}

TEST_F(StoreTest, ForkedChildReopensAndParentCarriesOn) {
    generate(kKeyTypeEcP256);
    ASSERT_EQ(ostrel_getKeyPairList(kSerial, instance_).size(), 1u);
    pid_t child = spawn([this] {
        OstrelKeyPair pair{};
        pair.keyType = kKeyTypeEcP384;
        return ostrel_getKeyPairList(kSerial, instance_).size() == 1 &&
               ostrel_generateKeyPair(kSerial, kPin, &pair, instance_) == 0;
    });
    EXPECT_EQ(waitFor(child), 0);
    EXPECT_EQ(ostrel_getKeyPairList(kSerial, instance_).size(), 2u);
    generate(kKeyTypeEcP256);
    EXPECT_EQ(ostrel_getKeyPairList(kSerial, instance_).size(), 3u);
}

// Starts the tool with the test switch that makes it stop inside its write transaction, just
// before the commit, and waits until it is there. Answers its process id, or -1.
pid_t startToolStoppingInWrite(const std::string& store, std::vector<std::string> arguments) {
    int ready[2];
    if (pipe(ready) != 0) {
        return -1;
    }
    pid_t child = fork();
    if (child == 0) {
        close(ready[0]);
        int quiet = open("/dev/null", O_WRONLY);
        dup2(quiet, STDOUT_FILENO);
        dup2(quiet, STDERR_FILENO);
        setenv("OSTREL_TOKEN_TEST_STOP_IN_WRITE", std::to_string(ready[1]).c_str(), 1);
        arguments.insert(arguments.begin(), {OSTREL_TOKEN_TOOL, "--store", store});
        std::vector<char*> argv;
        for (std::string& argument : arguments) {
            argv.push_back(&argument[0]);
        }
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(ready[1]);
    pollfd wait{ready[0], POLLIN, 0};
    char byte = 0;
    bool stopped = poll(&wait, 1, 30000) == 1 && read(ready[0], &byte, 1) == 1;
    close(ready[0]);
    if (!stopped) {
        kill(child, SIGKILL);
        waitFor(child);
        return -1;
    }
    return child;
}

TEST_F(StoreTest, KillingAWriterInsideItsTransactionLeavesNothingHalf) {
    OstrelKeyPair before = generate(kKeyTypeEcP256);
    const std::vector<std::vector<std::string>> kWrites = {
        {"init", "CRASH", "--label", "never", "--pin", "1234"},
        {"keygen", kSerial, "--type", "p256", "--pin", kPin, "--label", "never"},
        {"set", kSerial, "label", "never"},
    };
    for (const auto& command : kWrites) {
        pid_t writer = startToolStoppingInWrite(folder_.path(), command);
        ASSERT_GT(writer, 0) << command[0];
        // The writer holds the write lock with its change made but not committed: readers
        // carry on and see none of it.
        EXPECT_EQ(deviceList(instance_), std::vector<std::string>{kSerial}) << command[0];
        EXPECT_EQ(ostrel_getKeyPairList(kSerial, instance_).size(), 1u) << command[0];
        kill(writer, SIGKILL);
        waitFor(writer);

        std::unique_ptr<Database> database = Database::open(folder_.path() + "/tokens.db");
        ASSERT_NE(database, nullptr);
        Statement check(*database, "PRAGMA integrity_check");
        ASSERT_TRUE(check.step());
        EXPECT_EQ(check.text(0), "ok") << command[0];
    }
    EXPECT_EQ(deviceList(instance_), std::vector<std::string>{kSerial});
    EXPECT_EQ(ostrel_getTokenInfo(kSerial, instance_).label, "Token ST0001");
    // The lock went with the killed process: writing works at once, and the token is whole.
    OstrelKeyPair after = generate(kKeyTypeEcP256);
    EXPECT_EQ(ostrel_getKeyPairList(kSerial, instance_).size(), 2u);
    EXPECT_NE(after.id, before.id);
    Bytes digest(32, 0x5A);
    for (const OstrelKeyPair& pair : {before, after}) {
        unsigned char signature[1024];
        int length = sizeof signature;
        EXPECT_EQ(ostrel_signHash(kSerial, pair.keyReference, kPin, digest.data(), 32, signature,
                                  &length, false, instance_, false),
                  0);
    }
}

}  // namespace
}  // namespace softtoken::testing

namespace softtoken::testing {
namespace {

std::string integrityCheckOf(const std::string& path) {
    std::unique_ptr<Database> database = Database::open(path);
    Statement check(*database, "PRAGMA integrity_check");
    return check.step() ? check.text(0) : "cannot check";
}

TEST_F(StoreTest, ForkedChildKeepsItsChangesWhenTheParentClosesTheStore) {
    generate(kKeyTypeEcP256);
    int toParent[2];
    int toChild[2];
    ASSERT_EQ(pipe(toParent), 0);
    ASSERT_EQ(pipe(toChild), 0);
    pid_t child = spawn([&] {
        char byte = 0;
        OstrelKeyPair first{};
        first.keyType = kKeyTypeEcP256;
        bool ok = ostrel_generateKeyPair(kSerial, kPin, &first, instance_) == 0;
        ok = ok && write(toParent[1], "1", 1) == 1 && read(toChild[0], &byte, 1) == 1;
        OstrelKeyPair second{};
        second.keyType = kKeyTypeEcP256;
        return ok && ostrel_generateKeyPair(kSerial, kPin, &second, instance_) == 0;
    });
    char byte = 0;
    ASSERT_EQ(read(toParent[0], &byte, 1), 1);
    // The parent lets go of the store while the child still uses it.
    ostrel_releaseInstance(instance_);
    admin().shutDown();
    ASSERT_EQ(write(toChild[1], "1", 1), 1);
    EXPECT_EQ(waitFor(child), 0);
    ostrel_createInstance(&instance_);
    EXPECT_EQ(ostrel_getKeyPairList(kSerial, instance_).size(), 3u);
    EXPECT_EQ(integrityCheckOf(folder_.path() + "/tokens.db"), "ok");
}

}  // namespace
}  // namespace softtoken::testing
