// SPDX-License-Identifier: Apache-2.0
//
// Starting and stopping a FreeRADIUS server.

#include "radius/freeradius.hpp"
#include "support/send_signal.hpp"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>

namespace radius_test {
namespace {

constexpr char kProgram[] = "/usr/sbin/freeradius";
constexpr char kSecret[] = "testing123";

// A port that is free now. Another process may take it before the server does, which is
// then started again with others.
std::uint16_t free_port(int type) {
    const net::Descriptor probe(socket(AF_INET, type | SOCK_CLOEXEC, 0));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    EXPECT_EQ(bind(probe.get(), reinterpret_cast<sockaddr *>(&address), size), 0);
    EXPECT_EQ(getsockname(probe.get(), reinterpret_cast<sockaddr *>(&address), &size), 0);
    return ntohs(address.sin_port);
}

void replace_all(std::string &text, const std::string &from, const std::string &to) {
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
}

constexpr char kUsers[] = R"(alice Cleartext-Password := "wonderland"
    Reply-Message = "Hello, ",
    Reply-Message += "Alice",
    Service-Type = Administrative-User,
    Session-Timeout = 3600,
    Class = "one",
    Class += "two",
    Attr-26.32473.1 = 0x61646d696e73,
    Attr-26.32473.2 = 0x0000000f

bob Auth-Type := Reject
    Reply-Message = "Account locked"

carol Auth-Type := Accept

sleepy Auth-Type := Accept

)";

// One item in each line: its parser takes no more.
constexpr char kConfiguration[] = R"(
prefix = /usr
libdir = /usr/lib/freeradius
raddbdir = @DIR@
logdir = @DIR@
run_dir = @DIR@
pidfile = @DIR@/pid
cleanup_delay = 2
max_requests = 16384
hostname_lookups = no
proxy_requests = no
log {
    destination = stdout
    auth = no
}
security {
    reject_delay = 0
    status_server = yes
}
thread pool {
    start_servers = 4
    max_servers = 8
    min_spare_servers = 1
    max_spare_servers = 8
    max_requests_per_server = 0
}
client loopback {
    ipaddr = 127.0.0.1
    secret = testing123
    require_message_authenticator = yes
}
clients tls {
    client loopback_tls {
        ipaddr = 127.0.0.1
        proto = tls
        secret = radsec
    }
}
modules {
    pap {
    }
    chap {
    }
    exec {
        wait = yes
        input_pairs = request
        shell_escape = yes
        timeout = 10
    }
    files {
        usersfile = @DIR@/users
    }
    detail {
        filename = @DIR@/detail
        permissions = 0600
        locking = no
    }
    always handled {
        rcode = handled
    }
    always reject {
        rcode = reject
    }
    always ok {
        rcode = ok
    }
}
server test {
    listen {
        type = auth
        ipaddr = 127.0.0.1
        port = @AUTH@
    }
    listen {
        type = acct
        ipaddr = 127.0.0.1
        port = @ACCT@
    }
    listen {
        type = auth+acct
        ipaddr = 127.0.0.1
        port = @TLS@
        proto = tcp
        clients = tls
        limit {
            max_connections = 16
            lifetime = 0
            idle_timeout = 30
        }
        tls {
            private_key_file = @DIR@/server.key
            certificate_file = @DIR@/server.pem
            ca_file = @DIR@/ca.pem
            require_client_cert = yes
            tls_min_version = "1.2"
            tls_max_version = "1.3"
            cipher_list = "DEFAULT"
            ecdh_curve = ""
        }
    }
    authorize {
        if (&User-Name == "sleepy") {
            update control {
                &Tmp-String-0 := "%{exec:/bin/sleep 1}"
            }
        }
        if (&User-Name == "carol" && !&State) {
            update reply {
                &Reply-Message := "Code: "
                &State := 0x7374617465
                @MA@
            }
            update control {
                &Response-Packet-Type := Access-Challenge
            }
            handled
        }
        if (&User-Name == "carol" && &User-Password != "123456") {
            reject
        }
        files
        chap
        pap
        Autz-Type Status-Server {
            update reply {
                @MA@
            }
            ok
        }
    }
    authenticate {
        Auth-Type PAP {
            pap
        }
        Auth-Type CHAP {
            chap
        }
    }
    post-auth {
        update reply {
            @MA@
        }
        Post-Auth-Type REJECT {
            update reply {
                @MA@
            }
        }
    }
    accounting {
        detail
        Acct-Type Status-Server {
            update reply {
                @MA@
            }
            ok
        }
    }
}
)";

}  // namespace

bool FreeRadius::is_installed() {
    return access(kProgram, X_OK) == 0;
}

FreeRadius::FreeRadius(bool message_authenticator) {
    write_certificates();
    for (int tries = 0; tries < 5 && !usable_; ++tries) {
        authentication_port_ = free_port(SOCK_DGRAM);
        accounting_port_ = free_port(SOCK_DGRAM);
        tls_port_ = free_port(SOCK_STREAM);
        write_configuration(message_authenticator);
        usable_ = start();
    }
    EXPECT_TRUE(usable_) << log();
}

FreeRadius::~FreeRadius() {
    stop();
}

void FreeRadius::write_certificates() {
    const net_test::Identity authority =
        net_test::make_identity({.common_name = "authority", .alternative_names = "", .is_authority = true});
    const net_test::Identity server = net_test::make_identity(
        {.common_name = "server", .alternative_names = "DNS:aaa.test", .issuer = &authority});
    const net_test::Identity client = net_test::make_identity(
        {.common_name = "router", .alternative_names = "DNS:router.test", .issuer = &authority});
    directory_.write("ca.pem", authority.certificate_pem());
    directory_.write("server.pem", server.certificate_pem());
    directory_.write("server.key", server.key_pem());
    directory_.write("client.pem", client.certificate_pem());
    directory_.write("client.key", client.key_pem());
}

void FreeRadius::write_configuration(bool message_authenticator) {
    std::string text = kConfiguration;
    replace_all(text, "@DIR@", directory_.path("."));
    replace_all(text, "@AUTH@", std::to_string(authentication_port_));
    replace_all(text, "@ACCT@", std::to_string(accounting_port_));
    replace_all(text, "@TLS@", std::to_string(tls_port_));
    replace_all(text, "@MA@",
                message_authenticator ? "&Message-Authenticator := 0x00" : "&Filter-Id := \"none\"");
    directory_.write("radiusd.conf", text);
    directory_.write("users", kUsers);
    directory_.write("dictionary", "$INCLUDE /usr/share/freeradius/dictionary\n");
}

bool FreeRadius::start() {
    std::array<int, 2> ends;
    EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    output_ = net::Descriptor(ends[0]);
    net::Descriptor writer(ends[1]);
    const std::string directory = directory_.path(".");
    const pid_t parent = getpid();
    process_ = fork();
    if (process_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);  // a test that dies leaves no server
        if (getppid() != parent) {
            _exit(127);
        }
        dup2(writer.get(), STDOUT_FILENO);
        dup2(writer.get(), STDERR_FILENO);
        execl(kProgram, kProgram, "-f", "-l", "stdout", "-d", directory.c_str(), "-n", "radiusd", nullptr);
        _exit(127);
    }
    writer.reset();
    ended_ = false;
    log_.clear();
    reader_ = std::thread([this] { read_output(); });
    std::unique_lock lock(mutex_);
    const auto is_ready = [this] { return log_.find("Ready to process requests") != std::string::npos; };
    changed_.wait(lock, [&] { return ended_ || is_ready(); });
    const bool ready = is_ready();
    lock.unlock();
    if (!ready) {
        stop();
    }
    return ready;
}

// Until the server ends: it would wait when nobody reads.
void FreeRadius::read_output() {
    std::array<char, 4096> buffer;
    for (;;) {
        const ssize_t size = read(output_.get(), buffer.data(), buffer.size());
        const std::lock_guard lock(mutex_);
        if (size > 0) {
            log_.append(buffer.data(), static_cast<std::size_t>(size));
        } else {
            ended_ = true;
        }
        changed_.notify_all();
        if (size <= 0) {
            return;
        }
    }
}

void FreeRadius::stop() {
    if (process_ <= 0) {
        return;
    }
    kill(process_, SIGKILL);
    int status;
    EXPECT_EQ(waitpid(process_, &status, 0), process_);
    process_ = -1;
    reader_.join();
}

// The signal is delivered before waitpid() reports the stop, so no answer comes after this.
void FreeRadius::pause() {
    aaatest::send_signal(process_, SIGSTOP);
    int status;
    EXPECT_EQ(waitpid(process_, &status, WUNTRACED), process_);
    EXPECT_TRUE(WIFSTOPPED(status));
}

void FreeRadius::resume() {
    aaatest::send_signal(process_, SIGCONT);
}

std::string FreeRadius::log() {
    const std::lock_guard lock(mutex_);
    return log_;
}

radius::ServerSettings FreeRadius::settings(std::uint16_t port) const {
    radius::ServerSettings settings;
    settings.address = *net::Address::parse("127.0.0.1", port);
    settings.secret = radius::Secret(kSecret);
    settings.nas_identifier = "router-1";
    return settings;
}

radius::ServerSettings FreeRadius::tls(bool with_certificate) const {
    net::TlsSettings files;
    files.ca_file = directory_.path("ca.pem");
    if (with_certificate) {
        files.certificate_file = directory_.path("client.pem");
        files.key_file = directory_.path("client.key");
    }
    std::string error;
    radius::ServerSettings settings = this->settings(tls_port_);
    settings.secret = radius::Secret();
    settings.tls = {net::TlsContext::make(files, error), "aaa.test"};
    EXPECT_NE(settings.tls.context, nullptr) << error;
    return settings;
}

}  // namespace radius_test
