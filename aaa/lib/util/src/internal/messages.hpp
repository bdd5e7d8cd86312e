// SPDX-License-Identifier: Apache-2.0
//
// Shared by the compose routines: access to the caller's records by offset,
// the io-vector that they hand out, appending attributes in order, and filling
// session packets. The records hold fields that belong to the sending layer;
// nothing here touches a byte that it was not asked to write.
#pragma once

#include <cstddef>
#include <cstdint>

#include "aaa/avpair.h"
#include "aaa/dictionary.h"
#include "aaa/messages.h"
#include "aaa/result_codes.h"
#include "aaa/session_packets.h"
#include "internal/bytes.hpp"
#include "internal/memory.hpp"

namespace aaautil::msg {

// Request header record; aaa/messages.h asserts the offsets.
inline constexpr std::size_t kTypeAt = offsetof(aaa_req_hdr_t, type);
inline constexpr std::size_t kParamAt = offsetof(aaa_req_hdr_t, param);
inline constexpr uint64_t kShortHeader = offsetof(aaa_req_hdr_t, param);
inline constexpr uint64_t kCallbackHeader = offsetof(aaa_req_hdr_t, fixed36);
inline constexpr uint64_t kLongHeader = sizeof(aaa_req_hdr_t);
inline constexpr uint64_t kCallerBlock = 64;

// Session packet: the payload, and in it the type data, starts here.
inline constexpr std::size_t kPayloadAt = offsetof(aaa_sess_request_t, u);

[[nodiscard]] inline unsigned char *at(void *record, std::size_t offset) noexcept {
    return static_cast<unsigned char *>(record) + offset;
}

inline void put_u32(void *record, std::size_t offset, uint32_t value) noexcept {
    store_u32(at(record, offset), value);
}

inline void to_network(void *record, std::size_t offset) noexcept {
    swap_u32_in_place(at(record, offset));
}

// Elements of one message in order; publish() copies them into a block of
// exactly their size.
class IoVector {
  public:
    void add(const void *base, uint64_t len) noexcept {
        // The element type has no const; the transport only reads.
        elements_[count_++] = {const_cast<void *>(base), len};
    }

    // AAA_ERR_NOMEM leaves both outputs as they were.
    [[nodiscard]] cerrno publish(iov_t **iov_out, uint32_t *count_out) const noexcept;

  private:
    iov_t elements_[4];
    uint32_t count_ = 0;
};

// The arguments that every request with a packed list takes.
struct Target {
    void *record;
    iov_t **iov_out;
    uint32_t *count_out;
    char *buffer;
    uint32_t size;

    [[nodiscard]] bool has_room() const noexcept {
        return record != nullptr && buffer != nullptr && size != 0;
    }
    [[nodiscard]] bool has_outputs() const noexcept { return iov_out != nullptr && count_out != nullptr; }
    [[nodiscard]] bool complete() const noexcept { return has_room() && has_outputs(); }
};

// Appends attributes until the first failure, which is the result.
class Appender {
  public:
    explicit Appender(avlist *list) noexcept : list_(list) {}

    Appender &bytes(uint32_t type, const void *value, uint32_t len) noexcept;
    Appender &u32(uint32_t type, uint32_t value) noexcept { return bytes(type, &value, sizeof value); }
    Appender &byte(uint32_t type, uint32_t value) noexcept;
    Appender &text(uint32_t type, const char *value) noexcept;  // with its terminator
    [[nodiscard]] cerrno code() const noexcept { return code_; }

  private:
    avlist *list_;
    cerrno code_ = AAA_OK;
};

[[nodiscard]] cerrno create_list(const char *name, list_ptr &list) noexcept;

// Packs the list into the target's buffer and adds it as the next element. The
// list is in network order afterwards, also after a failure.
[[nodiscard]] cerrno pack(const Target &to, avlist *list, IoVector &iov) noexcept;

// Brings the parameter word into network order, then publishes: without memory
// for the io-vector the word is converted already.
[[nodiscard]] cerrno publish_converted(const Target &to, const IoVector &iov) noexcept;

// The common case: long header, async block when given, packed list.
[[nodiscard]] cerrno pack_and_publish(const Target &to, avlist *list, const void *async_block) noexcept;

inline constexpr char kConfigFillFailed[] = "Composing config message: Failed in data fill";
inline constexpr char kAuthorFillFailed[] = "Composing an author message: Failed in data fill";

// Fills a session request packet; a refusal is logged with the routine's own text.
[[nodiscard]] cerrno fill_packet(void *packet, avlist *list, uint32_t type, uint32_t value_b,
                                 const char *failure) noexcept;

// The same with a list of the library's: a filled packet owns it.
[[nodiscard]] cerrno hand_over(void *packet, list_ptr &list, uint32_t type, uint32_t value_b,
                               const char *failure) noexcept;

// How a request finds the method list of the caller's line when it names none.
struct LineLookup {
    uint32_t kind;            // 0 authentication, 1 authorization, 2 accounting
    uint32_t log_flag;        // debug flag of the routine
    int32_t skipped[2];       // services that never ask the line
    bool terminal_optional;   // a missing controlling terminal is not a failure
    const char *no_terminal;  // what is logged then
};

inline constexpr char kNoTtyNeeded[] = "No need to have tty info for API or HTTP service";

// Adds the method list by the given name, else the line's, else "default".
[[nodiscard]] cerrno append_method_list(avlist *list, const char *name, int32_t service,
                                        const LineLookup &lookup) noexcept;

}  // namespace aaautil::msg
