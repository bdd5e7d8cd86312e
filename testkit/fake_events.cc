// SPDX-License-Identifier: Apache-2.0
//
// The fake platform's event manager.

#include "platform/event_manager.h"

#include <cerrno>
#include <condition_variable>
#include <list>

#include "testkit/fake_platform.hpp"
#include "testkit/fake_state.hpp"

namespace fake::events {
namespace {

using detail::Access;
using detail::Call;
using detail::problem;
using detail::Word;

struct Events {
    std::list<Connection> connections;
    std::function<void(event_block_ctx_t *)> on_block;
    bool call_up = true;
    bool destroyed = false;  // since the event manager was created
    unsigned pending = 0;    // events that event_block has not returned for
    unsigned async_sent = 0;
    char manager = 0;  // its address is the handle
};

Events &events() {
    static Events &instance = *new Events;
    return instance;
}

std::condition_variable_any &arrived() {
    static auto &instance = *new std::condition_variable_any;
    return instance;
}

Connection *find(event_conn_t handle, const char *who) {
    for (Connection &connection : events().connections) {
        if (connection.handle == handle) {
            return &connection;
        }
    }
    problem(std::string(who) + " on a connection that does not exist");
    return nullptr;
}

}  // namespace

std::vector<Connection> connections() {
    const Access access;
    return {events().connections.begin(), events().connections.end()};
}

void set_call_up(bool on) {
    const Access access;
    events().call_up = on;
}

event_manager_t manager() {
    return &events().manager;
}

void wake() {
    {
        const Access access;
        ++events().pending;
    }
    arrived().notify_all();
}

unsigned async_sent() {
    const Access access;
    return events().async_sent;
}

void on_block(std::function<void(event_block_ctx_t *)> hook) {
    const Access access;
    events().on_block = std::move(hook);
}

}  // namespace fake::events

namespace fake::detail {

void reset_events() {
    const Access access;
    auto &e = events::events();
    e.connections.clear();
    e.on_block = nullptr;
    e.call_up = true;
    e.destroyed = false;
    e.pending = 0;
    e.async_sent = 0;
}

}  // namespace fake::detail

using namespace fake::events;

event_manager_t event_manager_create(uint32_t flags, const char *name, uint32_t zero, void *private_word) {
    const Call call("event_manager_create", flags, name, zero, private_word);
    events().destroyed = false;
    return call.scripted() ? nullptr : manager();
}

int32_t event_async_attach(event_manager_t evm, uint32_t type, event_async_handler_t handler, void *arg) {
    const Call call("event_async_attach", evm, type, Word{handler == nullptr ? "null" : "ptr"}, arg);
    return call.scripted() ? static_cast<int32_t>(*call.scripted()) : kAsyncCode;
}

int32_t event_send_async(event_manager_t evm, int32_t code, uint64_t value) {
    const Call call("event_send_async", evm, code, value);
    if (call.scripted()) {
        return static_cast<int32_t>(*call.scripted());
    }
    ++events().async_sent;
    ++events().pending;
    arrived().notify_all();
    return 0;
}

int32_t event_block(event_block_ctx_t *ctx) {
    {
        Call call("event_block", static_cast<const void *>(ctx));
        if (events().on_block) {
            const auto hook = events().on_block;
            call.unlocked([&] { hook(ctx); });
        }
        if (call.scripted()) {
            return static_cast<int32_t>(*call.scripted());
        }
    }
    const fake::FailAlloc::Pause pause;
    std::unique_lock lock(fake::detail::mutex());
    arrived().wait(lock, [] { return events().pending != 0 || events().destroyed; });
    if (events().pending == 0) {
        errno = EBADF;
        return -1;
    }
    --events().pending;
    return 0;
}

int32_t qm_event_dispatch(event_block_ctx_t *ctx, uint32_t flags) {
    const Call call("qm_event_dispatch", static_cast<const void *>(ctx), flags);
    return call.scripted() ? static_cast<int32_t>(*call.scripted()) : 0;
}

cerrno event_conn_create(event_conn_t *conn_out, event_manager_t evm, aaa_event_cb_t up_cb, void *ctx,
                         uint32_t type) {
    const Call call("event_conn_create", evm, Word{up_cb == nullptr ? "null" : "ptr"}, ctx, type);
    if (call.scripted()) {
        return *call.scripted();
    }
    Connection &made = events().connections.emplace_back();
    made.handle = &made;
    made.manager = evm;
    made.up = up_cb;
    made.context = ctx;
    made.type = type;
    made.channel = -1;
    *conn_out = made.handle;
    return 0;
}

cerrno event_conn_notify(event_conn_t conn, uint32_t mask, aaa_event_cb_t down_cb) {
    const Call call("event_conn_notify", conn, mask, Word{down_cb == nullptr ? "null" : "ptr"});
    Connection *const connection = find(conn, "event_conn_notify");
    if (connection == nullptr || call.scripted()) {
        return call.scripted().value_or(0x21200000u);
    }
    connection->down = down_cb;
    connection->notify_mask = mask;
    return 0;
}

cerrno event_conn_evm_handler(event_conn_t conn, uint32_t arg, aaa_event_cb_t handler_cb, void *zero) {
    const Call call("event_conn_evm_handler", conn, arg, Word{handler_cb == nullptr ? "null" : "ptr"}, zero);
    Connection *const connection = find(conn, "event_conn_evm_handler");
    if (connection == nullptr || call.scripted()) {
        return call.scripted().value_or(0x21200000u);
    }
    connection->handler = handler_cb;
    return 0;
}

cerrno event_conn_open(event_conn_t conn) {
    Call call("event_conn_open", conn);
    Connection *const connection = find(conn, "event_conn_open");
    if (connection == nullptr || call.scripted()) {
        return call.scripted().value_or(0x21200000u);
    }
    connection->opened = true;
    if (!events().call_up || connection->up == nullptr) {
        return 0;
    }
    const Connection copy = *connection;
    const int32_t channel = call.unlocked([&] { return copy.up(copy.handle, copy.context); });
    connection->channel = channel;
    return channel < 0 ? EVENT_CONN_RETRY : 0;
}

cerrno event_conn_close(event_conn_t conn) {
    const Call call("event_conn_close", conn);
    Connection *const connection = find(conn, "event_conn_close");
    if (connection == nullptr || call.scripted()) {
        return call.scripted().value_or(0x21200000u);
    }
    std::erase_if(events().connections, [&](const Connection &other) { return other.handle == conn; });
    return 0;
}

void event_manager_destroy(event_manager_t evm) {
    const Call call("event_manager_destroy", evm);
    if (evm != nullptr) {
        events().destroyed = true;
        arrived().notify_all();
    }
}
