// SPDX-License-Identifier: Apache-2.0
//
// Which user names log lines and the trace may show. People type their password where the name is
// asked for; a name that no one here is known by is therefore not written down. For the thread of
// the loop.
#pragma once

#include <deque>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_set>

namespace service {

class KnownNames {
  public:
    using Configured = std::function<bool(const std::string &)>;

    explicit KnownNames(std::size_t room = 4096) : room_(room) {}

    // Who is known by the configuration: asked each time. Without it every name is known.
    void use(Configured configured) { configured_ = std::move(configured); }
    // A name that a method has accepted, or that a trusted program has a session of. The oldest are
    // forgotten first.
    void learn(const std::string &name);

    bool knows(const std::string &name) const;
    // The name, or "(unknown name)".
    std::string_view shown(const std::string &name) const;
    // A text that belongs to a user's request, with "(unknown name)" in place of his name if it may not be
    // shown.
    std::string shown_text(std::string_view text, const std::string &user) const;

  private:
    std::size_t room_;
    Configured configured_;
    std::unordered_set<std::string> learned_;
    std::deque<std::string> order_;
};

}  // namespace service
