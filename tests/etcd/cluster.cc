// SPDX-License-Identifier: Apache-2.0

#include "etcd/cluster.hpp"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <ctime>
#include <thread>

#include "call/form.hpp"
#include "support/send_signal.hpp"

namespace etcd_test {

namespace {

std::vector<char *> pointers(std::vector<std::string> &words) {
    std::vector<char *> result;
    for (std::string &word : words) {
        result.push_back(word.data());
    }
    result.push_back(nullptr);
    return result;
}

// Nothing but async-signal-safe calls in the child: the test may have threads.
pid_t spawn(std::vector<std::string> arguments, const std::map<std::string, std::string> &environment,
            int output) {
    std::vector<std::string> variables;
    for (char **each = environ; *each != nullptr; ++each) {
        const std::string variable(*each);
        if (!environment.contains(variable.substr(0, variable.find('=')))) {
            variables.push_back(variable);
        }
    }
    for (const auto &[name, value] : environment) {
        variables.push_back(name + "=" + value);
    }
    const std::vector<char *> argv = pointers(arguments);
    const std::vector<char *> envp = pointers(variables);
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) {
            _exit(127);
        }
        const int null = open("/dev/null", O_RDONLY | O_CLOEXEC);
        dup2(null, 0);
        dup2(output, 1);
        dup2(output, 2);
        execvpe(argv[0], argv.data(), envp.data());
        _exit(127);
    }
    return pid;
}

int wait_for(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

void Program::start(const std::vector<std::string> &arguments,
                    const std::map<std::string, std::string> &environment, const std::string &output) {
    end();
    const int file = open(output.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    pid_ = spawn(arguments, environment, file);
    close(file);
    EXPECT_GT(pid_, 0);
}

void Program::send(int signal) const {
    aaatest::send_signal(pid_, signal);
}

void Program::end() {
    if (pid_ > 0) {
        aaatest::send_signal(pid_, SIGKILL);
        wait();
    }
}

int Program::wait() {
    const int status = pid_ > 0 ? wait_for(pid_) : -1;
    pid_ = -1;
    return status;
}

Ended run_program(const std::vector<std::string> &arguments,
                  const std::map<std::string, std::string> &environment) {
    int ends[2];
    EXPECT_EQ(0, pipe2(ends, O_CLOEXEC));
    const pid_t pid = spawn(arguments, environment, ends[1]);
    close(ends[1]);
    Ended ended{-1, {}};
    char buffer[4096];
    for (ssize_t count; (count = read(ends[0], buffer, sizeof buffer)) > 0;) {
        ended.output.append(buffer, static_cast<std::size_t>(count));
    }
    close(ends[0]);
    ended.status = pid > 0 ? wait_for(pid) : -1;
    return ended;
}

int free_port() {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    EXPECT_EQ(0, bind(fd, reinterpret_cast<sockaddr *>(&address), size));
    EXPECT_EQ(0, getsockname(fd, reinterpret_cast<sockaddr *>(&address), &size));
    close(fd);
    return ntohs(address.sin_port);
}

bool eventually(const std::function<bool()> &condition, int seconds) {
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= until) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

// ---- clocks

OtherClock::OtherClock(std::int64_t seconds) : file_(directory_.path("seconds")) {
    const int fd = open(file_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    EXPECT_EQ(0, ftruncate(fd, sizeof seconds));
    close(fd);
    set(seconds);
}

void OtherClock::set(std::int64_t seconds) {
    const int fd = open(file_.c_str(), O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(static_cast<ssize_t>(sizeof seconds), pwrite(fd, &seconds, sizeof seconds, 0));
    close(fd);
}

std::vector<std::string> OtherClock::before() const {
    return {ETCD_OTHER_CLOCK, file_};
}

bool OtherClock::works() const {
    return run_program({ETCD_OTHER_CLOCK, file_, "true"}).status == 0;
}

// ---- clusters

Cluster::Cluster(Options options) : options_(std::move(options)), members_(options_.members) {
    for (Member &member : members_) {
        member.client_port = free_port();
        member.peer_port = free_port();
    }
}

Cluster::~Cluster() = default;

std::string Cluster::host(std::size_t member) const {
    return options_.hosts.empty() ? "127.0.0.1" : options_.hosts[member];
}

std::string Cluster::endpoint(std::size_t member) const {
    return options_.scheme + "://" + host(member) + ":" + std::to_string(members_[member].client_port);
}

std::string Cluster::peer(std::size_t member) const {
    return "http://" + host(member) + ":" + std::to_string(members_[member].peer_port);
}

std::string Cluster::directory(std::size_t member) const {
    const auto own = options_.directories.find(member);
    return own != options_.directories.end() ? own->second : directory_.path("m" + std::to_string(member));
}

std::string Cluster::output(std::size_t member) const {
    return directory_.read("log" + std::to_string(member));
}

void Cluster::start(std::size_t member) {
    std::string all;
    for (std::size_t i = 0; i < size(); ++i) {
        all += (i == 0 ? "m" : ",m") + std::to_string(i) + "=" + peer(i);
    }
    std::vector<std::string> arguments =
        options_.before.empty() ? std::vector<std::string>() : options_.before[member];
    const std::vector<std::string> usual = {"etcd",
                                            "--name",
                                            "m" + std::to_string(member),
                                            "--data-dir",
                                            directory(member),
                                            "--listen-client-urls",
                                            endpoint(member),
                                            "--advertise-client-urls",
                                            endpoint(member),
                                            "--listen-peer-urls",
                                            peer(member),
                                            "--initial-advertise-peer-urls",
                                            peer(member),
                                            "--initial-cluster",
                                            all,
                                            "--logger",
                                            "zap",
                                            "--log-level",
                                            "warn"};
    arguments.insert(arguments.end(), usual.begin(), usual.end());
    if (!options_.certificate.empty()) {
        const std::vector<std::string> tls = {"--cert-file", options_.certificate, "--key-file",
                                              options_.key};
        arguments.insert(arguments.end(), tls.begin(), tls.end());
    }
    if (!options_.authorities.empty()) {
        const std::vector<std::string> tls = {"--client-cert-auth", "--trusted-ca-file",
                                              options_.authorities};
        arguments.insert(arguments.end(), tls.begin(), tls.end());
    }
    // Tests kill programs, not machines.
    if (!options_.directories.contains(member)) {
        arguments.emplace_back("--unsafe-no-fsync");
    }
    arguments.insert(arguments.end(), options_.more.begin(), options_.more.end());
    members_[member].program.start(arguments, {{"GOMAXPROCS", "2"}},
                                   directory_.path("log" + std::to_string(member)));
}

void Cluster::start_all() {
    for (std::size_t i = 0; i < size(); ++i) {
        start(i);
    }
    ASSERT_TRUE(wait_until_ready()) << output(0);
}

// A member that asks for certificates is only known to listen.
bool Cluster::wait_until_ready(const std::vector<std::size_t> &members) {
    constexpr int kNoConnection = 7;
    return eventually([&] {
        for (const std::size_t member : members) {
            const Ended ended = run_program({"curl", "-sk", "-m", "2", endpoint(member) + "/health"});
            if (options_.authorities.empty() ? ended.output.find("true") == std::string::npos
                                             : ended.status == kNoConnection) {
                return false;
            }
        }
        return true;
    });
}

bool Cluster::wait_until_ready() {
    std::vector<std::size_t> members;
    for (std::size_t i = 0; i < size(); ++i) {
        members.push_back(i);
    }
    return wait_until_ready(members);
}

void Cluster::stop(std::size_t member) {
    members_[member].program.send(SIGSTOP);
}

void Cluster::go_on(std::size_t member) {
    members_[member].program.send(SIGCONT);
}

std::size_t Cluster::leader() {
    for (std::size_t i = 0; i < size(); ++i) {
        if (!members_[i].program.is_running()) {
            continue;
        }
        const Ended ended = run_program({"etcdctl", "--endpoints", endpoint(i), "--insecure-skip-tls-verify",
                                         "--command-timeout", "2s", "endpoint", "status"},
                                        {{"ETCDCTL_API", "3"}});
        // endpoint, id, version, size, is leader, ...
        std::string_view rest = ended.output;
        for (int comma = 0; comma < 4; ++comma) {
            rest.remove_prefix(rest.find(',') == std::string_view::npos ? rest.size() : rest.find(',') + 1);
        }
        if (ended.status == 0 && rest.starts_with(" true")) {
            return i;
        }
    }
    return size();
}

// Of the head of a reply.
std::int64_t Cluster::time_of_day(std::size_t member) const {
    const std::string head =
        run_program({"curl", "-sk", "-m", "5", "-D", "-", "-o", "/dev/null", endpoint(member) + "/health"})
            .output;
    const std::size_t at = head.find("Date: ");
    tm time{};
    if (at == std::string::npos ||
        strptime(head.c_str() + at + 6, "%a, %d %b %Y %H:%M:%S GMT", &time) == nullptr) {
        return -1;
    }
    return timegm(&time);
}

Ended Cluster::control(const std::vector<std::string> &arguments) const {
    std::string endpoints;
    for (std::size_t i = 0; i < size(); ++i) {
        endpoints += (i == 0 ? "" : ",") + endpoint(i);
    }
    std::vector<std::string> all = {"etcdctl", "--endpoints", endpoints};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return run_program(all, {{"ETCDCTL_API", "3"}});
}

// ---- nodes

Node::Node(const Cluster &cluster, const std::string &name, const std::vector<std::string> &settings)
    : name_(name) {
    std::string text = "node " + name + "\n";
    bool has_endpoint = false;
    for (const std::string &line : settings) {
        text += line + "\n";
        has_endpoint = has_endpoint || line.starts_with("endpoint");
    }
    for (std::size_t i = 0; i < cluster.size() && !has_endpoint; ++i) {
        text += "endpoint " + cluster.endpoint(i) + "\n";
    }
    directory_.write("agent.conf", text);
}

// An agent under a sanitizer says what it found.
Node::~Node() {
    if (agent_.is_running()) {
        EXPECT_EQ(0, stop());
    }
    const std::string said = log();
    for (const char *found : {"Sanitizer", "runtime error"}) {
        EXPECT_EQ(std::string::npos, said.find(found)) << said;
    }
}

std::map<std::string, std::string> Node::environment() const {
    return {{"AAA_SYSDB_CFG_DIR", directory_.path("cfg")},
            {"AAA_SYSDB_RUN_DIR", directory_.path("run")},
            {"AAA_SYSDB_PROVIDER", ETCD_PROVIDER},
            {"AAA_LOG", "stderr"}};
}

void Node::use() const {
    for (const auto &[variable, value] : environment()) {
        setenv(variable.c_str(), value.c_str(), 1);
    }
}

Ended Node::import() const {
    return run_program({ETCD_AGENT, "--config", configuration(), "--import"}, environment());
}

Ended Node::adopt() const {
    return run_program({ETCD_AGENT, "--config", configuration(), "--adopt"}, environment());
}

Ended Node::leave() const {
    return run_program({ETCD_AGENT, "--leave"}, environment());
}

// An agent starts only on a node that has joined.
void Node::start() {
    adopt();
    std::vector<std::string> arguments = before_;
    arguments.insert(arguments.end(), {ETCD_AGENT, "--foreground", "--config", configuration()});
    agent_.start(arguments, environment(), directory_.path("log"));
}

int Node::stop() {
    agent_.send(SIGTERM);
    return agent_.wait();
}

std::optional<sysdb_etcd::Answer> Node::ask(const std::string &bytes) const {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "%s", socket().c_str());
    std::string received;
    if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 &&
        ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size())) {
        char buffer[4096];
        for (ssize_t count; (count = recv(fd, buffer, sizeof buffer, 0)) > 0;) {
            received.append(buffer, static_cast<std::size_t>(count));
        }
    }
    close(fd);
    sysdb_etcd::Answer answer;
    if (received.size() <= sysdb_etcd::kLengthSize ||
        !sysdb_etcd::unpack_answer(std::string_view(received).substr(sysdb_etcd::kLengthSize), answer)) {
        return std::nullopt;
    }
    return answer;
}

std::string Node::status() const {
    const auto answer = ask(*sysdb_etcd::pack_request({sysdb_etcd::Ask::kStatus, 0, {}}));
    return answer ? answer->text : "";
}

bool Node::wait_until_following() const {
    return eventually([this] { return status().find("\"state\":\"following\"") != std::string::npos; });
}

}  // namespace etcd_test
