// SPDX-License-Identifier: Apache-2.0
//
// A sudo that calls the built plugins as sudo_plugin(5) says.
#pragma once

#include <dlfcn.h>
#include <sudo_plugin.h>
#include <sys/wait.h>

#include <cstdarg>
#include <string>
#include <vector>

#include "pam/host.hpp"

namespace pam_test {

// A list of texts as sudo hands it over.
class Texts {
  public:
    explicit Texts(std::vector<std::string> texts) : texts_(std::move(texts)) {
        for (std::string &text : texts_) {
            pointers_.push_back(text.data());
        }
        pointers_.push_back(nullptr);
    }
    [[nodiscard]] char *const *get() const { return pointers_.data(); }

  private:
    std::vector<std::string> texts_;
    std::vector<char *> pointers_;
};

inline std::string printed;  // by the plugins

[[gnu::format(printf, 2, 3)]] inline int print(int, const char *format, ...) {
    char text[4096];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    printed += text;
    return 0;
}

struct Command {
    std::string program = "/usr/bin/id";
    std::vector<std::string> arguments{"id"};
    std::string user = "alice";
    std::vector<std::string> more{};  // of the information that sudo has about it

    [[nodiscard]] Texts info() const {
        std::vector<std::string> texts{"command=" + program, "runas_uid=0"};
        texts.insert(texts.end(), more.begin(), more.end());
        return Texts(texts);
    }
};

class SudoTest : public PamTest {
  protected:
    void SetUp() override {
        PamTest::SetUp();
        printed.clear();
        library_ = dlopen(AAA_SUDO_PLUGIN, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(library_, nullptr) << dlerror();
    }
    void TearDown() override {
        if (library_ != nullptr) {
            EXPECT_EQ(dlclose(library_), 0);
        }
    }

    template <typename Plugin>
    Plugin &plugin(const char *name) const {
        auto *found = static_cast<Plugin *>(dlsym(library_, name));
        if (found == nullptr) {
            ADD_FAILURE() << name;
            std::abort();
        }
        return *found;
    }

    template <typename Plugin>
    int open(Plugin &plugin, const std::string &user, std::vector<std::string> options,
             unsigned version = SUDO_API_VERSION) {
        const Texts info({"pid=1", "user=" + user, "tty=/dev/pts/7", "uid=1000"});
        if (std::find_if(options.begin(), options.end(), [](auto &o) { return o.starts_with("socket="); }) ==
            options.end()) {
            options.push_back("socket=" + service_.path());
        }
        options_ = std::make_unique<Texts>(std::move(options));  // sudo keeps them
        const Texts none({});
        error_ = nullptr;
        return plugin.open(version, nullptr, print, none.get(), info.get(), 0, none.get(), none.get(),
                           options_->get(), &error_);
    }

    [[nodiscard]] std::string error() const { return error_ != nullptr ? error_ : ""; }

    void *library_ = nullptr;
    const char *error_ = nullptr;
    std::unique_ptr<Texts> options_;
};

}  // namespace pam_test
