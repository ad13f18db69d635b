// Builds the arguments of one call from the input: handles, byte strings, output areas,
// mechanisms and templates, each with the odd values a careless or hostile caller passes.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

#include "call_state.h"
#include "device_double.h"

namespace modulefuzz {

namespace {

constexpr CK_ULONG kAbove32Bits = CK_ULONG{1} << 32;

// Handles earlier calls answered are picked when the byte's top bit is clear; the rest of the
// time (and from an empty pool) a special value is.
CK_ULONG handleArgument(CallInput& in, const std::vector<CK_ULONG>& pool,
                        const std::vector<CK_ULONG>& specials) {
    const std::uint8_t choice = in.byte();
    if ((choice & 0x80) == 0 && !pool.empty()) {
        return pool[choice % pool.size()];
    }
    const std::size_t index = choice & 0x7F;
    if (index < specials.size()) {
        return specials[index];
    }
    switch (index % 4) {
        case 0:
            return in.word();
        case 1:
            // The low 32 bits of a real handle with more above: must not name it.
            return pool.empty() ? kAbove32Bits : kAbove32Bits | pool[index % pool.size()];
        case 2:
            return pool.empty() ? 0 : pool[index % pool.size()] + 1;
        default:
            return ~CK_ULONG{0} - (index % 3);
    }
}

CK_ULONG ulongValue(CallInput& in) {
    static const CK_ULONG kValues[] = {
        CKO_CERTIFICATE,
        CKO_PUBLIC_KEY,
        CKO_PRIVATE_KEY,
        CKO_SECRET_KEY,
        CKK_RSA,
        CKK_EC,
        CK_TRUE,
        1024,
        2048,
        3072,
        4096,
        16,
        20,
        32,
        48,
        64,
        0,
        ~CK_ULONG{0},
        kAbove32Bits | CKO_PRIVATE_KEY,
    };
    const std::size_t choice = in.byte();
    if (choice < sizeof kValues / sizeof kValues[0]) {
        return kValues[choice];
    }
    return choice % 2 == 0 ? in.word() : kAbove32Bits + in.word();
}

Bytes ulongBytes(CK_ULONG value) {
    Bytes bytes(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

CK_ATTRIBUTE_TYPE attributeType(CallInput& in) {
    static const CK_ATTRIBUTE_TYPE kTypes[] = {
        CKA_CLASS,
        CKA_TOKEN,
        CKA_PRIVATE,
        CKA_LABEL,
        CKA_VALUE,
        CKA_OBJECT_ID,
        CKA_CERTIFICATE_TYPE,
        CKA_ISSUER,
        CKA_SERIAL_NUMBER,
        CKA_TRUSTED,
        CKA_KEY_TYPE,
        CKA_SUBJECT,
        CKA_ID,
        CKA_SENSITIVE,
        CKA_ENCRYPT,
        CKA_DECRYPT,
        CKA_WRAP,
        CKA_SIGN,
        CKA_VERIFY,
        CKA_VERIFY_RECOVER,
        CKA_DERIVE,
        CKA_MODULUS,
        CKA_MODULUS_BITS,
        CKA_PUBLIC_EXPONENT,
        CKA_PRIVATE_EXPONENT,
        CKA_PRIME_1,
        CKA_VALUE_LEN,
        CKA_EXTRACTABLE,
        CKA_LOCAL,
        CKA_MODIFIABLE,
        CKA_EC_PARAMS,
        CKA_EC_POINT,
        CKA_KEY_GEN_MECHANISM,
    };
    const std::size_t choice = in.byte();
    if (choice < sizeof kTypes / sizeof kTypes[0]) {
        return kTypes[choice];
    }
    return choice % 2 == 0 ? in.word() : kAbove32Bits | kTypes[choice % 5];
}

// One attribute whose value the module reads.
CK_ATTRIBUTE inputAttribute(CallInput& in, CallState& state, CK_ATTRIBUTE_TYPE type) {
    static const Bytes kCurves[] = {
        {0x06, 0x08, 0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x03, 0x01, 0x07},  // P-256
        {0x06, 0x05, 0x2B, 0x81, 0x04, 0x00, 0x22},                    // P-384
        {0x06, 0x05, 0x2B, 0x81, 0x04, 0x00, 0x23},                    // P-521
    };
    Bytes value;
    switch (in.pick(7)) {
        case 0:
        case 1:
            value = ulongBytes(ulongValue(in));
            break;
        case 2: {
            // Shorter than a CK_ULONG: read as absent (compatibility register, entry 36).
            value = ulongBytes(ulongValue(in));
            value.resize(in.pick(sizeof(CK_ULONG)));
            break;
        }
        case 3:
            value = in.part();
            break;
        case 4:
            value = {static_cast<unsigned char>(in.byte() % 3)};
            break;
        case 5:
            value = kCurves[in.pick(3)];
            break;
        default: {
            const std::uint8_t length = in.byte();
            return CK_ATTRIBUTE{type, nullptr, length % 2 == 0 ? length : ~CK_ULONG{0}};
        }
    }
    return CK_ATTRIBUTE{type, state.hold(value), value.size()};
}

}  // namespace

void CallState::remember(std::vector<CK_ULONG>& pool, CK_ULONG handle) {
    if (std::find(pool.begin(), pool.end(), handle) != pool.end()) {
        return;
    }
    if (pool.size() >= 32) {
        pool.erase(pool.begin());
    }
    pool.push_back(handle);
}

void CallState::rememberOutput(const unsigned char* data, CK_ULONG length) {
    if (data == nullptr || length == 0 || length > kRoomForAnyResult) {
        return;
    }
    if (outputs.size() >= 8) {
        outputs.erase(outputs.begin());
    }
    outputs.emplace_back(data, data + length);
}

unsigned char* CallState::hold(const Bytes& bytes) {
    unsigned char* place = room(bytes.size());
    if (!bytes.empty()) {
        std::memcpy(place, bytes.data(), bytes.size());
    }
    return place;
}

unsigned char* CallState::room(std::size_t size) {
    // Left uninitialised: the sanitizer fills new memory with garbage of its own.
    arena_.emplace_back(new unsigned char[size]);
    return arena_.back().get();
}

CK_SLOT_ID slotArgument(CallInput& in, const CallState& state) {
    static const std::vector<CK_ULONG> kSpecials = {
        0x50000001, 0x50000002, 0x50000003,
        0x50000004, 0x50000000, 0,
        1,          0xFFFFFFFF, kAbove32Bits | 0x50000001,
    };
    return handleArgument(in, state.slots, kSpecials);
}

CK_SESSION_HANDLE sessionArgument(CallInput& in, const CallState& state) {
    static const std::vector<CK_ULONG> kSpecials = {
        0x60000001, 0x60000002, 0x60000000, 0, 0xFFFFFFFF, kAbove32Bits | 0x60000001,
    };
    return handleArgument(in, state.sessions, kSpecials);
}

CK_OBJECT_HANDLE objectArgument(CallInput& in, const CallState& state) {
    static const std::vector<CK_ULONG> kSpecials = {
        0x70000001, 0x70001001, 0x70000003, 0x70001003, 0x70002000, 0x70002001,
        0x70003000, 0x70003001, 0x70000000, 0x70000FFF, 0x70001000, 0x70001FFF,
        0x70002FFF, 0x6FFFFFFF, 0x7FFFFFFF, 0xFFFFFFFF, 0,          kAbove32Bits | 0x70000001,
    };
    return handleArgument(in, state.objects, kSpecials);
}

InputBytes inputBytes(CallInput& in, CallState& state) {
    const std::uint8_t choice = in.byte();
    Bytes data;
    if ((choice & 0x30) == 0x10 && !state.outputs.empty()) {
        data = state.outputs[in.pick(state.outputs.size())];
    } else if ((choice & 0x30) == 0x20 && !state.outputs.empty()) {
        data = state.outputs[in.pick(state.outputs.size())];
        data[in.pick(data.size())] ^= static_cast<unsigned char>(in.byte() | 1);
    } else if ((choice & 0x30) == 0x30) {
        // Longer than the one-byte lengths reach, for multi-block hashing.
        data.assign(static_cast<std::size_t>(in.byte()) * 64 + in.byte(), in.byte());
    } else {
        data = in.part();
    }
    unsigned char* pointer = state.hold(data);
    switch (choice & 0x07) {
        case 5:
            return {pointer, data.empty() ? 0 : data.size() - 1};
        case 6:
            return {pointer, 0};
        case 7:
            return {nullptr, (choice & 0x08) != 0 ? data.size() : 0};
        default:
            return {pointer, data.size()};
    }
}

InputBytes pinArgument(CallInput& in, CallState& state) {
    const std::uint8_t choice = in.byte();
    std::string text;
    switch (choice % 4) {
        case 0:
            text = devicedouble::kDefaultUserPin;
            break;
        case 1:
            text = devicedouble::kDefaultSoPin;
            break;
        default: {
            const Bytes bytes = in.part();
            text.assign(bytes.begin(), bytes.end());
            break;
        }
    }
    unsigned char* pointer = state.hold(Bytes(text.begin(), text.end()));
    switch ((choice >> 4) % 8) {
        case 5:
            return {pointer, text.empty() ? 0 : text.size() - 1};
        case 6:
            return {nullptr, text.size()};
        case 7:
            return {pointer, 0};
        default:
            return {pointer, text.size()};
    }
}

ResultArea resultArea(CallInput& in, CallState& state) {
    static const CK_ULONG kRooms[] = {
        kRoomForAnyResult,
        0,
        1,
        19,
        20,
        32,
        63,
        64,
        255,
        256,
        511,
        512,
        1024,
        0x7FFFFFFF,
        0x80000000,
        kAbove32Bits,
        kAbove32Bits + 256,
        ~CK_ULONG{0},
    };
    const std::uint8_t choice = in.byte();
    CK_BYTE_PTR pointer = (choice & 0x80) != 0 ? nullptr : state.room(kRoomForAnyResult);
    const std::size_t index = choice & 0x3F;
    const CK_ULONG stated = index < sizeof kRooms / sizeof kRooms[0] ? kRooms[index] : in.byte();
    CK_ULONG_PTR length = (choice & 0x40) != 0 ? nullptr : state.holdValue<CK_ULONG>(stated);
    return {pointer, length};
}

ResultArea boundedArea(CallInput& in, CallState& state, std::size_t maximum) {
    const std::uint8_t choice = in.byte();
    const std::size_t size = (choice & 0x01) != 0 ? maximum : in.byte() % (maximum + 1);
    CK_BYTE_PTR pointer = (choice & 0x80) != 0 ? nullptr : state.room(size);
    // A null area may be stated as large as anything.
    const CK_ULONG stated = pointer == nullptr && (choice & 0x02) != 0 ? ~CK_ULONG{0} : size;
    CK_ULONG_PTR length = (choice & 0x40) != 0 ? nullptr : state.holdValue<CK_ULONG>(stated);
    return {pointer, length};
}

ListArea<CK_ULONG> listArea(CallInput& in, CallState& state, std::size_t capacity) {
    const std::uint8_t choice = in.byte();
    auto* pointer = (choice & 0x80) != 0
                        ? nullptr
                        : reinterpret_cast<CK_ULONG*>(state.room(capacity * sizeof(CK_ULONG)));
    CK_ULONG stated = (choice & 0x01) != 0 ? capacity : in.byte() % (capacity + 1);
    if (pointer == nullptr && (choice & 0x02) != 0) {
        stated = ~CK_ULONG{0};
    }
    CK_ULONG_PTR count = (choice & 0x40) != 0 ? nullptr : state.holdValue<CK_ULONG>(stated);
    return {pointer, count};
}

CK_MECHANISM_PTR mechanismArgument(CallInput& in, CallState& state) {
    // Not the module's catalogue: an input names a type by its place here (make_corpus.py
    // writes the seeds that way), and the list also holds types the catalogue does not.
    static const CK_MECHANISM_TYPE kTypes[] = {
        CKM_SHA_1,
        CKM_SHA224,
        CKM_SHA256,
        CKM_SHA384,
        CKM_SHA512,
        CKM_MD5,
        CKM_RSA_PKCS,
        CKM_RSA_PKCS_PSS,
        CKM_RSA_PKCS_OAEP,
        CKM_RSA_X_509,
        CKM_SHA1_RSA_PKCS,
        CKM_SHA224_RSA_PKCS,
        CKM_SHA256_RSA_PKCS,
        CKM_SHA384_RSA_PKCS,
        CKM_SHA512_RSA_PKCS,
        CKM_SHA1_RSA_PKCS_PSS,
        CKM_SHA224_RSA_PKCS_PSS,
        CKM_SHA256_RSA_PKCS_PSS,
        CKM_SHA384_RSA_PKCS_PSS,
        CKM_SHA512_RSA_PKCS_PSS,
        CKM_ECDSA,
        CKM_ECDSA_SHA1,
        CKM_ECDSA_SHA224,
        CKM_ECDSA_SHA256,
        CKM_ECDSA_SHA384,
        CKM_ECDH1_DERIVE,
        CKM_ECDH1_COFACTOR_DERIVE,
        CKM_RSA_PKCS_KEY_PAIR_GEN,
        CKM_EC_KEY_PAIR_GEN,
        CKM_MD5_RSA_PKCS,
    };
    const std::uint8_t choice = in.byte();
    if (choice == 0xFF) {
        return nullptr;
    }
    CK_MECHANISM mechanism{};
    const std::size_t index = choice & 0x3F;
    mechanism.mechanism = index < sizeof kTypes / sizeof kTypes[0]
                              ? kTypes[index]
                              : ((index & 1) != 0 ? in.word() : kAbove32Bits | CKM_SHA256);
    switch (choice >> 6) {
        case 0:
            break;  // no parameter
        case 1: {
            const Bytes parameter = in.part();
            mechanism.pParameter = state.hold(parameter);
            mechanism.ulParameterLen = parameter.size();
            break;
        }
        case 2: {
            CK_ECDH1_DERIVE_PARAMS parameters{};
            static const CK_EC_KDF_TYPE kKdfs[] = {CKD_NULL,       CKD_SHA1_KDF,   CKD_SHA224_KDF,
                                                   CKD_SHA256_KDF, CKD_SHA384_KDF, CKD_SHA512_KDF};
            const std::uint8_t kdf = in.byte();
            parameters.kdf = kdf < 6 ? kKdfs[kdf] : kdf;
            const InputBytes shared = inputBytes(in, state);
            parameters.pSharedData = shared.pointer;
            parameters.ulSharedDataLen = shared.length;
            const std::uint8_t peer = in.byte();
            if (peer % 4 == 0) {
                // A well-formed point of a curve the double knows.
                const Bytes point = devicedouble::fakePublicValue(
                    static_cast<std::int32_t>(kKeyTypeEcP256 + peer / 4 % 3), "peer");
                parameters.pPublicData = state.hold(point);
                parameters.ulPublicDataLen = point.size();
            } else {
                const InputBytes value = inputBytes(in, state);
                parameters.pPublicData = value.pointer;
                parameters.ulPublicDataLen = value.length;
            }
            // The structure itself, stated whole, short or long; its memory is as stated.
            const std::uint8_t size = in.byte();
            std::size_t stated = sizeof parameters;
            if (size % 4 == 1) {
                stated = size / 4 % sizeof parameters;
            } else if (size % 4 == 2) {
                stated = sizeof parameters + size / 4;
            }
            Bytes bytes(sizeof parameters);
            std::memcpy(bytes.data(), &parameters, sizeof parameters);
            bytes.resize(stated);
            mechanism.pParameter = state.hold(bytes);
            mechanism.ulParameterLen = stated;
            break;
        }
        default: {
            const std::uint8_t length = in.byte();
            mechanism.pParameter = nullptr;
            mechanism.ulParameterLen = length % 2 == 0 ? length : ~CK_ULONG{0};
            break;
        }
    }
    return state.holdValue(mechanism);
}

TemplateArgument inputTemplate(CallInput& in, CallState& state,
                               const std::vector<CK_ATTRIBUTE_TYPE>& leading) {
    std::vector<CK_ATTRIBUTE> attributes;
    for (CK_ATTRIBUTE_TYPE type : leading) {
        attributes.push_back(inputAttribute(in, state, type));
    }
    const std::uint8_t shape = in.byte();
    for (std::size_t i = 0, extra = shape % 6; i < extra; ++i) {
        const CK_ATTRIBUTE_TYPE type = attributeType(in);
        attributes.push_back(inputAttribute(in, state, type));
    }
    Bytes bytes(attributes.size() * sizeof(CK_ATTRIBUTE));
    if (!bytes.empty()) {
        std::memcpy(bytes.data(), attributes.data(), bytes.size());
    }
    auto* pointer = reinterpret_cast<CK_ATTRIBUTE_PTR>(state.hold(bytes));
    switch (shape >> 5) {
        case 6:
            return {pointer, attributes.empty() ? 0 : attributes.size() - 1};
        case 7:
            return {nullptr, (shape & 0x10) != 0 ? attributes.size() : 0};
        default:
            return {pointer, attributes.size()};
    }
}

TemplateArgument outputTemplate(CallInput& in, CallState& state) {
    static const std::size_t kSizes[] = {0, 1, 4, 8, 16, 20, 64, 256, 4096};
    const std::uint8_t shape = in.byte();
    std::vector<CK_ATTRIBUTE> attributes(1 + shape % 6);
    for (CK_ATTRIBUTE& attribute : attributes) {
        attribute.type = attributeType(in);
        const std::uint8_t size = in.byte();
        if ((size & 0x80) != 0) {
            attribute.pValue = nullptr;
            attribute.ulValueLen = (size & 0x40) != 0 ? ~CK_ULONG{0} : size & 0x3F;
        } else {
            attribute.ulValueLen = kSizes[size % (sizeof kSizes / sizeof kSizes[0])];
            attribute.pValue = state.room(attribute.ulValueLen);
        }
    }
    Bytes bytes(attributes.size() * sizeof(CK_ATTRIBUTE));
    std::memcpy(bytes.data(), attributes.data(), bytes.size());
    auto* pointer = reinterpret_cast<CK_ATTRIBUTE_PTR>(state.hold(bytes));
    switch (shape >> 5) {
        case 6:
            return {pointer, attributes.size() - 1};
        case 7:
            return {nullptr, (shape & 0x10) != 0 ? attributes.size() : 0};
        default:
            return {pointer, attributes.size()};
    }
}

}  // namespace modulefuzz
