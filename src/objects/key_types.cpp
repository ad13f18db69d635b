#include "objects/key_types.h"

#include <algorithm>
#include <iterator>

namespace {

const KeyTypeTraits kKeyTypes[] = {
    {kKeyTypeRsa1024, CKK_RSA, 1024, 0, {}, kEncryptionRsa1024},
    {kKeyTypeRsa2048, CKK_RSA, 2048, 0, {}, kEncryptionRsa2048},
    {kKeyTypeRsa3072, CKK_RSA, 3072, 0, {}, kEncryptionRsa3072},
    {kKeyTypeRsa4096, CKK_RSA, 4096, 0, {}, kEncryptionRsa4096},
    {kKeyTypeEcP256,
     CKK_EC,
     256,
     CKM_EC_KEY_PAIR_GEN,
     {0x06, 0x08, 0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x03, 0x01, 0x07},
     kEncryptionRsa2048},
    {kKeyTypeEcP384,
     CKK_EC,
     384,
     CKM_EC_KEY_PAIR_GEN,
     {0x06, 0x05, 0x2B, 0x81, 0x04, 0x00, 0x22},
     kEncryptionRsa2048},
    {kKeyTypeEcP521,
     CKK_EC,
     521,
     CKM_EC_KEY_PAIR_GEN,
     {0x06, 0x05, 0x2B, 0x81, 0x04, 0x00, 0x23},
     kEncryptionRsa2048},
};

template <typename Matches>
const KeyTypeTraits* findKeyType(Matches matches) {
    const auto found = std::find_if(std::begin(kKeyTypes), std::end(kKeyTypes), matches);
    return found == std::end(kKeyTypes) ? nullptr : found;
}

}  // namespace

const KeyTypeTraits& keyTypeTraits(std::int32_t code) {
    const KeyTypeTraits* found =
        findKeyType([code](const KeyTypeTraits& each) { return each.code == code; });
    return found != nullptr ? *found : keyTypeTraits(kKeyTypeRsa2048);
}

const KeyTypeTraits* keyTypeOfCurve(const unsigned char* ecParams, std::size_t length) {
    return findKeyType([&](const KeyTypeTraits& each) {
        return each.keyType == CKK_EC && each.ecParams.size() == length &&
               std::equal(each.ecParams.begin(), each.ecParams.end(), ecParams);
    });
}

const KeyTypeTraits* keyTypeOfModulusBits(CK_ULONG bits) {
    return findKeyType(
        [bits](const KeyTypeTraits& each) { return each.keyType == CKK_RSA && each.bits == bits; });
}
