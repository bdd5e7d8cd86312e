// SPDX-License-Identifier: Apache-2.0
//
// The part that authorization and accounting requests share:
//
//     method | privilege | type | service | lengths of user, port, remote address
//     number of arguments | their lengths | user | port | remote address | arguments

#include "tacacs/arguments.hpp"

namespace tacacs {
namespace {

std::string too_long(std::string_view what, std::size_t length) {
    return std::string(what) + " has " + std::to_string(length) + " bytes; TACACS+ carries at most " +
           std::to_string(kMaxField);
}

// Arguments are named by number: their texts may be secret.
std::string refusal_of(std::string_view argument, std::size_t number) {
    const std::string name = "argument " + std::to_string(number);
    if (argument.size() > kMaxField) {
        return too_long(name, argument.size());
    }
    if (!split(argument)) {
        return name + " is not of the form name=value or name*value";
    }
    // Servers in C would cut it there, and decide about something shorter.
    if (argument.find('\0') != std::string_view::npos) {
        return name + " contains a NUL byte";
    }
    return {};
}

std::string refusal_of(std::span<const std::string> arguments) {
    if (arguments.size() > kMaxArguments) {
        return "there are " + std::to_string(arguments.size()) + " arguments; TACACS+ carries at most " +
               std::to_string(kMaxArguments);
    }
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        std::string text = refusal_of(arguments[i], i + 1);
        if (!text.empty()) {
            return text;
        }
    }
    return {};
}

}  // namespace

std::optional<Argument> split(std::string_view argument) {
    const std::size_t at = argument.find_first_of("=*");
    if (at == std::string_view::npos || at == 0) {
        return std::nullopt;
    }
    return Argument{argument.substr(0, at), argument.substr(at + 1), argument[at] == '='};
}

std::string refusal_of(const Subject &subject) {
    const std::pair<std::string_view, std::string_view> fields[] = {
        {"user name", subject.user}, {"port", subject.port}, {"remote address", subject.remote_address}};
    for (const auto &[name, value] : fields) {
        if (value.size() > kMaxField) {
            return too_long("the " + std::string(name), value.size());
        }
        if (value.find('\0') != std::string_view::npos) {
            return "the " + std::string(name) + " contains a NUL byte";
        }
    }
    return {};
}

std::string append_subject(const Subject &subject, std::span<const std::string> arguments,
                           SecretBytes &packet) {
    std::string text = refusal_of(subject);
    if (text.empty()) {
        text = refusal_of(arguments);
    }
    if (!text.empty()) {
        return text;
    }
    packet.append_number8(static_cast<std::uint8_t>(subject.method));
    packet.append_number8(subject.privilege);
    packet.append_number8(static_cast<std::uint8_t>(subject.type));
    packet.append_number8(static_cast<std::uint8_t>(subject.service));
    packet.append_number8(subject.user.size());
    packet.append_number8(subject.port.size());
    packet.append_number8(subject.remote_address.size());
    packet.append_number8(arguments.size());
    for (const std::string &argument : arguments) {
        packet.append_number8(argument.size());
    }
    packet.append(subject.user);
    packet.append(subject.port);
    packet.append(subject.remote_address);
    for (const std::string &argument : arguments) {
        packet.append(argument);
    }
    return packet.size() - kHeadSize <= kMaxBody
               ? std::string()
               : "the request has " + std::to_string(packet.size() - kHeadSize) + " bytes; at most " +
                     std::to_string(kMaxBody) + " are sent";
}

bool read_arguments(std::string_view lengths, std::size_t count, std::string_view &rest,
                    std::vector<std::string_view> &arguments) {
    arguments.clear();
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t length = static_cast<unsigned char>(lengths[i]);
        if (length > rest.size()) {
            return false;
        }
        arguments.push_back(rest.substr(0, length));
        rest.remove_prefix(length);
    }
    return true;
}

}  // namespace tacacs
