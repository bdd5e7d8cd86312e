// SPDX-License-Identifier: Apache-2.0

#include "backends/password.hpp"

#include <crypt.h>
#include <string.h>

#include <cstdlib>
#include <memory>

namespace service {

namespace {

constexpr char kUsualSetting[] = "$y$j9T$F5Jx5fExrKuPp53xLKQ..1";

struct WipeData {
    void operator()(crypt_data *data) const {
        explicit_bzero(data, sizeof *data);
        std::free(data);
    }
};

// The hash, or empty.
std::string hash_of(const Secret &password, const std::string &setting) {
    const std::unique_ptr<crypt_data, WipeData> data(
        static_cast<crypt_data *>(std::calloc(1, sizeof(crypt_data))));
    if (data == nullptr) {
        return "";
    }
    const char *hash = crypt_rn(password.text().c_str(), setting.c_str(), data.get(), sizeof *data);
    return hash != nullptr ? hash : "";
}

// Takes the same time for all texts of a length: an attacker must not learn how far they agree.
bool same(const std::string &a, const std::string &b) {
    unsigned char difference = 0;
    for (std::size_t i = 0; i < a.size() && i < b.size(); ++i) {
        difference = static_cast<unsigned char>(difference | (a[i] ^ b[i]));
    }
    return a.size() == b.size() && difference == 0;
}

}  // namespace

bool password_fits(const Secret &password, const std::string &hash) {
    const std::string computed = hash_of(password, hash);
    return !computed.empty() && same(computed, hash) && !password.empty();
}

void spend_a_check(const Secret &password, const std::string &setting) {
    hash_of(password, setting.empty() ? kUsualSetting : setting);
}

}  // namespace service
