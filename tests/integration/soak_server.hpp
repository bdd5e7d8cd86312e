// SPDX-License-Identifier: Apache-2.0
//
// The example server as a process whose descriptors, resident memory and exit
// status can be read.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "support/send_signal.hpp"
#include "support/temp_dir.hpp"

// Users of the soak, with the fewest hash rounds that crypt(3) allows.
inline constexpr char kSoakUsers[] =
    "alice : "
    "$6$rounds=1000$soaksoaksoaksoak$oSwFduu6fswL9jJNbpej39RThJ9RJG3PUSpB/mZDP9fFq6CXdYCTLiHx4eBGypyE/"
    "bt34RUIz.RCKl6rVlVc7. : 15 : show *, ping *\n"
    "bob : $6$rounds=1000$glassglassglass1$XYqpiXC4fNtnvQXkfVrvowJhJlOszgrChv3f.hNHpwTYDOBW7/ZIbrt1Me1g09r/"
    "AuPUIXj9otlUxdAq/JqlI. : 1 : show version\n";

class SoakServer {
  public:
    // At most that many descriptors, 0 for as many as this process may have.
    explicit SoakServer(rlim_t descriptors = 0) {
        const std::string users = dir_.write("users", kSoakUsers);
        const std::string program = std::string(AAA_EXAMPLES_DIR) + "/aaa_server";
        int out[2];
        EXPECT_EQ(pipe2(out, O_CLOEXEC), 0);
        pid_ = fork();
        if (pid_ == 0) {
            const rlimit limit = {descriptors, descriptors};
            if (descriptors != 0) {
                setrlimit(RLIMIT_NOFILE, &limit);
            }
            dup2(out[1], 1);
            dup2(open(errors_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600), 2);
            execl(program.c_str(), program.c_str(), socket_.c_str(), users.c_str(), accounting_.c_str(),
                  nullptr);
            _exit(127);
        }
        close(out[1]);
        char ready[6] = "";
        EXPECT_EQ(read(out[0], ready, 5), 5);
        EXPECT_STREQ(ready, "ready");
        close(out[0]);  // no one reads the server's output from here on; it must go on
    }
    ~SoakServer() {
        if (pid_ > 0) {
            stop();
        }
    }
    SoakServer(const SoakServer &) = delete;
    SoakServer &operator=(const SoakServer &) = delete;

    const std::string &socket() const { return socket_; }
    std::string accounting() const { return dir_.read("accounting"); }

    std::size_t descriptors() const {
        const std::filesystem::directory_iterator open_files(proc("fd"));
        return static_cast<std::size_t>(std::distance(begin(open_files), end(open_files)));
    }
    // Kibibytes.
    long resident() const {
        std::ifstream status(proc("status"));
        for (std::string word; status >> word;) {
            if (word == "VmRSS:") {
                long size = 0;
                status >> size;
                return size;
            }
        }
        ADD_FAILURE() << "the server is not running";
        return 0;
    }

    // Ends the server as an operator does. In a sanitizer build its exit
    // status also reports leaks.
    void stop() {
        EXPECT_EQ(aaatest::send_signal(pid_, SIGTERM), 0);
        int status = -1;
        EXPECT_EQ(waitpid(pid_, &status, 0), pid_);
        pid_ = -1;
        const std::string errors = dir_.read("errors");
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
            << "the server ended with status " << status << ": "
            << errors.substr(errors.size() > 4000 ? errors.size() - 4000 : 0);
        EXPECT_FALSE(std::filesystem::exists(socket_)) << "the server did not remove its socket";
    }

  private:
    std::string proc(const std::string &name) const { return "/proc/" + std::to_string(pid_) + "/" + name; }

    TempDir dir_;
    std::string socket_ = dir_.path("socket");
    std::string accounting_ = dir_.path("accounting");
    std::string errors_ = dir_.path("errors");
    pid_t pid_ = -1;
};
