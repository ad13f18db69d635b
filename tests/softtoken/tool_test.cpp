// The ostrel-token tool, run as its own process while this process has the device library open
// on the same store: what the tool changes, the library sees at its next call.
#include <sys/wait.h>
#include <unistd.h>

#include "common/token_error.h"
#include "token_fixture.h"

namespace softtoken::testing {
namespace {

using ToolTest = TokenFixture;

TEST_F(ToolTest, InitStoresTextsAsGivenAndDefaultsTheRest) {
    const std::string label(40, 'L');
    ProcessResult init =
        tool({"init", "ODD", "--label", label, "--pin", "4321", "--firmware", "", "--model",
              "SW3-FIPS", "--pin-changed", "0", "--retries", "3", "--capacity", "5"});
    ASSERT_EQ(init.exitCode, 0) << init.output;
    TokenInfo odd = ostrel_getTokenInfo("ODD", instance_);
    EXPECT_EQ(odd.serialNumber, "ODD");
    EXPECT_EQ(odd.label, label);
    EXPECT_EQ(odd.firmwareVersion, "");
    EXPECT_EQ(odd.model, "SW3-FIPS");
    EXPECT_EQ(odd.userPinChanged, 0);
    EXPECT_EQ(odd.pinRetryCount, 3);
    EXPECT_EQ(odd.freeObjectSpace, 5);

    ASSERT_EQ(tool({"init", "PLAIN", "--label", "Plain", "--pin", "4321"}).exitCode, 0);
    TokenInfo plain = ostrel_getTokenInfo("PLAIN", instance_);
    EXPECT_EQ(plain.model, "SW1-SOFT");
    EXPECT_EQ(plain.firmwareVersion, "2.1.0");
    EXPECT_EQ(plain.userPinChanged, 1);
    EXPECT_EQ(plain.pinRetryCount, 10);
    int retries = 0;
    EXPECT_EQ(ostrel_validatePassword("PLAIN", "4321", 1, &retries, instance_), 0);
    EXPECT_EQ(ostrel_getConnectedDeviceList(false, instance_),
              (std::vector<std::string>{"ST0001", "ODD", "PLAIN"}));
}

TEST_F(ToolTest, BadInputExitsNonZeroWithAMessage) {
    const struct {
        std::vector<std::string> arguments;
        int exitCode;
    } kCases[] = {
        {{"init", "X1", "--label", "x"}, 2},                 // no PIN
        {{"init", "X1", "--label", "x", "--pin", "12"}, 1},  // PIN too short
        {{"init", "X1", "--label", "x", "--pin", "1234", "--retries", "0"}, 2},
        {{"init", "ST0001", "--label", "x", "--pin", "1234"}, 1},  // exists
        {{"init", "X1", "--lable", "x", "--pin", "1234"}, 2},
        {{"frobnicate"}, 2},
        {{"show", "NOSUCH"}, 1},
        {{"set", "ST0001", "colour", "red"}, 2},
        {{"set", "ST0001", "pin-changed", "2"}, 2},
        {{"keygen", "ST0001", "--type", "rsa1536", "--pin", "1234"}, 2},
        {{"keygen", "ST0001", "--type", "p256", "--pin", "9999"}, 1},
        {{"keygen", "ST0001", "--type", "p256", "--pin", "1234", "--id", "xyz"}, 2},
        {{"import-cert", "ST0001", "/nonexistent.pem"}, 2},
        {{"fault", "signHash"}, 2},
        {{"fault", "signHash", "0"}, 2},
        {{"plug"}, 2},
    };
    for (const auto& entry : kCases) {
        ProcessResult result = tool(entry.arguments);
        EXPECT_EQ(result.exitCode, entry.exitCode) << entry.arguments[0] << ": " << result.output;
        EXPECT_FALSE(result.output.empty()) << entry.arguments[0];
    }
    for (const char* command : {"init", "init-blank", "list", "show", "plug", "unplug", "remove",
                                "set", "keygen", "import-cert", "import-key", "fault"}) {
        ProcessResult help = tool({command, "--help"});
        EXPECT_EQ(help.exitCode, 0) << command;
        EXPECT_NE(help.output.find(std::string("ostrel-token [--store DIR] ") + command),
                  std::string::npos);
    }
}

TEST_F(ToolTest, ChangesReachTheRunningLibraryAtOnce) {
    ASSERT_EQ(ostrel_getTokenInfo(kSerial, instance_).label, "Token ST0001");
    ASSERT_EQ(tool({"set", kSerial, "label", "renamed"}).exitCode, 0);
    ASSERT_EQ(tool({"set", kSerial, "retries", "4"}).exitCode, 0);
    TokenInfo info = ostrel_getTokenInfo(kSerial, instance_);
    EXPECT_EQ(info.label, "renamed");
    EXPECT_EQ(info.pinRetryCount, 4);
    EXPECT_EQ(info.maximumPinRetries, 4);

    ASSERT_EQ(tool({"init-blank", "EMPTY"}).exitCode, 0);
    ASSERT_EQ(tool({"remove", kSerial}).exitCode, 0);
    EXPECT_EQ(ostrel_getConnectedDeviceList(false, instance_), std::vector<std::string>{"EMPTY"});
    EXPECT_EQ(tool({"remove", kSerial}).exitCode, 1);
    ProcessResult list = tool({"list"});
    EXPECT_EQ(list.output, "EMPTY\tplugged\tblank\t\n");
}

TEST_F(ToolTest, RetriesZeroLocksBothPinsAndKeepsTheMaximum) {
    ASSERT_EQ(tool({"set", kSerial, "retries", "6"}).exitCode, 0);
    ProcessResult locked = tool({"set", kSerial, "retries", "0"});
    ASSERT_EQ(locked.exitCode, 0) << locked.output;
    TokenInfo info = ostrel_getTokenInfo(kSerial, instance_);
    EXPECT_EQ(info.pinRetryCount, 0);
    EXPECT_EQ(info.maximumPinRetries, 6);
    int retries = -1;
    EXPECT_EQ(ostrel_validatePassword(kSerial, kPin, 1, &retries, instance_), kPinLocked);
    EXPECT_EQ(retries, 0);
    EXPECT_EQ(ostrel_validatePassword(kSerial, "87654321", 2, &retries, instance_), kPinLocked);
    EXPECT_NE(tool({"show", kSerial}).output.find("retries: 0/6"), std::string::npos);

    ASSERT_EQ(tool({"set", kSerial, "retries", "3"}).exitCode, 0);
    EXPECT_EQ(ostrel_validatePassword(kSerial, kPin, 1, &retries, instance_), 0);
    EXPECT_EQ(retries, 3);
    EXPECT_EQ(tool({"set", kSerial, "retries", "1001"}).exitCode, 2);
    EXPECT_EQ(tool({"set", kSerial, "retries", "-1"}).exitCode, 2);
}

TEST_F(ToolTest, StoredTextsArePrintedWithControlCharactersEscaped) {
    // A label that, printed as it is, would add a whole line for a device that does not exist.
    const std::string forged = "x\nFAKE\tplugged\ttoken\tforged\x1b[2J";
    ASSERT_EQ(tool({"set", kSerial, "label", forged}).exitCode, 0);
    EXPECT_EQ(ostrel_getTokenInfo(kSerial, instance_).label, forged);  // stored as given
    ProcessResult list = tool({"list"});
    EXPECT_EQ(list.output,
              "ST0001\tplugged\ttoken\tx\\x0AFAKE\\x09plugged\\x09token\\x09forged"
              "\\x1B[2J\n");
    ProcessResult show = tool({"show", kSerial});
    EXPECT_NE(show.output.find("label: x\\x0AFAKE"), std::string::npos) << show.output;
    // A C1 control in UTF-8 is escaped too; other UTF-8 and backslashes read back unambiguously.
    ASSERT_EQ(tool({"set", kSerial, "label", "J\xC3\xBCrgen\xC2\x9B\\"}).exitCode, 0);
    EXPECT_EQ(tool({"list"}).output, "ST0001\tplugged\ttoken\tJ\xC3\xBCrgen\\xC2\\x9B\\\\\n");

    // Serial numbers and device identifiers may not hold control characters at all.
    EXPECT_EQ(tool({"init", "BAD\nSERIAL", "--label", "x", "--pin", "1234"}).exitCode, 2);
    EXPECT_EQ(tool({"init-blank", "BAD\tID"}).exitCode, 2);
    EXPECT_EQ(tool({"init", "BAD\x7F", "--label", "x", "--pin", "1234"}).exitCode, 2);
    EXPECT_EQ(ostrel_getConnectedDeviceList(false, instance_), std::vector<std::string>{kSerial});
    ProcessResult unknown = tool({"set", kSerial, "colour\n", "red"});
    EXPECT_NE(unknown.output.find("unknown field 'colour\\x0A'"), std::string::npos)
        << unknown.output;
}

TEST_F(ToolTest, KeysAndCertificatesMadeByTheToolWorkInTheLibrary) {
    TemporaryFolder work;
    const std::string key = work.path() + "/key.pem";
    const std::string certificate = work.path() + "/cert.pem";
    ProcessResult made =
        runProgram({OPENSSL_PROGRAM, "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout",
                    key, "-out", certificate, "-subj", "/CN=Tool Import"});
    ASSERT_EQ(made.exitCode, 0) << made.output;

    ASSERT_EQ(tool({"keygen", kSerial, "--type", "p384", "--pin", kPin, "--label", "generated",
                    "--id", "0102"})
                  .exitCode,
              0);
    ProcessResult imported = tool({"import-key", kSerial, key, "--pin", kPin, "--label", "mine"});
    ASSERT_EQ(imported.exitCode, 0) << imported.output;
    ASSERT_EQ(tool({"import-cert", kSerial, certificate, "--id", "03"}).exitCode, 0);

    const std::vector<OstrelKeyPair>& pairs = ostrel_getKeyPairList(kSerial, instance_);
    ASSERT_EQ(pairs.size(), 2u);
    EXPECT_STREQ(pairs[0].alias, "generated");
    EXPECT_EQ(pairs[0].keyType, kKeyTypeEcP384);
    EXPECT_EQ(pairs[0].usageFlags, 3u);
    EXPECT_EQ(Bytes(pairs[0].objectId, pairs[0].objectId + pairs[0].objectIdLength), (Bytes{1, 2}));
    EXPECT_EQ(pairs[1].keyType, kKeyTypeRsa2048);
    ASSERT_EQ(ostrel_getCertificateList(kSerial, instance_).size(), 1u);

    // The imported key signs, and its certificate's public key is the pair's public value.
    const OstrelCertificate& stored = ostrel_getCertificateList(kSerial, instance_)[0];
    CertificateDetails details;
    ASSERT_EQ(ostrel_getCertificateDetails(stored.der, stored.derLength, details, nullptr), 0);
    EXPECT_EQ(details.publicKey,
              Bytes(pairs[1].publicValue, pairs[1].publicValue + pairs[1].publicValueLength));
    Bytes digest(32, 9);
    unsigned char signature[1024];
    int length = sizeof signature;
    EXPECT_EQ(ostrel_signHash(kSerial, pairs[1].keyReference, kPin, digest.data(), 32, signature,
                              &length, false, instance_, false),
              0);
    ProcessResult show = tool({"show", kSerial});
    EXPECT_NE(show.output.find("label=generated"), std::string::npos) << show.output;
    EXPECT_NE(show.output.find("subject=CN=Tool Import"), std::string::npos) << show.output;
    // RFC 7512 URLs: the serial as the module reports it (NUL-padded to 16 bytes), every id
    // byte and every reserved character of a label percent-encoded.
    const std::string token = "pkcs11:serial=ST0001%00%00%00%00%00%00%00%00%00%00";
    EXPECT_NE(show.output.find("url: " + token + "\n"), std::string::npos) << show.output;
    EXPECT_NE(
        show.output.find("private key: " + token + ";id=%01%02;object=generated;type=private"),
        std::string::npos)
        << show.output;
    EXPECT_NE(show.output.find("certificate: " + token + ";id=%03;type=cert"), std::string::npos)
        << show.output;
    ASSERT_EQ(
        tool({"keygen", kSerial, "--type", "p256", "--pin", kPin, "--label", "a b;c"}).exitCode, 0);
    EXPECT_NE(tool({"show", kSerial}).output.find(token + ";object=a%20b%3Bc;type=public"),
              std::string::npos);
}

TEST_F(ToolTest, FaultsFireInThisProcessAndCountDown) {
    OstrelKeyPair pair = generate(kKeyTypeEcP256);
    Bytes digest(32, 5);
    auto signResult = [&] {
        unsigned char signature[1024];
        int length = sizeof signature;
        return ostrel_signHash(kSerial, pair.keyReference, kPin, digest.data(), 32, signature,
                               &length, false, instance_, false);
    };
    ASSERT_EQ(tool({"fault", "signHash", "77", "--times", "2"}).exitCode, 0);
    EXPECT_EQ(signResult(), 77);
    EXPECT_EQ(signResult(), 77);
    EXPECT_EQ(signResult(), 0);

    ASSERT_EQ(tool({"fault", "getConnectedDeviceList", "1", "--times", "0"}).exitCode, 0);
    EXPECT_TRUE(ostrel_getConnectedDeviceList(false, instance_).empty());
    EXPECT_TRUE(ostrel_getConnectedDeviceList(false, instance_).empty());
    ASSERT_EQ(tool({"fault", "--clear"}).exitCode, 0);
    EXPECT_EQ(ostrel_getConnectedDeviceList(false, instance_).size(), 1u);
}

TEST_F(ToolTest, FaultedPinCheckReportsTheLiveCountUnchanged) {
    int retries = 0;
    ASSERT_EQ(ostrel_validatePassword(kSerial, "0000", 1, &retries, instance_), kPinIncorrect);
    ASSERT_EQ(tool({"fault", "validatePassword", "48"}).exitCode, 0);
    retries = -1;
    EXPECT_EQ(ostrel_validatePassword(kSerial, kPin, 1, &retries, instance_), 48);
    EXPECT_EQ(retries, 9);
    EXPECT_EQ(ostrel_getTokenInfo(kSerial, instance_).pinRetryCount, 9);
    EXPECT_EQ(ostrel_validatePassword(kSerial, kPin, 1, &retries, instance_), 0);
    EXPECT_EQ(retries, 10);
}

TEST_F(ToolTest, FaultCountIsSharedBetweenProcesses) {
    ASSERT_EQ(tool({"fault", "generateRamdomNumber", "61", "--times", "3"}).exitCode, 0);
    unsigned char bytes[8];
    pid_t child = fork();
    if (child == 0) {
        _exit(ostrel_generateRamdomNumber(kSerial, 8, bytes, true, nullptr) == 61 ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(ostrel_generateRamdomNumber(kSerial, 8, bytes, true, nullptr), 61);
    EXPECT_EQ(ostrel_generateRamdomNumber(kSerial, 8, bytes, true, nullptr), 61);
    EXPECT_EQ(ostrel_generateRamdomNumber(kSerial, 8, bytes, true, nullptr), 0);
    EXPECT_EQ(tool({"fault", "--list"}).output, "");
}

}  // namespace
}  // namespace softtoken::testing
