// SPDX-License-Identifier: Apache-2.0
//
// The list verifier sees each kind of damage. Tests and fuzzers rely on it.

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "aaa/avpair.h"
#include "aaa/result_codes.h"
#include "support/avlist_model.hpp"
#include "support/avlist_verifier.hpp"

namespace {

using namespace aaatest;

class AvlistVerifier : public testing::Test {
  protected:
    // Three buffers; the first holds three pairs, the middle one deleted.
    void SetUp() override {
        list_ = make_list("sound");
        for (const std::size_t len : {5u, 6u, 7u, 464u, 464u}) {
            ASSERT_EQ(aaa_avpair_add(static_cast<uint32_t>(len), 0, std::string(len, 'v').data(), 0,
                                     static_cast<uint32_t>(len), list_.get()),
                      AAA_OK);
        }
        ASSERT_EQ(aaa_avpair_delete_by_type_instance(6, 0, list_.get(), nullptr), AAA_OK);
        ASSERT_STREQ(verify_list(list_.get()).fault, "");
        ASSERT_STREQ(verify_list(list_.get(), ListOrigin::unpacked).fault, "");
    }

    avpair_buffer_t *buffer(int index) {
        avpair_buffer_t *buf = list_->avpair_first_buf;
        for (; index > 0; --index) {
            buf = buf->hdr.next;
        }
        return buf;
    }
    avpair_t *pair(int index) {
        avpair_t *found = aaa_avpair_get_first_avpair_in_buf(list_->avpair_first_buf);
        for (; index > 0; --index) {
            found = aaa_avpair_get_adjacent(found);
        }
        return found;
    }

    // What the verifier says while `field` holds `value`.
    template <typename T>
    std::string fault_with(T &field, T value, ListOrigin origin = ListOrigin::built) {
        const T kept = field;
        field = value;
        const Verdict verdict = verify_list(list_.get(), origin);
        field = kept;
        return verdict.fault;
    }

    ListPtr list_;
};

TEST_F(AvlistVerifier, InTheRecord) {
    EXPECT_EQ(fault_with(list_->reserved0, 1u), "reserved bytes 0 to 3 are 0x1");
    EXPECT_EQ(fault_with(list_->reserved0, 1u, ListOrigin::unpacked), "");
    EXPECT_EQ(fault_with(list_->reserved5, uint8_t{2}), "reserved byte 5 is 0x2");
    EXPECT_EQ(fault_with(list_->marker, uint8_t{2}), "");
    EXPECT_EQ(fault_with(list_->pad55, uint8_t{3}), "pad byte 55 is 0x3");
    const std::string no_end(31, 'n');
    char name[31];
    std::memcpy(name, list_->av_name, sizeof name);
    std::memcpy(list_->av_name, no_end.data(), sizeof name);
    EXPECT_STREQ(verify_list(list_.get()).fault, "the name has no end");
    std::memcpy(list_->av_name, name, sizeof name);
}

TEST_F(AvlistVerifier, InTheCount) {
    EXPECT_EQ(fault_with(list_->av_cnt, uint16_t{3}), "count 3, but 4 live pairs");
    EXPECT_EQ(fault_with(list_->av_cnt, uint16_t{3}, ListOrigin::unpacked), "");
    for (const ListOrigin origin : {ListOrigin::built, ListOrigin::unpacked}) {
        EXPECT_EQ(fault_with(list_->av_cnt, uint16_t{0}, origin),
                  "count 0 does not agree with the buffer pointers (first set, last set)");
    }
    avpair_buffer_t *const none = nullptr;
    EXPECT_EQ(fault_with(list_->avpair_first_buf, none),
              "count 4 does not agree with the buffer pointers (first null, last set)");
    EXPECT_EQ(fault_with(list_->avpair_last_buf, none),
              "count 4 does not agree with the buffer pointers (first set, last null)");
}

TEST_F(AvlistVerifier, InTheChain) {
    EXPECT_EQ(fault_with(buffer(1)->hdr.prev, buffer(2)), "buffer 1: prev does not lead back");
    EXPECT_EQ(fault_with(buffer(0)->hdr.prev, buffer(2)), "buffer 0: prev does not lead back");
    EXPECT_EQ(fault_with(buffer(2)->hdr.next, buffer(0)), "buffer 3: prev does not lead back");
    EXPECT_EQ(fault_with(list_->avpair_last_buf, buffer(1)), "the last buffer is not where the chain ends");
}

TEST_F(AvlistVerifier, InABuffer) {
    EXPECT_EQ(fault_with(buffer(1)->hdr.buf_size, 510u), "buffer 1: size 510");
    EXPECT_EQ(fault_with(buffer(1)->hdr.buf_size, 508u), "buffer 1: size 508");
    auto *const start = reinterpret_cast<unsigned char *>(buffer(0));
    EXPECT_EQ(fault_with(buffer(0)->hdr.free_mem, start + 28), "buffer 0: free_mem is outside");
    EXPECT_EQ(fault_with(buffer(0)->hdr.free_mem, start + 516), "buffer 0: free_mem is outside");
    EXPECT_EQ(fault_with(buffer(0)->hdr.free_mem, start + 33), "buffer 0: free_mem is not aligned");
    EXPECT_EQ(fault_with(buffer(0)->hdr.free_mem, start + 32), "buffer 0: no pairs");
}

TEST_F(AvlistVerifier, InAPair) {
    EXPECT_EQ(fault_with(pair(2)->av_len, 9u), "buffer 0, pair 2: 9 value bytes pass free_mem");
    EXPECT_EQ(fault_with(pair(2)->av_len, 0xffffffffu),
              "buffer 0, pair 2: 4294967295 value bytes pass free_mem");
    EXPECT_EQ(fault_with(pair(2)->av_len, 5u), "buffer 0, pair 2: pad bytes are not zero");
    EXPECT_EQ(fault_with(pair(2)->av_len, 4u, ListOrigin::unpacked),
              "buffer 0, pair 3: 4 bytes are too few for a head");
    EXPECT_EQ(fault_with(pair(2)->av_type, 2070u), "buffer 0: the last pair is deleted");
    unsigned char &pad = reinterpret_cast<unsigned char *>(pair(1) + 1)[7];
    EXPECT_EQ(fault_with(pad, static_cast<unsigned char>(1)), "buffer 0, pair 1: pad bytes are not zero");
    EXPECT_EQ(fault_with(pad, static_cast<unsigned char>(1), ListOrigin::unpacked), "");
}

}  // namespace
