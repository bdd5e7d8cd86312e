// SPDX-License-Identifier: Apache-2.0
//
// capture: what clients, the service and its servers send, as a file for Wireshark.

#include <poll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <memory>

#include "cli/commands.hpp"
#include "cli/end_signals.hpp"
#include "service/capture_blocks.hpp"
#include "service/capture_keys.hpp"
#include "service/capture_output.hpp"
#include "service/control_client.hpp"

namespace aaactl {
namespace {

constexpr int kLastBlocks = 2000;  // milliseconds to wait for the next of them

struct CaptureCommand : ControlOptions {
    std::string output = "-";
    std::optional<std::string> user, keys;
    uint64_t count = 0;  // 0: no end
    bool secrets = false;
    bool servers = false;
};

// Readable after so many seconds.
class EndTimer {
  public:
    explicit EndTimer(unsigned seconds) : fd_(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC)) {
        const itimerspec time{{0, 0}, {static_cast<time_t>(seconds), 0}};
        if (fd_ < 0 || timerfd_settime(fd_, 0, &time, nullptr) != 0) {
            throw Failure(ExitCode::failed, std::string("no timer: ") + std::strerror(errno));
        }
    }
    ~EndTimer() { close(fd_); }
    EndTimer(const EndTimer &) = delete;
    EndTimer &operator=(const EndTimer &) = delete;
    int fd() const { return fd_; }
    bool is_over() const {
        pollfd ready{fd_, POLLIN, 0};
        return poll(&ready, 1, 0) > 0;
    }

  private:
    int fd_;
};

class Capturer {
  public:
    Capturer(Output &out, const CaptureCommand &options) : out_(out), options_(options) {}
    ExitCode run();

  private:
    enum class End { user, complete, service, reader };

    Json request() const;
    void check() const;
    void open_files();
    void begin_files();
    End capture(ControlClient &client);
    bool take(std::string_view bytes);
    bool take_block(const CaptureBlock &block);
    bool read(ControlClient &client);
    void finish(ControlClient &client);
    Json figures() const;
    std::string summary() const;

    Output &out_;
    const CaptureCommand &options_;
    std::unique_ptr<CaptureOutput> file_, keys_file_;
    CaptureKeys keys_;
    CaptureBlocks blocks_;
    int end_ = -1;              // readable when the user ends the capture
    uint64_t frames_ = 0;       // written
    uint64_t dropped_ = 0;      // as frames tell
    uint64_t all_dropped_ = 0;  // as the figures at the end do
    bool has_figures_ = false;
    std::string why_;           // it has ended, as the service says
    bool is_complete_ = false;  // so many as were asked for
};

void Capturer::check() const {
    if (options_.output == "-" && isatty(STDOUT_FILENO) != 0) {
        throw Failure(ExitCode::usage,
                      "a capture is not for terminals: use -o FILE, or pipe it: aaactl capture | wireshark "
                      "-k -i -");
    }
    if (options_.keys && !options_.servers) {
        throw Failure(ExitCode::usage, "--keys: keys are those of servers; add --servers");
    }
    // As of a variable that is not set: a capture of everyone would be a surprise.
    if (options_.user && options_.user->empty()) {
        throw Failure(ExitCode::usage, "USER: the name is empty; leave it out to capture all users");
    }
    if (options_.servers && options_.user) {
        throw Failure(
            ExitCode::usage,
            "--servers: packets of servers cannot be chosen by user; leave out USER, and filter the "
            "capture: tshark -r FILE -Y 'aaa.attr.username == \"" +
                escaped(*options_.user) + "\"'");
    }
    if (options_.keys && (*options_.keys == "-" || *options_.keys == options_.output)) {
        throw Failure(ExitCode::usage, "--keys: name a file other than that of the capture");
    }
}

Json Capturer::request() const {
    Json request{{"version", 1}, {"request", "capture"}};
    if (options_.user) {
        request["user"] = *options_.user;
    }
    const bool secrets = options_.secrets || out_.show_secrets();
    for (const auto &[name, value] : {std::pair("secrets", secrets), std::pair("servers", options_.servers),
                                      std::pair("keys", options_.keys.has_value())}) {
        if (value) {
            request[name] = true;
        }
    }
    return request;
}

Json Capturer::figures() const {
    return {{"frames", frames_}, {"dropped", has_figures_ ? all_dropped_ : dropped_}};
}

std::string Capturer::summary() const {
    const uint64_t dropped = has_figures_ ? all_dropped_ : dropped_;
    return std::to_string(frames_) + (frames_ == 1 ? " frame" : " frames") + " in " + file_->name() +
           (dropped > 0 ? ", " + std::to_string(dropped) + " dropped: this program did not take them in time"
                        : "");
}

// False at the end of the capture.
bool Capturer::take_block(const CaptureBlock &block) {
    if (block.type == CaptureBlock::secrets) {
        return keys_file_ == nullptr || keys_file_->write(keys_.lines(block), end_);
    }
    if (block.type == CaptureBlock::packet && is_complete_) {
        return true;
    }
    if (!file_->write(block.bytes, end_)) {
        return false;
    }
    if (block.type == CaptureBlock::packet) {
        ++frames_;
        dropped_ += block.dropped();
        is_complete_ = frames_ == options_.count;
    } else if (block.type == CaptureBlock::statistics) {
        has_figures_ = true;
        all_dropped_ += block.dropped();
        why_ = block.comment();
    }
    return true;
}

bool Capturer::take(std::string_view bytes) {
    blocks_.add(bytes);
    while (const auto block = blocks_.next()) {
        if (!take_block(*block)) {
            return false;
        }
    }
    return true;
}

// False when there will be nothing more.
bool Capturer::read(ControlClient &client) {
    const bool goes_on = client.read_some();
    return take(client.take_bytes()) && goes_on;
}

// The figures of the interfaces come last. Neither a service that is stopped, or sends without end, nor a
// reader that is stopped may hold this program.
void Capturer::finish(ControlClient &client) {
    client.end_requests();
    pollfd ready{client.fd(), POLLIN, 0};
    const EndTimer timer(options_.seconds);
    end_ = timer.fd();
    while (!has_figures_ && !timer.is_over() && poll(&ready, 1, kLastBlocks) > 0 && read(client)) {
    }
    end_ = -1;
}

// Not before the service has agreed: a capture that is refused leaves no files.
void Capturer::open_files() {
    file_ = std::make_unique<CaptureOutput>(options_.output);
    if (options_.keys) {
        keys_file_ = std::make_unique<CaptureOutput>(*options_.keys);
        if (keys_file_->is_same_file(*file_)) {
            throw Failure(ExitCode::usage, "--keys: " + keys_file_->name() +
                                               " is the file of the capture; name another one for the keys");
        }
    }
}

void Capturer::begin_files() {
    file_->lock();
    if (keys_file_ != nullptr) {
        keys_file_->lock();
    }
    file_->begin();
    if (keys_file_ != nullptr) {
        keys_file_->begin();
        keys_file_->write(keys_header(*options_.keys), end_);
    }
    if (options_.output != "-") {
        out_.note("capturing into " + file_->name() + "; Control-C ends it");
    }
}

// Until the user, the service or a reader ends it, or there are so many frames as were asked for.
Capturer::End Capturer::capture(ControlClient &client) {
    bool goes_on = take(client.take_bytes());
    while (goes_on && !is_complete_) {
        pollfd ready[3] = {{client.fd(), POLLIN, 0}, {end_, POLLIN, 0}, {file_->reader(), 0, 0}};
        if (poll(ready, 3, -1) < 0) {
            continue;
        }
        if (ready[1].revents != 0) {
            return End::user;
        }
        // Without frames nothing would be written to it for hours.
        if ((ready[2].revents & POLLERR) != 0) {
            return End::reader;
        }
        goes_on = read(client);
    }
    pollfd service{client.fd(), POLLRDHUP, 0};
    const bool is_service = poll(&service, 1, 0) > 0 && service.revents != 0;
    return goes_on ? End::complete : is_service ? End::service : End::reader;
}

ExitCode Capturer::run() {
    check();
    std::signal(SIGPIPE, SIG_IGN);
    ControlClient client(options_);
    client.send(request());
    client.reply("capture");
    open_files();
    // Until here Control-C ends this program as usual: opening a pipe waits for its reader.
    const EndSignals signals;
    end_ = signals.fd();
    begin_files();
    switch (capture(client)) {
        case End::user:
        case End::complete:
            finish(client);
            break;
        case End::service:
            throw Failure(
                ExitCode::unavailable,
                (why_.empty() ? std::string("the service has ended the connection, and not said why: "
                                            "it was killed, or this program read nothing for long")
                              : escaped(why_)) +
                    "; " + summary())
                .with(figures());
        case End::reader:
            out_.note("the reader of " + file_->name() + " has ended");
            break;
    }
    if (options_.output != "-") {
        out_.result(figures(), [] {});
    }
    out_.note(summary());
    return ExitCode::ok;
}

}  // namespace

void add_capture(Command root) {
    auto options = std::make_shared<CaptureCommand>();
    Command sub = root.command("capture", "Write messages of clients and answers as a file for Wireshark",
                               [options](Output &out) { return Capturer(out, *options).run(); });
    sub.option("USER", options->user,
               "Only messages of requests that name this user, exactly as they name it");
    sub.option("-o,--output", options->output, "The file to write, - for standard output")
        .type("FILE")
        .shows_default();
    sub.option("-c,--count", options->count, "End after so many frames")
        .type("FRAMES")
        .between(uint64_t{1}, UINT64_MAX);
    sub.flag("--secrets", options->secrets, "With passwords and keys as they are sent; for root");
    sub.flag("--servers", options->servers,
             "Also the packets to and from RADIUS and TACACS+ servers; for root");
    sub.option("--keys", options->keys,
               "Write what deciphers the packets of servers into this file; for root")
        .type("FILE");
    add_control_options(sub, *options);
    sub.footer(
        "The form is pcapng. Wireshark and tshark show the messages with the package wireshark-aaa. Without\n"
        "--secrets the file has asterisks in place of passwords, and of names that no one here has.\n"
        "A new FILE is readable for its owner only. Packets of servers hold passwords, which the server's\n"
        "key protects; --keys writes these keys. The service never waits for this program: frames that it\n"
        "does not take in time are dropped and counted in the file.\n"
        "JSON, with -o: {frames, dropped}\n"
        "\n"
        "  aaactl capture | wireshark -k -i -\n"
        "  aaactl capture -o alice.pcapng alice\n"
        "  aaactl capture --servers --keys login.keys -o login.pcapng");
}

}  // namespace aaactl
