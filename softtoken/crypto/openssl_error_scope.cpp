#include "crypto/openssl_error_scope.h"

#include <openssl/err.h>

namespace softtoken {

// ERR_set_mark marks the newest error, if there is one; ERR_pop_to_mark then drops everything
// raised after it, or the whole queue when there was none, which is then all ours.
OpensslErrorScope::OpensslErrorScope() noexcept {
    ERR_set_mark();
}

OpensslErrorScope::~OpensslErrorScope() {
    ERR_pop_to_mark();
}

}  // namespace softtoken
