// SPDX-License-Identifier: Apache-2.0
//
// Making packets of questions.

#include "radius/question.hpp"

#include <algorithm>

#include "radius/answer.hpp"

namespace radius {
namespace {

constexpr std::size_t kVendorHead = 6;  // vendor, type, length

// Attributes that appear once, and that the client makes itself.
bool is_made_by_client(Type type) {
    switch (type) {
        case Type::kUserPassword:
        case Type::kChapPassword:
        case Type::kChapChallenge:
        case Type::kMessageAuthenticator:
        case Type::kAcctStatusType:
        case Type::kAcctDelayTime:
        case Type::kAcctSessionId:
        case Type::kAcctSessionTime:
        case Type::kAcctTerminateCause:
        case Type::kEventTimestamp:
        case Type::kClass:
            return true;
        default:
            return false;
    }
}

std::string big_endian(std::uint32_t value) {
    return {static_cast<char>(value >> 24), static_cast<char>(value >> 16), static_cast<char>(value >> 8),
            static_cast<char>(value)};
}

std::uint32_t sum_up_to_limit(std::uint32_t one, std::uint32_t other) {
    return one > UINT32_MAX - other ? UINT32_MAX : one + other;
}

bool add_accounting(Request &request, const Accounting &event, std::uint32_t more_delay) {
    bool fits = request.add_number(Type::kAcctStatusType, static_cast<std::uint32_t>(event.status)) &&
                request.add(Type::kAcctSessionId, event.session_id) &&
                request.add_number(Type::kEventTimestamp, event.event_time) &&
                request.add_number(Type::kAcctDelayTime, sum_up_to_limit(event.delay, more_delay));
    for (const std::string &value : event.classes) {
        fits = fits && request.add(Type::kClass, value);
    }
    if (event.session_time) {
        fits = fits && request.add_number(Type::kAcctSessionTime, *event.session_time);
    }
    if (event.terminate_cause) {
        fits = fits && request.add_number(Type::kAcctTerminateCause, *event.terminate_cause);
    }
    return fits;
}

// Why the fields of a question cannot be sent, apart from the packet's length.
std::string refusal(const std::optional<Secret> &password, const std::optional<Chap> &chap,
                    const std::optional<Accounting> &event) {
    if (password && password->view().size() > kMaxPassword) {
        return "the password is longer than the " + std::to_string(kMaxPassword) + " bytes of RADIUS";
    }
    if (chap && (chap->response.size() != kDigestSize || chap->challenge.empty() ||
                 chap->challenge.size() > kMaxValue)) {
        return "the CHAP response does not have 16 bytes, or its challenge not 1 to 253";
    }
    if (event && (event->session_id.empty() || event->session_id.size() > kMaxValue)) {
        return "the session identifier does not have 1 to 253 bytes";
    }
    return {};
}

}  // namespace

Question Question::accounting(Accounting event) {
    Question question(Code::kAccountingRequest);
    question.accounting_ = std::move(event);
    return question;
}

bool Question::add(Type type, std::string_view value) {
    if (value.size() > kMaxValue || attributes_.size() + kAttributeHead + value.size() > kMaxPacket ||
        is_made_by_client(type)) {
        return false;
    }
    attributes_ += static_cast<char>(type);
    attributes_ += static_cast<char>(kAttributeHead + value.size());
    attributes_ += value;
    return true;
}

bool Question::add_number(Type type, std::uint32_t value) {
    return add(type, big_endian(value));
}

bool Question::add_vendor(std::uint32_t vendor, std::uint8_t type, std::string_view value) {
    if (value.size() > kMaxValue - kVendorHead) {
        return false;
    }
    std::string whole = big_endian(vendor);
    whole += static_cast<char>(type);
    whole += static_cast<char>(kAttributeHead + value.size());
    return add(Type::kVendorSpecific, whole.append(value));
}

void Question::set_password(std::string_view password) {
    chap_.reset();
    password_.emplace(password);
}

void Question::set_chap(Chap chap) {
    password_.reset();
    chap_ = std::move(chap);
}

void Question::set_challenge(const Answer &challenge) {
    for (const Attribute attribute : challenge.attributes()) {
        if (attribute.type == Type::kState) {
            static_cast<void>(add(Type::kState, attribute.value));
        }
    }
}

std::unique_ptr<Request> make_request(const Question &question, std::uint8_t id, std::string_view secret,
                                      std::uint32_t more_delay, std::string &error) {
    error = refusal(question.password_, question.chap_, question.accounting_);
    if (!error.empty()) {
        return nullptr;
    }
    auto request = std::make_unique<Request>(question.code_, id);
    bool fits = request->add_encoded(question.attributes_);
    if (question.chap_) {
        fits = fits &&
               request->add_chap(question.chap_->id, question.chap_->response, question.chap_->challenge);
    }
    if (question.accounting_) {
        fits = fits && add_accounting(*request, *question.accounting_, more_delay);
    }
    // The hidden password is the only part whose failure may be the cryptography's.
    const std::size_t password_size = question.password_ ? question.password_->view().size() : 0;
    const std::size_t hidden =
        question.password_
            ? kAttributeHead +
                  std::max<std::size_t>((password_size + kDigestSize - 1) / kDigestSize, 1) * kDigestSize
            : 0;
    if (!fits || request->bytes().size() + hidden > kMaxPacket) {
        error = "the attributes do not fit into a packet of " + std::to_string(kMaxPacket) + " bytes";
        return nullptr;
    }
    if (!request->usable() ||
        (question.password_ && !request->add_password(question.password_->view(), secret)) ||
        request->finish(secret).empty()) {
        error = "the system's cryptography refuses MD5 or random numbers, which RADIUS needs";
        return nullptr;
    }
    return request;
}

}  // namespace radius
