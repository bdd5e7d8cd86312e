// SPDX-License-Identifier: Apache-2.0

#include "agent/settings.hpp"

#include <arpa/inet.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <iterator>
#include <optional>

#include "config/suggestion.hpp"

namespace sysdb_etcd {
namespace {

using service::quoted;

constexpr std::size_t kMostEndpoints = 16;
constexpr std::size_t kLongestPrefix = 64;
constexpr std::size_t kLongestName = 64;

bool is_word(std::string_view text, std::string_view more) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [more](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               more.find(c) != std::string_view::npos;
    });
}

bool is_host(std::string_view host) {
    if (!host.starts_with('[') || !host.ends_with(']')) {
        return is_word(host, ".-_");
    }
    in6_addr address{};
    return inet_pton(AF_INET6, std::string(host.substr(1, host.size() - 2)).c_str(), &address) == 1;
}

// "https://HOST:PORT", and nothing after it: each request has a path of its own. What is wrong; empty: nothing.
std::string fault_of_endpoint(std::string_view value) {
    std::string_view rest = value;
    for (const std::string_view scheme : {"https://", "http://"}) {
        if (rest.starts_with(scheme)) {
            rest.remove_prefix(scheme.size());
            break;
        }
    }
    if (rest.size() == value.size()) {
        return "it begins with neither https:// nor http://";
    }
    if (rest.find('/') != std::string_view::npos) {
        return "nothing comes after the port";
    }
    if (rest.find('@') != std::string_view::npos) {
        return "a user has settings of its own, user and password-file";
    }
    const auto colon = rest.rfind(':');
    const std::string_view host = rest.substr(0, colon);
    if (!host.starts_with('[') && host.find(':') != std::string_view::npos) {
        return "an IPv6 address is in brackets, https://[ADDRESS]:PORT";
    }
    if (colon == std::string_view::npos || rest.ends_with(']')) {
        return "the port is missing, usually 2379";
    }
    if (!is_host(host)) {
        return "the host is neither a name nor an address";
    }
    const auto port = service::decimal(rest.substr(colon + 1), 65535);
    return port && *port != 0 ? "" : "the port is not a number from 1 to 65535";
}

std::string read_endpoint(std::string_view value, Settings &settings) {
    if (const std::string fault = fault_of_endpoint(value); !fault.empty()) {
        return quoted(value) + " is not of the form https://HOST:PORT: " + fault;
    }
    std::vector<std::string> &endpoints = settings.address.endpoints;
    if (std::find(endpoints.begin(), endpoints.end(), value) != endpoints.end()) {
        return quoted(value) + " is named twice";
    }
    if (endpoints.size() == kMostEndpoints) {
        return "more than " + std::to_string(kMostEndpoints) + " servers";
    }
    endpoints.emplace_back(value);
    return {};
}

std::string read_path(std::string_view value, std::string &path) {
    path = value;
    return value.starts_with('/') ? "" : quoted(value) + " is not an absolute path";
}

std::string read_prefix(std::string_view value, Settings &settings) {
    settings.prefix = value;
    const bool fits = value.starts_with('/') && !value.ends_with('/') && value.size() <= kLongestPrefix &&
                      is_word(value, "/._-") && value.find("//") == std::string_view::npos;
    return fits ? "" : quoted(value) + " is not a prefix like /aaa: letters, digits and /._-, at most 64";
}

std::string read_node(std::string_view value, Settings &settings) {
    settings.node = value;
    return is_word(value, "._-") && value.size() <= kLongestName
               ? ""
               : quoted(value) + " is not a name of a node: letters, digits and ._-, at most 64";
}

struct Key {
    std::string_view word;
    bool repeated;
    std::string (*read)(std::string_view value, Settings &settings);  // returns the fault
};

constexpr Key kKeys[] = {
    // The first one: parse_settings() asks whether it was there.
    {"endpoint", true, read_endpoint},
    {"ca-file", false,
     [](std::string_view v, Settings &s) { return read_path(v, s.address.tls.authorities); }},
    {"certificate-file", false,
     [](std::string_view v, Settings &s) { return read_path(v, s.address.tls.certificate); }},
    {"key-file", false, [](std::string_view v, Settings &s) { return read_path(v, s.address.tls.key); }},
    {"user", false,
     [](std::string_view v, Settings &s) {
         s.address.user = v;
         return std::string();
     }},
    {"password-file", false, [](std::string_view v, Settings &s) { return read_path(v, s.password_file); }},
    {"prefix", false, read_prefix},
    {"node", false, read_node},
};

std::string read_line(std::string_view line, Settings &settings, unsigned number,
                      unsigned (&seen)[std::size(kKeys)]) {
    if (service::control_character(line)) {
        return "the line holds a control character";
    }
    line = service::trimmed(line.substr(0, line.find('#')));
    if (line.empty()) {
        return {};
    }
    const std::string_view word = line.substr(0, line.find_first_of(" \t"));
    const std::string_view value = service::trimmed(line.substr(word.size()));
    const auto key = std::find_if(std::begin(kKeys), std::end(kKeys),
                                  [word](const Key &each) { return each.word == word; });
    if (key == std::end(kKeys)) {
        std::vector<std::string_view> known;
        std::transform(std::begin(kKeys), std::end(kKeys), std::back_inserter(known),
                       [](const Key &each) { return each.word; });
        return quoted(word) + " is not a setting" + service::suggestion(word, known);
    }
    unsigned &before = seen[key - std::begin(kKeys)];
    if (before != 0 && !key->repeated) {
        return quoted(word) + " is already set on line " + std::to_string(before);
    }
    before = number;
    if (value.empty() || value.find_first_of(" \t") != std::string_view::npos) {
        return quoted(word) + " takes one word";
    }
    return key->read(value, settings);
}

void check_together(const Settings &settings, bool names_servers, std::vector<service::Fault> &faults) {
    const ClusterAddress &address = settings.address;
    if (!names_servers) {
        faults.push_back({0, "no endpoint; add a line for each server: endpoint https://HOST:2379"});
    }
    if (address.tls.certificate.empty() != address.tls.key.empty()) {
        faults.push_back({0, "certificate-file and key-file belong together"});
    }
    if (address.user.empty() != settings.password_file.empty()) {
        faults.push_back({0, "user and password-file belong together"});
    }
    for (const std::string &endpoint : address.endpoints) {
        if (!address.user.empty() && endpoint.starts_with("http://")) {
            faults.push_back({0, "the password would be sent to " + endpoint + " in clear text; use https"});
        }
    }
}

std::string host_name() {
    char name[HOST_NAME_MAX + 1] = {};
    gethostname(name, HOST_NAME_MAX);
    std::string text(name);
    return is_word(text, "._-") ? text.substr(0, kLongestName) : "node";
}

void read_password(Settings &settings, std::vector<std::string> &faults) {
    const service::TextFile file =
        service::read_text_file(settings.password_file, service::Privacy::kSecret, 4096);
    for (const service::Fault &fault : file.faults) {
        faults.push_back(fault_text(settings.password_file, fault));
    }
    settings.address.password = service::trimmed(file.text.substr(0, file.text.find('\n')));
    if (file.faults.empty() && settings.address.password.empty()) {
        faults.push_back(settings.password_file + ": the first line has no password");
    }
}

void look_at(const std::string &path, service::Privacy privacy, std::vector<std::string> &faults) {
    if (path.empty()) {
        return;
    }
    for (const service::Fault &fault : service::read_text_file(path, privacy).faults) {
        faults.push_back(fault_text(path, fault));
    }
}

}  // namespace

Settings parse_settings(std::string_view text, std::vector<service::Fault> &faults) {
    Settings settings;
    unsigned seen[std::size(kKeys)] = {};
    service::for_each_line(text, [&](unsigned number, std::string_view line) {
        if (std::string fault = read_line(line, settings, number, seen); !fault.empty()) {
            faults.push_back({number, std::move(fault)});
        }
    });
    check_together(settings, seen[0] != 0, faults);
    if (settings.node.empty()) {
        settings.node = host_name();
    }
    return settings;
}

Settings read_settings(const std::string &path, std::vector<std::string> &faults) {
    const service::TextFile file = service::read_text_file(path, service::Privacy::kShared);
    std::vector<service::Fault> of_file = file.faults;
    Settings settings;
    if (of_file.empty()) {
        settings = parse_settings(file.text, of_file);
    }
    for (const service::Fault &fault : of_file) {
        faults.push_back(fault_text(path, fault));
    }
    if (!settings.password_file.empty()) {
        read_password(settings, faults);
    }
    look_at(settings.address.tls.authorities, service::Privacy::kShared, faults);
    look_at(settings.address.tls.certificate, service::Privacy::kShared, faults);
    look_at(settings.address.tls.key, service::Privacy::kSecret, faults);
    return settings;
}

}  // namespace sysdb_etcd
