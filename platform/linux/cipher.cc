// SPDX-License-Identifier: Apache-2.0
//
// Password cipher, type 7: the reversible form of server keys. A sealed key is
// text of a fixed shape, two decimal digits and an even number of hex digits:
//
//     GG  generation of the master key
//     01  version of the rest
//     24 bytes random nonce, then ciphertext and 16 bytes of authentication tag
//         (XChaCha20-Poly1305)
//
// Generation, version and type are authenticated too: a change of any character
// of a sealed key is detected.

#include "platform/cipher.h"

#include <sodium.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "log.hpp"
#include "master_keys.hpp"

namespace aaaplatform {

namespace {

constexpr int kReversible = 7;
constexpr unsigned char kVersion = 1;
constexpr std::size_t kMaxClear = 4096;
constexpr std::size_t kNonceSize = crypto_aead_xchacha20poly1305_ietf_NPUBBYTES;
constexpr std::size_t kTagSize = crypto_aead_xchacha20poly1305_ietf_ABYTES;
constexpr std::size_t kOverhead = 1 + kNonceSize + kTagSize;
constexpr std::size_t kMaxSealed = kOverhead + kMaxClear;

struct Free {
    void operator()(void *p) const { std::free(p); }
};

using Text = std::unique_ptr<char, Free>;
using Bytes = std::unique_ptr<unsigned char, Free>;

struct AssociatedData {
    unsigned char bytes[3];
};

AssociatedData associated_data(unsigned generation, unsigned char version) {
    return {{static_cast<unsigned char>(generation), version, kReversible}};
}

char *fail(const char *mnemonic, const char *why) {
    log(kLogError, mnemonic, "%s", why);
    return nullptr;
}

bool ready(int type, const char *mnemonic) {
    if (type != kReversible) {
        fail(mnemonic, "The password type is not 7, the only reversible one");
        return false;
    }
    if (sodium_init() < 0) {
        fail(mnemonic, "The system provides no random numbers; no key can be sealed or opened");
        return false;
    }
    return true;
}

char *seal(const char *text, const MasterKey &master) {
    const std::size_t clear_size = std::strlen(text);
    const std::size_t sealed_size = kOverhead + clear_size;
    Bytes sealed(static_cast<unsigned char *>(std::malloc(sealed_size)));
    Text out(static_cast<char *>(std::malloc(2 + 2 * sealed_size + 1)));
    if (!sealed || !out) {
        return fail("ENCRYPT_FAILED", "Not enough memory to seal a key");
    }
    unsigned char *nonce = sealed.get() + 1;
    sealed.get()[0] = kVersion;
    randombytes_buf(nonce, kNonceSize);
    const AssociatedData data = associated_data(master.generation, kVersion);
    crypto_aead_xchacha20poly1305_ietf_encrypt(nonce + kNonceSize, nullptr,
                                               reinterpret_cast<const unsigned char *>(text), clear_size,
                                               data.bytes, sizeof data.bytes, nullptr, nonce, master.key);
    out.get()[0] = static_cast<char>('0' + master.generation / 10);
    out.get()[1] = static_cast<char>('0' + master.generation % 10);
    sodium_bin2hex(out.get() + 2, 2 * sealed_size + 1, sealed.get(), sealed_size);
    return out.release();
}

struct Sealed {
    unsigned generation;
    Bytes bytes;
    std::size_t size;
};

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

enum class Form { kGood, kBad, kNoMemory };

// Parses a sealed key. The second character is read only when the first one is a
// digit, so nothing is read past the end of a short text.
Form take_apart(const char *text, Sealed *out) {
    if (text == nullptr || !is_digit(text[0]) || !is_digit(text[1])) {
        return Form::kBad;
    }
    out->generation = static_cast<unsigned>(text[0] - '0') * 10 + static_cast<unsigned>(text[1] - '0');
    const char *hex = text + 2;
    const std::size_t len = strnlen(hex, 2 * kMaxSealed + 1);
    if (len > 2 * kMaxSealed || len % 2 != 0 || len < 2 * kOverhead) {
        return Form::kBad;
    }
    out->bytes.reset(static_cast<unsigned char *>(std::malloc(len / 2)));
    if (!out->bytes) {
        return Form::kNoMemory;
    }
    const bool good =
        sodium_hex2bin(out->bytes.get(), len / 2, hex, len, nullptr, &out->size, nullptr) == 0 &&
        out->size == len / 2 && out->bytes.get()[0] == kVersion;
    return good ? Form::kGood : Form::kBad;
}

char *open_sealed(const Sealed &sealed, const MasterKey &master) {
    const unsigned char *nonce = sealed.bytes.get() + 1;
    const std::size_t clear_size = sealed.size - kOverhead;
    Text clear(static_cast<char *>(std::malloc(clear_size + 1)));
    if (!clear) {
        return fail("DECRYPT_FAILED", "Not enough memory to open a sealed key");
    }
    const AssociatedData data = associated_data(sealed.generation, sealed.bytes.get()[0]);
    if (crypto_aead_xchacha20poly1305_ietf_decrypt(reinterpret_cast<unsigned char *>(clear.get()), nullptr,
                                                   nullptr, nonce + kNonceSize, clear_size + kTagSize,
                                                   data.bytes, sizeof data.bytes, nonce, master.key) != 0) {
        log(kLogError, "DECRYPT_FAILED",
            "A sealed key of generation %02u was changed, or was sealed with another master key; enter it "
            "again",
            sealed.generation);
        return nullptr;
    }
    clear.get()[clear_size] = '\0';
    return clear.release();
}

char *decrypt(const char *text, int type) {
    Sealed sealed{};
    switch (take_apart(text, &sealed)) {
        case Form::kBad:
            return fail(
                "DECRYPT_FAILED",
                "A sealed key is malformed; it was cut, changed or made by another system; enter it again");
        case Form::kNoMemory:
            return fail("DECRYPT_FAILED", "Not enough memory to open a sealed key");
        case Form::kGood:
            break;
    }
    MasterKeys keys;
    if (!ready(type, "DECRYPT_FAILED") || !keys.read(master_keys_path())) {
        return nullptr;
    }
    const MasterKey *master = keys.find(sealed.generation);
    if (master == nullptr) {
        log(kLogError, "DECRYPT_FAILED",
            "%s: no master key of generation %02u, with which a key was sealed; restore it",
            master_keys_path(), sealed.generation);
        return nullptr;
    }
    return open_sealed(sealed, *master);
}

char *encrypt(const char *text, int type) {
    if (text == nullptr || strnlen(text, kMaxClear + 1) > kMaxClear) {
        return fail("ENCRYPT_FAILED", "A key to be sealed is missing or longer than 4096 characters");
    }
    MasterKeys keys;
    if (!ready(type, "ENCRYPT_FAILED") || !keys.read(master_keys_path())) {
        return nullptr;
    }
    return seal(text, *keys.newest());
}

}  // namespace

}  // namespace aaaplatform

using namespace aaaplatform;

extern "C" {

char *pw_encrypt(const char *text, int type) {
    const int saved_errno = errno;
    char *out = encrypt(text, type);
    errno = saved_errno;
    return out;
}

char *pw_decrypt(const char *text, int type) {
    const int saved_errno = errno;
    char *out = decrypt(text, type);
    errno = saved_errno;
    return out;
}

}  // extern "C"
