// SPDX-License-Identifier: Apache-2.0

#include "radius/packet.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "radius/bytes.hpp"

namespace radius {
namespace {

using radius_test::answer;
using radius_test::attribute;
using radius_test::from_hex;
using radius_test::message_authenticator;
using radius_test::packet;

constexpr char kSecret[] = "xyzzy5461";

Digest digest_of(const std::string &bytes) {
    Digest digest{};
    EXPECT_EQ(bytes.size(), digest.size());
    bytes.copy(reinterpret_cast<char *>(digest.data()), digest.size());
    return digest;
}

Fault read(std::string_view bytes, const Request &request, Reply &reply,
           MessageAuthenticator required = MessageAuthenticator::kRequired) {
    return Reply::read(bytes, request, kSecret, required, reply);
}

Fault fault_of(std::string_view bytes, const Request &request,
               MessageAuthenticator required = MessageAuthenticator::kRequired) {
    Reply reply;
    return read(bytes, request, reply, required);
}

// ---- the examples of RFC 2865, section 7

TEST(Rfc2865, HidesThePasswordOfNemo) {
    Request request(Code::kAccessRequest, 0, digest_of(from_hex("0f403f9473978057bd83d5cb98f4227a")));
    ASSERT_TRUE(request.add(Type::kUserName, "nemo"));
    ASSERT_TRUE(request.add_password("arctangent", kSecret));
    ASSERT_TRUE(request.add(Type::kNasIpAddress, from_hex("c0a80110")));
    ASSERT_TRUE(request.add_number(Type::kNasPort, 3));
    const std::string bytes(request.finish(kSecret));
    EXPECT_EQ(bytes.substr(0, 20), from_hex("0100004a 0f403f9473978057bd83d5cb98f4227a"));
    EXPECT_EQ(bytes.substr(38), from_hex("01066e656d6f 0212 0dbe708d93d413ce3196e43f782a0aee"
                                         "0406c0a80110 050600000003"));

    const std::string accept = from_hex(
        "02000026 86fe220e7624ba2a1005f6bf9b55e0b2"
        "060600000001 0f0600000000 0e06c0a80103");
    Reply reply;
    ASSERT_EQ(read(accept, request, reply, MessageAuthenticator::kOptional), Fault::kNone);
    EXPECT_EQ(reply.code(), Code::kAccessAccept);
    EXPECT_EQ(reply.find(Type::kServiceType)->number(), 1u);
    EXPECT_EQ(fault_of(accept, request), Fault::kUnprotected);
}

TEST(Rfc2865, ReadsTheAnswerToFlopsy) {
    Request request(Code::kAccessRequest, 1, digest_of(from_hex("2aee86f08d0d55969ca5978e0d3367a2")));
    ASSERT_TRUE(request.add(Type::kUserName, "flopsy"));
    const std::string accept = from_hex(
        "02010038 15efbc7dab26cfa3dc34d9c03c8601a4 060600000002 070600000001"
        "0806fffffffe 0a0600000002 0d0600000001 0c06000005dc");
    Reply reply;
    ASSERT_EQ(read(accept, request, reply, MessageAuthenticator::kOptional), Fault::kNone);
    std::vector<int> types;
    for (const Attribute received : reply) {
        types.push_back(static_cast<int>(received.type));
    }
    EXPECT_EQ(types, (std::vector<int>{6, 7, 8, 10, 13, 12}));
}

// ---- requests

// A second implementation of the receiver's side.
std::string revealed(std::string_view hidden, std::string_view authenticator) {
    std::string clear;
    std::string_view previous = authenticator;
    for (std::size_t at = 0; at < hidden.size(); at += 16) {
        Digest mask{};
        EXPECT_TRUE(md5({kSecret, previous}, mask));
        for (std::size_t i = 0; i < 16; ++i) {
            clear += static_cast<char>(hidden[at + i] ^ mask[i]);
        }
        previous = hidden.substr(at, 16);
    }
    return clear;
}

TEST(RadiusRequest, HidesPasswordsOfEveryLength) {
    for (std::size_t length = 0; length <= kMaxPassword; ++length) {
        Request request(Code::kAccessRequest, 7);
        const std::string password(length, 'p');
        ASSERT_TRUE(request.add_password(password, kSecret));
        const std::string bytes(request.finish(kSecret));
        const std::string clear = revealed(std::string_view(bytes).substr(40), bytes.substr(4, 16));
        EXPECT_EQ(clear.size(), std::max<std::size_t>((length + 15) / 16 * 16, 16));
        EXPECT_EQ(clear.substr(0, length), password);
        EXPECT_EQ(clear.find_first_not_of('\0', length), std::string::npos);
    }
}

TEST(RadiusRequest, RefusesWhatDoesNotFit) {
    Request request(Code::kAccessRequest, 7);
    const std::string before(request.finish(kSecret));
    EXPECT_FALSE(request.add_password(std::string(kMaxPassword + 1, 'p'), kSecret));
    EXPECT_FALSE(request.add(Type::kUserName, std::string(kMaxValue + 1, 'u')));
    EXPECT_FALSE(request.add_vendor(32473, 1, std::string(248, 'v')));
    EXPECT_FALSE(request.add_chap(1, "short", "challenge"));
    EXPECT_EQ(request.finish(kSecret), before);
    EXPECT_TRUE(request.add_vendor(32473, 1, std::string(247, 'v')));
    EXPECT_TRUE(request.add(Type::kUserName, std::string(kMaxValue, 'u')));
    Request accounting(Code::kAccountingRequest, 7);
    EXPECT_FALSE(accounting.add_password("secret", kSecret));
}

TEST(RadiusRequest, IsFullAt4096Bytes) {
    Request request(Code::kAccessRequest, 7);
    while (request.add(Type::kState, std::string(kMaxValue, 's'))) {
    }
    const std::size_t left = kMaxPacket - request.finish(kSecret).size();
    EXPECT_LT(left, kMaxValue + 2);
    EXPECT_FALSE(request.add(Type::kState, std::string(left - 1, 's')));
    EXPECT_TRUE(request.add(Type::kState, std::string(left - 2, 's')));
    const std::string_view bytes = request.finish(kSecret);
    EXPECT_EQ(bytes.size(), kMaxPacket);
    EXPECT_EQ(bytes.substr(2, 2), from_hex("1000"));
}

TEST(RadiusRequest, StartsWithItsMessageAuthenticator) {
    for (const Code code : {Code::kAccessRequest, Code::kAccountingRequest, Code::kStatusServer}) {
        Request request(code, 200);
        ASSERT_TRUE(request.add(Type::kUserName, "nemo"));
        std::string bytes(request.finish(kSecret));
        ASSERT_EQ(bytes.substr(20, 2), from_hex("5012"));
        const std::string sent = bytes.substr(22, 16);
        bytes.replace(22, 16, 16, '\0');
        if (code == Code::kAccountingRequest) {
            bytes.replace(4, 16, 16, '\0');
        }
        Digest digest{};
        ASSERT_TRUE(hmac_md5(kSecret, {bytes}, digest));
        EXPECT_EQ(sent, view_of(digest));
    }
}

// RFC 2866, section 3.
TEST(RadiusRequest, AccountingHasADigestAsAuthenticator) {
    Request request(Code::kAccountingRequest, 9);
    ASSERT_TRUE(request.add_number(Type::kAcctStatusType, 1));
    std::string bytes(request.finish(kSecret));
    const std::string sent = bytes.substr(4, 16);
    bytes.replace(4, 16, 16, '\0');
    Digest digest{};
    ASSERT_TRUE(md5({bytes, kSecret}, digest));
    EXPECT_EQ(sent, view_of(digest));
    // Finished again, after a retransmission changed the delay.
    ASSERT_TRUE(request.add_number(Type::kAcctDelayTime, 3));
    EXPECT_NE(std::string(request.finish(kSecret)).substr(4, 16), sent);
}

TEST(RadiusRequest, TwoRequestsHaveDifferentAuthenticators) {
    Request one(Code::kAccessRequest, 1);
    Request other(Code::kAccessRequest, 1);
    EXPECT_NE(one.finish(kSecret).substr(4, 16), other.finish(kSecret).substr(4, 16));
}

TEST(RadiusRequest, CarriesChapAndVendorAttributes) {
    Request request(Code::kAccessRequest, 1);
    ASSERT_TRUE(request.add_chap(0x16, std::string(16, 'r'), "challenge"));
    ASSERT_TRUE(request.add_vendor(32473, 1, "role=operator"));
    const std::string bytes(request.finish(kSecret));
    EXPECT_EQ(bytes.substr(38),
              attribute(Type::kChapPassword, "\x16" + std::string(16, 'r')) +
                  attribute(Type::kChapChallenge, "challenge") +
                  attribute(Type::kVendorSpecific, from_hex("00007ed9 010f") + "role=operator"));
}

// ---- answers

struct Answers : testing::Test {
    Request request{Code::kAccessRequest, 42};
    std::string sent{request.finish(kSecret)};

    std::string accept(const std::string &attributes) const { return answer(2, sent, attributes, kSecret); }
};

TEST_F(Answers, WithoutAttributesAreRead) {
    Reply reply;
    EXPECT_EQ(read(accept(""), request, reply, MessageAuthenticator::kOptional), Fault::kNone);
    EXPECT_FALSE(reply.begin() != reply.end());
    EXPECT_FALSE(reply.find(Type::kState));
}

TEST_F(Answers, PaddingIsIgnored) {
    EXPECT_EQ(fault_of(accept(message_authenticator()) + "padding", request), Fault::kNone);
}

TEST_F(Answers, TextsOfSeveralAttributesAreOneText) {
    const std::string bytes = accept(attribute(Type::kReplyMessage, "Wel") + message_authenticator() +
                                     attribute(Type::kState, "s") + attribute(Type::kReplyMessage, "come"));
    Reply reply;
    ASSERT_EQ(read(bytes, request, reply), Fault::kNone);
    EXPECT_EQ(reply.joined(Type::kReplyMessage), "Welcome");
    EXPECT_EQ(reply.find(Type::kReplyMessage)->value, "Wel");
    EXPECT_FALSE(reply.find(Type::kReplyMessage)->number());
}

TEST_F(Answers, EveryFlippedBitIsNoticed) {
    const std::string bytes = accept(message_authenticator() + attribute(Type::kReplyMessage, "Welcome"));
    for (std::size_t bit = 0; bit < bytes.size() * 8; ++bit) {
        std::string changed = bytes;
        changed[bit / 8] = static_cast<char>(changed[bit / 8] ^ 1 << bit % 8);
        Reply reply;
        EXPECT_NE(read(changed, request, reply), Fault::kNone) << bit;
        EXPECT_NE(read(changed, request, reply, MessageAuthenticator::kOptional), Fault::kNone) << bit;
    }
}

TEST_F(Answers, EveryShorterOneIsRefused) {
    const std::string bytes = accept(message_authenticator() + attribute(Type::kReplyMessage, "Welcome"));
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        // In memory of its own, so that a sanitizer sees what is read.
        const std::string shorter(bytes.data(), length);
        EXPECT_EQ(fault_of(shorter, request), Fault::kMalformed) << length;
    }
}

TEST_F(Answers, DamagedAttributesAreRefusedEvenWithRightDigests) {
    for (const char *damaged : {"00", "1201", "1200", "12", "12034141", "120541"}) {
        EXPECT_EQ(fault_of(accept(message_authenticator() + from_hex(damaged)), request), Fault::kMalformed)
            << damaged;
    }
    const std::string empty_value = message_authenticator() + from_hex("1202");
    EXPECT_EQ(fault_of(accept(empty_value), request), Fault::kNone);
}

// A Message-Authenticator that is wrong although the response authenticator is right: made with a collision.
TEST_F(Answers, AWrongMessageAuthenticatorIsForged) {
    std::string wrong = message_authenticator();
    wrong[5] = 'x';
    for (const auto required : {MessageAuthenticator::kRequired, MessageAuthenticator::kOptional}) {
        EXPECT_EQ(fault_of(accept(wrong), request, required), Fault::kForged);
        EXPECT_EQ(fault_of(accept(attribute(Type::kMessageAuthenticator, "short")), request, required),
                  Fault::kMalformed);
    }
}

TEST_F(Answers, OfAnotherRequestAreRefused) {
    Request other(Code::kAccessRequest, 42);
    static_cast<void>(other.finish(kSecret));
    EXPECT_EQ(fault_of(accept(message_authenticator()), other), Fault::kForged) << "replayed";
    std::string other_id = sent;
    other_id[1] = 43;
    EXPECT_EQ(fault_of(answer(2, other_id, message_authenticator(), kSecret), request), Fault::kOtherRequest);
    EXPECT_EQ(fault_of(answer(2, sent, message_authenticator(), "another"), request), Fault::kForged);
}

TEST_F(Answers, FitTheKindOfTheRequest) {
    const auto kind = [&](Code request_code, int reply_code) {
        Request asked(request_code, 1);
        const std::string bytes(asked.finish(kSecret));
        return fault_of(answer(reply_code, bytes, message_authenticator(), kSecret), asked);
    };
    for (int code = 0; code < 256; ++code) {
        const bool access = code == 2 || code == 3 || code == 11;
        EXPECT_EQ(kind(Code::kAccessRequest, code), access ? Fault::kNone : Fault::kOtherRequest) << code;
        EXPECT_EQ(kind(Code::kAccountingRequest, code), code == 5 ? Fault::kNone : Fault::kOtherRequest)
            << code;
        const bool status = code == 2 || code == 5;
        EXPECT_EQ(kind(Code::kStatusServer, code), status ? Fault::kNone : Fault::kOtherRequest) << code;
    }
}

TEST_F(Answers, OfTooMuchLengthAreRefused) {
    std::string attributes = message_authenticator();
    while (attributes.size() + kHeadSize <= kMaxPacket) {
        attributes += attribute(Type::kState, std::string(kMaxValue, 's'));
    }
    EXPECT_EQ(fault_of(accept(attributes), request), Fault::kMalformed);
}

// ---- attributes of vendors

std::vector<std::string> vendor_values(const std::string &value, bool &whole) {
    std::vector<std::string> found;
    whole = for_each_vendor_attribute({Type::kVendorSpecific, value}, [&](const VendorAttribute &inner) {
        found.push_back(std::to_string(inner.vendor) + ":" + std::to_string(inner.type) + "=" +
                        std::string(inner.value));
    });
    return found;
}

TEST(Vendor, ReadsOneOrMore) {
    bool whole = false;
    EXPECT_EQ(vendor_values(from_hex("00007ed9 0105 61 62 63"), whole),
              (std::vector<std::string>{"32473:1=abc"}));
    EXPECT_TRUE(whole);
    EXPECT_EQ(vendor_values(from_hex("00ffffff 0102 0203 61"), whole),
              (std::vector<std::string>{"16777215:1=", "16777215:2=a"}));
    EXPECT_TRUE(whole);
}

TEST(Vendor, StopsAtWhatIsDamaged) {
    bool whole = true;
    EXPECT_EQ(vendor_values(from_hex("00007ed9 010361 0201"), whole).size(), 1u);
    EXPECT_FALSE(whole);
    for (const char *damaged :
         {"", "000000", "00007ed9", "00007ed901", "00007ed90103", "00007ed90100", "00007ed901026"}) {
        EXPECT_TRUE(vendor_values(from_hex(damaged), whole).size() <= 1) << damaged;
        if (std::string_view(damaged) != "00007ed901026") {  // the odd digit is dropped: an empty value
            EXPECT_FALSE(whole) << damaged;
        }
    }
}

}  // namespace
}  // namespace radius
