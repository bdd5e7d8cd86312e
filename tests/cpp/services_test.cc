// SPDX-License-Identifier: Apache-2.0
//
// The rest of the C++ interface: results, names, the dictionary, credentials, well-known
// attributes, server groups, keys and method lists.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>

#include "aaa/aaautil.hpp"
#include "testkit/fake_platform.hpp"

namespace {

using namespace std::string_view_literals;
using aaa::errc;

// ---- results ------------------------------------------------------------------------

TEST(CppResult, IsAnErrorCode) {
    const aaa::result<int> none = errc::avpair_not_found;
    EXPECT_FALSE(none);
    EXPECT_EQ(none.error(), errc::avpair_not_found);
    EXPECT_EQ(none.error().category().name(), "aaa"sv);
    EXPECT_EQ(none.code(), AAA_ERR_AVPAIR_NOT_FOUND);
    EXPECT_EQ(none.value_or(7), 7);
    const std::error_code no_memory = errc::no_memory;
    EXPECT_EQ(no_memory, std::errc::not_enough_memory);
    EXPECT_EQ(aaa::result<void>(aaa::failure(ENOENT)).error(), std::errc::no_such_file_or_directory);
    EXPECT_FALSE(aaa::result<int>(3).error());
    EXPECT_NE(make_error_code(errc::spent_list).message().find("packed"), std::string::npos);
    EXPECT_THROW((void)none.value(), std::system_error);
    EXPECT_THROW(aaa::result<void>(errc::timeout).value(), std::system_error);
}

TEST(CppResult, EveryCodeOfTheTableHasAnEnumerator) {
    // check_functions compares the names; here, that a code keeps its number and text.
    EXPECT_EQ(make_error_code(errc::end_of_list).value(), static_cast<int>(AAA_ERR_END_OF_LIST));
    EXPECT_EQ(make_error_code(errc::bad_encrypted_key).value(), static_cast<int>(AAA_ERR_BAD_ENCRYPTED_KEY));
}

TEST(CppResult, MakesNoValueOutOfNothing) {
    // A success that was taken for a failure has no value for * to return.
    const aaa::result<std::string> none = aaa::failure(AAA_OK);
    EXPECT_FALSE(none.has_value());
    EXPECT_EQ(none.error(), errc::internal);
    EXPECT_EQ(none.value_or("other"), "other");
    EXPECT_THROW((void)none.value(), std::system_error);
    EXPECT_EQ(aaa::result<void>(aaa::failure(AAA_OK)).error(), errc::internal);
    EXPECT_FALSE(aaa::result<int>(static_cast<errc>(0)));
}

TEST(CppResult, GoesOn) {
    const auto half = [](int n) { return n % 2 == 0 ? aaa::result<int>(n / 2) : errc::invalid_argument; };
    EXPECT_EQ(*aaa::result<int>(8).and_then(half).and_then(half), 2);
    EXPECT_EQ(aaa::result<int>(6).and_then(half).and_then(half).error(), errc::invalid_argument);
    EXPECT_EQ(*aaa::result<int>(8).transform([](int n) { return std::to_string(n); }), "8");
    EXPECT_TRUE(aaa::result<void>().and_then([] { return aaa::result<int>(1); }));
}

// ---- names ---------------------------------------------------------------------------

TEST(CppNames, NameEveryEnumeration) {
    EXPECT_EQ(name_of(aaa::verdict::pass), "PASS");
    EXPECT_EQ(name_of(aaa::function_kind::accounting), "accounting");
    EXPECT_EQ(name_of(aaa::service_kind::login), aaa_print_service(AAA_SVC_LOGIN));
    EXPECT_EQ(name_of(aaa::message_kind::enable), aaa_print_msgtype(AAA_MT_ENABLE));
    EXPECT_EQ(name_of(aaa::authen_option::ib_chap_v1), aaa_util_print_authen_option(AAA_AO_IB_CHAP_V1));
    EXPECT_EQ(name_of(aaa::acct_option::stop), aaa_print_acct_options(AAA_ACCT_STOP_OPT));
    EXPECT_EQ(name_of(aaa::request_type::ping), aaa_util_msg_type_desc(AAA_REQ_PING));
    EXPECT_EQ(name_of(aaa::method_id::local), aaa_util_print_method(AAA_METHOD_LOCAL));
    EXPECT_EQ(symbol_of(aaa::method_id::local), "AAA_METHOD_LOCAL");
    EXPECT_EQ(name_of(aaa::keyword::diameter), "diameter");
    EXPECT_EQ(name_of(static_cast<aaa::keyword>(99)), "<unknown keyword>");
    EXPECT_EQ(name_of(static_cast<aaa::verdict>(4711)), "<unknown STATUS value>");
    EXPECT_EQ(aaa::service_word(aaa::function_kind::authentication, aaa::service_kind::login), "login");
    EXPECT_FALSE(aaa::method_name(aaa::method_id::acctd));
    EXPECT_TRUE(aaa::method_name(aaa::method_id::local));
}

// Programs give data() to printf(): that is a text for any number.
TEST(CppNames, HaveATextForEveryNumber) {
    for (const std::uint32_t number :
         {0u, 1u, 18u, 99u, 1000u, 4711u, 0x7fffffffu, 0x80000000u, 0xffffffffu}) {
        const std::string_view names[] = {name_of(static_cast<aaa::function_kind>(number)),
                                          name_of(static_cast<aaa::verdict>(number)),
                                          name_of(static_cast<aaa::message_kind>(number)),
                                          name_of(static_cast<aaa::authen_option>(number)),
                                          name_of(static_cast<aaa::acct_option>(number)),
                                          name_of(static_cast<aaa::service_kind>(number)),
                                          name_of(static_cast<aaa::method_id>(number)),
                                          name_of(static_cast<aaa::request_type>(number)),
                                          name_of(static_cast<aaa::keyword>(number)),
                                          symbol_of(static_cast<aaa::method_id>(number)),
                                          aaa::service_word(static_cast<aaa::function_kind>(number),
                                                            static_cast<aaa::service_kind>(number))};
        for (const std::string_view name : names) {
            EXPECT_NE(name, "") << number << ", name " << &name - names;
        }
        EXPECT_NE(aaa::attribute_name(number).data(), nullptr);
    }
    EXPECT_STREQ(aaa::c_string().view().data(), "");
    EXPECT_STREQ(aaa::list().name().data(), "");
    aaa::list list = aaa::list::create().value();
    EXPECT_TRUE(list.add(4711, "x"));
    EXPECT_EQ(list.begin()->name(), "<unknown attribute>");
}

TEST(CppDictionary, AgreesWithTheTable) {
    EXPECT_EQ(aaa::attribute_name(AAA_USERNAME_ATTR), "AAA_USERNAME_ATTR");
    EXPECT_EQ(aaa::attribute_name(0), "");
    EXPECT_EQ(aaa::attribute_name(AAA_ATTR_MAX), "");
    EXPECT_EQ(aaa::attribute_name(0xffffffffu), "");
    EXPECT_EQ(aaa::attribute_format(AAA_IPADDR_ATTR), aaa::format::address);
    EXPECT_EQ(aaa::attribute_format(809), std::nullopt);
    EXPECT_EQ(aaa::find_attribute("AAA_PRIV_LVL_ATTR"), AAA_PRIV_LVL_ATTR);
    EXPECT_EQ(aaa::find_attribute("AAA_NO_SUCH_ATTR"), std::nullopt);
    for (std::uint32_t type = 0; type < AAA_TABLE_ROWS; ++type) {
        EXPECT_EQ(aaa::detail::formats[type], aaa_table[type].format) << type;
    }
    EXPECT_EQ(text_of(aaa::ipv4{0xC0A80101}).view(), "192.168.1.1");
    aaa_ip_addr_t address{};
    address.family = 2;
    const unsigned char bytes[] = {192, 0, 2, 7};
    std::memcpy(address.addr.bytes, bytes, sizeof bytes);
    EXPECT_EQ(aaa::text_of(address).view(), "192.0.2.7");
}

// ---- well-known attributes ----------------------------------------------------------------

TEST(CppAccessors, StoreAsReadersExpect) {
    aaa::list list = aaa::list::create().value();
    EXPECT_TRUE(aaa::add_username(list, "alice"));
    EXPECT_TRUE(aaa::set_password(list, "wonderland"));
    EXPECT_TRUE(aaa::set_status(list, aaa::verdict::get_data));
    EXPECT_TRUE(aaa::set_prompt(list, "Code: ", 1));
    EXPECT_TRUE(aaa::set_error_message(list, "try again"));
    EXPECT_TRUE(aaa::add_command(list, "show"));
    EXPECT_TRUE(aaa::add_directed_address(list, {0xC0000201}));
    EXPECT_TRUE(aaa::set_sequence_number(list, 3));
    EXPECT_TRUE(aaa::set_privilege(list, 15));
    EXPECT_TRUE(aaa::set_authentication_method(list, aaa::method_id::local));
    EXPECT_TRUE(aaa::set_authentication_option(list, aaa::authen_option::ascii_login));
    EXPECT_TRUE(aaa::set_message_kind(list, aaa::message_kind::ascii_login));
    EXPECT_EQ(list.find(AAA_PASSWORD_ATTR)->flags() & AAA_AVF_UPDATED, AAA_AVF_UPDATED);
    EXPECT_STREQ(aaa_util_avlist_username_get(list.native()), "alice");
    EXPECT_EQ(aaa_util_avlist_status_get(list.native()), AAA_STAT_GETDATA);
    EXPECT_EQ(*list.get<AAA_AUTHEN_METHOD_ATTR>(), aaa::method_id::local);
    std::uint32_t first = 0;
    const aaa_ip_addr_t directed = aaa::directed_address(list);
    std::memcpy(&first, &directed, sizeof first);
    EXPECT_EQ(first, 0xC0000201u);
    EXPECT_EQ(aaa::add_username(list, std::string(254, 'u')).error(), errc::invalid_argument);
    const auto prompt = aaa::take_prompt(list);
    EXPECT_EQ(prompt->text.view(), "Code: ");
    EXPECT_EQ(prompt->flags, 1u);
    EXPECT_EQ(aaa::take_prompt(list).error(), errc::avpair_not_found);
    EXPECT_EQ(aaa::take_error_message(list)->view(), "try again");
    EXPECT_EQ(aaa::take_error_message(list).error(), errc::avpair_not_found);
    EXPECT_TRUE(list.is_sane());
}

TEST(CppAccessors, KeepChapData) {
    const std::array<std::byte, 16> challenge{std::byte{1}};
    const std::array<std::byte, 49> response{std::byte{2}};
    for (const auto &[form, length] :
         {std::pair(aaa::chap_form::inbound, 16), std::pair(aaa::chap_form::inbound_ms, 49),
          std::pair(aaa::chap_form::outbound, 0), std::pair(aaa::chap_form::outbound_ms, 0)}) {
        aaa::list list = aaa::list::create().value();
        const auto part = std::span(response).first(static_cast<std::size_t>(length));
        EXPECT_FALSE(aaa::get_chap_data(list, form));
        EXPECT_TRUE(aaa::add_chap_data(list, form, {.id = 5, .data = challenge, .response = part}));
        const auto read = aaa::get_chap_data(list, form);
        EXPECT_EQ(read->id, 5);
        EXPECT_TRUE(std::ranges::equal(read->data, challenge));
        EXPECT_TRUE(std::ranges::equal(read->response, part));
    }
    aaa::list list = aaa::list::create().value();
    EXPECT_TRUE(aaa::set_chap_response(list, std::span(response).first(3)));
    EXPECT_EQ(list.get<AAA_CHAP_RESPONSE_ATTR>()->size(), 3u);
    EXPECT_FALSE(aaa::set_chap_response(list, std::vector<std::byte>(65536)));
}

TEST(CppAccessors, KeepRsaParameters) {
    aaa::list list = aaa::list::create().value();
    auto params = std::make_unique<aaa::rsa_params>();
    std::uint8_t bytes[4] = {1, 2, 3, 4};
    params->signature = params->indata = params->session_id = bytes;
    params->signature_len = params->indata_len = params->session_id_len = 4;
    params->pubkey_type = 3;
    EXPECT_TRUE(aaa::add_rsa_params(list, *params));
    EXPECT_EQ((*aaa::get_rsa_params(list))->pubkey_type, 3u);
}

TEST(CppCredentials, GoIntoLists) {
    aaa::credentials user = aaa::credentials::create("alice", "wonderland").value();
    EXPECT_TRUE(user.set_terminal("/dev/vty0"));
    EXPECT_TRUE(user.set_remote_address("192.0.2.10"));
    EXPECT_TRUE(user.set_terminal_mnemonic("vty0"));
    EXPECT_TRUE(user.set_interface(7));
    EXPECT_TRUE(user.set_address({0xC0000207}));
    EXPECT_TRUE(user.set_authentication_method(aaa::method_id::radius));
    EXPECT_TRUE(user.set_unique_id(12));
    EXPECT_TRUE(user.set_user_db_flag(1));
    aaa::list state = aaa::list::create().value();
    EXPECT_TRUE(state.add<AAA_CONTEXT_ATTR>(std::as_bytes(std::span("state"))));
    EXPECT_TRUE(user.set_state(state.clone().value()));
    EXPECT_TRUE(user.set_plexa_attributes(state.clone().value()));
    const std::array<std::byte, 16> response{};
    EXPECT_TRUE(user.set_chap_data({.id = 1, .data = response, .response = response}));
    EXPECT_TRUE(user.set_chap_data({.id = 2, .data = response, .response = response}));
    aaa::list list = aaa::list::create().value();
    EXPECT_TRUE(user.add_to(list, aaa::service_kind::ppp, aaa::authen_option::ib_chap_v1));
    EXPECT_EQ(*list.get<AAA_USERNAME_ATTR>(), "alice");
    EXPECT_EQ(*list.get<AAA_IFH_ATTR>(), 7u);
    EXPECT_EQ(list.get<AAA_IPADDR_ATTR>()->number, 0xC0000207u);
    EXPECT_EQ(aaa::get_chap_data(list, aaa::chap_form::inbound)->id, 2);
    EXPECT_TRUE(list.contains(AAA_CONTEXT_ATTR));
    aaa::list record = aaa::list::create().value();
    EXPECT_TRUE(user.add_to(record, aaa::service_kind::exec, aaa::acct_option::start));
    EXPECT_FALSE(record.contains(AAA_PASSWORD_ATTR));
    EXPECT_TRUE(user.add_terminal_to(record));
    EXPECT_TRUE(aaa::add_service_attributes(record, aaa::service_kind::cmd, {.command = "show"}));
    (void)state.pack();
    EXPECT_EQ(user.set_state(std::move(state)).error(), errc::spent_list);
    EXPECT_EQ(user.set_username(std::string(254, 'u')).error(), errc::invalid_argument);
    EXPECT_EQ(user.set_username("a\0b"sv).error(), errc::text_with_nul);
    EXPECT_EQ(user.username(), "alice");
    EXPECT_EQ(user.terminal(), "/dev/vty0");
    EXPECT_EQ(user.terminal_mnemonic(), "vty0");
    EXPECT_EQ(user.remote_address(), "192.0.2.10");
    EXPECT_EQ(user.password(), "wonderland");
}

// ---- the system database --------------------------------------------------------------------

TEST(CppServerGroups, AreFoundAndChanged) {
    fake::sysdb::put_u32("/oper/aaa/gl/group-server/sg_name_map/radius/CORP", 1001);
    fake::sysdb::put_string("/oper/aaa/gl/group-server/sg_num_map/radius/0x3e9", "CORP");
    const auto group = aaa::find_server_group("CORP");
    EXPECT_EQ(group->number, 1001u);
    EXPECT_EQ(group->protocol, aaa::keyword::radius);
    EXPECT_EQ(aaa::method_name(group->method()).view(), "CORP");
    EXPECT_EQ(aaa::server_group_name(1001).view(), "CORP");
    EXPECT_FALSE(aaa::server_group_name(1002));
    EXPECT_FALSE(aaa::find_server_group("NONE"));
    EXPECT_EQ(aaa::find_server_group("a\0b"sv).error(), errc::text_with_nul);
    const auto taken = aaa::verify_server_group({}, "CORP", aaa::keyword::tacacs);
    EXPECT_TRUE(taken->rejected());
    EXPECT_EQ(taken->code, AAA_ERR_SG_NAME_OTHER_PROTOCOL);
    const auto fine = aaa::verify_server_group({}, "BRANCH", aaa::keyword::radius);
    EXPECT_FALSE(fine->rejected());
    EXPECT_EQ(fine->verdict, AAA_VERDICT_ACCEPTED);
    EXPECT_EQ(
        aaa::next_server_index({.host = "192.0.2.1", .port1 = 1812, .port2 = 1813}).code(),
        aaa::next_server_index({.protocol = aaa::keyword::tacacs, .host = "192.0.2.1", .port1 = 49}).code());
    EXPECT_EQ(aaa::next_server_index({}).error(), errc::invalid_argument);
    std::uint64_t connection = 0;
    ASSERT_EQ(_sysdb_bind(&connection, "/oper/aaa/gl/group-server/", SYSDB_BIND_PRIVATE), AAA_OK);
    EXPECT_EQ(*aaa::apply_server_group(connection, {}, aaa::keyword::radius, "BRANCH"), 1002u);
    EXPECT_EQ(aaa::find_server_group("BRANCH")->number, 1002u);
    _sysdb_unbind(connection);
}

TEST(CppServerKeys, AreTrimmed) {
    EXPECT_EQ(aaa::trimmed_key("secret \t", false).view(), "secret");
    EXPECT_FALSE(aaa::trimmed_key("  ", false));
    EXPECT_EQ(aaa::check_encrypted_key("zz").error(), errc::bad_encrypted_key);
}

TEST(CppMethodLists, AreFound) {
    EXPECT_EQ(aaa::get_methods("authentication/ppp/default")->size(), 1u);  // supplied where it is missing
    const aaa::methods ppp = aaa::get_methods("authentication/ppp/default").value();
    EXPECT_EQ(*ppp.begin(), aaa::method_id::local);
    EXPECT_TRUE(aaa::get_methods("authentication/login/default")->empty());
    EXPECT_EQ(aaa::get_methods("accounting/commands/x").error(), errc::invalid_method);
    EXPECT_FALSE(aaa::find_method_list(aaa::function_kind::authentication, "login", "vty"));
    EXPECT_FALSE(
        aaa::verify_method_list(aaa::function_kind::authentication, aaa::service_kind::login, "vty"));
    EXPECT_TRUE(aaa::is_method_list_name("vty"));
    EXPECT_FALSE(aaa::is_method_list_name("v\ty"));
    EXPECT_FALSE(aaa::is_method_list_name("v\0y"sv));
}

TEST(CppMethodLists, TellOfChangesUntilTheWatchEnds) {
    int changes = 0;
    auto on_change = [&] { ++changes; };
    {
        auto watch = aaa::method_list_watch::start(aaa::function_kind::authentication,
                                                   aaa::service_kind::login, "vty", on_change);
        ASSERT_TRUE(watch) << watch.error();
        const aaa::method_list_watch moved = *std::move(watch);
        ASSERT_EQ(fake::sysdb::notifications().size(), 1u);
        const fake::sysdb::Notification n = fake::sysdb::notifications()[0];
        EXPECT_EQ(n.path, "/cfg/gl/aaa/authentication/login/vty");
        fake::sysdb::notify(n.handle, "event");
        EXPECT_EQ(changes, 1);
    }
    EXPECT_TRUE(fake::sysdb::notifications().empty());
    aaa::method_list_watch none;
    EXPECT_TRUE(none.stop());
}

TEST(CppLines, AreNamed) {
    EXPECT_EQ(aaa::line_name("/dev/vty1").view(), "dev-vty1");
    EXPECT_EQ(aaa::line_name("").view(), "");
    EXPECT_EQ(aaa::read_input("Name: ", {.most = 0}).error(), errc::invalid_argument);
}

}  // namespace
