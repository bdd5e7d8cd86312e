// SPDX-License-Identifier: Apache-2.0
//
// Conversion between paths and keys.

#include "key.hpp"

#include <algorithm>
#include <cstring>

namespace sysdb_lmdb {
namespace {

constexpr std::size_t kMaxDigits = 8;

bool is_hex_digit(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

bool is_control(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7f;
}

// Digits of a component that sorts as a number, else 0.
std::size_t number_digits(std::string_view component) {
    if (!component.starts_with("0x")) {
        return 0;
    }
    std::size_t digits = 0;
    while (2 + digits < component.size() && is_hex_digit(component[2 + digits])) {
        ++digits;
    }
    const std::size_t end = 2 + digits;
    const bool ended = end == component.size() || component[end] == ',';
    return ended && digits <= kMaxDigits ? digits : 0;
}

}  // namespace

bool Key::push(std::string_view text) {
    if (text.size() > kMaxKey - size_) {
        return false;
    }
    std::memcpy(bytes_.data() + size_, text.data(), text.size());
    size_ += text.size();
    return true;
}

cerrno Key::append_component(std::string_view component) {
    if (component.empty() || std::any_of(component.begin(), component.end(), is_control)) {
        return SYSDB_ERR_BAD_PATH;
    }
    const std::size_t digits = number_digits(component);
    if (digits == 0) {
        return push(component) ? 0 : SYSDB_ERR_PATH_TOO_LONG;
    }
    const char count = static_cast<char>(digits);
    const bool fits = push(component.substr(0, 2)) && push({&count, 1}) && push(component.substr(2));
    return fits ? 0 : SYSDB_ERR_PATH_TOO_LONG;
}

cerrno Key::append(std::string_view path) {
    for (;;) {
        const std::size_t slash = path.find('/');
        const cerrno rc = append_component(path.substr(0, slash));
        if (rc != 0 || slash == std::string_view::npos) {
            return rc;
        }
        if (!push("/")) {
            return SYSDB_ERR_PATH_TOO_LONG;
        }
        path.remove_prefix(slash + 1);
        if (path.empty()) {
            return 0;
        }
    }
}

cerrno Key::assign_bind_path(std::string_view path) {
    size_ = 0;
    if (!path.ends_with('/') || (!path.starts_with("/cfg/") && !path.starts_with("/oper/"))) {
        return SYSDB_ERR_BAD_PATH;
    }
    push("/");
    return append(path.substr(1));
}

cerrno Key::append_item(std::string_view path) {
    return path.ends_with('/') ? SYSDB_ERR_BAD_PATH : append(path);
}

cerrno Key::append_directory(std::string_view path) {
    if (path.empty()) {
        return 0;
    }
    const cerrno rc = append(path);
    if (rc != 0 || path.ends_with('/')) {
        return rc;
    }
    return push("/") ? 0 : SYSDB_ERR_PATH_TOO_LONG;
}

MDB_val Key::value() const {
    return value_of(view());
}

std::string decode(std::string_view key) {
    std::string path;
    path.reserve(key.size());
    std::size_t component = 0;  // where it begins in key
    for (std::size_t i = 0; i < key.size(); ++i) {
        const bool digit_count = i == component + 2 && is_control(key[i]) && key.substr(component, 2) == "0x";
        if (!digit_count) {
            path.push_back(key[i]);
        }
        if (key[i] == '/') {
            component = i + 1;
        }
    }
    return path;
}

std::string_view view_of(const MDB_val &value) {
    return {static_cast<const char *>(value.mv_data), value.mv_size};
}

MDB_val value_of(std::string_view bytes) {
    // LMDB takes its input through a pointer to non-const but does not write there.
    return {bytes.size(), const_cast<char *>(bytes.data())};
}

}  // namespace sysdb_lmdb
