#include "crypto/operation_rules.h"

#include <algorithm>

namespace {

// Which prior codes each Init accepts, and the code it turns each into. Data, not branches:
// the table is the rule.
struct InitRule {
    OperationInit init;
    std::uint32_t fromNone;    // the code after an Init over no operation
    std::uint32_t fromDigest;  // after an Init over a running digest; kOperationNone: refused
};

constexpr InitRule kInitRules[] = {
    {OperationInit::Digest, kOperationDigest, kOperationDigest},  // a digest is restarted
    {OperationInit::Sign, kOperationSign, kOperationNone},
    {OperationInit::Verify, kOperationVerify, kOperationVerify},  // the digest is replaced
    {OperationInit::Encrypt, kOperationEncrypt, kOperationEncryptOverDigest},
    {OperationInit::Decrypt, kOperationDecrypt, kOperationDecryptOverDigest},
};

const InitRule& ruleOf(OperationInit init) {
    return *std::find_if(std::begin(kInitRules), std::end(kInitRules),
                         [init](const InitRule& rule) { return rule.init == init; });
}

}  // namespace

InitAdmission admitInit(const ExportCall& call, const OperationContext& operation,
                        OperationInit init) {
    const InitRule& rule = ruleOf(init);
    const std::uint32_t prior = operation.activeOperation;
    std::uint32_t next = kOperationNone;
    if (prior == kOperationNone) {
        next = rule.fromNone;
    } else if (prior == kOperationDigest) {
        next = rule.fromDigest;
    }
    if (next == kOperationNone) {
        return {call.reject(CKR_OPERATION_ACTIVE,
                            "operation already active, activeOperation=" + decimalText(prior)),
                kOperationNone};
    }
    return {CKR_OK, next};
}

CK_RV requireActiveOperation(const ExportCall& call, const OperationContext& operation,
                             std::uint32_t expected) {
    if (operation.activeOperation == expected) {
        return CKR_OK;
    }
    return call.reject(
        CKR_OPERATION_NOT_INITIALIZED,
        "operation not initialized, activeOperation=" + decimalText(operation.activeOperation));
}

CK_RV requireSessionState(const ExportCall& call, const SessionAccess& session,
                          std::initializer_list<CK_STATE> allowed) {
    const CK_STATE state = session.state();
    if (std::find(allowed.begin(), allowed.end(), state) != allowed.end()) {
        return CKR_OK;
    }
    return call.reject(CKR_SESSION_HANDLE_INVALID, "invalid session state=" + decimalText(state));
}
