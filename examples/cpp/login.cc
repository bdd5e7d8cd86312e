// SPDX-License-Identifier: Apache-2.0
//
// A login: the client's request, the server's answer, and what the client makes of it. The
// bytes stay in this process; aaa_transport_ask() of aaa/transport.h would send them.
//
//     c++ -std=c++20 login.cc $(pkg-config --cflags --libs aaautil-cpp)

#include <aaa/aaautil.hpp>
#include <cstdio>

namespace {

// The client: what it sends for a user who has typed a password.
aaa::result<aaa::buffer> ask(std::string_view username, std::string_view password) {
    return aaa::credentials::create(username, password).and_then([](aaa::credentials &&user) {
        const aaa::result<void> filled =
            user.set_terminal("/dev/vty0").and_then([&] { return user.set_remote_address("192.0.2.10"); });
        if (!filled) {
            return aaa::result<aaa::buffer>(aaa::failure(filled.code()));
        }
        const aaa::authentication_request request{.user = user, .method_list = "vty"};
        return encode(request).and_then([](const aaa::message &message) { return message.bytes(); });
    });
}

aaa::verdict decide(const aaa::list &attributes) {
    // A request without a name or a password fails; it is not passed on with an empty one.
    const auto name = attributes.get<AAA_USERNAME_ATTR>();
    const auto password = attributes.get<AAA_PASSWORD_ATTR>();
    return name && password && *name == "alice" && *password == "wonderland" ? aaa::verdict::pass
                                                                             : aaa::verdict::fail;
}

// The server. Bytes that are no request get a reply, too: with the reason as status.
aaa::result<aaa::buffer> answer(std::span<const std::byte> bytes) {
    aaa::result<aaa::list> reply = aaa::list::create("reply");
    if (!reply) {
        return aaa::failure(reply.code());
    }
    const aaa::result<aaa::request> request = aaa::decode_request(bytes);
    cerrno status = request.code();
    if (request && (request->type != aaa::request_type::authentication || !request->attributes)) {
        status = AAA_ERR_NOT_SUPPORTED;
    }
    const aaa::verdict verdict = status == AAA_OK ? decide(*request->attributes) : aaa::verdict::error;
    if (const auto set = aaa::set_status(*reply, verdict); !set) {
        return aaa::failure(set.code());
    }
    return encode(aaa::authentication_reply{.attributes = *reply, .status = status})
        .and_then([](const aaa::message &message) { return message.bytes(); });
}

// The client again. Only a processed request with the verdict "pass" lets the user in.
bool let_in(std::span<const std::byte> bytes) {
    const auto reply = aaa::decode_reply(aaa::request_type::authentication, bytes);
    if (!reply || reply->status != AAA_OK || !reply->attributes) {
        return false;
    }
    return reply->attributes->get<AAA_STATUS_ATTR>().value_or(aaa::verdict::none) == aaa::verdict::pass;
}

void log_in(const char *username, const char *password) {
    const aaa::result<aaa::buffer> request = ask(username, password);
    const aaa::result<aaa::buffer> reply =
        request.and_then([](const aaa::buffer &bytes) { return answer(bytes); });
    if (!reply) {
        std::printf("%s: %s\n", username, reply.error().message().c_str());
        return;
    }
    std::printf("%s %s\n", username, let_in(*reply) ? "is let in" : "is refused");
}

}  // namespace

int main() {
    log_in("alice", "wonderland");
    log_in("alice", "a guess");
    log_in("bob", "");
    const std::byte noise[3]{};
    std::printf("noise %s\n", let_in(noise) ? "is let in" : "is refused");
    return 0;
}
