/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_CPP_MESSAGE_HPP
#define AAA_CPP_MESSAGE_HPP

/**
 * @file
 * @brief Messages: what encode() makes, ready to be sent.
 *
 * encode() takes a request, a reply or a configuration message of aaa/cpp/requests.hpp,
 * aaa/cpp/replies.hpp or aaa/cpp/configuration.hpp. The library sends nothing: give
 * elements() to aaa_transport_send() or aaa_transport_ask() of aaa/transport.h, or bytes()
 * to a transport of your own.
 *
 * Messages are in the classic form. A session packet hands its list over by address, within
 * one process: for these use aaa/messages.h and aaa/session_packets.h with list::release().
 */

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <type_traits>
#include <utility>

#include "aaa/cpp/credentials.hpp"
#include "aaa/messages.h"

namespace aaa {

/** Bytes that accompany some requests; their meaning is the sender's. */
using private_block = std::span<const std::byte, 64>;

namespace detail {

/* What a message consists of besides its packed list: addresses in it stay the same when the
 * message is moved, because it is part of one block. */
struct message_records {
    union {
        aaa_req_hdr_t request;
        aaa_conn_msg_t connect;
        aaa_reply_hdr_t reply;
    } head;
    std::uint32_t session_id;
    unsigned char block[64];
    unsigned char data[4];
};
static_assert(std::is_trivially_copyable_v<message_records>);

struct composer;

}  // namespace detail

/** A composed message. Move-only; its bytes are overwritten before they are released. */
class message {
  public:
    /** No message: no elements. */
    message() noexcept = default;
    message(message &&other) noexcept
        : block_(std::move(other.block_)),
          texts_(std::move(other.texts_)),
          elements_(std::move(other.elements_)),
          count_(std::exchange(other.count_, 0)),
          reference_(std::exchange(other.reference_, false)) {}
    message &operator=(message &&other) noexcept {
        message taken(std::move(other));
        std::swap(block_, taken.block_);
        std::swap(texts_, taken.texts_);
        std::swap(elements_, taken.elements_);
        std::swap(count_, taken.count_);
        std::swap(reference_, taken.reference_);
        return *this;
    }
    ~message() {
        if (reference_ && count_ != 0) { /* its list is in the block of the elements */
            const iov_t &packed = elements_.get()[count_ - 1];
            detail::wipe(packed.base, static_cast<std::size_t>(packed.len));
        }
    }

    /** The parts to send, in order; valid as long as the message, also when it is moved. */
    std::span<const iov_t> elements() const noexcept { return {elements_.get(), count_}; }

    /** How many bytes all parts have. */
    std::size_t size() const noexcept {
        std::size_t total = 0;
        for (const iov_t &part : elements()) {
            total += static_cast<std::size_t>(part.len);
        }
        return total;
    }

    /** All parts, one after the other. */
    result<buffer> bytes() const noexcept {
        result<buffer> all = buffer::make(size());
        if (all) {
            std::size_t at = 0;
            for (const iov_t &part : elements()) {
                if (part.len != 0) {
                    std::memcpy(all->data() + at, part.base, static_cast<std::size_t>(part.len));
                }
                at += static_cast<std::size_t>(part.len);
            }
        }
        return all;
    }

  private:
    friend struct detail::composer;
    buffer block_; /* the records, then room for the packed list */
    buffer texts_;
    detail::malloc_ptr<iov_t> elements_;
    std::uint32_t count_ = 0;
    bool reference_ = false;
};

namespace detail {

/* What a compose routine of the C interface gets. */
struct place {
    message_records &records;
    iov_t **elements;
    std::uint32_t *count;
    char *buffer;
    std::uint32_t size;
};

struct composer {
    /* Composes in room for a packed list of this size. */
    template <typename Compose>
    static result<message> run(std::size_t room, Compose &&compose) noexcept {
        if (room > INT32_MAX) {
            return errc::no_memory;
        }
        result<buffer> block = buffer::make(sizeof(message_records) + room);
        if (!block) {
            return failure(block.code());
        }
        message made;
        made.block_ = *std::move(block);
        auto *const records = ::new (made.block_.data()) message_records{};
        iov_t *elements = nullptr;
        std::uint32_t count = 0;
        const cerrno rc = compose(place{*records, &elements, &count,
                                        reinterpret_cast<char *>(made.block_.data()) + sizeof *records,
                                        static_cast<std::uint32_t>(room)});
        if (rc != AAA_OK) {
            return failure(rc);
        }
        made.elements_.reset(elements);
        made.count_ = count;
        return made;
    }

    /* The same where only the routine knows the size of the list: with more room after "no memory",
     * which also means that the list does not fit. */
    template <typename Compose>
    static result<message> grow(Compose &&compose) noexcept {
        constexpr std::size_t rooms[] = {2048, 65536, 1u << 20};
        result<message> made = errc::no_memory;
        for (const std::size_t room : rooms) {
            made = run(room, compose);
            if (made.code() != AAA_ERR_NOMEM) {
                break;
            }
        }
        return made;
    }

    /* Keeps texts that elements of the message refer to. */
    static result<message> keep(result<message> made, buffer texts) noexcept {
        if (made) {
            made->texts_ = std::move(texts);
        }
        return made;
    }

    /* For the message whose packed list shares the block of the elements. */
    static result<message> wipe_last(result<message> made) noexcept {
        if (made) {
            made->reference_ = true;
        }
        return made;
    }
};

/* Composes with a list of the caller's, which packing spends. The room is that of the list and
 * of what the routine adds to it. */
template <typename Compose>
result<message> compose_list(list &attributes, std::size_t added, Compose &&compose) noexcept {
    if (attributes.native() == nullptr) {
        return attributes.why(AAA_ERR_INVALID_ARG);
    }
    bool composed = false; /* without memory for the block the list is not touched */
    result<message> made = composer::run(attributes.packed_size() + added, [&](place at) {
        composed = true;
        return compose(at);
    });
    if (composed) {
        attributes.mark_spent();
    }
    return made;
}

inline void copy_block(unsigned char (&to)[64], private_block from) noexcept {
    std::memcpy(to, from.data(), from.size());
}

}  // namespace detail
}  // namespace aaa

#endif /* AAA_CPP_MESSAGE_HPP */
