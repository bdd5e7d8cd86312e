// SPDX-License-Identifier: Apache-2.0
//
// Handles and connections: paths and the servers found there, the users that
// run them, waiting, listening, and the descriptors that a process gets.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "aaa/result_codes.h"
#include "aaa/transport.h"
#include "support/machine.hpp"
#include "support/transport.hpp"

namespace {

using transport_test::accept_from;
using transport_test::connect_to;
using transport_test::descriptor;
using transport_test::kShort;
using transport_test::listen_at;
using transport_test::make_transport;
using transport_test::send_raw;
using transport_test::SocketTest;
using transport_test::Transport;

constexpr uid_t kOtherUser = 65534;

// Runs a body in a child process, which cannot report failures to GoogleTest. Returns the number of
// its first failed check, 0 for none.
int in_child(const std::function<int()> &body) {
    const pid_t pid = fork();
    if (pid == 0) {
        _exit(body());
    }
    int status = -1;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
    return WEXITSTATUS(status);
}

// A socket of the given type that listens without the library, with a queue for one client.
class RawListener {
  public:
    explicit RawListener(const std::string &path, int type = SOCK_SEQPACKET)
        : fd_(socket(AF_UNIX, type | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(bind(fd_, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        EXPECT_EQ(listen(fd_, 0), 0);
    }
    ~RawListener() { close(fd_); }
    RawListener(const RawListener &) = delete;
    RawListener &operator=(const RawListener &) = delete;

    int take() const { return accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC); }

  private:
    int fd_;
};

cerrno try_connect(const Transport &client, const std::string &path, int64_t deadline = AAA_TRANSPORT_NEVER,
                   uint32_t user = AAA_TRANSPORT_ANY_USER) {
    return aaa_transport_connect(client.get(), path.c_str(), user, deadline);
}

#define EXPECT_FAILS(call, transport, code, number)                          \
    do {                                                                     \
        EXPECT_EQ(call, cerrno{code});                                       \
        EXPECT_EQ(aaa_transport_errno((transport).get()), number);           \
        EXPECT_EQ(descriptor(transport), -1) << "a descriptor is left open"; \
    } while (false)

class Connection : public SocketTest {
  protected:
    Transport client_ = make_transport();
};

// ---- finding a server ----------------------------------------------------------------

TEST_F(Connection, NoPathNoListenerNoSocketWrongSocket) {
    EXPECT_FAILS(try_connect(client_, path_), client_, AAA_ERR_SERVER_CONNECT_FAILED, ENOENT);
    EXPECT_FAILS(try_connect(client_, dir_.path("no/such/directory")), client_, AAA_ERR_SERVER_CONNECT_FAILED,
                 ENOENT);
    { const RawListener gone(path_); }
    EXPECT_FAILS(try_connect(client_, path_), client_, AAA_ERR_SERVER_CONNECT_FAILED, ECONNREFUSED);
    EXPECT_FAILS(try_connect(client_, dir_.write("file", "text")), client_, AAA_ERR_SERVER_CONNECT_FAILED,
                 ECONNREFUSED);
    const RawListener stream(dir_.path("stream"), SOCK_STREAM);
    EXPECT_FAILS(try_connect(client_, dir_.path("stream")), client_, AAA_ERR_SERVER_CONNECT_FAILED,
                 EPROTOTYPE);
}

// Symptom: an empty path was accepted as an abstract name, which any process may take.
TEST_F(Connection, AnEmptyPathIsRefused) {
    EXPECT_FAILS(try_connect(client_, ""), client_, AAA_ERR_INVALID_ARG, ENOENT);
    EXPECT_FAILS(aaa_transport_listen(client_.get(), ""), client_, AAA_ERR_INVALID_ARG, ENOENT);
}

TEST_F(Connection, ThePathMayBeAsLongAsAnAddressAllows) {
    const size_t most = sizeof(sockaddr_un::sun_path) - 1;
    const std::string longest = path_ + std::string(most - path_.size(), 'x');
    const Transport listener = listen_at(longest);
    EXPECT_EQ(try_connect(client_, longest), AAA_OK);
    EXPECT_FAILS(try_connect(client_, longest + "x"), client_, AAA_ERR_INVALID_ARG, ENAMETOOLONG);
    EXPECT_FAILS(aaa_transport_listen(client_.get(), (longest + "x").c_str()), client_, AAA_ERR_INVALID_ARG,
                 ENAMETOOLONG);
}

TEST_F(Connection, NullArgumentsAreRefused) {
    const Transport listener = listen_at(path_);
    aaa_transport_peer_t peer;
    EXPECT_EQ(aaa_transport_create(nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_transport_connect(nullptr, path_.c_str(), 0, 0), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_transport_connect(client_.get(), nullptr, 0, 0), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_transport_listen(nullptr, path_.c_str()), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_transport_listen(client_.get(), nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_transport_accept(nullptr, client_.get(), 0), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_transport_accept(listener.get(), nullptr, 0), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_transport_peer_of(nullptr, &peer), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_transport_peer_of(listener.get(), nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_transport_descriptor(nullptr), -1);
    EXPECT_EQ(aaa_transport_errno(nullptr), 0);
    aaa_transport_close(nullptr);
    aaa_transport_free(nullptr);
}

TEST_F(Connection, AHandleConnectsAgainAndAgain) {
    const Transport listener = listen_at(path_);
    for (int i = 0; i < 3; i++) {
        ASSERT_EQ(try_connect(client_, path_), AAA_OK);
        EXPECT_EQ(aaa_transport_errno(client_.get()), 0);
        const Transport server = accept_from(listener);
        EXPECT_TRUE(send_raw(client_, "x"));
    }
    aaa_transport_close(client_.get());
    EXPECT_EQ(descriptor(client_), -1);
    aaa_transport_close(client_.get());
    aaa_transport_peer_t peer;
    EXPECT_FAILS(aaa_transport_peer_of(client_.get(), &peer), client_, AAA_ERR_NOT_CONNECTED, ENOTCONN);
    EXPECT_FAILS(aaa_transport_accept(client_.get(), make_transport().get(), AAA_TRANSPORT_NOW), client_,
                 AAA_ERR_NOT_CONNECTED, ENOTCONN);
}

// ---- waiting for a server ------------------------------------------------------------

TEST_F(Connection, AFullQueueOfNewcomersIsWaitedForUntilTheDeadline) {
    const RawListener listener(path_);
    const Transport first = connect_to(path_);
    for (const int64_t deadline : {AAA_TRANSPORT_NOW, int64_t{1}, aaa_transport_deadline(kShort)}) {
        EXPECT_FAILS(try_connect(client_, path_, deadline), client_, AAA_ERR_TIMEOUT, ETIMEDOUT);
    }
    const int taken = listener.take();
    EXPECT_EQ(try_connect(client_, path_, AAA_TRANSPORT_NOW), AAA_OK) << "the queue has room again";
    close(taken);
}

TEST_F(Connection, ANewcomerIsWaitedForUntilTheDeadline) {
    const Transport listener = listen_at(path_);
    for (const int64_t deadline : {AAA_TRANSPORT_NOW, aaa_transport_deadline(kShort)}) {
        EXPECT_EQ(aaa_transport_accept(listener.get(), client_.get(), deadline), AAA_ERR_TIMEOUT);
        EXPECT_EQ(aaa_transport_errno(listener.get()), ETIMEDOUT);
        EXPECT_EQ(descriptor(client_), -1);
    }
    const Transport newcomer = connect_to(path_);
    EXPECT_EQ(aaa_transport_accept(listener.get(), client_.get(), AAA_TRANSPORT_NOW), AAA_OK);
}

TEST_F(Connection, DeadlinesAreInOrder) {
    const int64_t before = aaa_transport_deadline(0);
    const int64_t later = aaa_transport_deadline(UINT32_MAX);
    EXPECT_GT(before, AAA_TRANSPORT_NOW);
    EXPECT_GE(later - before, int64_t{UINT32_MAX} * 1000000);
    EXPECT_LT(later, AAA_TRANSPORT_NEVER);
}

// ---- the peer ------------------------------------------------------------------------

TEST_F(Connection, EachSideLearnsWhoTheOtherIs) {
    const Transport listener = listen_at(path_);
    const int failed = in_child([&] {
        const Transport client = connect_to(path_);
        aaa_transport_peer_t server{};
        if (aaa_transport_peer_of(client.get(), &server) != AAA_OK) {
            return 1;
        }
        return server.pid == getppid() && server.uid == getuid() && server.gid == getgid() ? 0 : 2;
    });
    EXPECT_EQ(failed, 0);
    const Transport server = accept_from(listener);
    aaa_transport_peer_t client{};
    ASSERT_EQ(aaa_transport_peer_of(server.get(), &client), AAA_OK);
    EXPECT_NE(client.pid, getpid());
    EXPECT_GT(client.pid, 0);
    EXPECT_EQ(client.uid, getuid());
    EXPECT_EQ(client.gid, getgid());
}

TEST_F(Connection, AServerOfAnotherUserIsRefused) {
    const Transport listener = listen_at(path_);
    EXPECT_EQ(try_connect(client_, path_, AAA_TRANSPORT_NEVER, getuid()), AAA_OK);
    EXPECT_FAILS(try_connect(client_, path_, AAA_TRANSPORT_NEVER, getuid() + 1), client_,
                 AAA_ERR_SERVER_CONNECT_FAILED, EPERM);
}

// A process of another user listens at a path where root's server is expected.
TEST_F(Connection, AnImpostorsSocketIsRefused) {
    SKIP_WITHOUT_ROOT("only root can become another user");
    ASSERT_EQ(chmod(dir_.path("").c_str(), 0777), 0);
    int ready[2], done[2];
    ASSERT_EQ(pipe2(ready, O_CLOEXEC), 0);
    ASSERT_EQ(pipe2(done, O_CLOEXEC), 0);
    const pid_t pid = fork();
    if (pid == 0) {
        close(done[1]);
        char end = 0;
        if (setuid(kOtherUser) != 0) {
            _exit(1);
        }
        const Transport listener = listen_at(path_);
        if (write(ready[1], "r", 1) != 1 || read(done[0], &end, 1) != 0) {
            _exit(2);
        }
        _exit(0);
    }
    close(done[0]);
    close(ready[1]);
    char word = 0;
    ASSERT_EQ(read(ready[0], &word, 1), 1);
    EXPECT_FAILS(try_connect(client_, path_, AAA_TRANSPORT_NEVER, 0), client_, AAA_ERR_SERVER_CONNECT_FAILED,
                 EPERM);
    EXPECT_EQ(try_connect(client_, path_, AAA_TRANSPORT_NEVER, kOtherUser), AAA_OK);
    close(done[1]);
    close(ready[0]);
    int status = -1;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_EQ(status, 0);
}

TEST_F(Connection, WhoMayNotConnectIsTold) {
    const Transport listener = listen_at(path_);
    const int failed = in_child([&] {
        if (geteuid() == 0 && (chmod(dir_.path("").c_str(), 0755) != 0 || chmod(path_.c_str(), 0600) != 0 ||
                               setuid(kOtherUser) != 0)) {
            return 1;
        }
        if (geteuid() != kOtherUser && chmod(path_.c_str(), 0) != 0) {
            return 2;
        }
        if (try_connect(client_, path_) != AAA_ERR_SERVER_CONNECT_FAILED) {
            return 3;
        }
        return aaa_transport_errno(client_.get()) == EACCES ? 0 : 4;
    });
    EXPECT_EQ(failed, 0);
}

// ---- listening -------------------------------------------------------------------------

TEST_F(Connection, ASocketThatADeadServerLeftIsReplaced) {
    ASSERT_EQ(in_child([&] { return listen_at(path_) != nullptr ? 0 : 1; }), 0);
    ASSERT_EQ(access(path_.c_str(), F_OK), 0) << "nothing was left to replace";
    const Transport listener = listen_at(path_);
    EXPECT_EQ(try_connect(client_, path_), AAA_OK);
}

TEST_F(Connection, ASecondServerIsRefusedAndTheFirstGoesOn) {
    const Transport listener = listen_at(path_);
    const Transport second = make_transport();
    EXPECT_FAILS(aaa_transport_listen(second.get(), path_.c_str()), second, AAA_ERR_OS, EADDRINUSE);
    EXPECT_EQ(try_connect(client_, path_), AAA_OK);
    EXPECT_NE(accept_from(listener), nullptr);
}

TEST_F(Connection, AServerWithoutTheLockIsNotReplacedEither) {
    const RawListener other(path_);
    EXPECT_FAILS(aaa_transport_listen(client_.get(), path_.c_str()), client_, AAA_ERR_OS, EADDRINUSE);
    EXPECT_EQ(try_connect(client_, path_, aaa_transport_deadline(kShort)), AAA_ERR_TIMEOUT)
        << "the second server's attempt is in the queue of the first";
}

TEST_F(Connection, AFileIsNeverReplaced) {
    dir_.write("socket", "precious");
    EXPECT_FAILS(aaa_transport_listen(client_.get(), path_.c_str()), client_, AAA_ERR_OS, EADDRINUSE);
    EXPECT_EQ(dir_.read("socket"), "precious");
    EXPECT_FAILS(aaa_transport_listen(client_.get(), dir_.path("no/such").c_str()), client_, AAA_ERR_OS,
                 ENOENT);
}

TEST_F(Connection, TheLockIsNotFollowedElsewhere) {
    dir_.write("elsewhere", "");
    ASSERT_EQ(symlink("elsewhere", dir_.path("socket.lock").c_str()), 0);
    EXPECT_FAILS(aaa_transport_listen(client_.get(), path_.c_str()), client_, AAA_ERR_OS, ELOOP);
}

TEST_F(Connection, TheNextServerMayListenOnceTheFirstHasClosed) {
    Transport listener = listen_at(path_);
    aaa_transport_close(listener.get());
    EXPECT_EQ(aaa_transport_listen(client_.get(), path_.c_str()), AAA_OK);
}

TEST_F(Connection, TheUmaskDecidesWhoMayConnect) {
    const mode_t before = umask(0077);
    const Transport listener = listen_at(path_);
    umask(before);
    struct stat found {};
    ASSERT_EQ(stat(path_.c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 0777, 0700u);
}

TEST_F(Connection, NoFreeDescriptorIsReportedAndTheNewcomerWaits) {
    const Transport listener = listen_at(path_);
    const Transport newcomer = connect_to(path_);
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const int next = dup(0);
    close(next);
    const rlimit none = {static_cast<rlim_t>(next), before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const cerrno refused = aaa_transport_accept(listener.get(), client_.get(), AAA_TRANSPORT_NOW);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(refused, AAA_ERR_OS);
    EXPECT_EQ(aaa_transport_errno(listener.get()), EMFILE);
    EXPECT_EQ(aaa_transport_accept(listener.get(), client_.get(), AAA_TRANSPORT_NOW), AAA_OK);
}

// ---- descriptors ------------------------------------------------------------------------

// What a caller without the standard descriptors prints must not go to the server.
TEST_F(Connection, StandardDescriptorsAreLeftAlone) {
    const int failed = in_child([&] {
        close(0);
        close(1);
        close(2);
        const Transport listener = listen_at(path_);
        const Transport client = connect_to(path_);
        const Transport server = accept_from(listener);
        for (const Transport *transport : {&listener, &client, &server}) {
            if (descriptor(*transport) < 3) {
                return 1;
            }
            if (fcntl(descriptor(*transport), F_GETFD) != FD_CLOEXEC) {
                return 2;
            }
        }
        for (int fd = 0; fd < 3; fd++) {  // the listener's lock file has none of them
            if (fcntl(fd, F_GETFD) != -1) {
                return 3 + fd;
            }
        }
        return send_raw(client, "x") ? 0 : 6;
    });
    EXPECT_EQ(failed, 0);
}

size_t open_descriptors() {
    size_t count = 0;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        count += entry.path().empty() ? 0 : 1;
    }
    return count;
}

TEST_F(Connection, NothingStaysOpenAndNothingIsInherited) {
    const size_t before = open_descriptors();
    for (int i = 0; i < 100; i++) {
        const Transport listener = listen_at(path_);
        const Transport client = connect_to(path_);
        const Transport server = accept_from(listener);
        for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            const int fd = std::stoi(entry.path().filename());
            std::error_code ignored;
            const std::string target = std::filesystem::read_symlink(entry.path(), ignored);
            EXPECT_TRUE((!target.starts_with("socket:") && !target.ends_with(".lock")) ||
                        fcntl(fd, F_GETFD) == FD_CLOEXEC)
                << target;
        }
        try_connect(client_, dir_.path("nowhere"));
        aaa_transport_listen(client_.get(), dir_.path("no/where").c_str());
        aaa_transport_listen(client_.get(), path_.c_str());
    }
    EXPECT_EQ(open_descriptors(), before);
}

// ---- numbers of logins ------------------------------------------------------------------

// Connects from a socket with a name of its own, as any program can.
void connect_raw(const std::string &path, const std::string &own_name) {
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    sockaddr_un own{};
    own.sun_family = AF_UNIX;
    own_name.copy(own.sun_path, sizeof own.sun_path);
    EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&own),
                   static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + own_name.size())),
              0)
        << own_name;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    close(fd);  // the server sees the name all the same
}

uint32_t login_of(const Transport &server) {
    uint32_t login = 99;
    EXPECT_EQ(aaa_transport_login_of(server.get(), &login), AAA_OK);
    return login;
}

TEST_F(Connection, TheServerLearnsTheNumberOfTheLogin) {
    const Transport listener = listen_at(path_);
    const Transport plain = connect_to(path_);
    EXPECT_EQ(login_of(accept_from(listener)), 0u);
    const Transport client = make_transport();
    std::vector<Transport> servers;
    for (const uint32_t login : {0x4f1c00a7u, 0x4f1c00a7u, 1u, 0xffffffffu, 0u}) {
        EXPECT_EQ(aaa_transport_set_login(client.get(), login), AAA_OK);
        EXPECT_EQ(
            aaa_transport_connect(client.get(), path_.c_str(), AAA_TRANSPORT_ANY_USER, AAA_TRANSPORT_NEVER),
            AAA_OK);
        servers.push_back(accept_from(listener));
        EXPECT_EQ(login_of(servers.back()), login);
    }
    EXPECT_EQ(login_of(servers.front()), 0x4f1c00a7u) << "also after the client has gone";
}

TEST_F(Connection, SeveralConnectionsAreForOneLogin) {
    const Transport listener = listen_at(path_);
    std::vector<Transport> clients;
    for (int i = 0; i < 3; ++i) {
        clients.push_back(make_transport());
        EXPECT_EQ(aaa_transport_set_login(clients.back().get(), 7), AAA_OK);
        EXPECT_EQ(aaa_transport_connect(clients.back().get(), path_.c_str(), AAA_TRANSPORT_ANY_USER,
                                        AAA_TRANSPORT_NEVER),
                  AAA_OK);
        const Transport server = accept_from(listener);
        EXPECT_EQ(login_of(server), 7u);
        EXPECT_TRUE(send_raw(clients.back(), "works"));
    }
}

TEST_F(Connection, ANameThatIsNotALoginsGivesNoNumber) {
    const Transport listener = listen_at(path_);
    const std::string good = std::string(1, '\0') + "aaa-login/4f1c00a7/0123456789abcdef";
    connect_raw(path_, good);
    EXPECT_EQ(login_of(accept_from(listener)), 0x4f1c00a7u);
    for (std::size_t at = 1; at < good.size(); ++at) {
        for (const char wrong : {'\0', ' ', '/', 'G', 'F', '-', '\n'}) {
            std::string name = good;
            name[at] = wrong;
            connect_raw(path_, name);
            const uint32_t login = login_of(accept_from(listener));
            const bool is_good = name == good;
            EXPECT_EQ(login, is_good ? 0x4f1c00a7u : 0u) << name;
        }
    }
    for (const std::string &name : {good.substr(0, good.size() - 1), good + "0", good + std::string(1, '\0'),
                                    std::string(1, '\0'), std::string("\0x", 2)}) {
        connect_raw(path_, name);
        EXPECT_EQ(login_of(accept_from(listener)), 0u) << name;
    }
    connect_raw(path_, dir_.path("own"));  // a path
    EXPECT_EQ(login_of(accept_from(listener)), 0u);
}

TEST_F(Connection, NumbersOfLoginsNeedAHandle) {
    const Transport none = make_transport();
    uint32_t login = 99;
    EXPECT_EQ(aaa_transport_set_login(nullptr, 1), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_transport_login_of(none.get(), nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_transport_login_of(nullptr, &login), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_transport_login_of(none.get(), &login), AAA_ERR_NOT_CONNECTED);
    EXPECT_EQ(login, 0u);
}

// ---- fork -------------------------------------------------------------------------------

TEST_F(Connection, AChildThatFreesItsCopyDoesNotEndTheConnection) {
    Transport listener = listen_at(path_);
    Transport client = connect_to(path_);
    const Transport server = accept_from(listener);
    EXPECT_EQ(in_child([&] {
                  client.reset();
                  listener.reset();
                  return 0;
              }),
              0);
    EXPECT_TRUE(send_raw(client, "still here"));
    const auto message = std::make_unique<aaa_transport_msg_t>();
    EXPECT_EQ(aaa_transport_receive(server.get(), message.get(), AAA_TRANSPORT_NOW), AAA_OK);
    EXPECT_EQ(message->len, 10u);
    const Transport second = connect_to(path_);
    EXPECT_NE(accept_from(listener), nullptr);
    const Transport other = make_transport();
    EXPECT_EQ(aaa_transport_listen(other.get(), path_.c_str()), AAA_ERR_OS)
        << "the child's end released the lock";
}

TEST_F(Connection, AChildConnectsByItself) {
    const Transport listener = listen_at(path_);
    const Transport parents = connect_to(path_);
    const Transport parents_server = accept_from(listener);
    EXPECT_EQ(in_child([&] { return send_raw(connect_to(path_), "from the child") ? 0 : 1; }), 0);
    const Transport server = accept_from(listener);
    const auto message = std::make_unique<aaa_transport_msg_t>();
    EXPECT_EQ(aaa_transport_receive(server.get(), message.get(), AAA_TRANSPORT_NEVER), AAA_OK);
    EXPECT_EQ(aaa_transport_receive(server.get(), message.get(), AAA_TRANSPORT_NEVER), AAA_ERR_NOT_CONNECTED);
    EXPECT_EQ(aaa_transport_receive(parents_server.get(), message.get(), AAA_TRANSPORT_NOW), AAA_ERR_TIMEOUT);
}

}  // namespace
