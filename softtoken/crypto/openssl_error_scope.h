// Keeps the calling thread's OpenSSL error queue as an operation found it.
//
// The token shares libcrypto, and with it each thread's error queue, with the application that
// loaded the module. Errors the token's own parsing and arithmetic raise are answered as device
// results; left in the queue, they would make an OpenSSL application (a TLS client checking
// SSL_get_error, a tool printing ERR_print_errors) take them for failures of its own. The
// application's own errors, raised before the call, stay where they are.
#pragma once

namespace softtoken {

class OpensslErrorScope {
public:
    OpensslErrorScope() noexcept;
    ~OpensslErrorScope();
    OpensslErrorScope(const OpensslErrorScope&) = delete;
    OpensslErrorScope& operator=(const OpensslErrorScope&) = delete;
};

}  // namespace softtoken
