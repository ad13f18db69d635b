#include "token_fixture.h"

#include <fcntl.h>
#include <openssl/core_names.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iterator>

#include "crypto/ec_keys.h"
#include "crypto/key_types.h"
#include "crypto/rsa_keys.h"

namespace softtoken::testing {

ProcessResult runProgram(const std::vector<std::string>& arguments) {
    ProcessResult result;
    int channel[2];
    if (pipe(channel) != 0) {
        return result;
    }
    pid_t child = fork();
    if (child == 0) {
        dup2(channel[1], STDOUT_FILENO);
        dup2(channel[1], STDERR_FILENO);
        close(channel[0]);
        close(channel[1]);
        std::vector<char*> argv;
        for (const std::string& argument : arguments) {
            argv.push_back(const_cast<char*>(argument.c_str()));
        }
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(channel[1]);
    char buffer[4096];
    ssize_t count = 0;
    while ((count = read(channel[0], buffer, sizeof buffer)) > 0) {
        result.output.append(buffer, static_cast<std::size_t>(count));
    }
    close(channel[0]);
    int status = 0;
    waitpid(child, &status, 0);
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

TemporaryFolder::TemporaryFolder() {
    std::string pattern = (std::getenv("TMPDIR") != nullptr ? std::getenv("TMPDIR") : "/tmp");
    pattern += "/ostrel-token-test-XXXXXX";
    path_ = mkdtemp(&pattern[0]) != nullptr ? pattern : "";
}

TemporaryFolder::~TemporaryFolder() {
    if (!path_.empty()) {
        runProgram({"/bin/rm", "-rf", path_});
    }
}

void writeFile(const std::string& path, const Bytes& contents) {
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(contents.data()),
               static_cast<std::streamsize>(contents.size()));
}

Bytes readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

void TokenFixture::SetUp() {
    ASSERT_FALSE(folder_.path().empty());
    setenv("OSTREL_TOKEN_STORE", folder_.path().c_str(), 1);
    admin_ = std::make_unique<TokenService>(folder_.path());
    createToken(kSerial);
    ostrel_createInstance(&instance_);
    ASSERT_NE(instance_, nullptr);
}

void TokenFixture::TearDown() {
    ostrel_releaseInstance(instance_);
    admin_.reset();
    unsetenv("OSTREL_TOKEN_STORE");
}

void TokenFixture::createToken(const std::string& serial, const std::string& pin, int retries,
                               int capacity) {
    TokenSettings settings;
    settings.serial = serial;
    settings.label = "Token " + serial;
    settings.userPin = pin;
    settings.soPin = "87654321";
    settings.retries = retries;
    settings.capacity = capacity;
    ASSERT_EQ(softtoken::createToken(*admin_, settings), 0);
}

ProcessResult TokenFixture::tool(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {OSTREL_TOKEN_TOOL, "--store", folder_.path()});
    return runProgram(arguments);
}

OstrelKeyPair TokenFixture::generate(std::int32_t keyType, std::uint32_t usage,
                                     const std::string& serial) {
    OstrelKeyPair pair{};
    pair.keyType = keyType;
    pair.usageFlags = usage;
    EXPECT_EQ(ostrel_generateKeyPair(serial.c_str(), kPin, &pair, instance_), 0);
    return pair;
}

PkeyPtr publicKeyFromRecord(const OstrelKeyPair& pair) {
    const KeyTypeInfo* type = keyTypeByCode(pair.keyType);
    if (type == nullptr) {
        return nullptr;
    }
    std::size_t size = static_cast<std::size_t>(pair.publicValueLength);
    return type->rsa ? rsaPublicKey(pair.publicValue, size)
                     : ecPublicKey(*type, pair.publicValue, size);
}

Bytes sha(const EVP_MD* digest, const std::string& message) {
    Bytes out(static_cast<std::size_t>(EVP_MD_get_size(digest)));
    unsigned int size = 0;
    EVP_Digest(message.data(), message.size(), out.data(), &size, digest, nullptr);
    return out;
}

Bytes selfSignedCertificate(EVP_PKEY* key, const std::string& commonName, long serial) {
    X509Ptr certificate(X509_new());
    X509_set_version(certificate.get(), 2);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), serial);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 86400);
    X509_NAME* name = X509_get_subject_name(certificate.get());
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(commonName.c_str()), -1, -1,
                               0);
    X509_set_issuer_name(certificate.get(), name);
    X509_set_pubkey(certificate.get(), key);
    X509_sign(certificate.get(), key, EVP_sha256());
    Bytes der(static_cast<std::size_t>(i2d_X509(certificate.get(), nullptr)));
    unsigned char* cursor = der.data();
    i2d_X509(certificate.get(), &cursor);
    return der;
}

OstrelCertificate certificateRecord(const Bytes& der, const std::string& label,
                                    const Bytes& objectId) {
    OstrelCertificate record{};
    std::copy(der.begin(), der.end(), record.der);
    record.derLength = static_cast<std::int32_t>(der.size());
    std::copy(objectId.begin(), objectId.end(), record.objectId);
    record.objectIdLength = static_cast<std::int32_t>(objectId.size());
    std::copy(label.begin(), label.end(), record.label);
    return record;
}

}  // namespace softtoken::testing
