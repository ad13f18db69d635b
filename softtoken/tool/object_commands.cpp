// Object commands: keygen, import-cert, import-key.
#include <ostream>

#include "certificates/certificate_files.h"
#include "common/token_error.h"
#include "crypto/key_codec.h"
#include "token/token_admin.h"
#include "tool/arguments.h"

namespace softtoken::tool {

namespace {

const CommandSyntax kKeygen{
    "keygen",
    "SERIAL --type TYPE --pin PIN [--label TEXT] [--id HEX] [--usage sign|decrypt|both]",
    "Generates a key pair on the token. TYPE is one of rsa1024, rsa2048, rsa3072, rsa4096, p256, "
    "p384, p521. Usage defaults to sign for RSA and both for EC.",
    {"--type", "--pin", "--label", "--id", "--usage"},
    {},
    1,
    1};
const CommandSyntax kImportCert{"import-cert",
                                "SERIAL FILE [--label TEXT] [--id HEX]",
                                "Stores a certificate (PEM or DER) on the token.",
                                {"--label", "--id"},
                                {},
                                2,
                                2};
const CommandSyntax kImportKey{
    "import-key",
    "SERIAL FILE --pin PIN [--label TEXT] [--id HEX]",
    "Stores a private key (PKCS #8, PKCS #1 or SEC 1; PEM or DER) as a key pair on the token.",
    {"--pin", "--label", "--id"},
    {},
    2,
    2};

// The label and CKA_ID options shared by the commands; false after reporting a usage error.
bool readLabelAndId(ToolContext& context, const CommandSyntax& syntax, const Arguments& arguments,
                    std::size_t labelLimit, std::string& label, Bytes& id, int& exitCode) {
    label = arguments.option("--label");
    if (label.size() > labelLimit) {
        exitCode = usageError(context, syntax,
                              "--label is at most " + std::to_string(labelLimit) + " bytes");
        return false;
    }
    if (arguments.has("--id") &&
        (!fromHex(arguments.option("--id"), id) || id.size() > kObjectIdCapacity)) {
        exitCode = usageError(context, syntax, "--id takes up to 128 bytes in hexadecimal");
        return false;
    }
    return true;
}

void reportKeyPair(ToolContext& context, const OstrelKeyPair& pair) {
    const KeyTypeInfo* type = keyTypeByCode(pair.keyType);
    context.out << "key pair " << pair.id << " stored (" << (type != nullptr ? type->name : "?")
                << ")\n";
}

int runKeygen(ToolContext& context, const Arguments& arguments) {
    KeyPairRequest request;
    request.type = keyTypeByName(arguments.option("--type"));
    if (request.type == nullptr) {
        return usageError(context, kKeygen, "--type takes one of " + keyTypeNames());
    }
    if (!arguments.has("--pin")) {
        return usageError(context, kKeygen, "--pin is required");
    }
    const std::string usage = arguments.option("--usage", request.type->rsa ? "sign" : "both");
    if (usage == "sign") {
        request.usageFlags = kKeyUsageSign;
    } else if (usage == "decrypt") {
        request.usageFlags = kKeyUsageDecrypt;
    } else if (usage == "both") {
        request.usageFlags = kKeyUsageSign | kKeyUsageDecrypt;
    } else {
        return usageError(context, kKeygen, "--usage takes sign, decrypt or both");
    }
    int exitCode = kExitDone;
    if (!readLabelAndId(context, kKeygen, arguments, kAliasCapacity - 1, request.alias,
                        request.objectId, exitCode)) {
        return exitCode;
    }
    OstrelKeyPair stored;
    int result = generateKeyPair(context.service, arguments.positional[0],
                                 arguments.option("--pin"), request, false, &stored);
    if (result != kOk) {
        return tokenError(context, kKeygen, result);
    }
    reportKeyPair(context, stored);
    return kExitDone;
}

int runImportCert(ToolContext& context, const Arguments& arguments) {
    std::string label;
    Bytes id;
    int exitCode = kExitDone;
    if (!readLabelAndId(context, kImportCert, arguments, kCertificateLabelCapacity - 1, label, id,
                        exitCode)) {
        return exitCode;
    }
    Bytes contents;
    if (!readWholeFile(arguments.positional[1], contents)) {
        return usageError(context, kImportCert, "cannot read " + arguments.positional[1]);
    }
    Bytes der = certificateToDer(contents);
    if (der.empty()) {
        return tokenError(context, kImportCert, kUnparsable);
    }
    OstrelCertificate stored;
    int result =
        importCertificate(context.service, arguments.positional[0], der, label, id, false, &stored);
    if (result != kOk) {
        return tokenError(context, kImportCert, result);
    }
    context.out << "certificate " << stored.id << " stored\n";
    return kExitDone;
}

int runImportKey(ToolContext& context, const Arguments& arguments) {
    if (!arguments.has("--pin")) {
        return usageError(context, kImportKey, "--pin is required");
    }
    KeyPairRequest request;
    request.usageFlags = kKeyUsageSign | kKeyUsageDecrypt;
    int exitCode = kExitDone;
    if (!readLabelAndId(context, kImportKey, arguments, kAliasCapacity - 1, request.alias,
                        request.objectId, exitCode)) {
        return exitCode;
    }
    Bytes contents;
    if (!readWholeFile(arguments.positional[1], contents)) {
        return usageError(context, kImportKey, "cannot read " + arguments.positional[1]);
    }
    PkeyPtr key = decodePrivateKey(contents.data(), contents.size());
    if (key == nullptr) {
        return tokenError(context, kImportKey, kUnparsable);
    }
    OstrelKeyPair stored;
    int result = importKeyPair(context.service, arguments.positional[0], arguments.option("--pin"),
                               key.get(), request, false, &stored);
    if (result != kOk) {
        return tokenError(context, kImportKey, result);
    }
    reportKeyPair(context, stored);
    return kExitDone;
}

}  // namespace

const std::vector<Command>& objectCommands() {
    static const std::vector<Command> commands = {
        {kKeygen, runKeygen}, {kImportCert, runImportCert}, {kImportKey, runImportKey}};
    return commands;
}

}  // namespace softtoken::tool
