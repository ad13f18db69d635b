// SecretString: a PIN's bytes are overwritten whenever the value goes.
#include "sessions/secret_string.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(SecretString, ClearAndReplaceOverwriteTheOldBytes) {
    SecretString secret("12345678", 8);
    const char* buffer = secret.c_str();
    secret.assign("ab", 2);
    ASSERT_EQ(secret.c_str(), buffer);  // same buffer, so its old contents can be inspected
    EXPECT_EQ(std::string(buffer, 8), std::string("ab\0\0\0\0\0\0", 8));
    secret.clear();
    EXPECT_EQ(std::string(buffer, 2), std::string(2, '\0'));
}

TEST(SecretString, EqualsComparesLengthAndEveryByte) {
    const char withNul[] = {'1', '2', '\0', '4'};
    const char lastDiffers[] = {'1', '2', '\0', '5'};
    const SecretString secret(withNul, 4);
    EXPECT_TRUE(secret.equals(withNul, 4));
    EXPECT_FALSE(secret.equals(withNul, 2));
    EXPECT_FALSE(secret.equals(lastDiffers, 4));
}

}  // namespace
