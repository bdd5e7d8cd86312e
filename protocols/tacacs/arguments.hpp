// SPDX-License-Identifier: Apache-2.0
//
// What authorization and accounting requests have in common: who asks from where, and
// arguments such as "service=shell", "cmd=show" or, where the other side may ignore it,
// "idletime*10".
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tacacs/packet.hpp"

namespace tacacs {

inline constexpr std::size_t kMaxField = 255;      // bytes of a user name, a port, an argument
inline constexpr std::size_t kMaxArguments = 255;  // of a request or an answer

// How a user shows who he is.
enum class AuthenticationType : std::uint8_t {
    kNotSet = 0,
    kAscii = 1,
    kPap = 2,
    kChap = 3,
};

// For what.
enum class Service : std::uint8_t {
    kNone = 0,
    kLogin = 1,
    kEnable = 2,
    kPpp = 3,
};

// Which method has authenticated a user.
enum class Method : std::uint8_t {
    kNotSet = 0,
    kNone = 1,
    kKerberos5 = 2,
    kLine = 3,
    kEnable = 4,
    kLocal = 5,
    kTacacs = 6,
    kGuest = 8,
    kRadius = 0x10,
};

// A user and where he is. `port` is the terminal, `remote_address` the host that he
// comes from.
struct Subject {
    std::string_view user = {};
    std::string_view port = {};
    std::string_view remote_address = {};
    std::uint8_t privilege = 0;
    AuthenticationType type = AuthenticationType::kAscii;
    Service service = Service::kLogin;
    Method method = Method::kNotSet;
};

struct Argument {
    std::string_view name;
    std::string_view value;
    bool is_mandatory;
};

// Splits an argument at its first '=' or '*'. Nothing when it has none, or no name.
std::optional<Argument> split(std::string_view argument);

// A sentence that names which part of a subject does not fit; empty when all do.
std::string refusal_of(const Subject &subject);

// Appends the common part of a request's body. Returns a sentence that names what does
// not fit; empty when everything does. Nothing is ever cut, since a server would decide
// about another command than the one that is run.
[[nodiscard]] std::string append_subject(const Subject &subject, std::span<const std::string> arguments,
                                         SecretBytes &packet);

// Reads the arguments of an answer: `count` lengths are at the beginning of `lengths`.
// `rest` starts with the texts, and afterwards with what follows them.
bool read_arguments(std::string_view lengths, std::size_t count, std::string_view &rest,
                    std::vector<std::string_view> &arguments);

}  // namespace tacacs
