// The derivation of keys. Only built where libcrypto is.
#include <string>

#include <gtest/gtest.h>

#include "platform/key_derivation.h"

using namespace csi_receiver;

TEST(key_derivation, derived_keys) {
    // The passphrase is fixed, so the key of a network name is, too; computed by another program.
    EXPECT_EQ(derive_psk("csi-lab"),
              "75b9a9cf24d4ed37605f0cc01bdfe67b70a7eb98695a0b13e0b7bdd377c72296");
    EXPECT_NE(derive_psk(std::string("a\0b", 3)), derive_psk("a"));
}
