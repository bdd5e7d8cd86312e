// SPDX-License-Identifier: Apache-2.0
//
// One box for each step, below each other: the picture is 320 units wide, as phones are. To the
// right of a box is where a refusal ends; the arrow below it is silence.

#include "report/flow.hpp"

#include <algorithm>
#include <vector>

#include "aaa/names.h"

namespace aaactl {
namespace {

using Step = Explanation::Step;

constexpr int kWidth = 320;
constexpr int kBoxWidth = 196;
constexpr size_t kColumns = 24;  // characters of a line in a box
constexpr int kLine = 17;
constexpr int kArrow = 40;

std::string units(int n) {
    return std::to_string(n);
}

// Lines of at most so many characters. Bytes that continue a character of UTF-8 do not count.
std::vector<std::string> wrapped(const std::string &text) {
    std::vector<std::string> lines(1);
    size_t column = 0;
    for (const char c : text) {
        const bool begins = (static_cast<unsigned char>(c) & 0xc0) != 0x80;
        if (begins && column == kColumns) {
            lines.emplace_back();
            column = 0;
        }
        lines.back() += c;
        column += begins ? 1 : 0;
    }
    return lines;
}

void write_text(Html &page, int x, int y, const std::string &text, const char *kind) {
    page.line("text", text, {{"x", units(x)}, {"y", units(y)}, {"class", kind}});
}

void write_arrow(Html &page, int x1, int y1, int x2, int y2, const char *kind) {
    page.empty("path", {{"class", std::string("arrow ") + kind},
                        {"d", "M" + units(x1) + " " + units(y1) + "L" + units(x2) + " " + units(y2)}});
    page.literal("</path>");
    const std::string head = x1 == x2 ? "M" + units(x2 - 4) + " " + units(y2 - 6) + "L" + units(x2) + " " +
                                            units(y2) + "L" + units(x2 + 4) + " " + units(y2 - 6)
                                      : "M" + units(x2 - 6) + " " + units(y2 - 4) + "L" + units(x2) + " " +
                                            units(y2) + "L" + units(x2 - 6) + " " + units(y2 + 4);
    page.empty("path", {{"class", std::string("arrow ") + kind}, {"d", head}}).literal("</path>");
}

void write_box(Html &page, int y, int height, const char *kind) {
    page.empty("rect", {{"class", kind},
                        {"x", "1"},
                        {"y", units(y)},
                        {"width", units(kBoxWidth)},
                        {"height", units(height)},
                        {"rx", "6"}})
        .literal("</rect>");
}

bool always_answers(const Step &step) {
    return step.method.number == AAA_METHOD_NONE;
}

std::vector<std::string> lines_of(const Step &step, size_t number) {
    std::vector<std::string> lines = wrapped(std::to_string(number) + ". " + step_word(step));
    if (!step.works) {
        lines.emplace_back("cannot answer");
    } else if (!step.servers.empty()) {
        const size_t servers = step.servers.size();
        lines.push_back(std::to_string(servers) + (servers == 1 ? " server" : " servers, in order"));
    }
    return lines;
}

const char *box_of(const Step &step) {
    return !step.works ? "box broken" : "box";
}

const char *silence_of(const Explanation &list, const Step &step) {
    return !step.works                   ? "passed over"
           : is_kept_on_disk(list, step) ? "only when the disk fails"
                                         : "no answer: go on";
}

// Returns the place below it.
int write_step(Html &page, const Explanation &list, size_t i, int y) {
    const Step &step = list.reached()[i];
    const std::vector<std::string> lines = lines_of(step, i + 1);
    const int height = static_cast<int>(lines.size()) * kLine + 14;
    write_box(page, y, height, box_of(step));
    for (size_t n = 0; n < lines.size(); ++n) {
        write_text(page, 12, y + 20 + static_cast<int>(n) * kLine, lines[n], n == 0 ? "name" : "small");
    }
    const int middle = y + height / 2;
    if (step.works) {
        const char *const end = always_answers(step)          ? "accepted"
                                : is_kept_on_disk(list, step) ? "refused: sent again"
                                                              : "refused: end";
        write_arrow(page, kBoxWidth + 1, middle, kBoxWidth + 24, middle,
                    always_answers(step) ? "good" : "bad");
        write_text(page, kBoxWidth + 30, middle + 4, end, "small");
    }
    if (always_answers(step)) {
        return y + height;
    }
    write_arrow(page, kBoxWidth / 2, y + height, kBoxWidth / 2, y + height + kArrow, "plain");
    write_text(page, kBoxWidth / 2 + 10, y + height + kArrow / 2 + 4, silence_of(list, step), "small");
    return y + height + kArrow;
}

std::string last_words(const Explanation &list) {
    return list.service.function == AAA_FUNC_ACCT ? "the record is lost" : "refused: no step is left";
}

int height_of(const Explanation &list) {
    int y = 1;
    for (size_t i = 0; i < list.reached().size(); ++i) {
        const Step &step = list.reached()[i];
        y +=
            static_cast<int>(lines_of(step, i + 1).size()) * kLine + 14 + (always_answers(step) ? 0 : kArrow);
    }
    return y + (list.reached().empty() || !always_answers(list.reached().back()) ? kLine + 16 : 2);
}

void write_words(Html &page, const Explanation &list) {
    page.open("ol");
    for (size_t i = 0; i < list.reached().size(); ++i) {
        const Step &step = list.reached()[i];
        page.open("li").line("strong", step_word(step)).text(" (" + step_meaning(list, step) + "). ");
        if (always_answers(step)) {
            page.close();
            continue;
        }
        page.text(step.works ? "If it refuses: " + on_refusal(list, step) +
                                   ". If it does not answer: " + on_silence(list, i) + "."
                             : "It cannot answer: " + on_silence(list, i) + ".");
        page.close();
    }
    page.close();
}

}  // namespace

void write_flow(Html &page, const Explanation &list, const std::string &id) {
    const int height = height_of(list);
    page.open("svg", {{"viewBox", "0 0 " + units(kWidth) + " " + units(height)},
                      {"class", "flow"},
                      {"role", "img"},
                      {"aria-labelledby", id}});
    page.line("title", "Flow of the list " + list.choice.list + "; the list below says the same",
              {{"id", id}});
    int y = 1;
    for (size_t i = 0; i < list.reached().size(); ++i) {
        y = write_step(page, list, i, y);
    }
    if (list.reached().empty() || !always_answers(list.reached().back())) {
        write_box(page, y, kLine + 14, "box end");
        write_text(page, 12, y + 20, last_words(list), "name");
    }
    page.close();
    write_words(page, list);
}

}  // namespace aaactl
