// SPDX-License-Identifier: Apache-2.0
//
// RADIUS packets (RFC 2865, 2866, 2869, 5997): requests are made, answers are checked
// and read. All functions are safe to call from any thread for different objects.
//
//     0        1        2                 4                      20
//     | code   | id     | length, big-end. | authenticator (16)   | attributes ...
//
//     attribute: type (1), length with this head (1, at least 2), value (0 to 253)
//
// Every request carries a Message-Authenticator as its first attribute, which an
// attacker who can choose a prefix collision of MD5 cannot forge.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "radius/digest.hpp"

namespace radius {

enum class Code : std::uint8_t {
    kAccessRequest = 1,
    kAccessAccept = 2,
    kAccessReject = 3,
    kAccountingRequest = 4,
    kAccountingResponse = 5,
    kAccessChallenge = 11,
    kStatusServer = 12,
};

// Types of attributes that the service makes or reads (RFC 2865, 2866, 2869).
enum class Type : std::uint8_t {
    kUserName = 1,
    kUserPassword = 2,
    kChapPassword = 3,
    kNasIpAddress = 4,
    kNasPort = 5,
    kServiceType = 6,
    kReplyMessage = 18,
    kState = 24,
    kClass = 25,
    kVendorSpecific = 26,
    kSessionTimeout = 27,
    kIdleTimeout = 28,
    kCalledStationId = 30,
    kCallingStationId = 31,
    kNasIdentifier = 32,
    kProxyState = 33,
    kAcctStatusType = 40,
    kAcctDelayTime = 41,
    kAcctInputOctets = 42,
    kAcctOutputOctets = 43,
    kAcctSessionId = 44,
    kAcctAuthentic = 45,
    kAcctSessionTime = 46,
    kAcctTerminateCause = 49,
    kEventTimestamp = 55,
    kChapChallenge = 60,
    kNasPortType = 61,
    kPrompt = 76,
    kMessageAuthenticator = 80,
    kNasPortId = 87,
    kNasIpv6Address = 95,
};

inline constexpr std::size_t kHeadSize = 20;
inline constexpr std::size_t kAttributeHead = 2;
inline constexpr std::size_t kMaxPacket = 4096;
inline constexpr std::size_t kMaxValue = 253;     // bytes of an attribute
inline constexpr std::size_t kMaxPassword = 128;  // bytes of a User-Password

// A request while it is made. Values that do not fit are refused, never cut.
class Request {
  public:
    // An access or accounting request or a Status-Server. `id` identifies it among those
    // of one socket that wait for an answer.
    Request(Code code, std::uint8_t id);
    // The same with random bytes of the caller as authenticator, which accounting ignores.
    Request(Code code, std::uint8_t id, const Digest &authenticator);
    // Wipes it: it may hold a password whose hiding is only as strong as MD5.
    ~Request() { wipe(packet_.data(), packet_.size()); }
    Request(const Request &) = delete;
    Request &operator=(const Request &) = delete;

    // False, and nothing is added, when the value is longer than kMaxValue or the
    // packet would be longer than kMaxPacket.
    [[nodiscard]] bool add(Type type, std::string_view value);
    [[nodiscard]] bool add_number(Type type, std::uint32_t value);
    // The value of one attribute of a vendor (RFC 2865, 5.26), with the usual head of
    // type and length, of one byte each. At most 247 bytes.
    [[nodiscard]] bool add_vendor(std::uint32_t vendor, std::uint8_t type, std::string_view value);
    // Hides the password (RFC 2865, 5.2) of at most kMaxPassword bytes. Only in access requests.
    [[nodiscard]] bool add_password(std::string_view password, std::string_view secret);
    // Attributes that were encoded before, all or none of them.
    [[nodiscard]] bool add_encoded(std::string_view attributes);
    // CHAP-Password and CHAP-Challenge, as a peer sent them.
    [[nodiscard]] bool add_chap(std::uint8_t chap_id, std::string_view response, std::string_view challenge);

    // Fills in length, Message-Authenticator and, for accounting, the authenticator. The
    // bytes to send, valid as long as the request; empty when the system's cryptography
    // refuses. Can be called again after more was added.
    [[nodiscard]] std::string_view finish(std::string_view secret);

    // What finish() returned last.
    std::string_view bytes() const { return packet_; }

    Code code() const { return static_cast<Code>(packet_[0]); }
    std::uint8_t id() const { return static_cast<std::uint8_t>(packet_[1]); }
    // False when no random bytes were to be had; such a request must not be sent.
    bool usable() const { return usable_; }

  private:
    friend class Reply;
    std::string_view authenticator() const { return std::string_view(packet_).substr(4, kDigestSize); }
    void set_authenticator(const Digest &digest);

    std::string packet_;
    bool usable_ = true;
};

// An attribute of a packet, whose bytes it refers to.
struct Attribute {
    Type type;
    std::string_view value;

    // A number of four bytes.
    std::optional<std::uint32_t> number() const;
};

// An attribute of a vendor. The value refers to the packet.
struct VendorAttribute {
    std::uint32_t vendor;
    std::uint8_t type;
    std::string_view value;
};

// The attributes of a packet, to whose bytes it refers. They were checked to be a
// sequence of attributes.
class Attributes {
  public:
    Attributes() = default;
    explicit Attributes(std::string_view bytes) : bytes_(bytes) {}

    // True when the bytes are a sequence of attributes; others must not be read.
    static bool are_whole(std::string_view bytes);

    std::string_view bytes() const { return bytes_; }
    // The first attribute of a type.
    std::optional<Attribute> find(Type type) const;
    // Values of all attributes of a type, one after the other: a text of several
    // Reply-Message attributes.
    std::string joined(Type type) const;

    // In order, for range-based loops.
    class Iterator {
      public:
        explicit Iterator(std::string_view rest) : rest_(rest) {}
        Attribute operator*() const;
        Iterator &operator++();
        bool operator!=(const Iterator &other) const { return rest_.size() != other.rest_.size(); }

      private:
        std::string_view rest_;
    };
    Iterator begin() const { return Iterator(bytes_); }
    Iterator end() const { return Iterator(bytes_.substr(bytes_.size())); }

  private:
    std::string_view bytes_;
};

// Why bytes are not the answer to a request. A sender that sees the request only can
// cause every fault but kForged, so a faulty datagram is dropped and the wait goes on.
enum class Fault {
    kNone,
    kMalformed,     // length or attributes are inconsistent
    kOtherRequest,  // id or code do not fit the request
    kForged,        // an authenticator is wrong: another secret, or an attack
    kUnprotected,   // no Message-Authenticator, and one is required
    kNoDigest,      // the system's cryptography refuses
};
inline constexpr std::size_t kFaults = 6;

// What an answer must have: a server that is known not to send it is an exception.
enum class MessageAuthenticator { kRequired, kOptional };

// An answer. It refers to the bytes that it was read from.
class Reply : public Attributes {
  public:
    // Checks the bytes against the request that they may answer. Bytes after the length
    // in the head are padding and ignored, as RFC 2865 says.
    static Fault read(std::string_view bytes, const Request &request, std::string_view secret,
                      MessageAuthenticator message_authenticator, Reply &reply);

    Reply() = default;
    Code code() const { return code_; }

  private:
    Reply(Code code, std::string_view attributes) : Attributes(attributes), code_(code) {}

    Code code_ = Code::kAccessReject;
};

// Attributes of vendors inside one Vendor-Specific attribute: calls visit(VendorAttribute)
// for each. False, after those that were whole, when the rest is not a sequence of
// attributes with heads of one-byte type and length.
template <typename Visit>
bool for_each_vendor_attribute(const Attribute &attribute, Visit visit);

}  // namespace radius

#include "radius/vendor.hpp"
