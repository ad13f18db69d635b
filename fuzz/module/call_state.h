// What one input's calls share: the handles earlier calls answered, the outputs they produced,
// and the memory that the arguments of the current call live in.
//
// Every pointer handed to the module points to memory of exactly the stated size, allocated on
// its own, so that AddressSanitizer reports any read or write past it. Output areas are the
// exception where the module may write a whole result whatever length the caller stated
// (compatibility register, entry 26): those get kRoomForAnyResult bytes.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "call_input.h"
#include "cryptoki/cryptoki.h"

namespace modulefuzz {

// Larger than any result the module hands out in one piece (the device gives at most 1024
// bytes: an RSA-4096 signature is 512).
constexpr std::size_t kRoomForAnyResult = 8192;

class CallState {
public:
    // Handles that earlier calls answered, newest last; a few are enough to pick from.
    std::vector<CK_SLOT_ID> slots;
    std::vector<CK_SESSION_HANDLE> sessions;
    std::vector<CK_OBJECT_HANDLE> objects;
    // Signatures, ciphertexts, digests and random bytes the module answered, to feed back in
    // (the device double verifies only signatures it made and decrypts only what it encrypted).
    std::vector<Bytes> outputs;
    // Device identifiers the double knows, for the scripting calls that name one.
    std::vector<std::string> devices;

    static void remember(std::vector<CK_ULONG>& pool, CK_ULONG handle);
    void rememberOutput(const unsigned char* data, CK_ULONG length);

    // Memory of exactly `size` bytes (never null, also for 0), holding `bytes` when given.
    unsigned char* hold(const Bytes& bytes);
    unsigned char* room(std::size_t size);
    template <typename T>
    T* holdValue(const T& value) {
        auto* place = reinterpret_cast<T*>(room(sizeof(T)));
        *place = value;
        return place;
    }
    // Frees what the previous call's arguments used.
    void endCall() { arena_.clear(); }

private:
    std::vector<std::unique_ptr<unsigned char[]>> arena_;
};

// ---- Argument builders (arguments.cpp) ----

// A handle from the pool (most of the time) or a value at a range edge, above 32 bits, or
// fuzzed.
CK_SLOT_ID slotArgument(CallInput& in, const CallState& state);
CK_SESSION_HANDLE sessionArgument(CallInput& in, const CallState& state);
CK_OBJECT_HANDLE objectArgument(CallInput& in, const CallState& state);

// Input bytes: from the input, or an earlier output (whole or altered). The pointer may be
// null; a non-null pointer's memory is at least `length` bytes.
struct InputBytes {
    CK_BYTE_PTR pointer;
    CK_ULONG length;
};
InputBytes inputBytes(CallInput& in, CallState& state);

// A PIN: the double's user or SO PIN, or fuzzed; perhaps null or stated short.
InputBytes pinArgument(CallInput& in, CallState& state);

// An output area of kRoomForAnyResult bytes or null, and a length pointer (perhaps null)
// holding a fuzzed stated room, also far beyond the area (the module must not trust it).
struct ResultArea {
    CK_BYTE_PTR pointer;
    CK_ULONG_PTR length;
};
ResultArea resultArea(CallInput& in, CallState& state);
// As resultArea, but the stated room never exceeds the area: for outputs the module may fill
// up to the stated room (random bytes, attribute values).
ResultArea boundedArea(CallInput& in, CallState& state, std::size_t maximum);

// A count pointer and list area of `capacity` entries whose stated count never exceeds it.
template <typename T>
struct ListArea {
    T* pointer;
    CK_ULONG_PTR count;
};
ListArea<CK_ULONG> listArea(CallInput& in, CallState& state, std::size_t capacity);

// A mechanism pointer (perhaps null) with a fuzzed type and parameter; ECDH parameters are
// built as the structure the module reads, with a stated length around its size.
CK_MECHANISM_PTR mechanismArgument(CallInput& in, CallState& state);

// Templates whose values the module reads: CK_ULONG numbers, shorter numbers, byte strings,
// booleans, EC curve identifiers, null values. `leading` types come first, then a fuzzed count
// of fuzzed types.
struct TemplateArgument {
    CK_ATTRIBUTE_PTR pointer;
    CK_ULONG count;
};
TemplateArgument inputTemplate(CallInput& in, CallState& state,
                               const std::vector<CK_ATTRIBUTE_TYPE>& leading = {});
// A template for C_GetAttributeValue: each value area is null or of its stated size.
TemplateArgument outputTemplate(CallInput& in, CallState& state);

}  // namespace modulefuzz
