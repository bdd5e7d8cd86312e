// SPDX-License-Identifier: Apache-2.0
//
// Copies of credentials and requests: what is duplicated, shared and left
// out, the owners, and that secrets do not stay in freed memory.

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "aaa/credentials.h"
#include "aaa/result_codes.h"
#include "support/avlist_verifier.hpp"
#include "support/fail_alloc.hpp"
#include "support/full_credentials.hpp"
#include "testkit/fake_platform.hpp"

namespace {

// The bytes that the library overwrote, as they were before.
std::vector<std::string> &wiped() {
    static auto &instance = *new std::vector<std::string>;
    return instance;
}

}  // namespace

// The library calls this by name, so the program's own is what it gets.
extern "C" void explicit_bzero(void *memory, size_t size) noexcept {
    const fake::FailAlloc::Pause pause;
    wiped().emplace_back(static_cast<const char *>(memory), size);
    volatile char *bytes = static_cast<char *>(memory);
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = 0;
    }
}
// And this where it is built with checked string functions.
extern "C" void __explicit_bzero_chk(void *memory, size_t size, size_t) noexcept;
void __explicit_bzero_chk(void *memory, size_t size, size_t) noexcept {
    explicit_bzero(memory, size);
}

namespace {

using messages::bytes;
using messages::List;
using messages::make_list;
using messages::Pair;
using messages::Pairs;
using messages::pairs_of;
using messages::u32;

constexpr int32_t kPpp = 11;
constexpr int32_t kExec = 7;

// Types that carry CHAP data, and how.
enum class Chap { none, inbound, outbound };
Chap chap_of(uint32_t type) {
    return type == 5 || type == 9 ? Chap::inbound : type == 7 || type == 10 ? Chap::outbound : Chap::none;
}

class Source : public messages::FullCredentials {
  public:
    Source()
        : FullCredentials(make_list("state", {u32(280, 1)}), make_list("supplied", {u32(275, 1)}),
                          make_list("further", {Pair{278, 0x7, 2, "route"}, u32(10, 15)})) {
        chap.response_len = 4;
        get()->task_table = &task_table;
        get()->line_category = 3;
        std::memset(get()->line_detail, 'd', sizeof get()->line_detail);
        std::memset(get()->line_detail2, 'e', sizeof get()->line_detail2);
    }

    int task_table = 0;
};

// A copy, freed as it was made.
class Copy {
  public:
    Copy(const aaa_usercred_t *source, int32_t service, uint32_t suppress, uint32_t type)
        : service_(service), type_(type) {
        code_ = aaa_util_copy_usercred(source, &record_, service, suppress, type);
    }
    ~Copy() { free(); }
    Copy(const Copy &) = delete;
    Copy &operator=(const Copy &) = delete;
    void free() {
        if (record_ != nullptr) {
            EXPECT_EQ(aaa_util_free_usercred(record_, service_, type_), AAA_OK);
            record_ = nullptr;
        }
    }
    cerrno code() const { return code_; }
    aaa_usercred_t *get() { return record_; }
    aaa_usercred_t *operator->() { return record_; }

  private:
    aaa_usercred_t *record_ = nullptr;
    int32_t service_;
    uint32_t type_;
    cerrno code_;
};

class CopyUsercred : public testing::Test {
  protected:
    void SetUp() override { wiped().clear(); }
};
using FreeUsercred = CopyUsercred;
using CopyAuthenReq = CopyUsercred;
using CopyAuthorReq = CopyUsercred;

// ---- Copying ---------------------------------------------------------------

TEST_F(CopyUsercred, DuplicatesTextsAndAttributes) {
    Source source;
    Copy copy(source.get(), kExec, 0, 0);
    ASSERT_EQ(copy.code(), AAA_OK);
    struct {
        const char *copied, *original;
    } const texts[] = {{copy->username, source.username},
                       {copy->password, source.password},
                       {copy->text3, source.text3},
                       {copy->ttyname, source.ttyname},
                       {copy->remote_addr, source.remote}};
    for (const auto &text : texts) {
        EXPECT_NE(text.copied, text.original);
        EXPECT_STREQ(text.copied, text.original);
    }
    ASSERT_NE(copy->attr_list, nullptr);
    EXPECT_NE(copy->attr_list, source.further.get());
    EXPECT_EQ(aaa_avpair_compare_lists(copy->attr_list, source.further.get()), 1);
    EXPECT_STREQ(copy->attr_list->av_name, "further");
    EXPECT_STREQ(aaatest::verify_list(copy->attr_list).fault, "");
}

TEST_F(CopyUsercred, SharesOrResetsEverythingElse) {
    Source source;
    Copy copy(source.get(), kExec, 0, 0);
    ASSERT_EQ(copy.code(), AAA_OK);
    aaa_usercred_t expected = *source.get();
    expected.username = copy->username;
    expected.password = copy->password;
    expected.text3 = copy->text3;
    expected.ttyname = copy->ttyname;
    expected.remote_addr = copy->remote_addr;
    expected.attr_list = copy->attr_list;
    expected.chap_data = nullptr;
    expected.state_args = nullptr;
    expected.is_copy = 1;
    EXPECT_EQ(std::memcmp(copy.get(), &expected, sizeof expected), 0);
    EXPECT_EQ(copy->task_table, &source.task_table);
    EXPECT_EQ(copy->in_attr_list, source.supplied.get());
    EXPECT_EQ(copy->tty_mnemonic, source.mnemonic);
}

TEST_F(CopyUsercred, TakesARecordWithoutAnything) {
    const aaa_usercred_t empty{};
    Copy copy(&empty, kPpp, 0, 5);
    ASSERT_EQ(copy.code(), AAA_OK);
    aaa_usercred_t expected{};
    expected.is_copy = 1;
    EXPECT_EQ(std::memcmp(copy.get(), &expected, sizeof expected), 0);
}

TEST_F(CopyUsercred, TakesACopyAndAnEmptyList) {
    Source source;
    source.further = make_list("none");
    source->attr_list = source.further.get();
    Copy copy(source.get(), kExec, 0, 0);
    ASSERT_EQ(copy.code(), AAA_OK);
    ASSERT_NE(copy->attr_list, nullptr);
    EXPECT_TRUE(pairs_of(copy->attr_list).empty());
    Copy again(copy.get(), kExec, 0, 0);
    ASSERT_EQ(again.code(), AAA_OK);
    EXPECT_EQ(again->is_copy, 1u);
    EXPECT_STREQ(again->username, "alice");
}

TEST_F(CopyUsercred, RefusesNullArguments) {
    Source source;
    aaa_usercred_t *const untouched = source.get();
    aaa_usercred_t *out = untouched;
    EXPECT_EQ(aaa_util_copy_usercred(nullptr, &out, kPpp, 0, 5), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(out, untouched);
    EXPECT_EQ(aaa_util_copy_usercred(source.get(), nullptr, kPpp, 0, 5), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_util_copy_usercred(nullptr, nullptr, kPpp, 0, 5), AAA_ERR_INVALID_ARG);
}

TEST_F(CopyUsercred, WritesNoTrace) {
    for (uint32_t flag = 0; flag < 16; ++flag) {
        fake::enable_tracing(flag, flag != 8);
    }
    Source source;
    Copy copy(source.get(), kPpp, 0, 5);
    copy.free();
    EXPECT_TRUE(fake::traces().empty());
}

// ---- CHAP data -------------------------------------------------------------

TEST_F(CopyUsercred, CopiesChapDataByType) {
    for (uint32_t type = 0; type <= 16; ++type) {
        SCOPED_TRACE(type);
        Source source;
        Copy copy(source.get(), kPpp, 0, type);
        ASSERT_EQ(copy.code(), AAA_OK);
        ASSERT_NE(copy->chap_data, nullptr);
        const aaa_chap_data_t &chap = *copy->chap_data;
        if (chap_of(type) == Chap::none) {
            const aaa_chap_data_t zero{};
            EXPECT_EQ(std::memcmp(&chap, &zero, sizeof zero), 0);
            continue;
        }
        EXPECT_EQ(chap.id, 0x5A);
        ASSERT_EQ(chap.data_len, 3u);
        EXPECT_NE(chap.data, source.data);
        EXPECT_EQ(std::memcmp(chap.data, "dat", 3), 0);
        if (chap_of(type) == Chap::inbound) {
            ASSERT_EQ(chap.response_len, 4u);
            EXPECT_NE(chap.response, source.response);
            EXPECT_EQ(std::memcmp(chap.response, "resp", 4), 0);
        } else {
            EXPECT_EQ(chap.response, nullptr);
            EXPECT_EQ(chap.response_len, 0u);
        }
    }
}

TEST_F(CopyUsercred, CopiesEmptyChapParts) {
    for (const uint32_t type : {5u, 7u, 9u, 10u}) {
        SCOPED_TRACE(type);
        Source source;
        source.chap = {0x5A, source.data, 0, source.response, 0};
        Copy copy(source.get(), kPpp, 0, type);
        ASSERT_EQ(copy.code(), AAA_OK);
        ASSERT_NE(copy->chap_data, nullptr);
        EXPECT_EQ(copy->chap_data->id, 0x5A);
        EXPECT_EQ(copy->chap_data->data, nullptr);
        EXPECT_EQ(copy->chap_data->data_len, 0u);
        EXPECT_EQ(copy->chap_data->response, nullptr);
        EXPECT_EQ(copy->chap_data->response_len, 0u);
    }
}

TEST_F(CopyUsercred, CopiesChapDataForPppOnly) {
    for (int32_t service = -1; service <= 33; ++service) {
        if (service == kPpp) {
            continue;
        }
        for (const uint32_t type : {5u, 6u, 7u, 9u, 10u}) {
            Source source;
            Copy copy(source.get(), service, 0, type);
            ASSERT_EQ(copy.code(), AAA_OK);
            EXPECT_EQ(copy->chap_data, nullptr) << service << ' ' << type;
        }
    }
}

TEST_F(CopyUsercred, LeavesSuppressedOrMissingChapDataOut) {
    for (const uint32_t suppress : {1u, 2u, 0x80000000u}) {
        Source source;
        Copy copy(source.get(), kPpp, suppress, 5);
        ASSERT_EQ(copy.code(), AAA_OK);
        EXPECT_EQ(copy->chap_data, nullptr);
    }
    Source source;
    source->chap_data = nullptr;
    Copy copy(source.get(), kPpp, 0, 5);
    ASSERT_EQ(copy.code(), AAA_OK);
    EXPECT_EQ(copy->chap_data, nullptr);
}

TEST_F(CopyUsercred, RefusesChapLengthsWithoutBytes) {
    for (const uint32_t type : {5u, 7u, 9u, 10u}) {
        SCOPED_TRACE(type);
        Source source;
        source.chap.data = nullptr;
        Copy copy(source.get(), kPpp, 0, type);
        EXPECT_EQ(copy.code(), AAA_ERR_INVALID_ARG);
        ASSERT_NE(copy.get(), nullptr);
        EXPECT_STREQ(copy->username, "alice");
    }
    Source source;
    source.chap.response = nullptr;
    Copy copy(source.get(), kPpp, 0, 5);
    EXPECT_EQ(copy.code(), AAA_ERR_INVALID_ARG);
    ASSERT_NE(copy->chap_data, nullptr);
    EXPECT_EQ(copy->chap_data->data_len, 3u);
    EXPECT_EQ(copy->chap_data->response_len, 0u);
}

// ---- Exhausted memory ------------------------------------------------------

// A failed copy is in the output, its fields are true, and it is freed like a
// whole one. The texts come in the order of the record.
TEST_F(CopyUsercred, LeavesWhatItHasInTheOutputWhenMemoryIsExhausted) {
    for (const uint32_t type : {0u, 5u, 7u, 9u, 10u}) {
        SCOPED_TRACE(type);
        std::vector<int> filled;
        fake::sweep_allocations([&](fake::FailAlloc &fail) {
            Source source;
            aaa_usercred_t *copy = nullptr;
            const cerrno code =
                fail.run([&] { return aaa_util_copy_usercred(source.get(), &copy, kPpp, 0, type); });
            EXPECT_EQ(code, fail.fired() ? AAA_ERR_NOMEM : AAA_OK);
            if (copy == nullptr) {
                EXPECT_TRUE(filled.empty()) << "only the record itself leaves the output alone";
                filled.push_back(-1);
                return;
            }
            EXPECT_EQ(copy->is_copy, 1u);
            EXPECT_EQ(copy->state_args, nullptr);
            const void *const fields[] = {copy->username,    copy->password,  copy->text3,    copy->ttyname,
                                          copy->remote_addr, copy->attr_list, copy->chap_data};
            int count = 0;
            for (const void *field : fields) {
                if (field == nullptr) {
                    break;
                }
                ++count;
            }
            for (std::size_t i = static_cast<std::size_t>(count); i < std::size(fields); ++i) {
                EXPECT_EQ(fields[i], nullptr);
            }
            EXPECT_GE(count, filled.empty() ? 0 : filled.back());
            filled.push_back(count);
            EXPECT_EQ(aaa_util_free_usercred(copy, kPpp, type), AAA_OK);
        });
        if (fake::FailAlloc::available()) {
            ASSERT_GE(filled.size(), 9u);
            EXPECT_EQ(std::vector<int>(filled.begin(), filled.begin() + 6),
                      (std::vector<int>{-1, 0, 1, 2, 3, 4}));
            EXPECT_EQ(filled.back(), 7);
        }
    }
}

// ---- Freeing ---------------------------------------------------------------

TEST_F(FreeUsercred, RefusesANullRecord) {
    EXPECT_EQ(aaa_util_free_usercred(nullptr, kPpp, 5), AAA_ERR_INVALID_ARG);
}

// The table belongs to the source: freeing source and copies destroys it once.
TEST_F(FreeUsercred, DestroysTheTaskTableWithItsSourceOnly) {
    int table = 0;
    auto *source = static_cast<aaa_usercred_t *>(std::calloc(1, sizeof(aaa_usercred_t)));
    source->task_table = &table;
    {
        Copy copy(source, kExec, 0, 0);
        ASSERT_EQ(copy.code(), AAA_OK);
        Copy again(copy.get(), kExec, 0, 0);
        ASSERT_EQ(again.code(), AAA_OK);
    }
    EXPECT_TRUE(fake::destroyed_task_tables().empty());
    EXPECT_EQ(aaa_util_free_usercred(source, kExec, 0), AAA_OK);
    EXPECT_EQ(fake::destroyed_task_tables(), std::vector<void *>{&table});
}

TEST_F(FreeUsercred, DestroysNoTableWhereThereIsNone) {
    auto *record = static_cast<aaa_usercred_t *>(std::calloc(1, sizeof(aaa_usercred_t)));
    EXPECT_EQ(aaa_util_free_usercred(record, kExec, 0), AAA_OK);
    EXPECT_EQ(fake::count("aaa_destroy_task_table"), 0u);
}

uint8_t *heap_bytes(const char *text) {
    return reinterpret_cast<uint8_t *>(strdup(text));
}

// A record of the caller's own, all on the heap. The test frees what the function
// must not free; the leak check finds the rest.
TEST_F(FreeUsercred, FreesWhatARecordOwnsByServiceAndType) {
    for (const int32_t service : {kExec, kPpp}) {
        for (uint32_t type = 0; type <= 12; ++type) {
            SCOPED_TRACE(testing::Message() << "service " << service << ", type " << type);
            auto *record = static_cast<aaa_usercred_t *>(std::calloc(1, sizeof(aaa_usercred_t)));
            for (char **text : {&record->username, &record->password, &record->text3, &record->ttyname,
                                &record->remote_addr}) {
                *text = strdup("text");
            }
            record->attr_list = make_list("further", {u32(1, 1)}).release();
            auto *chap = static_cast<aaa_chap_data_t *>(std::calloc(1, sizeof(aaa_chap_data_t)));
            *chap = {1, heap_bytes("data"), 4, heap_bytes("response"), 8};
            uint8_t *const data = chap->data;
            uint8_t *const response = chap->response;
            record->chap_data = chap;
            const List state = make_list("state");
            record->state_args = state.get();
            EXPECT_EQ(aaa_util_free_usercred(record, service, type), AAA_OK);
            if (service != kPpp) {
                std::free(chap);
            }
            if (service != kPpp || chap_of(type) == Chap::none) {
                std::free(data);
            }
            if (service != kPpp || chap_of(type) != Chap::inbound) {
                std::free(response);
            }
        }
    }
}

TEST_F(FreeUsercred, OverwritesSecretsBeforeTheyAreFreed) {
    for (const uint32_t type : {0u, 5u, 7u, 9u, 10u}) {
        SCOPED_TRACE(type);
        Source source;
        Copy copy(source.get(), kPpp, 0, type);
        ASSERT_EQ(copy.code(), AAA_OK);
        avpair_buffer_t *const buf = copy->attr_list->avpair_first_buf;
        const auto *const pairs = reinterpret_cast<const char *>(aaa_avpair_get_first_avpair_in_buf(buf));
        std::vector<std::string> expected = {
            "secret", std::string(pairs, reinterpret_cast<const char *>(buf->hdr.free_mem))};
        wiped().clear();
        copy.free();
        if (chap_of(type) != Chap::none) {
            expected.push_back("dat");
        }
        if (chap_of(type) == Chap::inbound) {
            expected.push_back("resp");
        }
        EXPECT_EQ(wiped(), expected);
    }
}

// Lengths of a record that the library did not make are not trusted: they may
// be larger than the blocks, which an overwriting by length would run out of.
TEST_F(FreeUsercred, LooksAtNoChapLengthOfACallersRecord) {
    for (const uint32_t is_copy : {0u, 2u, 0x80000001u}) {
        for (const uint32_t type : {0u, 5u, 7u, 9u, 10u}) {
            SCOPED_TRACE(testing::Message() << "is_copy " << is_copy << ", type " << type);
            auto *record = static_cast<aaa_usercred_t *>(std::calloc(1, sizeof(aaa_usercred_t)));
            record->password = strdup("secret");
            record->is_copy = is_copy;
            record->chap_data = static_cast<aaa_chap_data_t *>(std::calloc(1, sizeof(aaa_chap_data_t)));
            if (chap_of(type) != Chap::none) {
                record->chap_data->data = heap_bytes("data");
            }
            if (chap_of(type) == Chap::inbound) {
                record->chap_data->response = heap_bytes("response");
            }
            record->chap_data->data_len = 0xFFFFFFFF;
            record->chap_data->response_len = 0xFFFFFFFF;
            wiped().clear();
            EXPECT_EQ(aaa_util_free_usercred(record, kPpp, type), AAA_OK);
            EXPECT_EQ(wiped(), std::vector<std::string>{"secret"});
        }
    }
}

// ---- Requests --------------------------------------------------------------

TEST_F(CopyAuthenReq, CopiesTheList) {
    const List list = make_list("request", {u32(1, 1), Pair{258, 0x400, 3, "secret"}});
    const aaa_authen_req_t source = {list.get()};
    aaa_authen_req_t *copy = nullptr;
    ASSERT_EQ(aaa_util_copy_authen_req(&source, &copy), AAA_OK);
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy->attrs, list.get());
    EXPECT_EQ(aaa_avpair_compare_lists(copy->attrs, list.get()), 1);
    aaa_util_free_authen_req(copy);
    EXPECT_EQ(pairs_of(list.get()).size(), 2u);
}

TEST_F(CopyAuthenReq, CopiesARequestWithoutAList) {
    const aaa_authen_req_t source = {nullptr};
    aaa_authen_req_t *copy = nullptr;
    ASSERT_EQ(aaa_util_copy_authen_req(&source, &copy), AAA_OK);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->attrs, nullptr);
    aaa_util_free_authen_req(copy);
}

TEST_F(CopyAuthenReq, RefusesNullArguments) {
    const List list = make_list("request", {u32(1, 1)});
    aaa_authen_req_t source = {list.get()};
    aaa_authen_req_t *out = &source;
    EXPECT_EQ(aaa_util_copy_authen_req(nullptr, &out), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(out, &source);
    EXPECT_EQ(aaa_util_copy_authen_req(&source, nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_util_copy_authen_req(nullptr, nullptr), AAA_ERR_INVALID_ARG);
    aaa_util_free_authen_req(nullptr);
}

// A missing output is looked at after the record's memory.
TEST_F(CopyAuthenReq, ReportsExhaustedMemoryBeforeAMissingOutput) {
    fake::sweep_allocations([](fake::FailAlloc &fail) {
        const aaa_authen_req_t source = {nullptr};
        const cerrno code = fail.run([&] { return aaa_util_copy_authen_req(&source, nullptr); });
        EXPECT_EQ(code, fail.fired() ? AAA_ERR_NOMEM : AAA_ERR_INVALID_ARG);
    });
}

TEST_F(CopyAuthenReq, LeavesTheOutputAloneWhenMemoryIsExhausted) {
    fake::sweep_allocations([](fake::FailAlloc &fail) {
        const List list = make_list("request", {bytes(258, std::string(600, 's'))});
        const aaa_authen_req_t source = {list.get()};
        aaa_authen_req_t *copy = nullptr;
        const cerrno code = fail.run([&] { return aaa_util_copy_authen_req(&source, &copy); });
        EXPECT_EQ(code, fail.fired() ? AAA_ERR_NOMEM : AAA_OK);
        EXPECT_EQ(copy == nullptr, fail.fired());
        aaa_util_free_authen_req(copy);
    });
}

TEST_F(CopyAuthorReq, CopiesTheListAndNothingElse) {
    const List list = make_list("request", {u32(1, 1), Pair{36, 0x1, 3, "show"}});
    aaa_author_req_t source;
    std::memset(&source, 0xEE, sizeof source);
    source.attrs = list.get();
    aaa_author_req_t *copy = nullptr;
    ASSERT_EQ(aaa_util_copy_author_req(&source, &copy), AAA_OK);
    ASSERT_NE(copy, nullptr);
    for (const void *field : copy->field) {
        EXPECT_EQ(field, nullptr);
    }
    EXPECT_NE(copy->attrs, list.get());
    EXPECT_EQ(aaa_avpair_compare_lists(copy->attrs, list.get()), 1);
    aaa_util_free_author_req(copy);
}

TEST_F(CopyAuthorReq, CopiesARequestWithoutAList) {
    const aaa_author_req_t source{};
    aaa_author_req_t *copy = nullptr;
    ASSERT_EQ(aaa_util_copy_author_req(&source, &copy), AAA_OK);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->attrs, nullptr);
    aaa_util_free_author_req(copy);
}

// Kept, although the copy of an authentication request answers otherwise.
TEST_F(CopyAuthorReq, ReportsNullArgumentsAsExhaustedMemory) {
    aaa_author_req_t source{};
    aaa_author_req_t *out = &source;
    EXPECT_EQ(aaa_util_copy_author_req(nullptr, &out), AAA_ERR_NOMEM);
    EXPECT_EQ(out, &source);
    EXPECT_EQ(aaa_util_copy_author_req(&source, nullptr), AAA_ERR_NOMEM);
    EXPECT_EQ(aaa_util_copy_author_req(nullptr, nullptr), AAA_ERR_NOMEM);
    aaa_util_free_author_req(nullptr);
}

TEST_F(CopyAuthorReq, LeavesTheOutputAloneWhenMemoryIsExhausted) {
    fake::sweep_allocations([](fake::FailAlloc &fail) {
        const List list = make_list("request", {bytes(36, std::string(600, 'c'))});
        aaa_author_req_t source{};
        source.attrs = list.get();
        aaa_author_req_t *copy = nullptr;
        const cerrno code = fail.run([&] { return aaa_util_copy_author_req(&source, &copy); });
        EXPECT_EQ(code, fail.fired() ? AAA_ERR_NOMEM : AAA_OK);
        EXPECT_EQ(copy == nullptr, fail.fired());
        aaa_util_free_author_req(copy);
    });
}

}  // namespace
