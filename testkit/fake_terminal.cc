// SPDX-License-Identifier: Apache-2.0
//
// Terminal services, line editor and cipher of the fake platform.

#include "platform/terminal.h"

#include <cstdlib>
#include <cstring>
#include <deque>
#include <map>

#include "platform/cipher.h"
#include "testkit/fake_platform.hpp"
#include "testkit/fake_state.hpp"

namespace fake {
namespace {

using detail::Access;
using detail::Call;
using detail::problem;
using detail::Word;

struct Line {
    std::optional<std::string> text;
    int ok;
    int error;
};

struct Terminal {
    uint32_t kind = 1;
    int32_t kind_result = 0;
    std::deque<Line> lines;
    std::map<void *, std::string> editors;  // by handle: the line it holds
    std::vector<std::pair<uint32_t, uint32_t>> options;
    std::function<uint32_t(uint32_t, std::string &)> find_method;
    std::function<uint32_t(aaa_usercred_t *)> check_linetype;
};

Terminal &terminal() {
    static Terminal &instance = *new Terminal;
    return instance;
}

// Blocks that the library frees; the fake's allocations do not fail.
char *copy_text(const std::string &text) {
    return strdup(text.c_str());
}

std::string sealed(std::string_view text, int type) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string result = std::to_string(type);
    result.insert(0, result.size() < 2 ? 1 : 0, '0');
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        result += kDigits[byte >> 4];
        result += kDigits[byte & 15];
    }
    return result;
}

std::optional<std::string> opened(std::string_view text) {
    if (text.size() < 2 || text.size() % 2 != 0) {
        return std::nullopt;
    }
    std::string result;
    for (std::size_t i = 2; i < text.size(); i += 2) {
        const std::string digits(text.substr(i, 2));
        char *end = nullptr;
        result += static_cast<char>(std::strtoul(digits.c_str(), &end, 16));
        if (*end != '\0') {
            return std::nullopt;
        }
    }
    return result;
}

std::string *editor(void *handle, const char *who) {
    const auto found = terminal().editors.find(handle);
    if (found == terminal().editors.end()) {
        problem(std::string(who) + " on a line editor that does not exist");
        return nullptr;
    }
    return &found->second;
}

}  // namespace

namespace detail {
void reset_terminal() {
    const Access access;
    terminal() = Terminal{};
}
}  // namespace detail

void set_tty_kind(uint32_t kind, int32_t result) {
    const Access access;
    terminal().kind = kind;
    terminal().kind_result = result;
}

void push_line(std::optional<std::string> text, int ok, int error) {
    const Access access;
    terminal().lines.push_back({std::move(text), ok, error});
}

std::vector<std::pair<uint32_t, uint32_t>> getline_options() {
    const Access access;
    return terminal().options;
}

void on_find_method_for_line(std::function<uint32_t(uint32_t, std::string &)> hook) {
    const Access access;
    terminal().find_method = std::move(hook);
}

void on_check_linetype(std::function<uint32_t(aaa_usercred_t *)> hook) {
    const Access access;
    terminal().check_linetype = std::move(hook);
}

}  // namespace fake

using namespace fake;

int32_t tty_details_from_device_file(uint32_t zero, const char *device, tty_details_t *details) {
    const Call call("tty_details_from_device_file", zero, device);
    if (call.scripted()) {
        return static_cast<int32_t>(*call.scripted());
    }
    if (terminal().kind_result == 0) {
        details->kind = terminal().kind;
    }
    return terminal().kind_result;
}

cerrno find_method_for_line(uint32_t kind, char **list_name) {
    Call call("find_method_for_line", kind);
    if (call.scripted()) {
        return *call.scripted();
    }
    std::string name = call.text().value_or("default");
    if (terminal().find_method) {
        const auto hook = terminal().find_method;
        const uint32_t code = call.unlocked([&] { return hook(kind, name); });
        if (code != 0) {
            return code;
        }
    }
    *list_name = copy_text(name);
    return 0;
}

cerrno aaa_util_check_linetype(aaa_usercred_t *cred) {
    Call call("aaa_util_check_linetype", cred);
    if (call.scripted() || !terminal().check_linetype) {
        return call.scripted().value_or(0);
    }
    const auto hook = terminal().check_linetype;
    return call.unlocked([&] { return hook(cred); });
}

cerrno aaa_util_find_line_remote_addr(char *buffer, uint32_t size) {
    const Call call("aaa_util_find_line_remote_addr", Word{buffer == nullptr ? "null" : "ptr"}, size);
    if (call.scripted()) {
        return *call.scripted();
    }
    const std::string text = call.text().value_or("192.0.2.7");
    std::strncpy(buffer, text.c_str(), size);
    buffer[size - 1] = '\0';
    return 0;
}

void *getline_init(void) {
    const Call call("getline_init");
    if (call.scripted()) {
        return nullptr;
    }
    void *const handle = std::malloc(1);
    terminal().editors.emplace(handle, "");
    return handle;
}

cerrno getline_configure(void *handle, uint32_t option, uint32_t size, const void *value) {
    uint32_t number = 0;
    std::memcpy(&number, value, size < sizeof number ? size : sizeof number);
    const Call call("getline_configure", handle, option, size, number);
    terminal().options.emplace_back(option, number);
    return call.scripted().value_or(editor(handle, "getline_configure") == nullptr ? 1u : 0u);
}

void gl_ret_on_eintr_enable(void *handle) {
    const Call call("gl_ret_on_eintr_enable", handle);
    editor(handle, "gl_ret_on_eintr_enable");
}

char *qm_getline(void *handle, const char *prompt, const char *text, int *ok) {
    Call call("qm_getline", handle, prompt, text, *ok);
    std::string *const held = editor(handle, "qm_getline");
    if (call.scripted() || held == nullptr) {
        return nullptr;
    }
    call.set_errno(0);
    if (terminal().lines.empty()) {
        return nullptr;
    }
    const Line line = terminal().lines.front();
    terminal().lines.pop_front();
    *ok = line.ok;
    call.set_errno(line.error);
    *held = line.text.value_or("");
    return line.text ? held->data() : nullptr;
}

void getline_free(void *handle) {
    const Call call("getline_free", handle);
    if (editor(handle, "getline_free") != nullptr) {
        terminal().editors.erase(handle);
        std::free(handle);
    }
}

char *pw_encrypt(const char *text, int type) {
    const Call call("pw_encrypt", text, type);
    return call.scripted() ? nullptr : copy_text(call.text().value_or(sealed(text, type)));
}

char *pw_decrypt(const char *text, int type) {
    const Call call("pw_decrypt", text, type);
    const auto clear = call.text() ? call.text() : opened(text);
    return call.scripted() || !clear ? nullptr : copy_text(*clear);
}
