// SPDX-License-Identifier: Apache-2.0
//
// Configuration text to statements.

#include <algorithm>
#include <charconv>

#include "cli/suggestion.hpp"
#include "config/groups.hpp"
#include "dictionary/enum_words.hpp"
#include "running_config/statements.hpp"
#include "running_config/wrong_lines.hpp"

namespace aaactl {
namespace {

using Keywords = std::vector<std::string>;

Failure malformed(const std::string &why) {
    return {ExitCode::bad_input, why};
}

// "radius-server", ... in the order of kProtocols.
const Keywords &protocol_statements() {
    static const Keywords words = [] {
        Keywords all;
        for (const Protocol &protocol : kProtocols) {
            all.push_back(std::string(protocol.word) + "-server");
        }
        return all;
    }();
    return words;
}

const Keywords &top_words() {
    static const Keywords words = [] {
        Keywords all{"aaa"};
        all.insert(all.end(), protocol_statements().begin(), protocol_statements().end());
        all.insert(all.end(), {"item", "no", "exit", "end"});
        return all;
    }();
    return words;
}

const Keywords &group_words() {
    static const Keywords words = [] {
        Keywords all{"server", "server-private"};
        all.insert(all.end(), setting_words().begin(), setting_words().end());
        all.emplace_back("retransmit");
        return all;
    }();
    return words;
}

// The words that can begin a line.
Keywords known_words(bool in_group) {
    Keywords words = top_words();
    if (in_group) {
        words.insert(words.end(), group_words().begin(), group_words().end());
    }
    return words;
}

uint32_t read_number(WordReader &words, const std::string &what, uint32_t least, uint32_t most) {
    const std::string &word = words.take(what);
    const bool hexadecimal = word.starts_with("0x");
    uint32_t number = 0;
    const char *end = word.data() + word.size();
    const auto [stop, error] =
        std::from_chars(word.data() + (hexadecimal ? 2 : 0), end, number, hexadecimal ? 16 : 10);
    if (error != std::errc() || stop != end || number < least || number > most) {
        throw malformed(what + ": \"" + escaped(word) + "\" is not a number from " + std::to_string(least) +
                        " to " + std::to_string(most));
    }
    return number;
}

std::string read_name(WordReader &words, const std::string &what) {
    const std::string &name = words.take(what);
    if (!is_group_name(name)) {
        throw malformed(what + ": \"" + escaped(name) +
                        "\" is not a valid name; use 1 to 49 printable characters without '/'");
    }
    return name;
}

std::string read_address(WordReader &words) {
    const std::string &host = words.take("the server's address");
    if (host.find('\0') != std::string::npos || !is_address(host)) {
        throw malformed("\"" + escaped(host) + "\" is not an IPv4 or IPv6 address");
    }
    return host;
}

class Parser {
  public:
    Statements parse(std::string_view text) {
        for (size_t at = 0; at < text.size();) {
            const size_t end = std::min(text.find('\n', at), text.size());
            ++line_;
            std::string_view line = text.substr(at, end - at);
            if (line.ends_with('\r')) {  // of a text that was edited elsewhere
                line.remove_suffix(1);
            }
            read_checked(line);
            at = end + 1;
        }
        wrong_.refuse();
        return std::move(statements_);
    }

  private:
    // Goes on after a wrong line: all of them are named at once.
    void read_checked(std::string_view line) {
        const size_t before = statements_.size();
        try {
            read_line(line);
            group_is_lost_ = group_is_lost_ && statements_.size() == before;
        } catch (const Failure &failure) {
            wrong_.add(ExitCode::bad_input, line_, failure.what());
            if (is_not_a_text_) {
                wrong_.refuse();
            }
            group_is_lost_ = !owner_;
        }
    }

    void add(decltype(Statement::what) what, bool removed) {
        statements_.push_back({std::move(what), removed, line_});
    }

    void read_line(std::string_view line) {
        const size_t begin = line.find_first_not_of(" \t\r");
        if (begin == std::string_view::npos || line[begin] == '!' || line[begin] == '#') {
            return;
        }
        line.remove_prefix(begin);
        if (statements_.empty() && (line.starts_with(kDumpFormat) || line.starts_with('{'))) {
            is_not_a_text_ = true;
            throw malformed("this is a dump of the database; load it with \"aaactl sysdb load\"");
        }
        if (read_item(line)) {
            return;
        }
        WordReader words(split_words(line));
        const bool removed = words.take_if("no");
        if (is_of_lost_group(words)) {
            return;
        }
        read_words(words, removed);
        words.expect_end();
    }

    // The line that should have begun the group is wrong, and has been named: those of the group are not.
    bool is_of_lost_group(const WordReader &words) const {
        const Word *first = words.peek();
        return group_is_lost_ && first != nullptr && match_exactly(*first, group_words());
    }

    // The rest of the line is not made of words. Whether the line is an item.
    bool read_item(std::string_view line) {
        const auto take = [&](std::string_view word) {
            const bool found = line.starts_with(word) && line.size() > word.size() &&
                               (line[word.size()] == ' ' || line[word.size()] == '\t');
            if (found) {
                line.remove_prefix(word.size());
                line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
            }
            return found;
        };
        const bool removed = take("no");
        if (!take("item")) {
            return false;
        }
        owner_.reset();
        if (removed) {
            WordReader words(split_words(line));
            const std::string path = words.take("the path of the item");
            words.expect_end();
            check_item_path(path);
            add(ItemStatement{path, {}, false}, true);
            return true;
        }
        const DumpItem item = parse_dump_line(line, kConfigRoot);
        check_item_path(item.path);
        add(ItemStatement{item.path, item.item, item.masked}, false);
        return true;
    }

    static void check_item_path(const std::string &path) {
        if (!path.starts_with(kConfigRoot) || path == kConfigRoot || path.find('\0') != std::string::npos) {
            throw malformed("the path " + escaped(path) + " is not below " + kConfigRoot +
                            "; store other items with \"aaactl sysdb set\"");
        }
    }

    void read_words(WordReader &words, bool removed) {
        const Word *first = words.peek();
        if (first == nullptr) {
            throw malformed("a statement is expected after \"no\"");
        }
        if (!owner_ && match_exactly(*first, group_words())) {
            throw malformed(
                "\"" + first->text +
                "\" belongs to a server group; write \"aaa group server PROTOCOL NAME\" before it");
        }
        refuse_protocol(*first);
        const std::string word = words.take_keyword("a statement", known_words(owner_.has_value()));
        if (word == "aaa") {
            owner_.reset();
            read_aaa(words, removed);
        } else if (word == "exit" || word == "end") {
            refuse_no(word, removed);
            owner_.reset();
        } else if (word == "no") {
            throw malformed("\"no\" is written once, and in full");
        } else if (word == "item") {
            throw malformed("\"item\" is written in full, and followed by a path, a type and a value");
        } else if (const auto protocol = index_in(protocol_statements(), word)) {
            owner_.reset();
            read_protocol(words, *protocol, removed);
        } else if (word == "server" || word == "server-private") {
            read_server(words, *owner_, word == "server-private", removed);
        } else {
            read_setting_of(*owner_, word, words, removed);
        }
    }

    static std::optional<uint32_t> index_in(const Keywords &words, const std::string &word) {
        const auto found = std::find(words.begin(), words.end(), word);
        return found != words.end() ? std::optional(static_cast<uint32_t>(found - words.begin()))
                                    : std::nullopt;
    }

    static bool match_exactly(const Word &word, const Keywords &known) {
        return !word.quoted && std::find(known.begin(), known.end(), word.text) != known.end();
    }

    // "radius server NAME" begins a server on other systems. As "radius-server server-name NAME" it would be the
    // setting of all servers.
    static void refuse_protocol(const Word &first) {
        for (const Protocol &protocol : kProtocols) {
            const std::string_view word = protocol.word;
            if (!first.quoted && !first.text.empty() && word.starts_with(first.text)) {
                throw malformed("\"" + escaped(first.text) + "\" is not a statement; write \"" +
                                std::string(word) + "-server\", or \"aaa group server " + std::string(word) +
                                " NAME\" for a group");
            }
        }
    }

    static void refuse_no(const std::string &word, bool removed) {
        if (removed) {
            throw malformed("\"no\" does not go with \"" + word + "\"");
        }
    }

    void read_aaa(WordReader &words, bool removed) {
        Keywords known{"group"};
        known.insert(known.end(), list_functions().begin(), list_functions().end());
        const std::string word = words.take_keyword("a kind of configuration", known);
        if (word != "group") {
            add(read_list(words, word, removed), removed);
            return;
        }
        words.take_keyword("a kind of group", {"server"});
        const std::string protocol = words.take_keyword("a protocol", protocol_words());
        const auto index = static_cast<uint32_t>(&protocol_named(protocol) - std::begin(kProtocols));
        const Owner owner{index, read_name(words, "the group's name")};
        add(GroupStatement{owner}, removed);
        if (!removed) {
            owner_ = owner;
        }
    }

    static ListStatement read_list(WordReader &words, const std::string &function, bool removed) {
        ListStatement list{function, read_name(words, "the service"), {}, false, {}};
        list.name = read_name(words, "the list's name");
        if (removed) {
            return list;
        }
        if (function == "accounting") {
            read_record_kind(words, list);
        }
        do {
            if (list.methods.size() == kMaxMethods) {
                throw malformed("a list has at most " + std::to_string(kMaxMethods) + " methods");
            }
            list.methods.push_back(read_method(words));
        } while (!words.at_end());
        return list;
    }

    // Records of start and of stop are sent: the service has no other kind of accounting.
    static void read_record_kind(WordReader &words, ListStatement &list) {
        const Word *word = words.peek();
        if (word != nullptr && match_exactly(*word, {"stop-only", "wait-start"})) {
            throw malformed("\"" + word->text +
                            "\": the service accounts for start and stop; write start-stop");
        }
        words.take_if("start-stop");
        list.broadcast = words.take_if("broadcast");
    }

    static ListStatement::Place read_method(WordReader &words) {
        if (words.take_if("group")) {
            return {AAA_METHOD_SERVER_GROUP, read_name(words, "the group's name")};
        }
        const std::string &word = words.take("a method");
        const auto number = method_number(word);
        if (!number || *number == AAA_METHOD_NOTSET || *number > AAA_METHOD_SYSLOG ||
            *number == AAA_METHOD_SERVER_GROUP) {
            throw malformed("\"" + escaped(word) + "\" is not a method" + method_hint(word));
        }
        return {*number, {}};
    }

    static std::string method_hint(const std::string &word) {
        if (word.starts_with("group:")) {
            return "; write \"group " + escaped(word.substr(6)) + "\"";
        }
        Keywords known{"group"};
        for (uint32_t method = AAA_METHOD_NONE; method <= AAA_METHOD_SYSLOG; ++method) {
            if (is_configurable(method) && method_number(method_word(method)) == method) {
                known.push_back(method_word(method));
            }
        }
        return suggestion(word, known);
    }

    void read_protocol(WordReader &words, uint32_t protocol, bool removed) {
        const Owner owner{protocol, std::nullopt};
        Keywords known{"host"};
        known.insert(known.end(), setting_words().begin(), setting_words().end());
        known.emplace_back("retransmit");
        if (const Word *word = words.peek(); word != nullptr && match_keyword(*word, known) == "host") {
            words.take("host");
            read_server(words, owner, false, removed);
            return;
        }
        read_setting_of(owner, words.take_keyword("\"host\" or a setting", known), words, removed);
    }

    // The word of the setting has been taken, as the word that says which statement it is.
    void read_setting_of(const Owner &owner, const std::string &word, WordReader &words, bool removed) {
        std::vector<Word> all{{word, false}};
        while (const Word *next = words.peek()) {
            all.push_back(*next);
            words.take("");
        }
        WordReader again(std::move(all));
        SettingValue value = removed ? read_removed_setting(again) : read_setting(owner.of(), again);
        expect_end_after(value, again);
        add(SettingStatement{owner, std::move(value)}, removed);
    }

    static void expect_end_after(const SettingValue &value, const WordReader &words) {
        if (value.form->form == SettingForm::sealed_key && !words.at_end()) {
            throw malformed("more words follow the key; a key with blanks is put between quotation marks");
        }
        words.expect_end();
    }

    void read_server(WordReader &words, const Owner &owner, bool is_private, bool removed) {
        ServerStatement server{owner, is_private, read_address(words), {}, {}, {}};
        std::optional<uint32_t> port;
        std::optional<uint32_t> second;
        while (!words.at_end()) {
            if (!read_port(words, server, port, second)) {
                if (removed) {
                    throw malformed(
                        "after \"no\" only the address and the ports follow; to delete a setting, "
                        "write the line without \"no\" and \"no SETTING\" at its end");
                }
                read_server_word(words, server);
            }
        }
        set_ports(server, port, second, removed);
        add(std::move(server), removed);
    }

    static bool read_port(WordReader &words, const ServerStatement &server, std::optional<uint32_t> &port,
                          std::optional<uint32_t> &second) {
        const auto take = [&](const char *word, std::optional<uint32_t> &value) {
            if (!words.take_if(word)) {
                return false;
            }
            if (value) {
                throw malformed(std::string("\"") + word + "\" is given twice");
            }
            value = read_number(words, word, 1, 65535);
            return true;
        };
        return server.owner.of().is_radius() ? take("auth-port", port) || take("acct-port", second)
                                             : take("port", port);
    }

    static void read_server_word(WordReader &words, ServerStatement &server) {
        if (words.take_if("index")) {
            if (server.index) {
                throw malformed("\"index\" is given twice");
            }
            server.index = read_number(words, "index", 0, UINT32_MAX);
            return;
        }
        if (const Word &word = *words.peek();
            !match_exactly(word, {"no", "retransmit"}) && match_keyword(word, setting_words()).empty()) {
            Keywords known = server.owner.of().is_radius() ? Keywords{"auth-port", "acct-port", "index"}
                                                           : Keywords{"port", "index"};
            known.insert(known.end(), setting_words().begin(), setting_words().end());
            throw malformed("\"" + escaped(word.text) + "\" is not a setting" + suggestion(word.text, known));
        }
        SettingValue value =
            words.take_if("no") ? read_removed_setting(words) : read_setting(server.owner.of(), words);
        for (const SettingValue &other : server.settings) {
            if (other.form == value.form) {
                throw malformed(std::string("\"") + value.form->word + "\" is given twice");
            }
        }
        server.settings.push_back(std::move(value));
    }

    // As "sg add": a RADIUS server has both ports. Without ports, "no" means the address alone.
    static void set_ports(ServerStatement &server, std::optional<uint32_t> port,
                          std::optional<uint32_t> second, bool removed) {
        if (!server.owner.of().is_radius()) {
            if (port) {
                server.ports = {*port};
            }
            return;
        }
        if (removed && !port && !second) {
            return;
        }
        const uint32_t first = port.value_or(1812);
        if (!second && first == 65535) {
            throw malformed("acct-port is missing: there is no port after 65535");
        }
        server.ports = {first, second.value_or(first + 1)};
    }

    Statements statements_;
    std::optional<Owner> owner_;  // the group whose lines follow
    size_t line_ = 0;
    WrongLines wrong_;
    bool group_is_lost_ = false;
    bool is_not_a_text_ = false;
};

}  // namespace

bool is_whole(std::string_view text) {
    std::string_view last;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        std::string_view line = text.substr(at, end - at);
        line.remove_prefix(std::min(line.find_first_not_of(" \t\r"), line.size()));
        if (!line.empty() && line[0] != '!' && line[0] != '#') {
            last = line.substr(0, line.find_last_not_of(" \t\r") + 1);
        }
        at = end + 1;
    }
    return last == kEnd;
}

Statements parse_statements(std::string_view text) {
    return Parser().parse(text);
}

}  // namespace aaactl
