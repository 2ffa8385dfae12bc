#include "platform/key_derivation.h"

#include <array>
#include <cstdint>
#include <string_view>

#include <openssl/evp.h>

#include "platform/utilities.h"

namespace csi_receiver {
namespace {

constexpr std::string_view passphrase = "KestrelHarbour";
constexpr int iterations = 4096;

} // namespace

std::string derive_psk(const std::string& salt) {
    std::array<std::uint8_t, 32> key{};
    const int derived = PKCS5_PBKDF2_HMAC_SHA1(
        passphrase.data(), static_cast<int>(passphrase.size()),
        reinterpret_cast<const unsigned char*>(salt.data()), static_cast<int>(salt.size()),
        iterations, static_cast<int>(key.size()), key.data());
    return derived == 1 ? to_hex(key.data(), key.size(), "") : std::string();
}

} // namespace csi_receiver
