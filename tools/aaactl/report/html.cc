// SPDX-License-Identifier: Apache-2.0
//
// Elements, attributes and escaped text.

#include "report/html.hpp"

#include "cli/output.hpp"

namespace aaactl {

namespace {

// escaped(), but a backslash stays one: some texts have passed through it before.
std::string visible(std::string_view text) {
    std::string out = escaped(text);
    for (size_t at = 0; (at = out.find("\\\\", at)) != std::string::npos; ++at) {
        out.erase(at, 1);
    }
    return out;
}

// Elements inside a line of text: a line feed after them would show as a blank.
bool is_inline(std::string_view element) {
    return element == "strong" || element == "span" || element == "a";
}

}  // namespace

std::string html_text(std::string_view text) {
    std::string out;
    for (const char c : visible(text)) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            case '\'':
                out += "&#39;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

void Html::tag(const char *element, std::initializer_list<Attribute> attributes) {
    out_ += std::string("<") + element;
    for (const auto &[name, value] : attributes) {
        out_ += std::string(" ") + name + "=\"" + html_text(value) + "\"";
    }
    out_ += ">";
}

Html &Html::open(const char *element, std::initializer_list<Attribute> attributes) {
    tag(element, attributes);
    open_.push_back(element);
    return *this;
}

Html &Html::close() {
    out_ += std::string("</") + open_.back() + (is_inline(open_.back()) ? ">" : ">\n");
    open_.pop_back();
    return *this;
}

Html &Html::empty(const char *element, std::initializer_list<Attribute> attributes) {
    tag(element, attributes);
    return *this;
}

Html &Html::text(std::string_view text) {
    out_ += html_text(text);
    return *this;
}

Html &Html::line(const char *element, std::string_view text, std::initializer_list<Attribute> attributes) {
    return open(element, attributes).text(text).close();
}

Html &Html::literal(const char *markup) {
    out_ += markup;
    return *this;
}

std::string Html::take() && {
    while (!open_.empty()) {
        close();
    }
    return std::move(out_);
}

}  // namespace aaactl
