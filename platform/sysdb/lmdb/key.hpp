// SPDX-License-Identifier: Apache-2.0
//
// Paths and the keys under which they are stored.
//
// A key is the absolute path, except that a component made of "0x" and one to
// eight hexadecimal digits (ended by '/', ',' or the end of the path) gets a
// byte with the number of its digits after the "0x". Keys compare bytewise, so
// such names sort as numbers: 0x2 before 0x10. Paths hold no control characters,
// so the byte is unambiguous.
//
// A directory's key ends in '/'. The keys below it begin with it.
#pragma once

#include <lmdb.h>

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "platform/sysdb.h"

namespace sysdb_lmdb {

// The longest key that a database with LMDB's usual page size takes.
inline constexpr std::size_t kMaxKey = 511;

enum class Tree { kCfg, kOper };

class Key {
  public:
    // The absolute directory of a connection.
    cerrno assign_bind_path(std::string_view path);
    // An item's path below a directory's key; must not end in '/'.
    cerrno append_item(std::string_view path);
    // A directory's path below a directory's key; "" adds nothing, and a missing '/' at the end is added.
    cerrno append_directory(std::string_view path);

    Tree tree() const { return bytes_[1] == 'c' ? Tree::kCfg : Tree::kOper; }
    std::string_view view() const { return {bytes_.data(), size_}; }
    MDB_val value() const;

  private:
    cerrno append(std::string_view path);
    cerrno append_component(std::string_view component);
    bool push(std::string_view text);

    std::array<char, kMaxKey> bytes_;
    std::size_t size_ = 0;
};

// The path of a key, or of a part of a key that begins at a component.
std::string decode(std::string_view key);

std::string_view view_of(const MDB_val &value);
MDB_val value_of(std::string_view bytes);

}  // namespace sysdb_lmdb
