// SPDX-License-Identifier: Apache-2.0
//
// Change notification of method lists, on a scripted database.

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "aaa/lifecycle.h"
#include "aaa/method_lists.h"
#include "aaa/result_codes.h"
#include "platform/cerr.h"
#include "testkit/fake_platform.hpp"

namespace {

using Texts = std::vector<std::string>;

constexpr uint32_t kStrange = 0x12345600u;
constexpr char kConfig[] = "/cfg/gl/aaa/";
std::string text_of(uint32_t code) {
    return cerr_strerror(code);
}

int32_t on_change(const void *notification, void *callback_arg, void *user_ctx) {
    *static_cast<const void **>(callback_arg) = notification;
    *static_cast<int *>(user_ctx) += 1;
    return 0;
}

class MethodListNotify : public testing::Test {
  protected:
    cerrno watch(uint32_t function, uint32_t service, const char *name) {
        return aaa_mlist_change_register(function, service, name, on_change, &seen_, &count_, &record_);
    }

    const void *seen_ = nullptr;
    int count_ = 0;
    aaa_mlist_reg_t record_ = {77, 78};
};

TEST_F(MethodListNotify, RegistersOnAPrivateConnection) {
    ASSERT_EQ(watch(0, 1, "default"), AAA_OK);
    EXPECT_EQ(fake::sysdb::open_connections(), (Texts{kConfig}));
    EXPECT_EQ(aaa_cfg_sysdb_connid, 0u);
    ASSERT_EQ(fake::sysdb::notifications().size(), 1u);
    const fake::sysdb::Notification n = fake::sysdb::notifications()[0];
    EXPECT_EQ(n.path, "/cfg/gl/aaa/authentication/login/default");
    EXPECT_EQ(n.events, 6u);
    EXPECT_EQ(n.mode, 1u);
    EXPECT_EQ(n.callback, on_change);
    EXPECT_EQ(n.callback_arg, &seen_);
    EXPECT_EQ(n.user_ctx, &count_);
    EXPECT_EQ(record_.notification, n.handle);
    EXPECT_EQ(fake::traces_of(5), (Texts{"Registered for notification\n"}));
    const Texts binds = fake::calls("_sysdb_bind");
    ASSERT_EQ(binds.size(), 1u);
    EXPECT_NE(binds[0].find("\"/cfg/gl/aaa/\", 0"), std::string::npos);

    const char event[] = "event";
    fake::sysdb::notify(n.handle, event);
    EXPECT_EQ(seen_, event);
    EXPECT_EQ(count_, 1);

    EXPECT_EQ(aaa_mlist_change_unregister(&record_), AAA_OK);
    EXPECT_TRUE(fake::sysdb::notifications().empty());
    EXPECT_TRUE(fake::sysdb::open_connections().empty());
    EXPECT_NE(record_.connection, 0u) << "the record's fields are not cleared";
}

TEST_F(MethodListNotify, PathFollowsFunctionAndService) {
    struct Case {
        uint32_t function, service;
        const char *path;
    };
    const Case cases[] = {{0, 11, "authentication/ppp/x"},
                          {1, 14, "authorization/commands/x"},
                          {2, 7, "accounting/exec/x"},
                          {1, 6, "authorization/<invalid service>/x"},
                          {3, 7, "authorization_nacm/<invalid function>/x"},
                          {7, 1, "<invalid function>/<invalid function>/x"}};
    for (const Case &c : cases) {
        ASSERT_EQ(watch(c.function, c.service, "x"), AAA_OK);
        EXPECT_EQ(fake::sysdb::notifications().at(0).path, std::string(kConfig) + c.path);
        ASSERT_EQ(aaa_mlist_change_unregister(&record_), AAA_OK);
    }
}

TEST_F(MethodListNotify, PathIsCutAt99Characters) {
    const std::string name(200, 'n');
    ASSERT_EQ(watch(0, 1, name.c_str()), AAA_OK);
    EXPECT_EQ(fake::sysdb::notifications().at(0).path,
              kConfig + ("authentication/login/" + name).substr(0, 99));
    ASSERT_EQ(aaa_mlist_change_unregister(&record_), AAA_OK);
}

TEST_F(MethodListNotify, NullNameAndRecordAreRefused) {
    EXPECT_EQ(watch(0, 1, nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(record_.connection, 77u);
    EXPECT_EQ(aaa_mlist_change_register(0, 1, "x", on_change, nullptr, nullptr, nullptr),
              AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_mlist_change_unregister(nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_TRUE(fake::calls().empty());
}

TEST_F(MethodListNotify, BindFailureIsTracedAndReturned) {
    fake::answer("_sysdb_bind", kStrange);
    EXPECT_EQ(watch(0, 1, "x"), kStrange);
    EXPECT_EQ(fake::traces_of(5), (Texts{"Unable to bind to sysdb at /cfg/gl/aaa/: " + text_of(kStrange)}));
    EXPECT_TRUE(fake::logs().empty());
}

TEST_F(MethodListNotify, AFailedBindLeavesTheRecordToTheDatabaseAndTheCaller) {
    fake::answer("_sysdb_bind", kStrange);
    EXPECT_EQ(watch(0, 1, "x"), kStrange);
    EXPECT_EQ(record_.connection, 77u);
    EXPECT_EQ(record_.notification, 78u);
}

TEST_F(MethodListNotify, TheBindIsGivenTheRecordAsTheCallerLeftIt) {
    aaa_mlist_reg_t seen{};
    fake::before("_sysdb_bind", [&] { seen = record_; });
    ASSERT_EQ(watch(0, 1, "x"), AAA_OK);
    EXPECT_EQ(seen.connection, 77u);
    EXPECT_EQ(seen.notification, 78u);
    EXPECT_EQ(aaa_mlist_change_unregister(&record_), AAA_OK);
}

TEST_F(MethodListNotify, FailedRegistrationKeepsTheConnection) {
    fake::answer("_sysdb_register_notification", kStrange);
    EXPECT_EQ(watch(0, 1, "x"), kStrange);
    EXPECT_EQ(fake::traces_of(5),
              (Texts{"Unable to register for notification on /cfg/gl/aaa/authentication/login/x: " +
                     text_of(kStrange)}));
    EXPECT_EQ(fake::sysdb::open_connections(), (Texts{kConfig}));
    EXPECT_NE(record_.connection, 77u);
    EXPECT_EQ(record_.notification, 78u);
    record_.notification = 0;  // there is none to remove
    EXPECT_EQ(aaa_mlist_change_unregister(&record_), AAA_OK);
    EXPECT_TRUE(fake::sysdb::open_connections().empty());
}

TEST_F(MethodListNotify, CallsOfARegistrationAndItsEnd) {
    ASSERT_EQ(watch(0, 1, "x"), AAA_OK);
    ASSERT_EQ(aaa_mlist_change_unregister(&record_), AAA_OK);
    const std::string conn = kConfig;
    EXPECT_EQ(fake::calls({"_sysdb_bind", "_sysdb_register_notification", "sysdb_notification_unregister",
                           "_sysdb_unbind"}),
              (Texts{"_sysdb_bind(\"" + conn + "\", 0)",
                     "_sysdb_register_notification(" + conn +
                         ", \"authentication/login/x\", 6, 1, ptr, ptr, 0, ptr, 0)",
                     "sysdb_notification_unregister(" + conn + ")", "_sysdb_unbind(" + conn + ")"}));
}

TEST_F(MethodListNotify, EachRegistrationHasAConnectionOfItsOwn) {
    ASSERT_EQ(watch(0, 1, "x"), AAA_OK);
    const aaa_mlist_reg_t first = record_;
    ASSERT_EQ(watch(0, 1, "x"), AAA_OK);
    EXPECT_NE(record_.connection, first.connection);
    EXPECT_EQ(fake::sysdb::open_connections().size(), 2u);
    EXPECT_EQ(aaa_mlist_change_unregister(&record_), AAA_OK);
    record_ = first;
    EXPECT_EQ(aaa_mlist_change_unregister(&record_), AAA_OK);
}

TEST_F(MethodListNotify, FailedRemovalKeepsTheConnection) {
    ASSERT_EQ(watch(0, 1, "x"), AAA_OK);
    fake::clear_journal();
    fake::answer("sysdb_notification_unregister", kStrange, 1);
    EXPECT_EQ(aaa_mlist_change_unregister(&record_), kStrange);
    EXPECT_EQ(fake::traces_of(5),
              (Texts{"Unable to unregister the notification: " + text_of(kStrange) + "\n"}));
    EXPECT_EQ(fake::sysdb::open_connections(), (Texts{kConfig}));
    EXPECT_EQ(aaa_mlist_change_unregister(&record_), AAA_OK);
}

TEST_F(MethodListNotify, FailedUnbindIsTracedAndReturned) {
    ASSERT_EQ(watch(0, 1, "x"), AAA_OK);
    fake::clear_journal();
    fake::answer("_sysdb_unbind", kStrange, 1);
    EXPECT_EQ(aaa_mlist_change_unregister(&record_), kStrange);
    EXPECT_EQ(fake::traces_of(5), (Texts{"Unable to unbind at /cfg/gl/aaa/: " + text_of(kStrange)}));
    EXPECT_EQ(_sysdb_unbind(record_.connection), 0u);
}

TEST_F(MethodListNotify, RecordWithoutConnectionNeedsNoUnbind) {
    fake::answer("sysdb_notification_unregister", 0, 1);
    aaa_mlist_reg_t record = {0, 5};
    EXPECT_EQ(aaa_mlist_change_unregister(&record), AAA_OK);
    EXPECT_EQ(fake::count("_sysdb_unbind"), 0u);
}

// ---- event records ---------------------------------------------------------------------

TEST(EventRecord, LongFormIsConvertedWhole) {
    unsigned char bytes[32];
    for (unsigned i = 0; i < sizeof bytes; i++) {
        bytes[i] = static_cast<unsigned char>(i);
    }
    aaa_event_record_t record;
    std::memcpy(&record, bytes, sizeof record);
    aaa_event_record_t *address = &record;
    EXPECT_EQ(aaa_tform_event(&address), &record);
    EXPECT_EQ(record.word0, 0x00010203u);
    EXPECT_EQ(record.word8, 0x08090a0bu);
    EXPECT_EQ(record.word12, 0x0c0d0e0fu);
    EXPECT_EQ(record.word24, 0x1819u);
    EXPECT_EQ(record.word28, 0x1c1du);
    EXPECT_EQ(std::memcmp(record.keep4, bytes + 4, 4), 0);
    EXPECT_EQ(std::memcmp(record.keep16, bytes + 16, 8), 0);
}

TEST(EventRecord, ShortFormEndsAfterSixteenBytes) {
    // A heap block of exactly 16 bytes, so that a sanitizer sees an access after it.
    auto *bytes = static_cast<unsigned char *>(malloc(16));
    const unsigned char wire[16] = {0, 0, 0, 1, 9, 9, 9, 9, 0, 0, 0, 5, 0xaa, 0xbb, 0xcc, 2};
    std::memcpy(bytes, wire, sizeof wire);
    auto *record = reinterpret_cast<aaa_event_record_t *>(bytes);
    EXPECT_EQ(aaa_tform_event(&record), record);
    uint32_t word[4];
    std::memcpy(word, bytes, sizeof word);
    EXPECT_EQ(word[0], 1u);
    EXPECT_EQ(word[1], 0x09090909u);
    EXPECT_EQ(word[2], 5u);
    EXPECT_EQ(word[3], 0xaabbcc02u);
    free(bytes);
}

TEST(EventRecord, NullGivesNull) {
    aaa_event_record_t *none = nullptr;
    EXPECT_EQ(aaa_tform_event(&none), nullptr);
    EXPECT_EQ(aaa_tform_event(nullptr), nullptr);
}

}  // namespace
