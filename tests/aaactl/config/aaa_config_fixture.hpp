// SPDX-License-Identifier: Apache-2.0
//
// A test with a private AAA configuration, in the system database and in the
// files of the host. Items that a test adds are stored together before the next
// run of aaactl.

#pragma once

#include <map>

#include "aaactl/support/database_fixture.hpp"
#include "database/sysdb_values.hpp"

namespace aaactl_test {

class AaaConfigTest : public DatabaseTest {
  protected:
    AaaConfigTest()
        : lines_("AAA_LINES_CONF", dir().path("lines.conf")),
          keys_("AAA_MASTER_KEYS", dir().path("master.keys")) {
        pending_.clear();
    }

    static void put(const std::string &path, const std::string &type, const std::string &value) {
        const std::string tree = path.starts_with("/cfg/") ? "/cfg/" : "/oper/";
        pending_[tree][path] = aaactl::in_quotes(path) + " " + type + " " +
                               (type == "string" ? aaactl::in_quotes(value) : value);
    }

    static aaactl_test::Run run(const std::vector<std::string> &args) {
        for (const auto &[tree, items] : pending_) {
            std::string dump = "aaactl-dump 1 " + tree + "\n";
            for (const auto &[path, line] : items) {
                dump += line + "\n";
            }
            const auto load = aaactl_test::aaactl({"sysdb", "load", "--force", "-"}, dump);
            EXPECT_EQ(load.status, 0) << load.err << dump;
        }
        pending_.clear();
        return aaactl_test::aaactl(args);
    }

    // A list of four methods with the names of their groups: "10,2,0,0,\"corp\",\"\",\"\",\"\"".
    static void list(const std::string &path, const std::string &fields) {
        put("/cfg/gl/aaa/" + path, "tuple", fields);
    }

    // Its group uses TLS, so that it needs no key; without_tls() changes that.
    static void server(const std::string &group, const std::string &entry) {
        put("/cfg/gl/aaa/group-server/" + group + "/settings/transport", "string", "tls");
        put("/cfg/gl/aaa/group-server/" + group + "/server/" + entry, "u32", "1");
    }

    static void without_tls(const std::string &group) {
        const auto deleted =
            run({"sysdb", "del", "/cfg/gl/aaa/group-server/" + group + "/settings/transport"});
        EXPECT_EQ(deleted.status, 0) << deleted.err;
    }

    // Publishes the number of a group as the AAA server does.
    static void number(const std::string &protocol, const std::string &name, uint32_t number) {
        char digits[16];
        std::snprintf(digits, sizeof digits, "0x%x", number);
        put(kMaps + "sg_name_map/" + protocol + "/" + name, "u32", std::to_string(number));
        put(kMaps + "sg_num_map/" + protocol + "/" + digits, "string", name);
    }

    // Groups corp (radius, two servers) and archive (tacacs, one), with numbers.
    static void groups() {
        server("radius/corp", "0x1/192.0.2.20,1812,1813");
        server("radius/corp", "0x2/2001:db8::21,1645,1646");
        number("radius", "corp", 1001);
        server("tacacs/archive", "0x1/192.0.2.30");
        number("tacacs", "archive", 3001);
    }

    static bool contains(const std::string &text, const std::string &part) {
        return text.find(part) != std::string::npos;
    }

    // "SEVERITY CODE PATH" of each finding, in order.
    static std::vector<std::string> found(const aaactl_test::Run &run) {
        std::vector<std::string> all;
        const auto document = run.json();
        for (const auto &finding : document["findings"]) {
            all.push_back(finding["severity"].text() + " " + finding["code"].text() + " " +
                          finding["path"].text());
            EXPECT_NE(finding["text"], "");
            EXPECT_NE(finding["remedy"], "");
        }
        return all;
    }

    static inline const std::string kMaps = "/oper/aaa/gl/group-server/";

  private:
    static inline std::map<std::string, std::map<std::string, std::string>> pending_;  // of each tree

    ScopedEnv lines_;
    ScopedEnv keys_;
};

}  // namespace aaactl_test
