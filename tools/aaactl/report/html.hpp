// SPDX-License-Identifier: Apache-2.0
//
// Writes HTML. Every text and every value of an attribute is escaped here, so no caller can
// forget it: a name in the database may hold markup.

#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace aaactl {

// Text with its markup characters as entities, and what a reader would not see as \xNN.
std::string html_text(std::string_view text);

class Html {
  public:
    using Attribute = std::pair<const char *, std::string>;

    // Names of elements and attributes come from the program's text only.
    Html &open(const char *element, std::initializer_list<Attribute> attributes = {});
    Html &close();
    // An element without contents, such as <meta>.
    Html &empty(const char *element, std::initializer_list<Attribute> attributes = {});
    Html &text(std::string_view text);
    // An element with a text and nothing else.
    Html &line(const char *element, std::string_view text, std::initializer_list<Attribute> attributes = {});
    // A style sheet or the like: text of the program that has no markup from outside.
    Html &literal(const char *markup);

    // Closes what is open.
    std::string take() &&;

  private:
    void tag(const char *element, std::initializer_list<Attribute> attributes);

    std::string out_;
    std::vector<const char *> open_;
};

}  // namespace aaactl
