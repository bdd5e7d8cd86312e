// SPDX-License-Identifier: Apache-2.0

#include "gateway/transfers.hpp"

#include <sys/epoll.h>

#include <utility>
#include <vector>

namespace sysdb_etcd {

class Transfer {
  public:
    Transfer(std::uint64_t number, Transfers::Request asked, Transfers::Done call)
        : id(number), request(std::move(asked)), done(std::move(call)) {}
    ~Transfer() {
        curl_easy_cleanup(easy);
        curl_slist_free_all(head);
    }
    Transfer(const Transfer &) = delete;
    Transfer &operator=(const Transfer &) = delete;

    static std::size_t on_data(char *data, std::size_t, std::size_t size, void *self) {
        return static_cast<Transfer *>(self)->take({data, size}) ? size : 0;
    }

    const std::uint64_t id;
    Transfers::Request request;
    Transfers::Done done;
    CURL *easy = nullptr;
    curl_slist *head = nullptr;
    std::string body;
    char reason[CURL_ERROR_SIZE] = {};
    bool too_large = false;
    bool cancelled = false;

    bool has_parts() const {
        long status = 0;
        curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
        return request.part != nullptr && status == 200;
    }

  private:
    bool take(std::string_view data) {
        if (cancelled) {
            return false;
        }
        too_large = data.size() > Transfers::kMostBytes - body.size();
        if (!too_large) {
            body += data;
        }
        return !too_large;
    }
};

namespace {

// libcurl's code does not say so: it gives some codes for both.
bool is_sent(CURL *easy) {
    long bytes = 0;
    return curl_easy_getinfo(easy, CURLINFO_REQUEST_SIZE, &bytes) != CURLE_OK || bytes != 0;
}

HttpResult result_of(CURLcode code, Transfer &transfer) {
    HttpResult result;
    result.too_large = transfer.too_large;
    if (code == CURLE_OK) {
        result.kind = HttpResult::Kind::kReply;
        curl_easy_getinfo(transfer.easy, CURLINFO_RESPONSE_CODE, &result.status);
        result.body = std::move(transfer.body);
        return result;
    }
    result.kind = is_sent(transfer.easy) ? HttpResult::Kind::kLost : HttpResult::Kind::kNotSent;
    result.reason = transfer.reason[0] != '\0' ? transfer.reason : curl_easy_strerror(code);
    return result;
}

long milliseconds(net::Time time) {
    return static_cast<long>((time + net::kMillisecond - 1) / net::kMillisecond);
}

}  // namespace

Transfers::Transfers(net::Loop &loop, TlsFiles tls)
    : loop_(loop), tls_(std::move(tls)), timer_(loop, [this] { act(CURL_SOCKET_TIMEOUT, 0); }) {
    static const CURLcode ready = curl_global_init(CURL_GLOBAL_DEFAULT);
    multi_ = ready == CURLE_OK ? curl_multi_init() : nullptr;
    if (multi_ != nullptr) {
        curl_multi_setopt(multi_, CURLMOPT_SOCKETFUNCTION, on_socket);
        curl_multi_setopt(multi_, CURLMOPT_SOCKETDATA, this);
        curl_multi_setopt(multi_, CURLMOPT_TIMERFUNCTION, on_timer);
        curl_multi_setopt(multi_, CURLMOPT_TIMERDATA, this);
    }
}

Transfers::~Transfers() {
    for (const auto &[id, transfer] : transfers_) {
        curl_multi_remove_handle(multi_, transfer->easy);
    }
    transfers_.clear();
    ended_.clear();
    if (multi_ != nullptr) {
        curl_multi_cleanup(multi_);
    }
    sockets_.clear();
}

void Transfers::prepare(CURL *easy, Transfer &transfer) const {
    const Request &request = transfer.request;
    transfer.easy = easy;
    curl_easy_setopt(easy, CURLOPT_URL, request.url.c_str());
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy, CURLOPT_PROXY, "");  // of the environment
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_TCP_NODELAY, 1L);
    curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, milliseconds(request.connect_timeout));
    curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, milliseconds(request.timeout));
    curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, transfer.reason);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, Transfer::on_data);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &transfer);
    curl_easy_setopt(easy, CURLOPT_PRIVATE, &transfer);
    curl_easy_setopt(easy, CURLOPT_POST, 1L);
    curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
    curl_easy_setopt(easy, CURLOPT_POSTFIELDS, request.body.c_str());  // of the transfer
    // Without the line that waits for the server before the body is sent.
    std::vector<std::string> lines = {"Expect:", "Content-Type: application/json"};
    if (!request.token.empty()) {
        lines.push_back("Authorization: " + request.token);
    }
    if (request.leader_needed) {
        lines.emplace_back("Grpc-Metadata-hasleader: true");
    }
    for (const std::string &line : lines) {
        transfer.head = curl_slist_append(transfer.head, line.c_str());
    }
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, transfer.head);
    curl_easy_setopt(easy, CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    if (!tls_.authorities.empty()) {
        curl_easy_setopt(easy, CURLOPT_CAINFO, tls_.authorities.c_str());
        curl_easy_setopt(easy, CURLOPT_CAPATH, nullptr);  // these and no others
    }
    if (!tls_.certificate.empty()) {
        curl_easy_setopt(easy, CURLOPT_SSLCERT, tls_.certificate.c_str());
        curl_easy_setopt(easy, CURLOPT_SSLKEY, tls_.key.c_str());
    }
}

std::uint64_t Transfers::start(Request request, Done done) {
    auto transfer = std::make_unique<Transfer>(++last_id_, std::move(request), std::move(done));
    CURL *easy = multi_ != nullptr ? curl_easy_init() : nullptr;
    if (easy == nullptr) {
        return 0;
    }
    prepare(easy, *transfer);
    if (curl_multi_add_handle(multi_, easy) != CURLM_OK) {
        return 0;
    }
    transfers_.emplace(last_id_, std::move(transfer));
    return last_id_;
}

// libcurl forbids to remove a handle while it is calling back.
void Transfers::cancel(std::uint64_t id) {
    const auto found = transfers_.find(id);
    if (found == transfers_.end()) {
        return;
    }
    found->second->cancelled = true;
    ended_.push_back(std::move(found->second));
    transfers_.erase(found);
    if (!acting_) {
        release_ended();
    }
}

void Transfers::release_ended() {
    for (const auto &transfer : std::exchange(ended_, {})) {
        curl_multi_remove_handle(multi_, transfer->easy);
    }
}

int Transfers::on_socket(CURL *, curl_socket_t socket, int what, void *self, void *) {
    auto &transfers = *static_cast<Transfers *>(self);
    if (what == CURL_POLL_REMOVE) {
        transfers.sockets_.erase(socket);
        return 0;
    }
    const std::uint32_t events =
        ((what & CURL_POLL_IN) != 0 ? EPOLLIN : 0U) | ((what & CURL_POLL_OUT) != 0 ? EPOLLOUT : 0U);
    const auto found = transfers.sockets_.find(socket);
    if (found != transfers.sockets_.end()) {
        found->second.want(events);
        return 0;
    }
    transfers.sockets_.emplace(
        socket, net::Watch(transfers.loop_, socket, events, [&transfers, socket](std::uint32_t ready) {
            const int mask = ((ready & EPOLLIN) != 0 ? CURL_CSELECT_IN : 0) |
                             ((ready & EPOLLOUT) != 0 ? CURL_CSELECT_OUT : 0) |
                             ((ready & (EPOLLERR | EPOLLHUP)) != 0 ? CURL_CSELECT_ERR : 0);
            transfers.act(socket, mask);
        }));
    return 0;
}

int Transfers::on_timer(CURLM *, long milliseconds, void *self) {
    auto &transfers = *static_cast<Transfers *>(self);
    if (milliseconds < 0) {
        transfers.timer_.cancel();
    } else {
        transfers.timer_.set(net::Loop::clock() + milliseconds * net::kMillisecond);
    }
    return 0;
}

void Transfers::act(curl_socket_t socket, int events) {
    int running = 0;
    acting_ = true;
    curl_multi_socket_action(multi_, socket, events, &running);
    acting_ = false;
    release_ended();
    deliver_parts();
    finish_ended();
}

// Not while libcurl is at work: it refuses calls from its callbacks.
void Transfers::deliver_parts() {
    for (auto each = transfers_.begin(); each != transfers_.end(); ++each) {
        if (!each->second->body.empty() && each->second->has_parts()) {
            with_parts_.push_back(each->first);
        }
    }
    for (const std::uint64_t id : std::exchange(with_parts_, {})) {
        const auto found = transfers_.find(id);
        if (found == transfers_.end()) {
            continue;
        }
        const auto part = found->second->request.part;
        const std::string data = std::exchange(found->second->body, {});
        if (!part(data)) {
            finish(id, CURLE_WRITE_ERROR);
        }
    }
}

void Transfers::finish(std::uint64_t id, CURLcode code) {
    const auto found = transfers_.find(id);
    if (found == transfers_.end()) {
        return;
    }
    const std::unique_ptr<Transfer> transfer = std::move(found->second);
    transfers_.erase(found);
    HttpResult result = result_of(code, *transfer);
    curl_multi_remove_handle(multi_, transfer->easy);
    transfer->done(std::move(result));
}

void Transfers::finish_ended() {
    int left = 0;
    while (const CURLMsg *message = curl_multi_info_read(multi_, &left)) {
        const Transfer *transfer = nullptr;
        curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &transfer);
        if (message->msg == CURLMSG_DONE && transfer != nullptr) {
            finish(transfer->id, message->data.result);
        }
    }
}

}  // namespace sysdb_etcd
