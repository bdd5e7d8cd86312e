// SPDX-License-Identifier: Apache-2.0

#include "cluster/agent_program.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <utility>

#include "cli/output.hpp"
#include "cluster/cluster.hpp"
#include "service/control_client.hpp"

namespace aaactl {
namespace {

constexpr size_t kMostOutput = size_t{4} << 20;

class Pipe {
  public:
    Pipe() {
        if (pipe2(ends_, O_CLOEXEC) != 0) {
            throw Failure(ExitCode::failed, std::string("no pipe can be made: ") + std::strerror(errno));
        }
    }
    ~Pipe() {
        close(ends_[0]);
        close_writer();
    }
    Pipe(const Pipe &) = delete;
    Pipe &operator=(const Pipe &) = delete;

    int reader() const { return ends_[0]; }
    int writer() const { return ends_[1]; }
    void close_writer() {
        if (ends_[1] >= 0) {
            close(std::exchange(ends_[1], -1));
        }
    }

  private:
    int ends_[2] = {-1, -1};
};

std::vector<char *> pointers(const std::vector<std::string> &arguments) {
    std::vector<char *> words;
    words.reserve(arguments.size() + 1);
    for (const std::string &argument : arguments) {
        words.push_back(const_cast<char *>(argument.c_str()));
    }
    words.push_back(nullptr);
    return words;
}

// In the child of a process that may have threads: nothing that allocates.
[[noreturn]] void become(const std::vector<char *> &words, int out, int err) {
    dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
    dup2(out, STDOUT_FILENO);
    dup2(err, STDERR_FILENO);
    execvp(words[0], words.data());
    _exit(127);
}

// Reads both until both have ended: a program may fill either first.
void read_both(const Pipe &out, const Pipe &err, Ended &ended) {
    pollfd waiting[] = {{out.reader(), POLLIN, 0}, {err.reader(), POLLIN, 0}};
    std::string *const texts[] = {&ended.out, &ended.err};
    while (waiting[0].fd >= 0 || waiting[1].fd >= 0) {
        if (poll(waiting, 2, -1) < 0 && errno != EINTR) {
            return;
        }
        for (int i = 0; i < 2; ++i) {
            if (waiting[i].fd < 0 || waiting[i].revents == 0) {
                continue;
            }
            char buffer[16384];
            const ssize_t count = read(waiting[i].fd, buffer, sizeof buffer);
            if (count > 0 && texts[i]->size() < kMostOutput) {
                texts[i]->append(buffer, static_cast<size_t>(count));
            } else if (count == 0 || (count < 0 && errno != EINTR)) {
                waiting[i].fd = -1;
            }
        }
    }
}

std::string replaced(std::string text, const std::string &from, const std::string &to) {
    for (size_t at = 0; from != to && (at = text.find(from, at)) != std::string::npos; at += to.size()) {
        text.replace(at, from.size(), to);
    }
    return text;
}

}  // namespace

Ended run_program(const std::vector<std::string> &arguments) {
    Pipe out;
    Pipe err;
    const std::vector<char *> words = pointers(arguments);
    const pid_t pid = fork();
    if (pid < 0) {
        throw Failure(ExitCode::failed,
                      escaped(arguments[0]) + " cannot be started: " + std::strerror(errno));
    }
    if (pid == 0) {
        become(words, out.writer(), err.writer());
    }
    out.close_writer();
    err.close_writer();
    Ended ended{0, {}, {}};
    read_both(out, err, ended);
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    ended.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return ended;
}

std::string agent_program() {
    const char *other = secure_getenv("AAA_SYSDB_AGENT");
    return other != nullptr && *other == '/' ? other : AAACTL_AGENT;
}

Ended run_agent(const std::string &settings, const std::string &mode) {
    const std::string program = agent_program();
    if (access(program.c_str(), X_OK) != 0) {
        throw Failure(ExitCode::unavailable, escaped(program) + ": " + std::strerror(errno) +
                                                 "; install the agent: apt-get install aaa-sysdb-agent");
    }
    return run_program({program, "--config", settings, mode});
}

std::string messages_of(const Ended &ended) {
    std::string text = escaped(ended.err.substr(0, ended.err.find_last_not_of('\n') + 1));
    text = replaced(std::move(text), "\\n", "\n");
    constexpr std::string_view kName = "aaa-sysdb-agent: ";
    if (text.starts_with(kName)) {
        text.erase(0, kName.size());
    }
    return text.empty() ? "aaa-sysdb-agent ended with status " + std::to_string(ended.status) : text;
}

Json ask_agent(const std::string &settings, const std::string &mode, const std::string &name) {
    const Ended ended = run_agent(settings, mode);
    if (ended.status != 0) {
        throw Failure(ended.status == 1 ? ExitCode::bad_input : ExitCode::failed,
                      replaced(messages_of(ended), escaped(settings), escaped(name)));
    }
    return Json::parse(ended.out);
}

std::string how_to_end_agent(const Json &status) {
    const uint64_t pid = number_of(status["agent"], "pid");
    std::string name = agent_program();
    name.erase(0, name.rfind('/') + 1);
    constexpr size_t kLongestCommand = 15;  // of what the kernel keeps
    std::string command;
    if (pid > 1) {
        std::ifstream("/proc/" + std::to_string(pid) + "/comm") >> command;
    }
    return command == name.substr(0, kLongestCommand)
               ? "end it first: kill " + std::to_string(pid)
               : "end it first; this names its process: pgrep -x " + escaped(name.substr(0, kLongestCommand));
}

bool is_managed(const std::string &settings) {
    struct stat status {};
    return settings == kAgentSettings && stat("/run/systemd/system", &status) == 0 && S_ISDIR(status.st_mode);
}

void manage(const std::vector<std::string> &words) {
    std::vector<std::string> all = {"systemctl"};
    all.insert(all.end(), words.begin(), words.end());
    const Ended ended = run_program(all);
    if (ended.status == 0) {
        return;
    }
    std::string command;
    for (const std::string &word : all) {
        command += (command.empty() ? "" : " ") + word;
    }
    const std::string said = ended.err.substr(0, ended.err.find('\n'));
    throw Failure(ExitCode::failed,
                  command + ": " + (said.empty() ? "status " + std::to_string(ended.status) : escaped(said)));
}

}  // namespace aaactl
