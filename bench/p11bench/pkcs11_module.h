// A PKCS #11 module loaded by path, as an application loads it, with the few steps the
// benchmark needs: a logged-in session on the first slot, keys found by label.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "cryptoki/cryptoki.h"

// A Cryptoki call that did not answer CKR_OK.
class Pkcs11Error : public std::runtime_error {
public:
    Pkcs11Error(const std::string& call, CK_RV rv);
    CK_RV rv() const { return rv_; }

private:
    CK_RV rv_;
};

// Throws Pkcs11Error unless rv is CKR_OK.
void check(const char* call, CK_RV rv);

class Pkcs11Module {
public:
    // Loads and initialises the module; the first slot with a token is used.
    explicit Pkcs11Module(const std::string& path);
    ~Pkcs11Module();
    Pkcs11Module(const Pkcs11Module&) = delete;
    Pkcs11Module& operator=(const Pkcs11Module&) = delete;

    const CK_FUNCTION_LIST& api() const { return *functions_; }
    CK_SLOT_ID slot() const { return slot_; }

    CK_SESSION_HANDLE openSession() const;
    void login(CK_SESSION_HANDLE session, const std::string& pin) const;
    void closeSession(CK_SESSION_HANDLE session) const;

    // The one object of this class and label; throws when there is none.
    CK_OBJECT_HANDLE findObject(CK_SESSION_HANDLE session, CK_OBJECT_CLASS objectClass,
                                const std::string& label) const;
    // Every object the session may see, by one complete search.
    std::vector<CK_OBJECT_HANDLE> findAll(CK_SESSION_HANDLE session) const;

private:
    void* library_ = nullptr;
    CK_FUNCTION_LIST_PTR functions_ = nullptr;
    CK_SLOT_ID slot_ = 0;
};
