// Compile-time checks that the Cryptoki structures have the binary layout that callers expect:
// the packed Windows layout with 32-bit CK_ULONG, or the native layout elsewhere.
#include <cstddef>

#include "cryptoki/cryptoki.h"

namespace {

#if defined(_WIN32)
static_assert(sizeof(CK_ULONG) == 4, "Windows CK_ULONG is 32-bit");
static_assert(offsetof(CK_INFO, manufacturerID) == 2, "CK_INFO layout");
static_assert(offsetof(CK_INFO, flags) == 34, "CK_INFO layout");
static_assert(offsetof(CK_INFO, libraryDescription) == 38, "CK_INFO layout");
static_assert(offsetof(CK_INFO, libraryVersion) == 70, "CK_INFO layout");
static_assert(sizeof(CK_INFO) == 72, "CK_INFO size");
static_assert(sizeof(CK_SLOT_INFO) == 104, "CK_SLOT_INFO size");
static_assert(offsetof(CK_TOKEN_INFO, flags) == 96, "CK_TOKEN_INFO layout");
static_assert(offsetof(CK_TOKEN_INFO, hardwareVersion) == 140, "CK_TOKEN_INFO layout");
static_assert(sizeof(CK_TOKEN_INFO) == 160, "CK_TOKEN_INFO size");
static_assert(sizeof(CK_SESSION_INFO) == 16, "CK_SESSION_INFO size");
static_assert(sizeof(CK_MECHANISM_INFO) == 12, "CK_MECHANISM_INFO size");
static_assert(sizeof(CK_ATTRIBUTE) == 16, "CK_ATTRIBUTE size");
static_assert(sizeof(CK_MECHANISM) == 16, "CK_MECHANISM size");
static_assert(sizeof(CK_ECDH1_DERIVE_PARAMS) == 28, "CK_ECDH1_DERIVE_PARAMS size");
static_assert(offsetof(CK_ECDH1_DERIVE_PARAMS, pPublicData) == 20, "CK_ECDH1_DERIVE_PARAMS");
#else
static_assert(sizeof(CK_ULONG) == sizeof(unsigned long), "native CK_ULONG");
static_assert(offsetof(CK_INFO, manufacturerID) == 2, "CK_INFO layout");
static_assert(offsetof(CK_INFO, flags) == 34 + (alignof(CK_ULONG) - 34 % alignof(CK_ULONG)) %
                                                    alignof(CK_ULONG),
              "CK_INFO layout");
static_assert(offsetof(CK_INFO, libraryDescription) == offsetof(CK_INFO, flags) + sizeof(CK_FLAGS),
              "CK_INFO layout");
static_assert(sizeof(CK_ECDH1_DERIVE_PARAMS) == 3 * sizeof(CK_ULONG) + 2 * sizeof(void*),
              "CK_ECDH1_DERIVE_PARAMS size");
#endif

// The function list is the version followed by 68 pointers in the standard order.
static_assert(offsetof(CK_FUNCTION_LIST, C_Initialize) ==
                  (alignof(CK_FUNCTION_LIST) == 1 ? 2 : sizeof(void*)),
              "function pointers follow the two version bytes");
static_assert(offsetof(CK_FUNCTION_LIST, C_WaitForSlotEvent) ==
                  offsetof(CK_FUNCTION_LIST, C_Initialize) + 67 * sizeof(void*),
              "68 function pointers");
static_assert(sizeof(CK_FUNCTION_LIST) == offsetof(CK_FUNCTION_LIST, C_Initialize) +
                                              68 * sizeof(void*),
              "nothing after the 68 pointers");

}  // namespace
