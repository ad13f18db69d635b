// The bad-input matrix: every exported entry point called with null pointers, zero and huge
// lengths, handles outside their ranges, garbage mechanisms and parameters, and templates with
// null values, zero lengths and huge counts.
//
// A row is data: the entry point's name, the state the row's session is put in first, the
// arguments, and the code the call must answer. One runner (bad_input_matrix_test.cpp) makes
// every call twice, before C_Initialize and after it, hands the module only memory it owns and
// compares that memory byte by byte afterwards, and after each row proves that the module still
// works (a session opens, a login works, a signature and a search succeed).
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cryptoki/cryptoki.h"

namespace matrix {

// CK_ULONG is 64 bits wide on 64-bit Linux and 32 bits on Windows: rows whose values need more
// than 32 bits exist only where it is wider.
constexpr bool kWide = sizeof(CK_ULONG) > 4;
// 2^32 where CK_ULONG is wider than 32 bits, else 0 (and then no row uses it).
constexpr CK_ULONG kAbove32Bits = (CK_ULONG{1} << 16) << 16;

// The token of the matrix: one device in slot 0x50000001, a FIPS 140-3 model, firmware 2.1.0.
// Key pairs 0 (EC P-256), 1 (RSA-2048) and 0xFFF (RSA-2048); certificates 0, 1 and 0xFFF; one
// derived key made before the rows (so 0x70003000 names a derived key).
constexpr const char* kDevice = "MTX1";
constexpr CK_SLOT_ID kSlot = 0x50000001;
constexpr CK_OBJECT_HANDLE kEcPrivate = 0x70000000;
constexpr CK_OBJECT_HANDLE kRsaPrivate = 0x70000001;
constexpr CK_OBJECT_HANDLE kRsaPublic = 0x70001001;
constexpr CK_ULONG kUserPinLength = 6;

struct Memory;

// One argument of a call.
struct Arg {
    enum class Kind {
        Number,       // `value` as it stands
        Session,      // the row's session handle plus `value`
        Slot,         // the token's slot ID plus `value`
        NextDerived,  // the handle C_DeriveKey would give next: it names nothing yet
        Sweep,        // stands for each handle of a sweep in turn (see sweep())
        Null,         // a null pointer
        NoAccess,     // a pointer into a page that may be neither read nor written
        Memory,       // a pointer to memory the runner owns and compares afterwards
    };
    Kind kind = Kind::Number;
    CK_ULONG value = 0;
    std::shared_ptr<const Memory> memory;
};

// Memory handed to the module: its bytes before the call, pointers inside it to other memory,
// and what the module may change in it when the call answers as the row expects.
struct Memory {
    struct Pointer {
        std::size_t offset;
        Arg target;
    };
    struct Range {
        std::size_t begin;
        std::size_t end;
    };
    std::string name;  // for messages: "in[16]", "template[2]"
    std::vector<unsigned char> bytes;
    std::vector<Pointer> pointers;
    std::vector<Range> writable;
    // When set, the bytes the memory holds after the call (memory without pointers only).
    std::optional<std::vector<unsigned char>> after;
};

Arg num(CK_ULONG value);
Arg session(CK_ULONG plus = 0);
Arg slot(CK_ULONG plus = 0);
Arg nextDerived();
Arg swept();
Arg null();
Arg noAccess();

// Bytes the module may read but not change: a pattern without NUL bytes, or the given bytes.
Arg input(std::size_t size);
Arg input(const std::vector<unsigned char>& bytes);
// `size` pattern bytes of which the first `mayWrite` may change.
Arg output(std::size_t size, std::size_t mayWrite);
// `size` pattern bytes of which only the given ranges may change.
Arg outputRanges(const std::string& name, std::size_t size,
                 const std::vector<Memory::Range>& writable);
// One CK_ULONG: read only, or one the module may write (and then must hold `expected`, if given).
Arg ulongIn(CK_ULONG value);
Arg ulongOut(CK_ULONG value, std::optional<CK_ULONG> expected = std::nullopt);
// A CK_MECHANISM.
Arg mechanism(CK_MECHANISM_TYPE type, Arg parameter = null(), CK_ULONG parameterLength = 0);
// CK_ECDH1_DERIVE_PARAMS.
Arg ecdhParameters(CK_EC_KDF_TYPE kdf, Arg publicData, CK_ULONG publicDataLength,
                   Arg sharedData = null(), CK_ULONG sharedDataLength = 0);
// A P-256 point 04 || X || Y, as the device takes it for ECDH with key pair 0.
Arg ecPoint();
// The same memory followed by pattern bytes up to `size` bytes in all.
Arg extendedTo(const Arg& memory, std::size_t size);

// One CK_ATTRIBUTE of a template; `lengthOut` lets the module write its ulValueLen.
struct Attribute {
    CK_ATTRIBUTE_TYPE type;
    Arg value;
    CK_ULONG length;
    bool lengthOut;
};
Attribute attribute(CK_ATTRIBUTE_TYPE type, Arg value, CK_ULONG length);
Attribute attributeOut(CK_ATTRIBUTE_TYPE type, Arg value, CK_ULONG length);
// A CK_ULONG-valued attribute (class, key type, bits) with a value of its own width.
Attribute numberAttribute(CK_ATTRIBUTE_TYPE type, CK_ULONG value);
Arg attributes(const std::vector<Attribute>& entries);

// What the runner does to the row's session before the call.
enum class Before {
    Session,         // a read-write public session
    UserSession,     // a read-write session, logged in as the user
    Search,          // a user session with a search over every object in progress
    Digesting,       // C_DigestInit with CKM_SHA256
    Signing,         // a user session, C_SignInit with CKM_RSA_PKCS and key pair 1
    SigningHashed,   // a user session, C_SignInit with CKM_SHA256_RSA_PKCS, one C_SignUpdate
    Verifying,       // C_VerifyInit with CKM_RSA_PKCS and key pair 1
    Encrypting,      // C_EncryptInit with CKM_RSA_PKCS and key pair 1
    Decrypting,      // a user session, C_DecryptInit with CKM_RSA_PKCS and key pair 1
    DecryptingKept,  // the same, with 16 bytes decrypted by a length query and kept
    NoEventPending,  // every slot event collected
};

struct Row {
    std::string entry;
    Before before;
    std::vector<Arg> args;
    CK_RV expected;
    // The writable ranges apply to the expected failure too (a template filled in part).
    bool writesOnFailure = false;
};

// The handles a sweep tries. Bad session handles and bad slot IDs (0, just below the first, the
// next one after the valid one, 0xFFFFFFFF, and a valid one plus 2^32); object handles at and
// around each range's edges.
std::vector<Arg> badSessions();
std::vector<Arg> badSlots();
std::vector<Arg> objectHandles();
// The object handles above 32 bits: a valid handle of each kind plus 2^32 (none on Windows).
std::vector<Arg> wideObjectHandles();

// Short names the row files share, so that a row reads as one line.
constexpr Before kSession = Before::Session;
constexpr Before kUser = Before::UserSession;
constexpr CK_RV kOk = CKR_OK;
constexpr CK_RV kArgs = CKR_ARGUMENTS_BAD;
constexpr CK_RV kKey = CKR_KEY_HANDLE_INVALID;
constexpr CK_RV kSessionInvalid = CKR_SESSION_HANDLE_INVALID;

inline void append(std::vector<Row>& rows, const std::vector<Row>& more) {
    rows.insert(rows.end(), more.begin(), more.end());
}

// One row per handle: `pattern` with its Sweep argument replaced by each handle, answering
// the code of the same position (or `code` for all).
std::vector<Row> sweep(const Row& pattern, const std::vector<Arg>& handles,
                       const std::vector<CK_RV>& codes);
std::vector<Row> sweep(const Row& pattern, const std::vector<Arg>& handles, CK_RV code);
// objectHandles() with one code per handle, then wideObjectHandles() with `wideCode`.
std::vector<Row> objectSweep(const Row& pattern, const std::vector<CK_RV>& codes, CK_RV wideCode);

// Mechanism types no function of the module takes, and (where CK_ULONG is wider) `accepted`
// plus 2^32 (bad_input_rows_crypto.cpp).
std::vector<CK_MECHANISM_TYPE> badMechanisms(CK_MECHANISM_TYPE accepted);
// Parameters for a mechanism that takes none, each refused before it is read.
std::vector<Arg> parametersOf(CK_MECHANISM_TYPE type);
// Lengths no device call can carry: above the device's int, and `small` plus 2^32.
std::vector<CK_ULONG> tooLong(CK_ULONG small);

// The rows, by chapter.
std::vector<Row> generalRows();  // start and stop, library information, unsupported entries
std::vector<Row> slotRows();
std::vector<Row> sessionRows();
std::vector<Row> objectRows();
std::vector<Row> cryptoRows();  // digests, signatures, ciphers, then keyRows(), mechanismRows()
// Parts of cryptoRows().
std::vector<Row> keyRows();        // key-pair generation, derivation, random numbers
std::vector<Row> mechanismRows();  // every mechanism and parameter length given to every Init

// ---- Entry points (bad_input_entry_points.cpp) ----

// What the runner passes for one argument: a number, or a pointer.
struct CallValue {
    CK_ULONG number = 0;
    void* pointer = nullptr;
};

// One exported function: its name, which of its parameters are pointers, and a call of it with
// one value per parameter.
struct EntryPoint {
    std::string name;
    std::vector<bool> pointerParameters;
    std::function<CK_RV(const std::vector<CallValue>&)> call;
};

// The 68 standard entry points and the maker's three.
const std::vector<EntryPoint>& entryPoints();
// The entry point of that name, or null.
const EntryPoint* findEntryPoint(const std::string& name);
// Whether the module does not offer the entry point: then it answers CKR_FUNCTION_NOT_SUPPORTED
// before and after initialisation and touches no argument.
bool isUnsupported(const std::string& name);
// Every row of the matrix: the chapters above, with rows for each unsupported entry point.
std::vector<Row> allRows();

// ---- The memory of one call (bad_input_call_memory.cpp) ----

// A page that may be neither read nor written: the module touching it ends the process.
void* noAccessPage();

// The arguments of one call: numbers as they are, memory laid out in blocks of its own, and
// afterwards what changed in those blocks.
class CallMemory {
public:
    CallMemory(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE nextDerived);

    // The value passed for `arg`; memory is placed in blocks that live as long as this object.
    CallValue value(const Arg& arg);

    // What changed where nothing may change: outside the writable ranges (anywhere when writes
    // are not allowed), past the end, or different from what a successful call must leave.
    std::vector<std::string> misuses(bool writesAllowed) const;

private:
    struct Block {
        const Memory* memory;
        std::unique_ptr<unsigned char[]> storage;
        std::vector<unsigned char> before;
    };

    static bool writable(const Memory& memory, std::size_t offset);
    void* place(const Memory& memory);

    CK_SESSION_HANDLE session_;
    CK_OBJECT_HANDLE nextDerived_;
    std::vector<std::unique_ptr<Block>> blocks_;
};

}  // namespace matrix
