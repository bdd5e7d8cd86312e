// SPDX-License-Identifier: Apache-2.0

#include "pam/service.hpp"

namespace pam_test {
namespace {

std::string text_of(const avlist *list, uint32_t type) {
    char value[65536];
    uint32_t len = 0;
    if (aaa_util_avlist_value_copy(list, type, 0, value, sizeof value, &len) != AAA_OK) {
        return "";
    }
    std::string text(value, len);
    return text.empty() || text.back() != '\0' ? text : text.substr(0, text.size() - 1);
}

uint32_t number_of(const avlist *list, uint32_t type) {
    uint32_t value = 0;
    uint32_t len = 0;
    return aaa_util_avlist_value_copy(list, type, 0, &value, sizeof value, &len) == AAA_OK ? value : 0;
}

Request request_of(const aaa_transport_msg_t &msg) {
    aaa_transport_head_t head{};
    avlist *list = nullptr;
    EXPECT_EQ(aaa_transport_read_request(&msg, &head), AAA_OK);
    EXPECT_EQ(aaa_transport_unpack(&msg, head.list_at, &list), AAA_OK);
    Request request;
    request.type = head.type;
    request.message_type = number_of(list, AAA_TYPE_ATTR);
    request.service = number_of(list, AAA_SERVICE_TYPE_ATTR);
    request.option = number_of(list, AAA_AUTHEN_OPTION_ATTR);
    request.session = number_of(list, AAA_ACCT_SESSID_ATTR);
    request.user = text_of(list, AAA_USERNAME_ATTR);
    request.password = text_of(list, AAA_PASSWORD_ATTR);
    request.terminal = text_of(list, AAA_TTYNAME_ATTR);
    request.address = text_of(list, AAA_REMOTE_ADDR_ATTR);
    request.list = text_of(list, AAA_METHODLIST_ATTR);
    request.state = text_of(list, AAA_RADIUS_STATE_ATTR);
    request.command = text_of(list, AAA_CMD_ATTR);
    request.data = text_of(list, AAA_DATA_ATTR);
    aaa_avpair_free_list(list);
    return request;
}

}  // namespace

Action accounted() {
    aaa_reply_hdr_t header{};
    iov_t *iov = nullptr;
    uint32_t count = 0;
    EXPECT_EQ(aaa_util_reply_acct_compose(&header, &iov, &count, 0, nullptr), AAA_OK);
    std::string bytes(static_cast<const char *>(iov[0].base), iov[0].len);
    const uint32_t fields[2] = {AAA_TRANSPORT_MAGIC, static_cast<uint32_t>(bytes.size())};
    std::memcpy(bytes.data(), fields, sizeof fields);
    std::free(iov);
    return {bytes};
}

Action agree(const Request &request) {
    return request.type == AAA_REQ_ACCT ? accounted() : status(AAA_STAT_PASS);
}

Service::Service(std::string path, Script script)
    : path_(std::move(path)),
      listener_(transport_test::listen_at(path_)),
      stop_(eventfd(0, EFD_CLOEXEC)),
      script_(std::move(script)),
      thread_([this] { serve(); }) {}

Service::~Service() {
    const uint64_t one = 1;
    EXPECT_EQ(write(stop_, &one, sizeof one), static_cast<ssize_t>(sizeof one));
    thread_.join();
    close(stop_);
    unlink(path_.c_str());
}

void Service::set(Script script) {
    const std::lock_guard lock(mutex_);
    script_ = std::move(script);
}

std::vector<Request> Service::requests() {
    const std::lock_guard lock(mutex_);
    return requests_;
}

size_t Service::connections() {
    const std::lock_guard lock(mutex_);
    return connections_;
}

void Service::wait_for_hang_ups(size_t count) {
    std::unique_lock lock(mutex_);
    hung_up_.wait(lock, [&] { return hang_ups_ >= count; });
}

// False when the connection is of no more use.
bool Service::handle(const transport_test::Transport &client) {
    static thread_local aaa_transport_msg_t msg;
    const cerrno rc = aaa_transport_receive(client.get(), &msg, AAA_TRANSPORT_NOW);
    if (rc != AAA_OK) {
        return rc == AAA_ERR_TIMEOUT;
    }
    Request request = request_of(msg);
    EXPECT_EQ(aaa_transport_login_of(client.get(), &request.login), AAA_OK);
    explicit_bzero(msg.u.bytes, msg.len);
    Script script;
    {
        const std::lock_guard lock(mutex_);
        requests_.push_back(request);
        script = script_;
    }
    const Action action = script(request);
    if (!action.bytes.empty()) {
        send(transport_test::descriptor(client), action.bytes.data(), action.bytes.size(), MSG_NOSIGNAL);
    }
    if (action.hang_up) {
        aaa_transport_close(client.get());
        const std::lock_guard lock(mutex_);
        ++hang_ups_;
        hung_up_.notify_all();
    }
    return !action.hang_up;
}

void Service::serve() {
    std::vector<transport_test::Transport> clients;
    for (;;) {
        std::vector<pollfd> polled{{stop_, POLLIN, 0}, {transport_test::descriptor(listener_), POLLIN, 0}};
        for (const auto &client : clients) {
            polled.push_back({transport_test::descriptor(client), POLLIN, 0});
        }
        if (poll(polled.data(), polled.size(), -1) < 0) {
            continue;
        }
        if (polled[0].revents != 0) {
            return;
        }
        for (size_t i = clients.size(); i-- > 0;) {
            if (polled[i + 2].revents != 0 && !handle(clients[i])) {
                clients.erase(clients.begin() + static_cast<ptrdiff_t>(i));
            }
        }
        transport_test::Transport client = transport_test::make_transport();
        if (polled[1].revents != 0 &&
            aaa_transport_accept(listener_.get(), client.get(), AAA_TRANSPORT_NOW) == AAA_OK) {
            clients.push_back(std::move(client));
            const std::lock_guard lock(mutex_);
            ++connections_;
        }
    }
}

}  // namespace pam_test
