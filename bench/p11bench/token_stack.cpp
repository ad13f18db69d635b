#include "p11bench/token_stack.h"

TokenStack::TokenStack(const StackOptions& options, EVP_PKEY* certificateKey)
    : options_(options), module_(options.path) {
    // Objects first, without login: a public object needs none on either kind of token.
    fillWithCertificates(certificateKey);
    for (int i = 0; i < kSessions; ++i) {
        sessions_.push_back(module_.openSession());
    }
    module_.login(sessions_[0], options_.pin);
    rsa2048_ = module_.findObject(sessions_[0], CKO_PRIVATE_KEY, kRsa2048Label);
    rsa2048Public_ = module_.findObject(sessions_[0], CKO_PUBLIC_KEY, kRsa2048Label);
    rsa3072_ = module_.findObject(sessions_[0], CKO_PRIVATE_KEY, kRsa3072Label);
    p256_ = module_.findObject(sessions_[0], CKO_PRIVATE_KEY, kP256Label);
    // Imported keys may not be marked for derivation; a module that keeps the mark asks for it.
    CK_BBOOL yes = CK_TRUE;
    CK_ATTRIBUTE derive{CKA_DERIVE, &yes, sizeof yes};
    static_cast<void>(module_.api().C_SetAttributeValue(sessions_[0], p256_, &derive, 1));
}

void TokenStack::fillWithCertificates(EVP_PKEY* certificateKey) {
    const CK_SESSION_HANDLE session = module_.openSession();
    const std::size_t present = module_.findAll(session).size();
    if (present < options_.objects) {
        CK_OBJECT_CLASS certificateClass = CKO_CERTIFICATE;
        CK_CERTIFICATE_TYPE x509 = CKC_X_509;
        CK_BBOOL yes = CK_TRUE;
        for (Certificate& made : makeCertificates(certificateKey, options_.objects - present)) {
            std::string label = "bench certificate";
            CK_ATTRIBUTE create[] = {
                {CKA_CLASS, &certificateClass, sizeof certificateClass},
                {CKA_CERTIFICATE_TYPE, &x509, sizeof x509},
                {CKA_TOKEN, &yes, sizeof yes},
                {CKA_LABEL, label.data(), static_cast<CK_ULONG>(label.size())},
                {CKA_VALUE, made.der.data(), static_cast<CK_ULONG>(made.der.size())},
                {CKA_SUBJECT, made.subject.data(), static_cast<CK_ULONG>(made.subject.size())},
            };
            CK_OBJECT_HANDLE handle = 0;
            check("C_CreateObject", module_.api().C_CreateObject(session, create, 6, &handle));
        }
    }
    module_.closeSession(session);
}
