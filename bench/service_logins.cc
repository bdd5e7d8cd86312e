// SPDX-License-Identifier: Apache-2.0
//
// Logins through the service: the time of one at a time, and how many a second with 32 in
// flight, with the method none and with a RADIUS server in a process that only answers. The same
// server asked without the service is the row to compare with. Then a group whose first server
// never answers: the login that finds out, and the next one, which must not wait.
//
//   service_bench [LOGINS]     of each row; default: 20000
//
// A row of accounting records has the same way through the service, to a group: each is on disk
// before it is answered. The journal is in $AAA_BENCH_DIR, or the working directory: it has to
// be on the disk that is to be measured. Its rate is compared with that of the first row too.
//
// The service runs in a process of its own, with its listener, decision and groups, and a
// configuration that is made here instead of read.

#include <signal.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "aaa/aaautil.h"
#include "aaa/transport.h"
#include "backends/local.hpp"
#include "capture/capture.hpp"
#include "groups/groups.hpp"
#include "journal/recorder.hpp"
#include "listener/listener.hpp"
#include "radius/client.hpp"
#include "radius_responder.hpp"

namespace {

using bench::fail;
using bench::kSecret;
using bench::open_server;
using bench::start_process;
using bench::start_responder;

constexpr int kInFlight = 32;

// ---- the service

service::SnapshotPtr configuration(std::uint16_t port, std::uint16_t silent_port,
                                   const std::string &journal) {
    auto settings = std::make_shared<service::Settings>();
    settings->rules = {{service::Ask::kAuthentication, service::AccessRule::Who::kAny, 0, 0, false},
                       {service::Ask::kAccounting, service::AccessRule::Who::kAny, 0, 0, false}};
    settings->accounting.journal = journal;
    settings->clients_per_user = kInFlight + 1;
    settings->logins_at_once = kInFlight;  // all are of one user
    settings->lockout.failures = 1000000;
    service::Server server;
    server.entry = server.host = "127.0.0.1";
    server.port = server.accounting_port = port;
    server.key = service::Secret(kSecret);
    server.timeout_ms = 10000;
    server.tries = 3;
    server.transport = "udp";
    auto group = std::make_shared<service::Group>();
    group->name = "bench";
    group->servers = {server};
    service::Server silent = server;
    silent.port = silent.accounting_port = silent_port;
    silent.timeout_ms = 1000;
    silent.tries = 1;
    silent.dead_time_s = 3600;
    auto half_dead = std::make_shared<service::Group>();
    half_dead->name = "half-dead";
    half_dead->servers = {silent, server};
    auto snapshot = std::make_shared<service::Snapshot>();
    snapshot->settings = settings;
    snapshot->groups = {group, half_dead};
    snapshot->lists["authentication/login/none"] = {{{AAA_METHOD_NONE, "", nullptr}}, false};
    snapshot->lists["authentication/login/radius"] = {{{AAA_METHOD_SERVER_GROUP, "bench", group}}, false};
    snapshot->lists["authentication/login/half-dead"] = {{{AAA_METHOD_SERVER_GROUP, "half-dead", half_dead}},
                                                         false};
    snapshot->lists["accounting/exec/radius"] = {{{AAA_METHOD_SERVER_GROUP, "bench", group}}, false};
    return snapshot;
}

[[noreturn]] void serve(const std::string &path, std::uint16_t port, std::uint16_t silent_port,
                        const std::string &journal, int ready) {
    net::Loop loop;
    service::Trace trace;
    service::Lockout lockout;
    service::Groups groups(loop, trace);
    service::Backends backends;
    service::Workers workers(loop, 1);
    service::add_local_backends(backends, loop, workers);
    groups.add_to(backends);
    service::Recorder recorder(loop, groups);
    recorder.add_to(backends);
    const service::SnapshotPtr snapshot = configuration(port, silent_port, journal);
    groups.use(*snapshot);
    recorder.use(snapshot);
    recorder.open();
    if (!recorder.is_open()) {
        fail("the journal cannot be used");
    }
    service::Turns turns(loop, lockout);
    const service::Deciders deciders{loop, workers, backends, lockout, trace, turns};
    service::Capture capture(loop, trace.names(), "bench");
    service::Listener listener(deciders, capture,
                               [](const service::Request &, const std::function<void(cerrno)> &) {});
    listener.use(snapshot);
    if (const std::string fault = listener.open(path, 0600); !fault.empty()) {
        fail(fault);
    }
    static_cast<void>(!write(ready, "x", 1));
    loop.run();
    _exit(0);
}

// ---- clients of the service

class Client {
  public:
    using Done = std::function<void(Client &)>;

    // `type` is that of its requests: AAA_REQ_AUTHEN or AAA_REQ_ACCT. A record is of the session
    // with this number.
    Client(net::Loop &loop, const std::string &path, std::uint32_t type, std::uint32_t session,
           const char *list, Done done)
        : done_(std::move(done)), type_(type) {
        aaa_transport_t *transport = nullptr;
        if (aaa_transport_create(&transport) != AAA_OK) {
            fail("no memory");
        }
        transport_.reset(transport);
        if (aaa_transport_connect(transport, path.c_str(), AAA_TRANSPORT_ANY_USER, AAA_TRANSPORT_NEVER) !=
            AAA_OK) {
            fail("cannot connect to " + path);
        }
        aaa_usercred_t cred{};
        char user[] = "alice", password[] = "wonderland", terminal[] = "vty0", remote[] = "192.0.2.10";
        cred.username = user;
        cred.password = password;
        cred.ttyname = cred.tty_mnemonic = terminal;
        cred.remote_addr = remote;
        aaa_svc_attrs_t attributes{};
        const cerrno rc = type == AAA_REQ_AUTHEN
                              ? aaa_util_msg_authen_compose(&header_, AAA_AO_ASCII_LOGIN, AAA_SVC_LOGIN, list,
                                                            0, &cred, nullptr, nullptr, &iov_, &count_,
                                                            buffer_, sizeof buffer_, nullptr, 0)
                              : aaa_util_msg_acct_compose(&header_, AAA_ACCT_START_OPT, AAA_SVC_EXEC, list, 0,
                                                          &cred, &attributes, session, &iov_, &count_,
                                                          buffer_, sizeof buffer_, nullptr, 0);
        if (rc != AAA_OK) {
            fail("cannot compose a request");
        }
        watch_ = net::Watch(loop, aaa_transport_descriptor(transport), EPOLLIN,
                            [this](std::uint32_t) { receive(); });
    }
    ~Client() { free(iov_); }
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    void send() {
        if (aaa_transport_send(transport_.get(), iov_, count_, AAA_TRANSPORT_NEVER) != AAA_OK) {
            fail("cannot send a request");
        }
    }

  private:
    void receive() {
        static aaa_transport_msg_t message;
        const cerrno rc = aaa_transport_receive(transport_.get(), &message, AAA_TRANSPORT_NOW);
        if (rc == AAA_ERR_TIMEOUT) {
            return;
        }
        aaa_transport_head_t head;
        avlist *list = nullptr;
        if (rc != AAA_OK || aaa_transport_read_reply(&message, type_, &head) != AAA_OK ||
            head.result != AAA_OK) {
            fail("a request has failed");
        }
        if (type_ == AAA_REQ_AUTHEN) {
            if (aaa_transport_unpack(&message, head.list_at, &list) != AAA_OK ||
                aaa_util_avlist_status_get(list) != AAA_STAT_PASS) {
                fail("a login has failed");
            }
            aaa_avpair_free_list(list);
        }
        done_(*this);
    }

    Done done_;
    std::uint32_t type_;
    service::Transport transport_;
    aaa_req_hdr_t header_{};
    iov_t *iov_ = nullptr;
    std::uint32_t count_ = 0;
    char buffer_[4096];
    net::Watch watch_;
};

// ---- rows

struct Row {
    double one_us = 0;  // median
    double rate = 0;    // a second, with kInFlight
};

// `ask` begins a login for one of the places, and `finished` is to be called when it has ended.
using Ask = std::function<void(int place, const std::function<void()> &finished)>;

Row measure(net::Loop &loop, int logins, const Ask &ask) {
    std::vector<net::Time> times;
    for (int i = 0; i < logins; ++i) {
        const net::Time begin = net::Loop::clock();
        bool is_over = false;
        ask(0, [&] { is_over = true; });
        while (!is_over) {
            loop.run_once(INT64_MAX);
        }
        times.push_back(net::Loop::clock() - begin);
    }
    std::nth_element(times.begin(), times.begin() + logins / 2, times.end());
    int begun = 0;
    int ended = 0;
    const net::Time begin = net::Loop::clock();
    std::function<void(int)> next = [&](int place) {
        if (begun < logins) {
            ++begun;
            ask(place, [&, place] {
                ++ended;
                next(place);
            });
        }
    };
    for (int place = 0; place < kInFlight; ++place) {
        next(place);
    }
    while (ended < logins) {
        loop.run_once(INT64_MAX);
    }
    const double seconds = static_cast<double>(net::Loop::clock() - begin) / net::kSecond;
    return {static_cast<double>(times[static_cast<std::size_t>(logins) / 2]) / net::kMicrosecond,
            logins / seconds};
}

Row measure_service(net::Loop &loop, const std::string &path, std::uint32_t type, const char *list,
                    int logins) {
    std::vector<std::function<void()>> finished(kInFlight);
    std::vector<std::unique_ptr<Client>> clients;
    for (int place = 0; place < kInFlight; ++place) {
        const auto session = static_cast<std::uint32_t>(place + 1);
        clients.push_back(
            std::make_unique<Client>(loop, path, type, session, list, [&finished, place](Client &) {
                const auto call = finished[static_cast<std::size_t>(place)];
                call();
            }));
    }
    return measure(loop, logins, [&](int place, const std::function<void()> &done) {
        finished[static_cast<std::size_t>(place)] = done;
        clients[static_cast<std::size_t>(place)]->send();
    });
}

// Milliseconds of one login.
double measure_one(net::Loop &loop, const std::string &path, const char *list) {
    bool is_over = false;
    Client client(loop, path, AAA_REQ_AUTHEN, 0, list, [&](Client &) { is_over = true; });
    const net::Time begin = net::Loop::clock();
    client.send();
    while (!is_over) {
        loop.run_once(INT64_MAX);
    }
    return static_cast<double>(net::Loop::clock() - begin) / net::kMillisecond;
}

double resident_megabytes(pid_t process) {
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string word; status >> word;) {
        if (word == "VmRSS:") {
            double kilobytes = 0;
            status >> kilobytes;
            return kilobytes / 1024;
        }
    }
    return 0;
}

Row measure_client(net::Loop &loop, std::uint16_t port, int logins) {
    radius::ServerSettings settings;
    settings.address = *net::Address::parse("127.0.0.1", port);
    settings.secret = radius::Secret(kSecret);
    settings.nas_identifier = "bench";
    std::string error;
    const auto client = radius::Client::make(loop, settings, error);
    return measure(loop, logins, [&](int, const std::function<void()> &done) {
        radius::Question question = radius::Question::access();
        if (!question.add(radius::Type::kUserName, "alice") ||
            !question.add(radius::Type::kNasPortId, "vty0")) {
            fail("no question");
        }
        question.set_password("wonderland");
        client->ask(std::move(question), [done](const radius::Outcome &outcome) {
            if (outcome.kind != radius::Outcome::Kind::kAnswer) {
                fail(outcome.text);
            }
            done();
        });
    });
}

void print(const char *name, const Row &row, const Row &base) {
    std::printf("%-28s %8.1f us %5.2f   %8.0f/s %5.2f\n", name, row.one_us, row.one_us / base.one_us,
                row.rate, base.rate / row.rate);
}

}  // namespace

int main(int argc, char **argv) {
    const int logins = argc > 1 ? std::atoi(argv[1]) : 20000;
    if (logins < kInFlight) {
        fail("the number of logins must be " + std::to_string(kInFlight) + " or more");
    }
    char directory[] = "/tmp/service_bench.XXXXXX";
    if (mkdtemp(directory) == nullptr) {
        fail("no directory below /tmp");
    }
    const std::string path = std::string(directory) + "/socket";
    const std::uint16_t port = start_responder();
    std::array<int, 2> ready;
    if (pipe(ready.data()) != 0) {
        fail("no pipe");
    }
    const char *on_disk = std::getenv("AAA_BENCH_DIR");
    std::string journal =
        (on_disk != nullptr ? std::string(on_disk) + "/" : std::string()) + "service_bench.XXXXXX";
    if (mkdtemp(journal.data()) == nullptr) {
        fail("cannot make the directory " + journal + "; set AAA_BENCH_DIR");
    }
    journal = std::filesystem::absolute(journal);
    const auto [silent, silent_port] = open_server();  // nothing reads from it
    const pid_t service = start_process();
    if (service == 0) {
        serve(path, port, silent_port, journal, ready[1]);
    }
    char byte;
    if (read(ready[0], &byte, 1) != 1) {
        fail("the service has not started");
    }
    net::Loop loop;
    const Row bare = measure_client(loop, port, logins);
    const Row radius = measure_service(loop, path, AAA_REQ_AUTHEN, "radius", logins);
    const double first = measure_one(loop, path, "half-dead");
    const double second = measure_one(loop, path, "half-dead");
    const Row half_dead = measure_service(loop, path, AAA_REQ_AUTHEN, "half-dead", logins);
    const Row none = measure_service(loop, path, AAA_REQ_AUTHEN, "none", logins);
    const Row records = measure_service(loop, path, AAA_REQ_ACCT, "radius", logins);
    std::printf("%d logins; ratios to the first row\n", logins);
    std::printf("%-28s %11s %5s   %10s\n", "", "one, median", "", "32 in flight");
    print("RADIUS client alone", bare, bare);
    print("the service, over RADIUS", radius, bare);
    print("the service, method none", none, bare);
    print("accounting records, on disk", records, bare);
    print("first server silent, known", half_dead, bare);
    std::printf("%-28s %8.1f ms, the next one %.1f ms\n", "first server silent, login", first, second);
    std::printf("%-28s %8.1f MB\n", "resident", resident_megabytes(service));
    close(silent);
    kill(service, SIGKILL);  // it still delivers what it has
    waitpid(service, nullptr, 0);
    std::filesystem::remove_all(journal);
    std::remove(path.c_str());
    std::remove((path + ".lock").c_str());
    rmdir(directory);
    return 0;
}
