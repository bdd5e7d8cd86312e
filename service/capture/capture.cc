// SPDX-License-Identifier: Apache-2.0

#include "capture/capture.hpp"

#include <string.h>

#include <algorithm>
#include <bit>
#include <ctime>
#include <utility>

#include "capture/pcapng.hpp"

namespace service {

namespace {

constexpr std::uint8_t kPrefixVersion = 1;
constexpr std::size_t kPrefix = 48;
constexpr unsigned kWasMasked = 1;

std::int64_t wall_clock() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

void put(std::string &out, std::uint64_t value, unsigned bytes) {
    while (bytes > 0) {
        out += static_cast<char>(value >> (8 * --bytes) & 0xff);
    }
}

// docs/capture.md has the table.
std::string frame(const CapturedMessage &message, std::string_view bytes, bool was_masked) {
    std::string out;
    out.reserve(kPrefix + bytes.size());
    put(out, kPrefixVersion, 1);
    put(out, message.is_answer ? 1 : 0, 1);
    put(out, was_masked ? kWasMasked : 0, 1);
    put(out, std::endian::native == std::endian::little ? 1 : 2, 1);
    put(out, kPrefix, 2);
    put(out, 0, 2);
    put(out, static_cast<std::uint32_t>(message.pid), 4);
    put(out, message.uid, 4);
    put(out, message.gid, 4);
    put(out, message.type, 4);
    put(out, message.connection, 8);
    put(out, message.id, 8);
    put(out, message.exchange, 4);
    put(out, 0, 4);
    return out.append(bytes);
}

std::string host_of(const net::Address &address) {
    const std::string text = address.text();
    const std::string host = text.substr(0, text.rfind(':'));
    return host.starts_with('[') ? host.substr(1, host.size() - 2) : host;
}

}  // namespace

CaptureReader::CaptureReader(Capture &capture, CaptureOptions options)
    : capture_(capture), options_(std::move(options)), started_(wall_clock()) {
    push(pcapng::section(capture_.program_));
    push(pcapng::interface(pcapng::kUser0, "clients", "messages of the clients of aaad"));
    if (options_.servers) {
        push(pcapng::interface(pcapng::kRawIp, "servers", "packets to and from RADIUS and TACACS+ servers"));
    }
    capture_.join(this);
}

CaptureReader::~CaptureReader() {
    capture_.leave(this);
}

void CaptureReader::push(std::string block) {
    queued_ += block.size();
    blocks_.push_back(std::move(block));
}

void CaptureReader::append_to(std::string &out, std::size_t most) {
    while (!blocks_.empty() && out.size() < most) {
        out += blocks_.front();
        queued_ -= blocks_.front().size();
        explicit_bzero(blocks_.front().data(), blocks_.front().size());
        blocks_.pop_front();
    }
}

void CaptureReader::add(std::uint32_t interface, std::int64_t wall, bool is_outbound,
                        std::string_view bytes) {
    if (is_finished_) {
        return;
    }
    Figures &figures = figures_[interface];
    ++figures.seen;
    if (queued_ + bytes.size() > Capture::kMostQueued) {
        ++figures.dropped;
        return;
    }
    push(pcapng::packet({interface, wall, is_outbound,
                         figures.dropped - std::exchange(figures.dropped_before, figures.dropped), bytes}));
}

// A key is small, there are few of them, and without it nothing that follows can be read.
void CaptureReader::add_secret(std::uint32_t kind, const std::string &text) {
    if (!is_finished_ && queued_ < 2 * Capture::kMostQueued) {
        push(pcapng::secrets(kind, text));
    }
}

void CaptureReader::finish() {
    if (std::exchange(is_finished_, true)) {
        return;
    }
    for (std::uint32_t i = kMessages; i <= (options_.servers ? kServers : kMessages); ++i) {
        push(pcapng::statistics({i, started_, wall_clock(), figures_[i].seen, figures_[i].dropped}));
    }
}

Capture::~Capture() {
    if (loop_.tap() == this) {
        loop_.set_tap(nullptr);
    }
}

void Capture::join(CaptureReader *reader) {
    readers_.push_back(reader);
    watch_servers();
}

void Capture::leave(CaptureReader *reader) {
    readers_.erase(std::remove(readers_.begin(), readers_.end(), reader), readers_.end());
    watch_servers();
}

void Capture::watch_servers() {
    const bool is_watched = std::any_of(readers_.begin(), readers_.end(),
                                        [](const CaptureReader *reader) { return reader->options_.servers; });
    if (!is_watched) {
        segments_ = {};
    }
    loop_.set_tap(is_watched ? this : nullptr);
}

void Capture::add(const CapturedMessage &message) {
    const std::int64_t wall = wall_clock();
    for (CaptureReader *reader : readers_) {
        const CaptureOptions &options = reader->options_;
        if (options.user && *options.user != message.user) {
            continue;
        }
        if (options.secrets) {
            reader->add(CaptureReader::kMessages, wall, message.is_answer,
                        frame(message, message.message.bytes, false));
            continue;
        }
        // Who asks for a name knows it.
        const Masked shown = masked(message.message, [&](const std::string &name) {
            return name.empty() || (options.user && name == *options.user) || names_.knows(name);
        });
        reader->add(CaptureReader::kMessages, wall, message.is_answer,
                    frame(message, shown.bytes, shown.is_changed));
    }
    if (on_frames_) {
        on_frames_();
    }
}

// ---- the traffic with servers ---------------------------------------------------------------

const Server *Capture::server_at(const net::Address &address, bool is_stream) const {
    if (snapshot_ == nullptr) {
        return nullptr;
    }
    const std::string host = host_of(address);
    for (const auto &group : snapshot_->groups) {
        for (const Server &server : group->servers) {
            const auto configured = net::Address::parse(server.host, server.port);
            const bool is_port = address.port() == server.port || (server.protocol == Protocol::kRadius &&
                                                                   address.port() == server.accounting_port);
            const bool is_tcp = server.protocol == Protocol::kTacacs || server.transport == "tls";
            if (configured && is_port && is_tcp == is_stream && host_of(*configured) == host) {
                return &server;
            }
        }
    }
    return nullptr;
}

// With TLS there is no other key than those that TLS agrees on.
void Capture::tell_key(const Path &path, bool is_stream) {
    const std::string place = path.local.text().substr(0, path.local.text().rfind(':')) + " " +
                              path.server.text() + (is_stream ? " tcp " : " udp ") +
                              // A key may have been changed since.
                              std::to_string(snapshot_ != nullptr ? snapshot_->number : 0);
    for (CaptureReader *reader : readers_) {
        if (!reader->options_.keys || !reader->told_.insert(place).second) {
            continue;
        }
        const Server *server = server_at(path.server, is_stream);
        if (server == nullptr || server->transport == "tls" || server->key.empty()) {
            continue;
        }
        if (server->protocol == Protocol::kTacacs) {
            reader->add_secret(pcapng::kTacacsKey,
                               host_of(path.local) + "\t" + host_of(path.server) + "\t" + server->key.text());
        } else {
            reader->add_secret(pcapng::kRadiusKey, path.server.text() + "\t" + server->key.text());
        }
    }
}

void Capture::add_packets(const Path &, Way way, const std::vector<std::string> &packets) {
    const std::int64_t wall = wall_clock();
    for (CaptureReader *reader : readers_) {
        for (const std::string &packet : packets) {
            if (reader->options_.servers) {
                reader->add(CaptureReader::kServers, wall, way == Way::kSent, packet);
            }
        }
    }
    if (on_frames_) {
        on_frames_();
    }
}

void Capture::datagram(const Path &path, Way way, std::string_view bytes) {
    tell_key(path, false);
    add_packets(path, way, {Segments::datagram(path, way, bytes)});
}

void Capture::opened(const Path &path) {
    tell_key(path, true);
    add_packets(path, Way::kSent, segments_.opened(path));
}

void Capture::bytes(const Path &path, Way way, std::string_view bytes) {
    tell_key(path, true);
    add_packets(path, way, segments_.bytes(path, way, bytes));
}

void Capture::closed(const Path &path, Way way) {
    add_packets(path, way, segments_.closed(path, way));
}

void Capture::tls_key(std::string_view line) {
    for (CaptureReader *reader : readers_) {
        if (reader->options_.keys) {
            reader->add_secret(pcapng::kTlsKeys, std::string(line) + "\n");
        }
    }
    if (on_frames_) {
        on_frames_();
    }
}

}  // namespace service
