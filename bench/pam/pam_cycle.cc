// SPDX-License-Identifier: Apache-2.0
//
// pam_cycle: the time of a login, from pam_start() to pam_end() with authentication,
// account, and the session's begin and end. The service is a process that answers at once, so
// the time is that of libpam, the module and the local socket. The same with pam_permit.so is
// the baseline. Medians and 99th percentiles are counters, in microseconds.

#include <benchmark/benchmark.h>
#include <poll.h>
#include <security/pam_appl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "aaa/aaautil.h"
#include "aaa/transport.h"

namespace {

std::string directory;

// ---- the service

struct Reply {
    aaa_reply_hdr_t header{};
    iov_t *iov = nullptr;
    uint32_t count = 0;
    char buffer[1024];
};

bool compose(Reply &pass, Reply &recorded) {
    avlist *list = nullptr;
    return aaa_avpair_create_list("reply", &list) == AAA_OK &&
           aaa_util_avlist_status_add(AAA_STAT_PASS, 4, list) == AAA_OK &&
           aaa_util_reply_compose(&pass.header, &pass.iov, &pass.count, pass.buffer, sizeof pass.buffer, list,
                                  0, nullptr) == AAA_OK &&
           aaa_util_reply_acct_compose(&recorded.header, &recorded.iov, &recorded.count, 0, nullptr) ==
               AAA_OK;
}

// One connection after the other, as the module makes them.
[[noreturn]] void serve(const std::string &path, int ready) {
    static Reply pass;
    static Reply recorded;
    static aaa_transport_msg_t msg;
    aaa_transport_t *listener = nullptr;
    aaa_transport_t *client = nullptr;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (!compose(pass, recorded) || aaa_transport_create(&listener) != AAA_OK ||
        aaa_transport_create(&client) != AAA_OK || aaa_transport_listen(listener, path.c_str()) != AAA_OK ||
        write(ready, "r", 1) != 1) {
        _exit(1);
    }
    for (;;) {
        if (aaa_transport_accept(listener, client, AAA_TRANSPORT_NEVER) != AAA_OK) {
            _exit(1);
        }
        while (aaa_transport_receive(client, &msg, AAA_TRANSPORT_NEVER) == AAA_OK) {
            aaa_transport_head_t head;
            aaa_transport_read_request(&msg, &head);
            const Reply &reply = head.type == AAA_REQ_ACCT ? recorded : pass;
            aaa_transport_send(client, reply.iov, reply.count, AAA_TRANSPORT_NEVER);
        }
    }
}

// ---- the program

int talk(int count, const pam_message **, pam_response **responses, void *) {
    auto *made = static_cast<pam_response *>(std::calloc(static_cast<size_t>(count), sizeof(pam_response)));
    for (int i = 0; i < count; ++i) {
        made[i].resp = strdup("password");
    }
    *responses = made;
    return PAM_SUCCESS;
}

bool cycle(const char *service) {
    const pam_conv conversation{talk, nullptr};
    pam_handle_t *handle = nullptr;
    const bool passed =
        pam_start_confdir(service, "alice", &conversation, directory.c_str(), &handle) == PAM_SUCCESS &&
        pam_authenticate(handle, 0) == PAM_SUCCESS && pam_acct_mgmt(handle, 0) == PAM_SUCCESS &&
        pam_open_session(handle, 0) == PAM_SUCCESS && pam_close_session(handle, 0) == PAM_SUCCESS;
    return pam_end(handle, PAM_SUCCESS) == PAM_SUCCESS && passed;
}

void login(benchmark::State &state, const char *service) {
    std::vector<double> times;
    for (auto _ : state) {
        const auto begin = std::chrono::steady_clock::now();
        if (!cycle(service)) {
            state.SkipWithError("the login fails");
            return;
        }
        times.push_back(
            std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - begin).count());
    }
    std::sort(times.begin(), times.end());
    state.counters["median"] = times[times.size() / 2];
    state.counters["p99"] = times[times.size() * 99 / 100];
    state.counters["worst"] = times.back();
}

void write_service(const std::string &name, const std::string &module) {
    std::ofstream file(directory + "/" + name);
    for (const char *phase : {"auth", "account", "session"}) {
        file << phase << " required " << module << "\n";
    }
}

}  // namespace

int main(int argc, char **argv) {
    char name[] = "/tmp/aaa-pam-bench.XXXXXX";
    int ready[2];
    char byte = 0;
    benchmark::Initialize(&argc, argv);
    if (geteuid() != 0 || mkdtemp(name) == nullptr || pipe(ready) != 0) {
        std::fprintf(stderr, "pam_cycle: needs root: the module refuses the service of another user\n");
        return 1;
    }
    directory = name;
    const pid_t service = fork();
    if (service == 0) {
        serve(directory + "/socket", ready[1]);
    }
    if (read(ready[0], &byte, 1) != 1) {
        return 1;
    }
    write_service("aaa", AAA_PAM_MODULE " nodelay socket=" + directory + "/socket");
    write_service("permit", "pam_permit.so");
    write_service("other", "pam_deny.so");
    benchmark::RegisterBenchmark("login/pam_permit", login, "permit")->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark("login/pam_aaa", login, "aaa")->Unit(benchmark::kMicrosecond);
    benchmark::RunSpecifiedBenchmarks();
    kill(service, SIGKILL);
    waitpid(service, nullptr, 0);
    std::filesystem::remove_all(directory);
    return 0;
}
