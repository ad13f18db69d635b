// A process that changes one token through the built PKCS #11 module, as an application would:
// it loads the module, logs in, and generates key pairs, imports certificates, relabels,
// destroys and signs, keeping the same journal as the device-library worker (store_journal.h).
// The crash test kills it at random moments and holds the store against the journals.
//
//   softtoken_module_worker STORE SERIAL JOURNAL TAG OPERATIONS [READY_FD]
//
// Cryptoki shows no device reference, so the worker gives every object a CKA_ID of its own
// (its first label's bytes) and journals that in the reference's place; it reaches its objects
// through the handles the module returned. The module's log goes to STORE (as TMPDIR), so that
// the test's folder holds it and nothing lands in the machine's temporary folder.
// Exit status: 0 done, 2 wrong arguments, 3 a call answered what it must not.
#include <dlfcn.h>
#include <openssl/evp.h>

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "cryptoki/cryptoki.h"
#include "store_journal.h"
#include "store_worker_support.h"

using softtoken::testing::hexText;
using softtoken::testing::JournalWriter;

namespace {

constexpr const char* kPin = "1234";
// The DER of the P-256 curve's object identifier, as CKA_EC_PARAMS.
constexpr CK_BYTE kP256Parameters[] = {0x06, 0x08, 0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x03, 0x01, 0x07};

CK_ATTRIBUTE attribute(CK_ATTRIBUTE_TYPE type, const void* value, std::size_t length) {
    return {type, const_cast<void*>(value), static_cast<CK_ULONG>(length)};
}
CK_ATTRIBUTE attribute(CK_ATTRIBUTE_TYPE type, const std::string& text) {
    return attribute(type, text.data(), text.size());
}

class ModuleWorker {
public:
    ModuleWorker(CK_FUNCTION_LIST* module, JournalWriter& journal)
        : module_(module), journal_(journal), random_(std::random_device{}()) {}

    ~ModuleWorker() { EVP_PKEY_free(signingKey_); }

    // Finds the token, opens a read-write session on it and logs in.
    bool start(const std::string& serial) {
        signingKey_ = EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256");
        CK_ULONG count = 0;
        if (signingKey_ == nullptr || module_->C_Initialize(nullptr) != CKR_OK ||
            module_->C_GetSlotList(CK_TRUE, nullptr, &count) != CKR_OK) {
            return false;
        }
        std::vector<CK_SLOT_ID> slots(count);
        if (module_->C_GetSlotList(CK_TRUE, slots.data(), &count) != CKR_OK) {
            return false;
        }
        slots.resize(count);
        for (CK_SLOT_ID slot : slots) {
            CK_TOKEN_INFO info{};
            if (module_->C_GetTokenInfo(slot, &info) != CKR_OK) {
                continue;
            }
            std::string shown(reinterpret_cast<const char*>(info.serialNumber),
                              sizeof info.serialNumber);
            // The module pads the field with zeros; blanks would be padding as well.
            shown.erase(shown.find_last_not_of(std::string(" \0", 2)) + 1);
            if (shown == serial) {
                return module_->C_OpenSession(slot, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr,
                                              nullptr, &session_) == CKR_OK &&
                       module_->C_Login(session_, CKU_USER,
                                        reinterpret_cast<CK_UTF8CHAR*>(const_cast<char*>(kPin)),
                                        std::strlen(kPin)) == CKR_OK;
            }
        }
        std::cerr << "module worker: no token " << serial << "\n";
        return false;
    }

    // One randomly chosen operation; the exit status to stop with, or 0 to go on.
    int step() {
        const int choice = static_cast<int>(random_() % 100);
        if (choice < 25 || keys_.empty()) {
            return generate();
        }
        if (choice < 45) {
            return importCertificate();
        }
        if (choice < 60) {
            return relabel();
        }
        if (choice < 70) {
            return destroy();
        }
        return sign();
    }

private:
    int failed(const char* call, CK_RV result) {
        std::cerr << "module worker " << journal_.tag() << ": " << call << " answered 0x"
                  << std::hex << result << std::dec << "\n";
        return 3;
    }

    std::map<std::string, CK_OBJECT_HANDLE>::iterator randomKey() {
        auto chosen = keys_.begin();
        std::advance(chosen, static_cast<long>(random_() % keys_.size()));
        return chosen;
    }

    int generate() {
        const std::string label = journal_.nextLabel();
        CK_KEY_TYPE keyType = CKK_EC;
        CK_BBOOL yes = CK_TRUE;
        CK_ATTRIBUTE publicTemplate[] = {
            attribute(CKA_EC_PARAMS, kP256Parameters, sizeof kP256Parameters),
            attribute(CKA_LABEL, label), attribute(CKA_ID, label)};
        CK_ATTRIBUTE privateTemplate[] = {attribute(CKA_KEY_TYPE, &keyType, sizeof keyType),
                                          attribute(CKA_LABEL, label), attribute(CKA_ID, label),
                                          attribute(CKA_SIGN, &yes, sizeof yes)};
        CK_MECHANISM mechanism{CKM_EC_KEY_PAIR_GEN, nullptr, 0};
        CK_OBJECT_HANDLE publicKey = 0;
        CK_OBJECT_HANDLE privateKey = 0;
        journal_.record("? K " + label);
        if (CK_RV result = module_->C_GenerateKeyPair(
                session_, &mechanism, publicTemplate, std::size(publicTemplate), privateTemplate,
                std::size(privateTemplate), &publicKey, &privateKey);
            result != CKR_OK) {
            return failed("C_GenerateKeyPair", result);
        }
        const std::string name = nameOf(label);
        journal_.record("+ K " + label + " " + name);
        keys_[name] = privateKey;
        return 0;
    }

    int importCertificate() {
        const std::string label = journal_.nextLabel();
        const std::vector<unsigned char> der = softtoken::testing::selfSignedDer(
            signingKey_, label, static_cast<std::int64_t>(random_() >> 1));
        CK_OBJECT_CLASS objectClass = CKO_CERTIFICATE;
        CK_CERTIFICATE_TYPE type = CKC_X_509;
        CK_BBOOL yes = CK_TRUE;
        CK_ATTRIBUTE certificate[] = {attribute(CKA_CLASS, &objectClass, sizeof objectClass),
                                      attribute(CKA_CERTIFICATE_TYPE, &type, sizeof type),
                                      attribute(CKA_TOKEN, &yes, sizeof yes),
                                      attribute(CKA_VALUE, der.data(), der.size()),
                                      attribute(CKA_LABEL, label),
                                      attribute(CKA_ID, label)};
        CK_OBJECT_HANDLE handle = 0;
        journal_.record("? C " + label);
        if (CK_RV result =
                module_->C_CreateObject(session_, certificate, std::size(certificate), &handle);
            result != CKR_OK) {
            return failed("C_CreateObject", result);
        }
        journal_.record("+ C " + label + " " + nameOf(label));
        return 0;
    }

    int relabel() {
        auto key = randomKey();
        const std::string label = journal_.nextLabel() + "u";
        CK_ATTRIBUTE change[] = {attribute(CKA_LABEL, label)};
        journal_.record("? L " + key->first + " " + label);
        if (CK_RV result =
                module_->C_SetAttributeValue(session_, key->second, change, std::size(change));
            result != CKR_OK) {
            return failed("C_SetAttributeValue", result);
        }
        journal_.record("+ L " + key->first + " " + label);
        return 0;
    }

    int destroy() {
        auto key = randomKey();
        journal_.record("? D " + key->first);
        if (CK_RV result = module_->C_DestroyObject(session_, key->second); result != CKR_OK) {
            return failed("C_DestroyObject", result);
        }
        journal_.record("+ D " + key->first);
        keys_.erase(key);
        return 0;
    }

    // Signing writes nothing; journalled all the same, so that a kill inside it shows as one in
    // flight and the PIN count it leaves is held against the journal.
    int sign() {
        auto key = randomKey();
        CK_MECHANISM mechanism{CKM_ECDSA, nullptr, 0};
        unsigned char digest[32] = {0x5A};
        unsigned char signature[256];
        CK_ULONG length = sizeof signature;
        journal_.record("? S");
        if (CK_RV result = module_->C_SignInit(session_, &mechanism, key->second);
            result != CKR_OK) {
            return failed("C_SignInit", result);
        }
        if (CK_RV result = module_->C_Sign(session_, digest, sizeof digest, signature, &length);
            result != CKR_OK) {
            return failed("C_Sign", result);
        }
        journal_.record("+ S");
        return 0;
    }

    static std::string nameOf(const std::string& label) {
        return hexText(reinterpret_cast<const unsigned char*>(label.data()), label.size());
    }

    CK_FUNCTION_LIST* const module_;
    JournalWriter& journal_;
    std::mt19937_64 random_;
    EVP_PKEY* signingKey_ = nullptr;
    CK_SESSION_HANDLE session_ = 0;
    // CKA_ID (hex) -> private key handle, of the key pairs this process made and still holds.
    std::map<std::string, CK_OBJECT_HANDLE> keys_;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 6) {
        std::cerr << "usage: softtoken_module_worker STORE SERIAL JOURNAL TAG OPERATIONS "
                     "[READY_FD]\n";
        return 2;
    }
    const std::string store = argv[1];
    setenv("OSTREL_TOKEN_STORE", store.c_str(), 1);
    setenv("TMPDIR", store.c_str(), 1);
    // No certificate-authority folder: an imported certificate is stored alone.
    setenv("OSTREL_HOME", (store + "/home").c_str(), 1);
    JournalWriter journal(argv[3], argv[4]);
    const long operations = std::strtol(argv[5], nullptr, 10);
    if (!journal.ok() || operations < 0) {
        std::cerr << "module worker: cannot open the journal\n";
        return 2;
    }
    // Left loaded until the process ends; unloading is module_unload_test.cpp's business.
    void* library = dlopen(OSTREL_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
    auto* getFunctionList =
        library == nullptr
            ? nullptr
            : reinterpret_cast<CK_RV (*)(CK_FUNCTION_LIST**)>(dlsym(library, "C_GetFunctionList"));
    CK_FUNCTION_LIST* module = nullptr;
    if (getFunctionList == nullptr || getFunctionList(&module) != CKR_OK) {
        const char* why = dlerror();
        std::cerr << "module worker: cannot load " << OSTREL_MODULE_PATH << ": "
                  << (why != nullptr ? why : "no function list") << "\n";
        return 3;
    }
    ModuleWorker worker(module, journal);
    if (!worker.start(argv[2])) {
        std::cerr << "module worker: cannot log in to " << argv[2] << "\n";
        return 3;
    }
    const int status = softtoken::testing::runSteps(operations, argc > 6 ? argv[6] : nullptr,
                                                    [&worker] { return worker.step(); });
    module->C_Finalize(nullptr);
    return status;
}
