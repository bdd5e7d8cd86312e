// SPDX-License-Identifier: Apache-2.0

#include "service/control_answers.hpp"

#include <algorithm>
#include <span>

#include "cli/output.hpp"

namespace aaactl {
namespace {

enum class Type { text, number, truth, object, objects };

struct Member {
    std::string_view path;  // "groups[].servers[].state"
    Type type;
    bool is_required = false;  // in every object that may have it
};

constexpr bool kRequired = true;

constexpr Member kStatus[] = {
    {"program", Type::text, kRequired},
    {"pid", Type::number, kRequired},
    {"since", Type::number, kRequired},
    {"now", Type::number},
    {"socket", Type::text, kRequired},
    {"clients", Type::number},
    {"control_clients", Type::number},
    {"events", Type::number},
    {"configuration", Type::object, kRequired},
    {"configuration.revision", Type::number},
    {"configuration.fallback", Type::truth},
    {"configuration.lists", Type::number},
    {"configuration.groups", Type::number},
    {"alarms", Type::objects, kRequired},
    {"alarms[].alarm", Type::text, kRequired},
    {"alarms[].since", Type::number},
    {"alarms[].text", Type::text},
    {"accounting", Type::object},
    {"accounting.journal", Type::truth},
    {"accounting.bytes", Type::number},
    {"accounting.most_bytes", Type::number},
    {"accounting.failed", Type::truth},
    {"accounting.full", Type::truth},
    {"accounting.nearly_full", Type::truth},
    {"accounting.groups", Type::objects},
    {"accounting.groups[].group", Type::text, kRequired},
    {"accounting.groups[].waiting", Type::number},
    {"accounting.groups[].configured", Type::truth},
    {"accounting.groups[].answers", Type::truth},
};

constexpr Member kServers[] = {
    {"groups", Type::objects, kRequired},
    {"groups[].group", Type::text},
    {"groups[].protocol", Type::text},
    {"groups[].servers", Type::objects, kRequired},
    {"groups[].servers[].server", Type::text, kRequired},
    {"groups[].servers[].use", Type::text},
    {"groups[].servers[].transport", Type::text},
    {"groups[].servers[].state", Type::text, kRequired},
    {"groups[].servers[].since", Type::number},
    {"groups[].servers[].why", Type::text},
    {"groups[].servers[].key_kept", Type::truth},
    {"groups[].servers[].asked_again_s", Type::number},
    {"groups[].servers[].asked", Type::number},
    {"groups[].servers[].tries", Type::number},
    {"groups[].servers[].answers", Type::number},
    {"groups[].servers[].timeouts", Type::number},
    {"groups[].servers[].unreachable", Type::number},
    {"groups[].servers[].errors", Type::number},
    {"groups[].servers[].overloads", Type::number},
    {"groups[].servers[].probes", Type::number},
    {"groups[].servers[].last_us", Type::number},
    {"groups[].servers[].average_us", Type::number},
    {"groups[].servers[].in_flight", Type::number},
    {"groups[].servers[].queued", Type::number},
};

constexpr Member kEvent[] = {
    {"event", Type::text, kRequired},
    {"count", Type::number},
    {"number", Type::number},
    {"time", Type::number},
    {"id", Type::text},
    {"step", Type::text},
    {"user", Type::text},
    {"function", Type::text},
    {"subject", Type::text},
    {"outcome", Type::text},
    {"detail", Type::text},
    {"text", Type::text},
    {"next", Type::text},
    {"us", Type::number},
    {"tries", Type::number},
    {"service", Type::text},
    {"list", Type::text},
    {"remote", Type::text},
    {"terminal", Type::text},
    {"command", Type::text},
    {"client_pid", Type::number},
    {"client_uid", Type::number},
};

const char *name_of(Type type) {
    switch (type) {
        case Type::text:
            return "a text";
        case Type::number:
            return "a number of at least 0";
        case Type::truth:
            return "true or false";
        case Type::object:
            return "an object";
        case Type::objects:
            return "a list of objects";
    }
    return "?";
}

bool is_of(Type type, const Json &value) {
    switch (type) {
        case Type::text:
            return value.is_string();
        case Type::number:
            return value.is_natural();
        case Type::truth:
            return value == Json(true) || value == Json(false);
        case Type::object:
            return value.is_object();
        case Type::objects:
            if (!value.is_array()) {
                return false;
            }
            for (const Json &element : value.elements()) {
                if (!element.is_object()) {
                    return false;
                }
            }
            return true;
    }
    return false;
}

[[noreturn]] void refuse(const std::string &socket, const std::string &what) {
    throw Failure(ExitCode::bad_input,
                  escaped(socket) + ": the answer is not one of aaad: " + what +
                      "; check that this is the control-socket of aaad.conf, or name it: --socket PATH");
}

class Checker {
  public:
    Checker(const Member &member, const std::string &socket) : member_(member), socket_(socket) {}

    // Members of parents that are absent are not missing.
    void check(const Json &object, std::string_view path) const {
        const size_t end = std::min(path.find('.'), path.size());
        const bool is_last = end == path.size();
        const bool is_list = path.substr(0, end).ends_with("[]");
        const std::string_view name = path.substr(0, end - (is_list ? 2 : 0));
        if (!object.contains(name)) {
            if (is_last && member_.is_required) {
                refuse(socket_, "it has no \"" + std::string(member_.path) + "\"");
            }
            return;
        }
        const Json &value = object[name];
        if (is_last) {
            if (!is_of(member_.type, value)) {
                refuse(socket_, "\"" + std::string(member_.path) + "\" is not " + name_of(member_.type));
            }
        } else if (!is_list) {
            check(value, path.substr(end + 1));
        } else {
            for (const Json &element : value.elements()) {
                check(element, path.substr(end + 1));
            }
        }
    }

  private:
    const Member &member_;
    const std::string &socket_;
};

// Parents precede their members in a table, so they have been checked.
void check_members(const Json &document, std::span<const Member> members, const std::string &socket) {
    for (const Member &member : members) {
        Checker(member, socket).check(document, member.path);
    }
}

void check_object(const Json &document, const std::string &socket) {
    if (!document.is_object()) {
        refuse(socket, "it is not an object");
    }
}

}  // namespace

Json parsed_answer(const std::string &line, const std::string &socket) {
    try {
        return Json::parse(line);
    } catch (const Failure &failure) {
        refuse(socket, failure.what());
    }
}

void check_reply(const Json &document, std::string_view request, const std::string &socket) {
    check_object(document, socket);
    if (document["reply"] != Json(request)) {
        refuse(socket, "it is no reply to the request \"" + std::string(request) + "\"");
    }
    if (request == "status") {
        check_members(document, kStatus, socket);
    } else if (request == "servers") {
        check_members(document, kServers, socket);
    }
}

void check_event(const Json &document, const std::string &socket) {
    check_object(document, socket);
    check_members(document, kEvent, socket);
}

}  // namespace aaactl
