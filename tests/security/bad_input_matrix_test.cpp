// The runner of the bad-input matrix (bad_input_matrix.h). Every row's call is made before
// C_Initialize, where every entry point but C_GetFunctionList and the unsupported ones answers
// CKR_CRYPTOKI_NOT_INITIALIZED whatever its arguments, and after it, where each row answers its
// own code. The memory a call was given is compared byte by byte afterwards; after each row a
// canary proves that the module still works.
#include "bad_input_matrix.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "core/module_state.h"
#include "cryptoki/cryptoki.h"
#include "device_double.h"
#include "support/log_capture.h"
#include "support/polling_period.h"
#include "support/wait_until.h"

namespace dd = devicedouble;

namespace matrix {
namespace {

constexpr CK_SESSION_HANDLE kFirstSession = 0x60000001;
constexpr CK_FLAGS kReadWrite = CKF_SERIAL_SESSION | CKF_RW_SESSION;

// ---- Descriptions for messages ----

std::string hex(CK_ULONG value) {
    std::ostringstream text;
    text << "0x" << std::hex << std::uppercase << value;
    return text.str();
}

std::string describe(const Arg& arg) {
    switch (arg.kind) {
        case Arg::Kind::Number:
            return hex(arg.value);
        case Arg::Kind::Session:
            return arg.value == 0 ? "session" : "session+" + hex(arg.value);
        case Arg::Kind::Slot:
            return arg.value == 0 ? "slot" : "slot+" + hex(arg.value);
        case Arg::Kind::NextDerived:
            return "next derived handle";
        case Arg::Kind::Sweep:
            return "(swept)";
        case Arg::Kind::Null:
            return "NULL";
        case Arg::Kind::NoAccess:
            return "no-access";
        case Arg::Kind::Memory:
            break;
    }
    std::string text = arg.memory->name;
    if (!arg.memory->pointers.empty()) {
        text += " {";
        for (std::size_t i = 0; i < arg.memory->pointers.size(); ++i) {
            text += (i == 0 ? "" : ", ") + describe(arg.memory->pointers[i].target);
        }
        text += "}";
    }
    return text;
}

const char* nameOf(Before before) {
    switch (before) {
        case Before::Session:
            return "a session";
        case Before::UserSession:
            return "a user session";
        case Before::Search:
            return "a search";
        case Before::Digesting:
            return "C_DigestInit";
        case Before::Signing:
            return "C_SignInit";
        case Before::SigningHashed:
            return "C_SignInit and C_SignUpdate";
        case Before::Verifying:
            return "C_VerifyInit";
        case Before::Encrypting:
            return "C_EncryptInit";
        case Before::Decrypting:
            return "C_DecryptInit";
        case Before::DecryptingKept:
            return "C_DecryptInit and a length query";
        case Before::NoEventPending:
            return "collecting every event";
    }
    return "?";
}

std::string describe(const Row& row) {
    std::string text = row.entry + "(";
    for (std::size_t i = 0; i < row.args.size(); ++i) {
        text += (i == 0 ? "" : ", ") + describe(row.args[i]);
    }
    return text + ") after " + nameOf(row.before);
}

// ---- The runs ----

CK_OBJECT_HANDLE nextDerivedHandle() {
    return moduleState().derivedKeys.nextHandle();
}

struct Tally {
    std::size_t rows = 0;
    std::size_t rowCalls = 0;
    std::size_t setupCalls = 0;
    std::size_t canaryCalls = 0;
};

std::vector<unsigned char> canaryData() {
    const std::string text = "canary after a row of the bad-input matrix";
    return std::vector<unsigned char>(text.begin(), text.end());
}

class BadInputMatrix : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(noAccessPage(), nullptr);
        dd::reset();
        dd::addDevice(dd::makeTokenInfo(kDevice, "Matrix"));
        seedToken();
    }
    void TearDown() override {
        C_Finalize(nullptr);
        std::cout << "[ matrix   ] " << tally_.rows << " rows over " << entryPoints().size()
                  << " entry points: " << tally_.rowCalls + tally_.setupCalls + tally_.canaryCalls
                  << " calls (" << tally_.rowCalls << " rows, " << tally_.setupCalls
                  << " setting up, " << tally_.canaryCalls << " canary)\n";
    }

    // Every row starts from the same token: its objects, PIN, tries and room as they were.
    static void seedToken() {
        dd::setTokenInfo(kDevice, dd::makeTokenInfo(kDevice, "Matrix"));
        dd::setPin(kDevice, dd::kDefaultUserPin);
        dd::setKeyPairs(kDevice, {dd::KeyPairBuilder(0).keyType(kKeyTypeEcP256),
                                  dd::KeyPairBuilder(1), dd::KeyPairBuilder(0xFFF)});
        std::vector<OstrelCertificate> certificates;
        for (std::uint32_t id : {0u, 1u, 0xFFFu}) {
            const std::string der = "certificate " + std::to_string(id);
            certificates.push_back(dd::CertificateBuilder(id)
                                       .der(Bytes(der.begin(), der.end()))
                                       .label("Certificate " + std::to_string(id)));
        }
        dd::setCertificates(kDevice, certificates);
    }

    void runBeforeInitialisation(const Row& row) {
        const EntryPoint* entry = findEntryPoint(row.entry);
        ASSERT_NE(entry, nullptr) << row.entry;
        CK_RV expected = CKR_CRYPTOKI_NOT_INITIALIZED;
        bool writesAllowed = false;
        if (isUnsupported(row.entry)) {
            expected = CKR_FUNCTION_NOT_SUPPORTED;
        } else if (row.entry == "C_GetFunctionList") {
            expected = row.expected;
            writesAllowed = expected == CKR_OK;
        } else if (row.entry == "C_Initialize") {
            expected = CKR_OK;
        }
        dd::clearCalls();
        CallMemory memory(kFirstSession, nextDerivedHandle());
        const CK_RV rv = call(*entry, row, memory);
        ++tally_.rowCalls;
        EXPECT_EQ(hex(rv), hex(expected)) << describe(row);
        for (const std::string& misuse : memory.misuses(writesAllowed)) {
            ADD_FAILURE() << describe(row) << ": " << misuse;
        }
        if (row.entry == "C_Initialize") {
            EXPECT_EQ(C_Finalize(nullptr), CKR_OK);
        } else {
            EXPECT_TRUE(dd::calls().empty()) << describe(row) << " reached the device";
        }
    }

    void runAfterInitialisation(const Row& row) {
        const EntryPoint* entry = findEntryPoint(row.entry);
        ASSERT_NE(entry, nullptr) << row.entry;
        seedToken();
        const CK_SESSION_HANDLE session = prepare(row.before);
        CallMemory memory(session, nextDerivedHandle());
        const CK_RV rv = call(*entry, row, memory);
        ++tally_.rowCalls;
        EXPECT_EQ(hex(rv), hex(row.expected)) << describe(row);
        for (const std::string& misuse :
             memory.misuses(row.expected == CKR_OK || row.writesOnFailure)) {
            ADD_FAILURE() << describe(row) << ": " << misuse;
        }
        if (row.entry == "C_Finalize" && rv == CKR_OK) {
            initialise();
        }
        // The canary checks the module, on the token as every row finds it.
        seedToken();
        if (!canary(describe(row))) {
            // Start afresh, so that one broken row does not fail every row after it.
            C_Finalize(nullptr);
            initialise();
        }
    }

    CK_RV call(const EntryPoint& entry, const Row& row, CallMemory& memory) {
        EXPECT_EQ(row.args.size(), entry.pointerParameters.size()) << describe(row);
        if (row.args.size() != entry.pointerParameters.size()) {
            return CKR_GENERAL_ERROR;
        }
        std::vector<CallValue> values;
        for (const Arg& arg : row.args) {
            values.push_back(memory.value(arg));
        }
        return entry.call(values);
    }

    // C_Initialize, then the slot list. The monitor's first cycle raises a slot event; the
    // rows start once it has begun a second cycle, so that no event arrives while they run.
    void initialise() {
        const std::size_t polled = dd::callCount("getConnectedDeviceList");
        ASSERT_EQ(C_Initialize(nullptr), CKR_OK);
        ASSERT_TRUE(
            waitUntil([&] { return dd::callCount("getConnectedDeviceList") >= polled + 2; }));
        CK_SLOT_ID slotId = 0;
        CK_ULONG count = 1;
        ASSERT_EQ(C_GetSlotList(CK_TRUE, &slotId, &count), CKR_OK);
        ASSERT_EQ(slotId, kSlot);
    }

    // One derived key, so that 0x70003000 names one whichever test of the process ran first.
    void deriveOneKey() {
        const CK_SESSION_HANDLE session = prepare(Before::UserSession);
        std::vector<unsigned char> point(65, 0x11);
        point[0] = 0x04;
        CK_ECDH1_DERIVE_PARAMS parameters{CKD_NULL, 0, nullptr, 65, point.data()};
        CK_MECHANISM ecdh{CKM_ECDH1_DERIVE, &parameters, sizeof parameters};
        CK_OBJECT_HANDLE key = 0;
        setupCall("C_DeriveKey", C_DeriveKey(session, &ecdh, kEcPrivate, nullptr, 0, &key));
        setupCall("C_Logout", C_Logout(session));
        setupCall("C_CloseAllSessions", C_CloseAllSessions(kSlot));
    }

    void setupCall(const char* name, CK_RV rv) {
        ++tally_.setupCalls;
        EXPECT_EQ(hex(rv), hex(CKR_OK)) << "setting up: " << name;
    }

    // A read-write session in the state the row asks for.
    CK_SESSION_HANDLE prepare(Before before) {
        CK_SESSION_HANDLE session = 0;
        setupCall("C_OpenSession", C_OpenSession(kSlot, kReadWrite, nullptr, nullptr, &session));
        CK_MECHANISM rsa{CKM_RSA_PKCS, nullptr, 0};
        CK_MECHANISM sha256{CKM_SHA256, nullptr, 0};
        CK_MECHANISM sha256Rsa{CKM_SHA256_RSA_PKCS, nullptr, 0};
        std::vector<unsigned char> part(16, 0x42);
        switch (before) {
            case Before::Session:
                return session;
            case Before::NoEventPending:
                collectEvents();
                return session;
            case Before::Digesting:
                setupCall("C_DigestInit", C_DigestInit(session, &sha256));
                return session;
            case Before::Verifying:
                setupCall("C_VerifyInit", C_VerifyInit(session, &rsa, kRsaPublic));
                return session;
            case Before::Encrypting:
                setupCall("C_EncryptInit", C_EncryptInit(session, &rsa, kRsaPublic));
                return session;
            default:
                break;
        }
        std::string pin = dd::kDefaultUserPin;
        setupCall("C_Login", C_Login(session, CKU_USER, reinterpret_cast<CK_UTF8CHAR_PTR>(&pin[0]),
                                     static_cast<CK_ULONG>(pin.size())));
        switch (before) {
            case Before::Search:
                setupCall("C_FindObjectsInit", C_FindObjectsInit(session, nullptr, 0));
                break;
            case Before::Signing:
                setupCall("C_SignInit", C_SignInit(session, &rsa, kRsaPrivate));
                break;
            case Before::SigningHashed:
                setupCall("C_SignInit", C_SignInit(session, &sha256Rsa, kRsaPrivate));
                setupCall("C_SignUpdate", C_SignUpdate(session, part.data(), part.size()));
                break;
            case Before::Decrypting:
                setupCall("C_DecryptInit", C_DecryptInit(session, &rsa, kRsaPrivate));
                break;
            case Before::DecryptingKept:
                keepPlaintext(session, part);
                break;
            default:
                break;
        }
        return session;
    }

    // Encrypts `plaintext` with key pair 1, then starts a decryption whose length query keeps
    // it in the session.
    void keepPlaintext(CK_SESSION_HANDLE session, std::vector<unsigned char>& plaintext) {
        CK_MECHANISM rsa{CKM_RSA_PKCS, nullptr, 0};
        std::vector<unsigned char> ciphertext(512);
        CK_ULONG length = static_cast<CK_ULONG>(ciphertext.size());
        setupCall("C_EncryptInit", C_EncryptInit(session, &rsa, kRsaPublic));
        setupCall("C_Encrypt", C_Encrypt(session, plaintext.data(), plaintext.size(),
                                         ciphertext.data(), &length));
        setupCall("C_DecryptInit", C_DecryptInit(session, &rsa, kRsaPrivate));
        setupCall("C_Decrypt", C_Decrypt(session, ciphertext.data(), length, nullptr, &length));
        EXPECT_EQ(length, plaintext.size()) << "the kept plaintext";
    }

    void collectEvents() {
        for (int i = 0; i < 8; ++i) {
            CK_SLOT_ID slotId = 0;
            const CK_RV rv = C_WaitForSlotEvent(CKF_DONT_BLOCK, &slotId, nullptr);
            ++tally_.setupCalls;
            if (rv == CKR_NO_EVENT) {
                return;
            }
            EXPECT_EQ(hex(rv), hex(CKR_OK)) << "collecting a slot event";
        }
        ADD_FAILURE() << "slot events keep coming";
    }

    // The module still works: a session opens, the user logs in, a signature and a search
    // succeed with the expected results. Every session is closed and the user logged out after.
    bool canary(const std::string& row) {
        bool fine = true;
        const auto step = [&](const char* name, CK_RV rv) {
            ++tally_.canaryCalls;
            if (fine && rv != CKR_OK) {
                ADD_FAILURE() << "after " << row << ": the canary's " << name << " answered "
                              << hex(rv);
                fine = false;
            }
            return fine;
        };
        CK_SESSION_HANDLE session = 0;
        CK_SESSION_INFO info{};
        step("C_CloseAllSessions", C_CloseAllSessions(kSlot));
        step("C_OpenSession", C_OpenSession(kSlot, kReadWrite, nullptr, nullptr, &session));
        step("C_GetSessionInfo", C_GetSessionInfo(session, &info));
        if (fine && info.state == CKS_RW_USER_FUNCTIONS) {
            step("C_Logout", C_Logout(session));
        }
        std::string pin = dd::kDefaultUserPin;
        step("C_Login", C_Login(session, CKU_USER, reinterpret_cast<CK_UTF8CHAR_PTR>(&pin[0]),
                                static_cast<CK_ULONG>(pin.size())));

        CK_MECHANISM sha256Rsa{CKM_SHA256_RSA_PKCS, nullptr, 0};
        std::vector<unsigned char> data = canaryData();
        std::vector<unsigned char> signature(512);
        CK_ULONG length = 0;
        step("C_SignInit", C_SignInit(session, &sha256Rsa, kRsaPrivate));
        step("C_Sign", C_Sign(session, data.data(), data.size(), nullptr, &length));
        step("C_Sign", C_Sign(session, data.data(), data.size(), signature.data(), &length));
        signature.resize(std::min<std::size_t>(length, signature.size()));
        if (fine && signature != expectedSignature()) {
            ADD_FAILURE() << "after " << row << ": the canary's signature is not the expected one";
            fine = false;
        }

        CK_OBJECT_CLASS privateKeys = CKO_PRIVATE_KEY;
        CK_ATTRIBUTE search{CKA_CLASS, &privateKeys, sizeof privateKeys};
        std::vector<CK_OBJECT_HANDLE> found(8);
        CK_ULONG count = 0;
        step("C_FindObjectsInit", C_FindObjectsInit(session, &search, 1));
        step("C_FindObjects", C_FindObjects(session, found.data(), found.size(), &count));
        step("C_FindObjectsFinal", C_FindObjectsFinal(session));
        found.resize(std::min<std::size_t>(count, found.size()));
        const std::vector<CK_OBJECT_HANDLE> expected = {kEcPrivate, kRsaPrivate, 0x70000FFF};
        if (fine && found != expected) {
            ADD_FAILURE() << "after " << row << ": the canary's search found other keys";
            fine = false;
        }
        step("C_Logout", C_Logout(session));
        step("C_CloseAllSessions", C_CloseAllSessions(kSlot));
        return fine;
    }

    static const std::vector<unsigned char>& expectedSignature() {
        static const std::vector<unsigned char> signature = dd::fakeSignature(
            dd::KeyPairBuilder(1).build(), dd::fakeDigest(kHashSha256, canaryData()));
        return signature;
    }

    LogCapture log_{2};
    // A fast monitor: the module starts in a few milliseconds, as the C_Finalize rows need.
    PollingPeriodOverride fastMonitor_{std::chrono::milliseconds(20)};
    Tally tally_;
};

TEST(BadInputMatrixTable, CoversEveryEntryPointAndANullInEachPointerArgument) {
    const std::vector<Row> rows = allRows();
    EXPECT_EQ(entryPoints().size(), 71u);
    for (const Row& row : rows) {
        EXPECT_NE(findEntryPoint(row.entry), nullptr) << row.entry;
    }
    for (const EntryPoint& entry : entryPoints()) {
        const std::size_t arity = entry.pointerParameters.size();
        std::vector<bool> nullGiven(arity, false);
        std::size_t count = 0;
        for (const Row& row : rows) {
            if (row.entry != entry.name) {
                continue;
            }
            ++count;
            ASSERT_EQ(row.args.size(), arity) << describe(row);
            for (std::size_t i = 0; i < arity; ++i) {
                const Arg::Kind kind = row.args[i].kind;
                const bool pointer = kind == Arg::Kind::Null || kind == Arg::Kind::NoAccess ||
                                     kind == Arg::Kind::Memory;
                EXPECT_EQ(pointer, entry.pointerParameters[i])
                    << describe(row) << ", argument " << i;
                nullGiven[i] = nullGiven[i] || kind == Arg::Kind::Null;
            }
        }
        EXPECT_GT(count, 0u) << entry.name << " has no row";
        for (std::size_t i = 0; i < arity; ++i) {
            EXPECT_TRUE(!entry.pointerParameters[i] || nullGiven[i])
                << entry.name << ": no row with a null argument " << i;
        }
    }
}

TEST_F(BadInputMatrix, BeforeInitialisationNothingIsReadWrittenOrAskedOfTheDevice) {
    ASSERT_EQ(C_Finalize(nullptr), CKR_CRYPTOKI_NOT_INITIALIZED);
    const std::vector<Row> rows = allRows();
    tally_.rows = rows.size();
    for (const Row& row : rows) {
        runBeforeInitialisation(row);
    }
}

TEST_F(BadInputMatrix, AfterInitialisationEachRowAnswersItsCodeAndTheModuleKeepsWorking) {
    initialise();
    deriveOneKey();
    ASSERT_TRUE(canary("initialisation"));
    const std::vector<Row> rows = allRows();
    tally_.rows = rows.size();
    for (const Row& row : rows) {
        runAfterInitialisation(row);
    }
}

}  // namespace
}  // namespace matrix
