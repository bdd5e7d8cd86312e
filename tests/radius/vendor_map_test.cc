// SPDX-License-Identifier: Apache-2.0

#include "radius/vendor_map.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "radius/bytes.hpp"
#include "support/temp_dir.hpp"

namespace radius {
namespace {

using radius_test::attribute;

constexpr char kMap[] =
    "# what our servers send\n"
    "32473 1 text        group\n"
    "\n"
    "32473\t2\tnumber privilege # 0 to 15\r\n"
    "  32473 3 pair:role   group  \n"
    "32473 3 pair:level  privilege";

VendorMap parse(const std::string &text) {
    std::string error;
    const std::optional<VendorMap> map = VendorMap::parse(text, "map", error);
    EXPECT_TRUE(map) << error;
    return map.value_or(VendorMap());
}

std::string error_of(const std::string &text) {
    std::string error;
    EXPECT_FALSE(VendorMap::parse(text, "map", error));
    return error;
}

std::string vendor_attribute(const std::string &inside, const std::string &vendor = {0, 0, 0x7e, '\xd9'}) {
    return attribute(Type::kVendorSpecific, vendor + inside);
}

std::string inner(int type, std::string_view value) {
    return attribute(static_cast<Type>(type), value);
}

// "name=text" of each value, then the faults.
std::vector<std::string> read(const std::string &attributes, const char *map = kMap) {
    const VendorMap::Values values = parse(map).read(Attributes(attributes));
    std::vector<std::string> all;
    for (const VendorMap::Value &value : values.values) {
        all.push_back(value.name + "=" + value.text);
    }
    all.insert(all.end(), values.faults.begin(), values.faults.end());
    return all;
}

using Texts = std::vector<std::string>;

TEST(VendorMap, ReadsLines) {
    const VendorMap map = parse(kMap);
    ASSERT_EQ(map.lines().size(), 4U);
    EXPECT_EQ(map.lines()[0].kind, VendorMap::Kind::kText);
    EXPECT_EQ(map.lines()[1].kind, VendorMap::Kind::kNumber);
    EXPECT_EQ(map.lines()[1].vendor, 32473U);
    EXPECT_EQ(map.lines()[1].type, 2);
    EXPECT_EQ(map.lines()[1].name, "privilege");
    EXPECT_EQ(map.lines()[1].number, 4);
    EXPECT_EQ(map.lines()[2].kind, VendorMap::Kind::kPair);
    EXPECT_EQ(map.lines()[2].key, "role");
    EXPECT_EQ(map.lines()[3].number, 6);
    EXPECT_TRUE(parse("").lines().empty());
    EXPECT_TRUE(parse("\n # nothing\n\n").lines().empty());
    EXPECT_EQ(parse("16777215 255 pair:a:b-c x.y_z-1\n").lines()[0].key, "a:b-c");
}

TEST(VendorMap, SaysWhichLineIsWrong) {
    const std::string good = "32473 1 text group\n";
    EXPECT_EQ(error_of(good + "32473 2 text"),
              "map:2: a line has four words, and this one 3: vendor, type, kind, name");
    EXPECT_EQ(error_of("32473 2 text a b"),
              "map:1: a line has four words, and this one 5: vendor, type, kind, name");
    for (const char *vendor : {"0", "16777216", "-1", "+1", "1x", "0x9", "99999999999999999999", "acme"}) {
        EXPECT_EQ(error_of(std::string("\n") + vendor + " 1 text group"),
                  "map:2: the vendor \"" + std::string(vendor) + "\" is no number from 1 to 16777215");
    }
    for (const char *type : {"0", "256", "x"}) {
        EXPECT_EQ(error_of("32473 " + std::string(type) + " text group"),
                  "map:1: the type \"" + std::string(type) + "\" is no number from 1 to 255");
    }
    EXPECT_EQ(error_of("32473 1 string group"),
              "map:1: the kind \"string\" is none of text, number and pair:KEY");
    for (const char *kind : {"pair:", "pair:a=b", "pair:a*"}) {
        EXPECT_EQ(error_of("32473 1 " + std::string(kind) + " group"),
                  "map:1: the key of \"" + std::string(kind) +
                      "\" must have a character, and none of \"=\" and \"*\"");
    }
    EXPECT_EQ(error_of("32473 1 text gr/oup"),
              "map:1: the name \"gr/oup\" must have at most 64 letters, digits, \"-\", \"_\" and \".\"");
    EXPECT_EQ(error_of("32473 1 text " + std::string(65, 'n')),
              "map:1: the name \"" + std::string(64, 'n') +
                  "...\" must have at most 64 letters, digits, \"-\", \"_\" and \".\"");
    EXPECT_EQ(error_of(std::string("a\0b", 3)), "map:1: the line holds a NUL byte: this is not a text file");
}

TEST(VendorMap, ShowsNoControlCharactersOfAFile) {
    EXPECT_EQ(error_of("32473 1 \x1b[31m\a group"),
              "map:1: the kind \"?[31m?\" is none of text, number and pair:KEY");
}

TEST(VendorMap, RefusesToMapAnAttributeTwice) {
    const std::string first = "\n\n32473 1 text group\n";
    EXPECT_EQ(error_of(first + "32473 1 text role"), "map:4: line 3 maps the same attribute");
    EXPECT_EQ(error_of(first + "32473 1 pair:a role"), "map:4: line 3 maps the same attribute");
    EXPECT_EQ(error_of("1 1 pair:a x\n1 1 pair:b x\n1 1 pair:a y\n"),
              "map:3: line 1 maps the same attribute");
    EXPECT_EQ(parse("1 1 pair:a x\n1 1 pair:b x\n2 1 pair:a x\n1 2 text x\n").lines().size(), 4U);
}

// ---- files

TEST(VendorMap, LoadsAFile) {
    const TempDir directory;
    std::string error;
    const auto map = VendorMap::load(directory.write("map", kMap), error);
    ASSERT_TRUE(map) << error;
    EXPECT_EQ(map->lines().size(), 4U);
}

TEST(VendorMap, SaysWhyAFileCannotBeLoaded) {
    const TempDir directory;
    std::string error;
    EXPECT_FALSE(VendorMap::load(directory.path("none"), error));
    EXPECT_EQ(error, directory.path("none") + ": No such file or directory");
    EXPECT_FALSE(VendorMap::load(directory.path("."), error));
    EXPECT_EQ(error, directory.path(".") + ": this is not a file");
    ASSERT_EQ(mkfifo(directory.path("fifo").c_str(), 0600), 0);
    EXPECT_FALSE(VendorMap::load(directory.path("fifo"), error));
    EXPECT_EQ(error, directory.path("fifo") + ": this is not a file");
    EXPECT_FALSE(VendorMap::load(directory.write("long", std::string((1 << 20) + 1, '\n')), error));
    EXPECT_EQ(error, directory.path("long") + ": the file has more than 1048576 bytes");
    EXPECT_FALSE(VendorMap::load(directory.write("wrong", "\nx"), error));
    EXPECT_EQ(error, directory.path("wrong") +
                         ":2: a line has four words, and this one 1: vendor, type, kind, name");
}

// ---- answers

TEST(VendorMap, ReadsAttributesOfAnAnswer) {
    const std::string attributes =
        attribute(Type::kReplyMessage, "x") + vendor_attribute(inner(1, "admins") + inner(7, "unmapped")) +
        vendor_attribute(inner(2, std::string("\0\0\0\17", 4))) +
        vendor_attribute(inner(3, "role=operator")) + vendor_attribute(inner(3, "level*7")) +
        vendor_attribute(inner(3, "other=7")) + vendor_attribute(inner(3, "role=a=b*c")) +
        vendor_attribute(inner(3, "role="));
    EXPECT_EQ(read(attributes), (Texts{"group=admins", "privilege=15", "group=operator", "privilege=7",
                                       "group=a=b*c", "group="}));
}

TEST(VendorMap, LeavesOtherVendorsAlone) {
    EXPECT_EQ(read(vendor_attribute(inner(1, "admins"), {0, 0, 0x7e, '\xd8'}) +
                   vendor_attribute(inner(1, "admins"), {1, 0, 0x7e, '\xd9'}) +
                   vendor_attribute("\1\77", {0, 0, 0x7e, '\xd8'})),
              Texts{});
    EXPECT_EQ(read(vendor_attribute(inner(1, "admins")), ""), Texts{});
}

// A key must be the whole word: "role" is not mapped by "rol", nor by "roles".
TEST(VendorMap, ComparesTheWholeKey) {
    EXPECT_EQ(read(vendor_attribute(inner(3, "roles=a")) + vendor_attribute(inner(3, "rol=a")) +
                   vendor_attribute(inner(3, " role=a")) + vendor_attribute(inner(3, "ROLE=a"))),
              Texts{});
}

TEST(VendorMap, NamesValuesThatDoNotHaveTheirForm) {
    const std::string with_nul("role=a\0b", 8);
    EXPECT_EQ(read(vendor_attribute(inner(2, "15")) + vendor_attribute(inner(2, "")) +
                   vendor_attribute(inner(3, with_nul)) + vendor_attribute(inner(3, "role")) +
                   vendor_attribute(inner(1, "a\nb"))),
              (Texts{"vendor 32473, type 2 (privilege): a number has 4 bytes, and this 2",
                     "vendor 32473, type 2 (privilege): a number has 4 bytes, and this 0",
                     "vendor 32473, type 3 (group): the text holds control characters",
                     "vendor 32473, type 3 (group): role has no value",
                     "vendor 32473, type 1 (group): the text holds control characters"}));
}

TEST(VendorMap, NamesDamagedAttributes) {
    EXPECT_EQ(read(vendor_attribute(inner(1, "admins") + "\2")),
              (Texts{"group=admins", "vendor 32473: the attribute is damaged"}));
    EXPECT_EQ(read(vendor_attribute("\1\77x")), Texts{"vendor 32473: the attribute is damaged"});
    EXPECT_EQ(read(vendor_attribute("")), Texts{"vendor 32473: the attribute is damaged"});
    EXPECT_EQ(read(attribute(Type::kVendorSpecific, "abc")), Texts{});
}

}  // namespace
}  // namespace radius
