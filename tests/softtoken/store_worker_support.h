// What the two store workers share: the journal they write (store_journal.h), the labels and
// certificates they make, and the loop that runs their operations. store_worker.cpp changes a
// token through the device library, module_worker.cpp through the PKCS #11 module.
#pragma once

#include <openssl/evp.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace softtoken::testing {

class JournalWriter {
public:
    // Appends to the journal at path; ok() is false when it cannot be opened.
    JournalWriter(const char* path, std::string tag);
    ~JournalWriter();
    JournalWriter(const JournalWriter&) = delete;
    JournalWriter& operator=(const JournalWriter&) = delete;

    bool ok() const { return file_ >= 0; }
    const std::string& tag() const { return tag_; }

    // One write() per line, so that a kill leaves whole lines only. A line that cannot be
    // written ends the process with status 3: a journal with a gap would prove nothing.
    void record(const std::string& line);

    // TAG-1, TAG-2, ...: unique across the runs of one test, since every run has its own tag.
    std::string nextLabel() { return tag_ + "-" + std::to_string(++sequence_); }

private:
    int file_ = -1;
    std::string tag_;
    int sequence_ = 0;
};

// A self-signed X.509 certificate of key, as DER, valid for a day; serial makes each distinct.
std::vector<unsigned char> selfSignedDer(EVP_PKEY* key, const std::string& commonName,
                                         std::int64_t serial);

// Runs step until it answers an exit status other than 0, or `operations` times (0: until
// killed). Once the first step is done, writes one byte to the descriptor readyArgument names
// (when there is one): the slow start is then behind the worker, and a kill soon after lands
// among its writes. The worker's exit status.
int runSteps(long operations, const char* readyArgument, const std::function<int()>& step);

}  // namespace softtoken::testing
