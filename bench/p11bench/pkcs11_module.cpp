#include "p11bench/pkcs11_module.h"

#include <dlfcn.h>

#include <cstdio>

Pkcs11Error::Pkcs11Error(const std::string& call, CK_RV rv)
    : std::runtime_error([&] {
          char code[32];
          std::snprintf(code, sizeof code, "0x%lX", static_cast<unsigned long>(rv));
          return call + " answered " + code;
      }()),
      rv_(rv) {}

void check(const char* call, CK_RV rv) {
    if (rv != CKR_OK) {
        throw Pkcs11Error(call, rv);
    }
}

Pkcs11Module::Pkcs11Module(const std::string& path) {
    library_ = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library_ == nullptr) {
        throw std::runtime_error("cannot load " + path + ": " + ::dlerror());
    }
    auto* getFunctionList = reinterpret_cast<CK_RV (*)(CK_FUNCTION_LIST_PTR_PTR)>(
        ::dlsym(library_, "C_GetFunctionList"));
    if (getFunctionList == nullptr) {
        throw std::runtime_error(path + " has no C_GetFunctionList");
    }
    check("C_GetFunctionList", getFunctionList(&functions_));
    // Several threads call in: the module must use the system's locks (SoftHSMv2 takes none
    // without this flag and crashes under the threaded scenarios).
    CK_C_INITIALIZE_ARGS arguments{};
    arguments.flags = CKF_OS_LOCKING_OK;
    check("C_Initialize", functions_->C_Initialize(&arguments));
    CK_SLOT_ID slots[16];
    CK_ULONG count = 16;
    check("C_GetSlotList", functions_->C_GetSlotList(CK_TRUE, slots, &count));
    if (count == 0) {
        throw std::runtime_error(path + " shows no token");
    }
    slot_ = slots[0];
}

Pkcs11Module::~Pkcs11Module() {
    if (functions_ != nullptr) {
        functions_->C_Finalize(nullptr);
    }
    if (library_ != nullptr) {
        ::dlclose(library_);
    }
}

CK_SESSION_HANDLE Pkcs11Module::openSession() const {
    CK_SESSION_HANDLE session = 0;
    check("C_OpenSession", functions_->C_OpenSession(slot_, CKF_SERIAL_SESSION | CKF_RW_SESSION,
                                                     nullptr, nullptr, &session));
    return session;
}

void Pkcs11Module::login(CK_SESSION_HANDLE session, const std::string& pin) const {
    std::string text = pin;
    const CK_RV rv =
        functions_->C_Login(session, CKU_USER, reinterpret_cast<CK_UTF8CHAR_PTR>(text.data()),
                            static_cast<CK_ULONG>(text.size()));
    if (rv != CKR_USER_ALREADY_LOGGED_IN) {
        check("C_Login", rv);
    }
}

void Pkcs11Module::closeSession(CK_SESSION_HANDLE session) const {
    check("C_CloseSession", functions_->C_CloseSession(session));
}

CK_OBJECT_HANDLE Pkcs11Module::findObject(CK_SESSION_HANDLE session, CK_OBJECT_CLASS objectClass,
                                          const std::string& label) const {
    std::string text = label;
    CK_ATTRIBUTE search[] = {{CKA_CLASS, &objectClass, sizeof objectClass},
                             {CKA_LABEL, text.data(), static_cast<CK_ULONG>(text.size())}};
    check("C_FindObjectsInit", functions_->C_FindObjectsInit(session, search, 2));
    CK_OBJECT_HANDLE found = 0;
    CK_ULONG count = 0;
    check("C_FindObjects", functions_->C_FindObjects(session, &found, 1, &count));
    check("C_FindObjectsFinal", functions_->C_FindObjectsFinal(session));
    if (count == 0) {
        throw std::runtime_error("no object labelled " + label);
    }
    return found;
}

std::vector<CK_OBJECT_HANDLE> Pkcs11Module::findAll(CK_SESSION_HANDLE session) const {
    check("C_FindObjectsInit", functions_->C_FindObjectsInit(session, nullptr, 0));
    std::vector<CK_OBJECT_HANDLE> found(4096);
    CK_ULONG count = 0;
    check("C_FindObjects", functions_->C_FindObjects(session, found.data(),
                                                     static_cast<CK_ULONG>(found.size()), &count));
    check("C_FindObjectsFinal", functions_->C_FindObjectsFinal(session));
    found.resize(count);
    return found;
}
