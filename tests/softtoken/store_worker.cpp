// A process that changes one token through the device library, as an application would, and
// keeps a journal of what it did (store_journal.h). The store tests kill it at random moments
// or run several at once, then hold the store against the journals.
//
//   softtoken_store_worker STORE SERIAL PIN_SERIAL JOURNAL TAG MODE OPERATIONS [READY_FD]
//
// MODE crash: key pairs, certificates, label changes, deletions, signatures, and wrong PINs
//             each followed by the right one. OPERATIONS 0 means until killed.
// MODE load:  the same without the right PIN after a wrong one, so that the wrong ones add up.
// Wrong PINs go to the token PIN_SERIAL: in load mode another token than SERIAL, whose right
// PIN (which every key pair operation checks) would restore the count.
// After every change the worker reads the lists and checks that all its committed changes are
// there. With READY_FD it writes one byte there once its first operation is done.
// Exit status: 0 done, 2 wrong arguments, 3 an operation answered what it must not, 4 a
// committed change was missing from the lists.
#include <openssl/evp.h>

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "device/ostrel_device.h"
#include "store_journal.h"
#include "store_worker_support.h"

using softtoken::testing::hexText;
using softtoken::testing::JournalWriter;

namespace {

constexpr const char* kPin = "1234";

class Worker {
public:
    Worker(std::string serial, std::string pinSerial, JournalWriter& journal, bool load)
        : serial_(std::move(serial)),
          pinSerial_(std::move(pinSerial)),
          journal_(journal),
          tag_(journal.tag()),
          load_(load),
          random_(std::random_device{}()) {}

    bool start() {
        ostrel_createInstance(&instance_);
        signingKey_ = EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256");
        return instance_ != nullptr && signingKey_ != nullptr;
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
            return remove();
        }
        if (choice < 85) {
            return wrongPin();
        }
        return signWithOwnKey();
    }

    ~Worker() {
        EVP_PKEY_free(signingKey_);
        ostrel_releaseInstance(instance_);
    }

private:
    void record(const std::string& line) { journal_.record(line); }
    std::string nextLabel() { return journal_.nextLabel(); }

    std::string randomKey() {
        auto chosen = keys_.begin();
        std::advance(chosen, static_cast<long>(random_() % keys_.size()));
        return chosen->first;
    }

    int failed(const char* operation, int result) {
        std::cerr << "store worker " << tag_ << ": " << operation << " answered " << result << "\n";
        return 3;
    }

    int generate() {
        const std::string label = nextLabel();
        record("? K " + label);
        OstrelKeyPair pair{};
        pair.keyType = kKeyTypeEcP256;
        std::memcpy(pair.alias, label.data(), label.size());
        if (int result = ostrel_generateKeyPair(serial_.c_str(), kPin, &pair, instance_);
            result != 0) {
            return failed("generateKeyPair", result);
        }
        const std::string reference = hexText(pair.keyReference, kObjectReferenceSize);
        record("+ K " + label + " " + reference);
        keys_[reference] = label;
        return checkVisible();
    }

    int importCertificate() {
        const std::string label = nextLabel();
        const std::vector<unsigned char> der = softtoken::testing::selfSignedDer(
            signingKey_, label, static_cast<std::int64_t>(random_() >> 1));
        record("? C " + label);
        OstrelCertificate certificate{};
        std::memcpy(certificate.der, der.data(), der.size());
        certificate.derLength = static_cast<std::int32_t>(der.size());
        std::memcpy(certificate.label, label.data(), label.size());
        if (int result = ostrel_importCertificate(serial_.c_str(), "", &certificate, instance_);
            result != 0) {
            return failed("importCertificate", result);
        }
        const std::string reference =
            hexText(certificate.certificateReference, kObjectReferenceSize);
        record("+ C " + label + " " + reference);
        certificates_[reference] = label;
        return checkVisible();
    }

    int relabel() {
        const std::string reference = randomKey();
        const std::string label = nextLabel() + "u";
        record("? L " + reference + " " + label);
        const std::vector<unsigned char> raw = softtoken::testing::hexBytes(reference);
        if (int result = ostrel_updateKeyPairDetails(serial_.c_str(), raw.data(), kPin,
                                                     label.c_str(), nullptr, 0, instance_);
            result != 0) {
            return failed("updateKeyPairDetails", result);
        }
        record("+ L " + reference + " " + label);
        keys_[reference] = label;
        return checkVisible();
    }

    int remove() {
        const std::string reference = randomKey();
        record("? D " + reference);
        const std::vector<unsigned char> raw = softtoken::testing::hexBytes(reference);
        if (int result = ostrel_deleteKeyPair(serial_.c_str(), raw.data(), kPin, false, instance_);
            result != 0) {
            return failed("deleteKeyPair", result);
        }
        record("+ D " + reference);
        keys_.erase(reference);
        return checkVisible();
    }

    int wrongPin() {
        record("? W");
        int left = -1;
        int result = ostrel_validatePassword(pinSerial_.c_str(), "0000", 1, &left, instance_);
        if (result != 10) {
            return failed("validatePassword (wrong PIN)", result);
        }
        record("+ W " + std::to_string(left));
        if (load_) {
            return 0;
        }
        record("? R");
        result = ostrel_validatePassword(pinSerial_.c_str(), kPin, 1, &left, instance_);
        if (result != 0) {
            return failed("validatePassword", result);
        }
        record("+ R " + std::to_string(left));
        return 0;
    }

    // Signing writes nothing unless a wrong PIN lowered the count: then the right PIN restores
    // it, which the journal must show.
    int signWithOwnKey() {
        const std::string reference = randomKey();
        record("? S");
        const std::vector<unsigned char> raw = softtoken::testing::hexBytes(reference);
        unsigned char digest[32] = {0x5A};
        unsigned char signature[256];
        int length = sizeof signature;
        if (int result = ostrel_signHash(serial_.c_str(), raw.data(), kPin, digest, sizeof digest,
                                         signature, &length, false, instance_, false);
            result != 0) {
            return failed("signHash", result);
        }
        record("+ S");
        return 0;
    }

    // Everything this process committed must be in the lists it reads next: a snapshot that
    // missed its own or another process's commit would show here.
    int checkVisible() {
        std::map<std::string, std::string> keys;
        for (const OstrelKeyPair& pair : ostrel_getKeyPairList(serial_.c_str(), instance_)) {
            keys[hexText(pair.keyReference, kObjectReferenceSize)] = pair.alias;
        }
        std::map<std::string, std::string> certificates;
        for (const OstrelCertificate& certificate :
             ostrel_getCertificateList(serial_.c_str(), instance_)) {
            certificates[hexText(certificate.certificateReference, kObjectReferenceSize)] =
                certificate.label;
        }
        for (const auto& [reference, label] : keys_) {
            auto found = keys.find(reference);
            if (found == keys.end() || found->second != label) {
                std::cerr << "store worker " << tag_ << ": key pair " << label << " not listed\n";
                return 4;
            }
        }
        for (const auto& [reference, label] : certificates_) {
            if (certificates.count(reference) == 0) {
                std::cerr << "store worker " << tag_ << ": certificate " << label
                          << " not listed\n";
                return 4;
            }
        }
        return 0;
    }

    const std::string serial_;
    const std::string pinSerial_;
    JournalWriter& journal_;
    const std::string tag_;
    const bool load_;
    std::mt19937_64 random_;
    DeviceInstance instance_ = nullptr;
    EVP_PKEY* signingKey_ = nullptr;
    std::map<std::string, std::string> keys_;          // reference -> label, of this process
    std::map<std::string, std::string> certificates_;  // reference -> label
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 8 || (std::strcmp(argv[6], "crash") != 0 && std::strcmp(argv[6], "load") != 0)) {
        std::cerr << "usage: softtoken_store_worker STORE SERIAL PIN_SERIAL JOURNAL TAG "
                     "crash|load OPERATIONS [READY_FD]\n";
        return 2;
    }
    setenv("OSTREL_TOKEN_STORE", argv[1], 1);
    JournalWriter journal(argv[4], argv[5]);
    const long operations = std::strtol(argv[7], nullptr, 10);
    if (!journal.ok() || operations < 0) {
        std::cerr << "store worker: cannot open the journal\n";
        return 2;
    }
    Worker worker(argv[2], argv[3], journal, std::strcmp(argv[6], "load") == 0);
    if (!worker.start() || ostrel_getConnectedDeviceList(false, nullptr).empty()) {
        std::cerr << "store worker: the store cannot be opened\n";
        return 3;
    }
    return softtoken::testing::runSteps(operations, argc > 8 ? argv[8] : nullptr,
                                        [&worker] { return worker.step(); });
}
