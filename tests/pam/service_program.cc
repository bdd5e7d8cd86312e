// SPDX-License-Identifier: Apache-2.0
//
// service_program <socket> <log>
//
// An AAA service for programs with logins. Users are alice (password "alice's word") and
// carol (password "carol's word", then the code 123456); both may have sessions. eve has a
// password and no session. Commands that begin with /usr/bin/id may run. Each request is a
// line of the log. Ends when standard input ends.

#include <cstdio>
#include <fstream>

#include "pam/service.hpp"

using namespace pam_test;

namespace {

Action authenticate(const Request &request) {
    if (request.user == "carol" && request.state == "code") {
        return status(request.password == "123456" ? AAA_STAT_PASS : AAA_STAT_FAIL);
    }
    if (request.password != request.user + "'s word") {
        return say(AAA_STAT_FAIL, "Permission denied by the service.");
    }
    if (request.user != "carol") {
        return status(AAA_STAT_PASS);
    }
    return answer([](avlist *list) {
        replies::status(AAA_STAT_GETDATA)(list);
        replies::add_text(list, AAA_PROMPT_ATTR, "Code password: ");
        replies::add_text(list, AAA_RADIUS_STATE_ATTR, "code");
    });
}

Action authorize(const Request &request) {
    if (request.service != AAA_SVC_CMD) {
        return request.user == "eve" ? say(AAA_STAT_FAIL, "No session for eve.") : status(AAA_STAT_PASS);
    }
    return request.command.starts_with("/usr/bin/id") ? status(AAA_STAT_PASS)
                                                      : say(AAA_STAT_FAIL, "Not this command.");
}

const char *kind_of(const Request &request) {
    return request.type == AAA_REQ_AUTHEN              ? "authenticate"
           : request.type == AAA_REQ_AUTHOR            ? "authorize"
           : request.message_type == AAA_MT_ACCT_START ? "start"
                                                       : "stop";
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s SOCKET LOG\n", argv[0]);
        return 2;
    }
    std::ofstream log(argv[2], std::ios::app);
    const Service service(argv[1], [&](const Request &request) {
        log << kind_of(request) << " user=" << request.user << " tty=" << request.terminal
            << " from=" << request.address << " session=" << request.session << " command=["
            << request.command << "] " << request.data << std::endl;
        return request.type == AAA_REQ_AUTHEN   ? authenticate(request)
               : request.type == AAA_REQ_AUTHOR ? authorize(request)
                                                : accounted();
    });
    std::puts("ready");
    std::fflush(stdout);
    while (std::getchar() != EOF) {
    }
    return 0;
}
