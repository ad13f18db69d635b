// The log level from the registry: "logLevel" under HKEY_LOCAL_MACHINE
// "Software\Kelvanetics\Ostrel", any type, at most 32 bytes, its first byte a signed number;
// 2 when it cannot be read, and 2 for anything above 3.
//
// These tests write the machine's own value (the build's private Wine prefix, or a test
// machine with administrator rights) and run one at a time (CTest resource lock).
#include <gtest/gtest.h>

#include <cctype>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "log/log.h"
#include "support/log_capture.h"
#include "support/windows_registry.h"

namespace {

constexpr long kAccessDenied = 5;  // ERROR_ACCESS_DENIED

struct RegistryCase {
    const char* description;
    std::function<long()> write;
    int expectedLevel;
};

std::vector<unsigned char> bytesStartingWith3(std::size_t size) {
    std::vector<unsigned char> bytes(size, 0);
    bytes[0] = 3;
    return bytes;
}

class RegistryLogLevel : public ::testing::TestWithParam<RegistryCase> {
protected:
    void TearDown() override { testregistry::deleteLogLevel(); }
};

TEST_P(RegistryLogLevel, IsReadFromTheMachineKey) {
    const RegistryCase& registryCase = GetParam();
    const long status = registryCase.write();
    if (status == kAccessDenied) {
        GTEST_SKIP() << "HKEY_LOCAL_MACHINE cannot be written without administrator rights";
    }
    ASSERT_EQ(status, 0) << registryCase.description;
    EXPECT_EQ(getLogLevel(), registryCase.expectedLevel) << registryCase.description;
}

// Only the first byte counts: 256 is 0 and 0xFF is -1 (both silence the module), and the
// string "3" is the character code 0x33, above 3.
INSTANTIATE_TEST_SUITE_P(
    Values, RegistryLogLevel,
    ::testing::Values(
        RegistryCase{"no value", [] { return testregistry::deleteLogLevel(); }, 2},
        RegistryCase{"DWORD 3", [] { return testregistry::setLogLevelDword(3); }, 3},
        RegistryCase{"DWORD 2", [] { return testregistry::setLogLevelDword(2); }, 2},
        RegistryCase{"DWORD 7", [] { return testregistry::setLogLevelDword(7); }, 2},
        RegistryCase{"DWORD 1", [] { return testregistry::setLogLevelDword(1); }, 1},
        RegistryCase{"DWORD 0", [] { return testregistry::setLogLevelDword(0); }, 0},
        RegistryCase{"DWORD 256", [] { return testregistry::setLogLevelDword(256); }, 0},
        RegistryCase{"DWORD 0xFF", [] { return testregistry::setLogLevelDword(0xFF); }, -1},
        RegistryCase{"DWORD 0x80", [] { return testregistry::setLogLevelDword(0x80); }, -128},
        RegistryCase{"string \"3\"", [] { return testregistry::setLogLevelString("3"); }, 2},
        RegistryCase{"32 bytes",
                     [] { return testregistry::setLogLevelBinary(bytesStartingWith3(32)); }, 3},
        RegistryCase{"33 bytes, too long to read",
                     [] { return testregistry::setLogLevelBinary(bytesStartingWith3(33)); }, 2}),
    [](const ::testing::TestParamInfo<RegistryCase>& testParam) {
        std::string name;
        for (const char c : std::string(testParam.param.description)) {
            if (std::isalnum(static_cast<unsigned char>(c))) {
                name += c;
            }
        }
        return name;
    });

// The value is read again for every message: a change applies to the next line at once.
TEST(RegistryLogLevelChanges, ApplyToTheNextMessage) {
    LogCapture log;  // its own HKEY_LOCAL_MACHINE: the writes below go there
    ASSERT_EQ(testregistry::setLogLevelDword(3), 0);
    logInfo("written at 3");
    ASSERT_EQ(testregistry::setLogLevelDword(2), 0);
    logInfo("dropped at 2");
    logError("error at 2");
    ASSERT_EQ(testregistry::setLogLevelDword(1), 0);
    logError("dropped at 1");
    ASSERT_EQ(testregistry::deleteLogLevel(), 0);
    logError("error with no value");
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{infoLine("written at 3"), errorLine("error at 2"),
                                        errorLine("error with no value")}));
}

}  // namespace
