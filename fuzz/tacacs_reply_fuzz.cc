// SPDX-License-Identifier: Apache-2.0
//
// Answers of TACACS+ servers. The input is a kind (1 byte: authentication, authorization,
// accounting) and a body, as it is after it was uncovered. A body is accepted exactly when
// a second reading accepts it, and has the fields of that reading.

#include <optional>
#include <string>
#include <vector>

#include "fuzz_input.hpp"
#include "tacacs/accounting.hpp"
#include "tacacs/authentication.hpp"
#include "tacacs/authorization.hpp"

namespace {

// Takes fields from the beginning of a body; remembers when there were too few bytes.
class Fields {
  public:
    explicit Fields(std::string bytes) : rest_(std::move(bytes)) {}

    std::string text(std::size_t length) {
        whole_ = whole_ && length <= rest_.size();
        const std::string taken = rest_.substr(0, length);
        rest_.erase(0, length);
        return taken;
    }
    std::size_t number(std::size_t bytes) {
        std::size_t value = 0;
        for (const char byte : text(bytes)) {
            value = value << 8 | static_cast<unsigned char>(byte);
        }
        return value;
    }
    bool whole_and_at_end() const { return whole_ && rest_.empty(); }

  private:
    std::string rest_;
    bool whole_ = true;
};

void authentication(const std::string &body) {
    Fields fields(body);
    const std::size_t status = fields.number(1);
    const std::size_t flags = fields.number(1);
    const std::size_t message_length = fields.number(2);
    const std::size_t data_length = fields.number(2);
    const std::string message = fields.text(message_length);
    const std::string data = fields.text(data_length);
    const bool expected =
        fields.whole_and_at_end() && ((status >= 1 && status <= 7) || status == 33) && flags <= 1;
    tacacs::AuthenticationReply reply;
    const tacacs::Fault fault = tacacs::AuthenticationReply::read(body, reply);
    REQUIRE(fault == (expected ? tacacs::Fault::kNone : tacacs::Fault::kMalformed));
    if (expected) {
        REQUIRE(static_cast<std::size_t>(reply.status) == status);
        REQUIRE(reply.hides_input == (flags == 1));
        REQUIRE(reply.message == message);
        REQUIRE(reply.data == data);
    }
}

void authorization(const std::string &body) {
    Fields fields(body);
    const std::size_t status = fields.number(1);
    const std::size_t count = fields.number(1);
    const std::size_t message_length = fields.number(2);
    const std::size_t data_length = fields.number(2);
    std::vector<std::size_t> lengths;
    for (std::size_t i = 0; i < count; ++i) {
        lengths.push_back(fields.number(1));
    }
    const std::string message = fields.text(message_length);
    const std::string data = fields.text(data_length);
    std::vector<std::string_view> arguments;
    std::vector<std::string> texts;
    bool named = true;
    for (const std::size_t length : lengths) {
        texts.push_back(fields.text(length));
        const std::size_t separator = texts.back().find_first_of("=*");
        named = named && separator != std::string::npos && separator > 0;
    }
    arguments.assign(texts.begin(), texts.end());
    const bool is_status = status == 1 || status == 2 || status == 16 || status == 17 || status == 33;
    const bool expected = fields.whole_and_at_end() && is_status && named;
    tacacs::AuthorizationReply reply;
    const tacacs::Fault fault = tacacs::AuthorizationReply::read(body, reply);
    REQUIRE(fault == (expected ? tacacs::Fault::kNone : tacacs::Fault::kMalformed));
    if (expected) {
        REQUIRE(static_cast<std::size_t>(reply.status) == status);
        REQUIRE(reply.arguments == arguments);
        REQUIRE(reply.message == message);
        REQUIRE(reply.data == data);
    }
}

void accounting(const std::string &body) {
    Fields fields(body);
    const std::size_t message_length = fields.number(2);
    const std::size_t data_length = fields.number(2);
    const std::size_t status = fields.number(1);
    const std::string message = fields.text(message_length);
    const std::string data = fields.text(data_length);
    const bool expected = fields.whole_and_at_end() && (status == 1 || status == 2 || status == 33);
    tacacs::AccountingReply reply;
    const tacacs::Fault fault = tacacs::AccountingReply::read(body, reply);
    REQUIRE(fault == (expected ? tacacs::Fault::kNone : tacacs::Fault::kMalformed));
    if (expected) {
        REQUIRE(static_cast<std::size_t>(reply.status) == status);
        REQUIRE(reply.message == message);
        REQUIRE(reply.data == data);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    fuzz::Input input(data, size);
    const uint8_t kind = input.byte();
    const std::string body = input.rest();
    switch (kind % 3) {
        case 0:
            authentication(body);
            break;
        case 1:
            authorization(body);
            break;
        default:
            accounting(body);
    }
    return 0;
}
