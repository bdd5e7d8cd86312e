// SPDX-License-Identifier: Apache-2.0
//
// The tables from which completion scripts are made, and the script of each shell.

#pragma once

#include <map>
#include <string>
#include <vector>

#include "cli/output.hpp"

namespace aaactl {

using Words = std::vector<std::string>;

// "aaactl", "aaactl sysdb", ... with what may follow each.
struct CompletionNode {
    std::string path;
    Words commands;
    Words options;
    Words arguments;                      // known values of positional arguments
    Words positions;                      // names of positional arguments, in order; "NAME..." repeats
    std::map<std::string, Words> valued;  // options with a value, and the values that are known
    std::map<std::string, Words> placed;  // positional arguments whose values are known
};

// Separated by blanks.
std::string joined(const Words &words);
// What may follow the words of a command.
Words all_words(const CompletionNode &node);
// The words that the library has for services and methods.
Words service_words_of_library();
Words method_words_of_library();

// The shell functions that bash and zsh share, and the variables that they need.
void print_positions(Output &out);

void print_bash(Output &out, const std::vector<CompletionNode> &nodes);
void print_zsh(Output &out, const std::vector<CompletionNode> &nodes);
void print_fish(Output &out, const std::vector<CompletionNode> &nodes);

}  // namespace aaactl
