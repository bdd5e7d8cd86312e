// SPDX-License-Identifier: Apache-2.0
//
// TACACS+ packets (RFC 8907): the head, the body's obfuscation, and the sessions that
// packets belong to. The bodies are in authentication.hpp, authorization.hpp and
// accounting.hpp.
//
//     0         1      2          3       4            8
//     | version | type | sequence | flags | session id | length of the body | body ...
//
//     version: 0xc0 or 0xc1; numbers are big-endian
//
// A body is combined with a pad made of MD5 digests of the session id, the shared secret,
// the version and the sequence number. That hides it, but does not protect it from being
// changed; only TLS does (RFC 9887), where bodies are sent as they are.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tacacs/secret.hpp"

namespace tacacs {

inline constexpr std::size_t kHeadSize = 12;
inline constexpr std::size_t kMaxBody = 65535;  // longer ones are neither sent nor read

enum class Type : std::uint8_t {
    kAuthentication = 1,
    kAuthorization = 2,
    kAccounting = 3,
};

// Flags of a head.
inline constexpr std::uint8_t kFlagUnencrypted = 1;       // the body is not obfuscated
inline constexpr std::uint8_t kFlagSingleConnection = 4;  // more sessions may use the connection

struct Head {
    std::uint8_t minor = 0;  // of the version
    Type type = Type::kAuthentication;
    std::uint8_t sequence = 1;
    std::uint8_t flags = 0;
    std::uint32_t session = 0;
    std::uint32_t length = 0;  // of the body
};

// Why bytes are not the expected answer.
enum class Fault {
    kNone,
    kNotTacacs,     // another major version or type: another protocol
    kTooLong,       // the body has more than kMaxBody bytes
    kMalformed,     // lengths or codes in the body are inconsistent: most often another secret
    kOtherType,     // answers a request of another type
    kOtherSession,  // of no session that waits for an answer
    kSequence,      // not the next packet of its session
    kVersion,       // another minor version than the request's, and not to say so
    kUnencrypted,   // not obfuscated although it must be
    kObfuscated,    // obfuscated although TLS protects it
    kNoDigest,      // the system's cryptography refuses
};

// A sentence without capital and full stop, for messages to administrators.
const char *text_of(Fault fault);

// Reads the first kHeadSize bytes. kNotTacacs or kTooLong when no packet begins so.
Fault read_head(std::string_view bytes, Head &head);

// How bodies are protected: with a shared secret, or by the TLS connection they are sent on.
class Protection {
  public:
    static Protection tls() { return Protection(); }
    // An empty secret protects nothing, so requests that use it cannot be made.
    static Protection secret(std::string_view secret) { return Protection(secret); }

    bool is_tls() const { return !secret_; }
    // Obfuscates, or reads what was obfuscated. False when the system's cryptography
    // refuses, as it does where MD5 is forbidden.
    [[nodiscard]] bool combine(const Head &head, char *body, std::size_t length) const;

  private:
    Protection() = default;
    explicit Protection(std::string_view secret) : secret_(SecretBytes(secret)) {}

    std::optional<SecretBytes> secret_;
};

// The packets of one session, in turn: a request of this side, an answer, and so on.
class Session {
  public:
    // With a random id. The protection must live as long as the session.
    Session(Type type, std::uint8_t minor, const Protection &protection);
    // With a given id.
    Session(Type type, std::uint8_t minor, const Protection &protection, std::uint32_t id);

    // False when no random bytes were to be had; such a session must not be used.
    bool usable() const { return usable_; }
    std::uint32_t id() const { return head_.session; }
    std::uint8_t minor() const { return head_.minor; }

    // Makes the next packet out of a body that was appended to begin_packet().
    // False when it is too long, when the sequence numbers are used up, or when the body
    // cannot be obfuscated.
    [[nodiscard]] bool seal(SecretBytes &packet, bool asks_for_single_connection);
    // Whether an answer to a further packet would still have a sequence number.
    bool can_go_on() const { return head_.sequence < 253; }

    // Checks that a whole packet is the answer to the last one that was sealed, and uncovers
    // its body. Afterwards the body is in `packet`, after its head. The minor
    // version is left to those who read the body: a server that does not know the
    // request's says so in an answer of another one.
    Fault open(std::string &packet, Head &head);

  private:
    const Protection &protection_;
    Head head_;  // of the last packet that was sealed
    bool sealed_ = false;
    bool usable_ = true;
};

// Room for the head; the body is appended.
SecretBytes begin_packet(std::size_t expected_body);

}  // namespace tacacs
