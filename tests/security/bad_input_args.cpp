// The building blocks of the matrix's rows: arguments, the memory behind pointer arguments, and
// the handle sweeps.
#include <cstddef>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "bad_input_matrix.h"

namespace matrix {

namespace {

// A pattern without NUL bytes (a NUL would end a PIN or a label early) and with no byte repeated
// nearby, so that a module writing what was there already is unlikely.
unsigned char patternByte(std::size_t index) {
    return static_cast<unsigned char>(0x80 | ((index * 37 + 0x25) & 0x7F));
}

std::vector<unsigned char> pattern(std::size_t size) {
    std::vector<unsigned char> bytes(size);
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = patternByte(i);
    }
    return bytes;
}

Arg inMemory(Memory memory) {
    Arg arg;
    arg.kind = Arg::Kind::Memory;
    arg.memory = std::make_shared<const Memory>(std::move(memory));
    return arg;
}

Arg of(Arg::Kind kind, CK_ULONG value = 0) {
    Arg arg;
    arg.kind = kind;
    arg.value = value;
    return arg;
}

template <typename Value>
void put(std::vector<unsigned char>& bytes, std::size_t offset, const Value& value) {
    std::memcpy(bytes.data() + offset, &value, sizeof value);
}

std::vector<unsigned char> ulongBytes(CK_ULONG value) {
    std::vector<unsigned char> bytes(sizeof value);
    put(bytes, 0, value);
    return bytes;
}

}  // namespace

Arg num(CK_ULONG value) {
    return of(Arg::Kind::Number, value);
}
Arg session(CK_ULONG plus) {
    return of(Arg::Kind::Session, plus);
}
Arg slot(CK_ULONG plus) {
    return of(Arg::Kind::Slot, plus);
}
Arg nextDerived() {
    return of(Arg::Kind::NextDerived);
}
Arg swept() {
    return of(Arg::Kind::Sweep);
}
Arg null() {
    return of(Arg::Kind::Null);
}
Arg noAccess() {
    return of(Arg::Kind::NoAccess);
}

Arg input(std::size_t size) {
    return inMemory({"in[" + std::to_string(size) + "]", pattern(size), {}, {}, std::nullopt});
}

Arg input(const std::vector<unsigned char>& bytes) {
    return inMemory({"in[" + std::to_string(bytes.size()) + "]", bytes, {}, {}, std::nullopt});
}

Arg output(std::size_t size, std::size_t mayWrite) {
    return inMemory({"out[" + std::to_string(size) + "]<=" + std::to_string(mayWrite),
                     pattern(size),
                     {},
                     {{0, mayWrite}},
                     std::nullopt});
}

Arg outputRanges(const std::string& name, std::size_t size,
                 const std::vector<Memory::Range>& writable) {
    return inMemory({name, pattern(size), {}, writable, std::nullopt});
}

Arg ulongIn(CK_ULONG value) {
    return inMemory({"ulong " + std::to_string(value), ulongBytes(value), {}, {}, std::nullopt});
}

Arg ulongOut(CK_ULONG value, std::optional<CK_ULONG> expected) {
    std::optional<std::vector<unsigned char>> after;
    if (expected) {
        after = ulongBytes(*expected);
    }
    return inMemory({"ulong " + std::to_string(value) + " out",
                     ulongBytes(value),
                     {},
                     {{0, sizeof(CK_ULONG)}},
                     after});
}

Arg mechanism(CK_MECHANISM_TYPE type, Arg parameter, CK_ULONG parameterLength) {
    Memory memory;
    memory.name = "mechanism " + std::to_string(type);
    memory.bytes.assign(sizeof(CK_MECHANISM), 0);
    put(memory.bytes, offsetof(CK_MECHANISM, mechanism), type);
    put(memory.bytes, offsetof(CK_MECHANISM, ulParameterLen), parameterLength);
    memory.pointers.push_back({offsetof(CK_MECHANISM, pParameter), std::move(parameter)});
    return inMemory(std::move(memory));
}

Arg ecdhParameters(CK_EC_KDF_TYPE kdf, Arg publicData, CK_ULONG publicDataLength, Arg sharedData,
                   CK_ULONG sharedDataLength) {
    Memory memory;
    memory.name = "ECDH parameters";
    memory.bytes.assign(sizeof(CK_ECDH1_DERIVE_PARAMS), 0);
    put(memory.bytes, offsetof(CK_ECDH1_DERIVE_PARAMS, kdf), kdf);
    put(memory.bytes, offsetof(CK_ECDH1_DERIVE_PARAMS, ulSharedDataLen), sharedDataLength);
    put(memory.bytes, offsetof(CK_ECDH1_DERIVE_PARAMS, ulPublicDataLen), publicDataLength);
    memory.pointers.push_back(
        {offsetof(CK_ECDH1_DERIVE_PARAMS, pSharedData), std::move(sharedData)});
    memory.pointers.push_back(
        {offsetof(CK_ECDH1_DERIVE_PARAMS, pPublicData), std::move(publicData)});
    return inMemory(std::move(memory));
}

Arg ecPoint() {
    std::vector<unsigned char> point = pattern(65);
    point[0] = 0x04;
    return input(point);
}

Arg extendedTo(const Arg& memory, std::size_t size) {
    Memory extended = *memory.memory;
    const std::vector<unsigned char> tail = pattern(size);
    extended.bytes.insert(extended.bytes.end(), tail.begin() + extended.bytes.size(), tail.end());
    extended.name += " in " + std::to_string(size) + " bytes";
    return inMemory(std::move(extended));
}

Attribute attribute(CK_ATTRIBUTE_TYPE type, Arg value, CK_ULONG length) {
    return {type, std::move(value), length, false};
}

Attribute attributeOut(CK_ATTRIBUTE_TYPE type, Arg value, CK_ULONG length) {
    return {type, std::move(value), length, true};
}

Attribute numberAttribute(CK_ATTRIBUTE_TYPE type, CK_ULONG value) {
    return attribute(type, input(ulongBytes(value)), sizeof(CK_ULONG));
}

Arg attributes(const std::vector<Attribute>& entries) {
    Memory memory;
    memory.name = "template[" + std::to_string(entries.size()) + "]";
    memory.bytes.assign(entries.size() * sizeof(CK_ATTRIBUTE), 0);
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const std::size_t at = i * sizeof(CK_ATTRIBUTE);
        put(memory.bytes, at + offsetof(CK_ATTRIBUTE, type), entries[i].type);
        put(memory.bytes, at + offsetof(CK_ATTRIBUTE, ulValueLen), entries[i].length);
        memory.pointers.push_back({at + offsetof(CK_ATTRIBUTE, pValue), entries[i].value});
        if (entries[i].lengthOut) {
            const std::size_t length = at + offsetof(CK_ATTRIBUTE, ulValueLen);
            memory.writable.push_back({length, length + sizeof(CK_ULONG)});
        }
    }
    return inMemory(std::move(memory));
}

std::vector<Arg> badSessions() {
    std::vector<Arg> handles = {num(0), num(0x60000000), session(1), num(0xFFFFFFFF)};
    if (kWide) {
        handles.push_back(session(kAbove32Bits));
    }
    return handles;
}

std::vector<Arg> badSlots() {
    std::vector<Arg> slots = {num(0), num(0x50000000), slot(1), num(0xFFFFFFFF)};
    if (kWide) {
        slots.push_back(slot(kAbove32Bits));
    }
    return slots;
}

std::vector<Arg> objectHandles() {
    return {num(0),          num(0x6FFFFFFF), num(0x70000000), num(0x70000002), num(0x70000FFF),
            num(0x70001000), num(0x70001FFF), num(0x70002000), num(0x70002002), num(0x70002FFF),
            num(0x70003000), nextDerived(),   num(0xFFFFFFFF)};
}

std::vector<Arg> wideObjectHandles() {
    if (!kWide) {
        return {};
    }
    return {num(kAbove32Bits + 0x70000000), num(kAbove32Bits + 0x70001FFF),
            num(kAbove32Bits + 0x70002FFF), num(kAbove32Bits + 0x70003000)};
}

std::vector<Row> sweep(const Row& pattern, const std::vector<Arg>& handles,
                       const std::vector<CK_RV>& codes) {
    if (codes.size() != handles.size()) {
        throw std::invalid_argument(pattern.entry + ": one code per handle of the sweep");
    }
    std::vector<Row> rows;
    for (std::size_t i = 0; i < handles.size(); ++i) {
        Row row = pattern;
        for (Arg& arg : row.args) {
            if (arg.kind == Arg::Kind::Sweep) {
                arg = handles[i];
            }
        }
        row.expected = codes[i];
        rows.push_back(std::move(row));
    }
    return rows;
}

std::vector<Row> sweep(const Row& pattern, const std::vector<Arg>& handles, CK_RV code) {
    return sweep(pattern, handles, std::vector<CK_RV>(handles.size(), code));
}

std::vector<Row> objectSweep(const Row& pattern, const std::vector<CK_RV>& codes, CK_RV wideCode) {
    std::vector<Row> rows = sweep(pattern, objectHandles(), codes);
    for (Row& row : sweep(pattern, wideObjectHandles(), wideCode)) {
        rows.push_back(std::move(row));
    }
    return rows;
}

}  // namespace matrix
