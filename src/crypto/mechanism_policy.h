// The mechanism policy shared by the mechanism catalogue and the cryptographic operations: which
// tokens run in FIPS 140-3 mode, and how firmware version texts compare.
#pragma once

#include <string>
#include <vector>

// The one firmware version that every gated mechanism (RSA-PSS, RSA-OAEP, ECDH) requires.
inline constexpr const char* kGatedMechanismFirmware = "2.0.0";

// A token is in FIPS 140-3 mode unless its model text is longer than two characters and its
// third character is '1'. Short or empty model texts count as FIPS 140-3, deliberately
// (compatibility register, entry 33).
bool isFips1403Token(const std::string& model);

// The numeric fields of a dotted version text: split at every '.' the way std::getline reads
// it (an empty text has no fields, a trailing '.' adds none), each field read as atoi reads it
// (leading white space, optional sign, digits up to the first non-digit, 0 without digits).
std::vector<int> versionFields(const std::string& text);

// -1, 0 or 1 as a is below, equal to or above b, field by field; a missing field counts as 0,
// so "2", "2.0" and "2.0.0" are equal.
int compareVersions(const std::string& a, const std::string& b);

// True when the firmware version text is at least the required one.
bool firmwareAtLeast(const std::string& firmware, const std::string& required);
