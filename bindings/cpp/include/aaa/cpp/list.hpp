/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_CPP_LIST_HPP
#define AAA_CPP_LIST_HPP

/**
 * @file
 * @brief Attribute lists.
 *
 * What invalidates iterators and attributes is what aaa/avpair.h says: adding nothing,
 * deleting and changing the length of a value everything.
 */

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <span>
#include <string_view>
#include <utility>

#include "aaa/checked.h"
#include "aaa/cpp/value.hpp"

namespace aaa {

/** What a list occupies. */
using memory_usage = avpair_mem_stats_t;

/**
 * An attribute list: a forward range of attributes that owns its pairs.
 *
 * **Spent lists.** Packing turns the pairs into network order where they are. From then on
 * the list is spent: it is an empty range, and everything else fails with
 * errc::spent_list, until clear() makes it a list without pairs again.
 *
 * **Empty handles.** A list that was moved from, like one that was made without a
 * function, is an empty range too, and everything else fails with errc::empty_handle.
 *
 * Threads: one thread at a time uses a list.
 */
class list {
  public:
    /** Goes through the live pairs, in the order in which they were added. */
    class iterator {
      public:
        using iterator_concept = std::forward_iterator_tag;
        using iterator_category = std::input_iterator_tag; /* gives values, not references */
        using value_type = attribute;
        using difference_type = std::ptrdiff_t;
        using reference = attribute;
        /** What -> returns. */
        struct pointer {
            attribute value; /**< the attribute */
            /** The attribute. */
            const attribute *operator->() const noexcept { return &value; }
        };

        /** The end of every list. */
        iterator() noexcept = default;
        /** The attribute here. */
        attribute operator*() const noexcept { return attribute(at_.curr_avp); }
        /** The attribute here. */
        pointer operator->() const noexcept { return {**this}; }
        /** Goes on to the next one. */
        iterator &operator++() noexcept {
            /* The function stores the pair in the position, too: no second variable. */
            if (aaa_avpair_iterator_get_next(&at_, &at_.curr_avp) != AAA_OK) [[unlikely]] {
                at_.curr_avp = nullptr;
            }
            return *this;
        }
        /** Goes on to the next one. */
        iterator operator++(int) noexcept {
            iterator before = *this;
            ++*this;
            return before;
        }
        /** Whether both are at the same pair, or at an end. */
        friend bool operator==(const iterator &a, const iterator &b) noexcept {
            return a.at_.curr_avp == b.at_.curr_avp;
        }

      private:
        friend class list;
        explicit iterator(const avlist *list) noexcept {
            if (aaa_avpair_iterator_init(&at_, list, &at_.curr_avp) != AAA_OK) {
                at_.curr_avp = nullptr;
            }
        }
        aaa_avpair_iterator_t at_{};
    };
    using const_iterator = iterator; /**< attributes cannot be changed in place */
    using value_type = attribute;    /**< what the range holds */

    /* ---- making and giving away ---- */

    /** An empty handle. */
    list() noexcept = default;
    list(list &&other) noexcept
        : list_(std::exchange(other.list_, nullptr)), spent_(std::exchange(other.spent_, nullptr)) {}
    list &operator=(list &&other) noexcept {
        list taken(std::move(other));
        swap(taken);
        return *this;
    }
    ~list() {
        if (avlist *const mine = owned(); mine != nullptr) { /* mostly known not to be, so no call is made */
            aaa_avpair_free_list(mine);
        }
    }

    /** Makes a list without pairs and without a name. */
    static result<list> create() noexcept { return create(static_cast<const char *>(nullptr)); }

    /**
     * Makes a list without pairs.
     * @param[in] name at most 30 characters
     * @return the list; errc::no_memory, errc::avpair_processing for a name that is too long,
     *         errc::text_with_nul
     */
    static result<list> create(std::string_view name) noexcept {
        char text[sizeof(avlist::av_name) + 1];
        if (name.find('\0') != std::string_view::npos) {
            return errc::text_with_nul;
        }
        if (name.size() > sizeof text - 1) {
            return errc::avpair_processing;
        }
        if (!name.empty()) {
            std::memcpy(text, name.data(), name.size());
        }
        text[name.size()] = '\0';
        return create(static_cast<const char *>(text));
    }

    /** Makes a list without pairs; as above, with a name that may be null. */
    template <detail::text_pointer Name>
    static result<list> create(const Name &name) noexcept {
        avlist *made = nullptr;
        if (const cerrno rc = aaa_avpair_create_list(name, &made); rc != AAA_OK) [[unlikely]] {
            return failure(rc);
        }
        return list(made);
    }

    /** Makes a list without pairs; as above, with a literal or a buffer: see aaa/cpp/value.hpp. @{ */
    template <std::size_t N>
    [[gnu::always_inline]] static result<list> create(const char (&name)[N]) noexcept {
        if (detail::is_whole(name)) [[likely]] {
            return create(static_cast<const char *>(name));
        }
        return create(detail::without_padding({name, N}));
    }
    template <std::size_t N>
    static result<list> create(char (&name)[N]) noexcept {
        return create(detail::text_in(name));
    }
    /** @} */

    /**
     * Makes a list from packed bytes of any origin.
     * @param[in] packed the bytes; those that follow the packed list are ignored. No one else may write to
     *                   them during the call.
     * @return the list; errc::invalid_message_size or errc::avpair_processing for damaged bytes,
     *         errc::no_memory
     */
    static result<list> unpack(std::span<const std::byte> packed) noexcept {
        avlist *made = nullptr;
        cerrno rc = aaa_avpair_create_list(nullptr, &made);
        if (rc == AAA_OK) [[likely]] {
            rc = aaa_avpair_unpack_msg_checked(made, reinterpret_cast<const char *>(packed.data()),
                                               packed.size());
        }
        if (rc != AAA_OK) [[unlikely]] {
            aaa_avpair_free_list(made);
            return failure(rc);
        }
        return list(made);
    }

    /** Takes over a list of the C interface; null gives an empty handle. */
    static list adopt(avlist *owned) noexcept { return list(owned); }

    /** Gives the list away; free it with aaa_avpair_free_list(). Null for an empty handle or a spent list. */
    [[nodiscard]] avlist *release() noexcept { return std::exchange(list_, nullptr); }
    /** The list for functions of the C interface; null for an empty handle or a spent list. @{ */
    avlist *native() noexcept { return list_; }
    const avlist *native() const noexcept { return list_; }
    /** @} */

    /**
     * Copies the list.
     * @param[in] name of the copy; without one that of this list
     */
    result<list> clone(std::string_view name = {}) const noexcept {
        if (list_ == nullptr) {
            return why(AAA_ERR_INVALID_ARG);
        }
        result<list> made = create(name.empty() ? this->name() : name);
        if (made) {
            if (const cerrno rc = aaa_avpair_copy_list(list_, nullptr, &made->list_); rc != AAA_OK) {
                return failure(rc);
            }
        }
        return made;
    }

    /** Exchanges two lists; iterators and attributes stay with their pairs. */
    void swap(list &other) noexcept {
        std::swap(list_, other.list_);
        std::swap(spent_, other.spent_);
    }
    /** Exchanges two lists. */
    friend void swap(list &a, list &b) noexcept { a.swap(b); }

    /* ---- what it is ---- */

    /** Whether it can be used: neither an empty handle nor spent. */
    explicit operator bool() const noexcept { return list_ != nullptr; }
    /** Whether it was packed. */
    bool is_spent() const noexcept { return spent_ != nullptr; }
    /** Whether it has no pairs. */
    bool empty() const noexcept { return list_ == nullptr || list_->av_cnt == 0; }
    /** How many pairs it has; walks through all of them. */
    std::size_t size() const noexcept { return static_cast<std::size_t>(std::distance(begin(), end())); }
    /** How many pairs can be added before errc::full_list; no limit for a list that cannot be used. */
    std::size_t pairs_left() const noexcept {
        return list_ != nullptr ? static_cast<std::size_t>(full_count - list_->av_cnt) : SIZE_MAX;
    }
    /** Its name; empty for an empty handle. */
    std::string_view name() const noexcept {
        const avlist *const record = owned();
        return record == nullptr ? std::string_view("") : detail::text_in(record->av_name);
    }
    /** The number of buffers, and the bytes of buffers and pairs; zeros when it cannot be used. */
    memory_usage usage() const noexcept {
        memory_usage usage{};
        (void)aaa_avpair_get_mem_usage(list_, &usage);
        return usage;
    }
    /** Whether all its memory is as it should be; the reason to ask is a fault in the process. */
    bool is_sane() const noexcept { return aaa_avpair_list_is_sane(list_) != 0; }

    /** The first attribute. */
    iterator begin() const noexcept { return iterator(list_); }
    /** The end. */
    iterator end() const noexcept { return {}; }

    /** Whether names, markers and attributes are the same; false for lists that cannot be used. */
    friend bool operator==(const list &a, const list &b) noexcept {
        return aaa_avpair_compare_lists(a.list_, b.list_) != 0;
    }

    /* ---- reading ---- */

    /**
     * Finds an attribute.
     * @param[in] type     its number
     * @param[in] instance how many of that type to pass over
     * @return the attribute; errc::avpair_not_found
     */
    result<attribute> find(std::uint32_t type, std::uint32_t instance = 0) const noexcept {
        void *value = nullptr;
        if (const cerrno rc = aaa_avpair_find_type(type, nullptr, &value, nullptr, instance, list_);
            rc != AAA_OK) [[unlikely]] {
            return why(rc);
        }
        return attribute(static_cast<const avpair_t *>(value) - 1);
    }

    /** Finds an attribute by its place, from 0; to visit all of them, go through the range. */
    result<attribute> at(std::uint32_t place) const noexcept {
        void *value = nullptr;
        if (const cerrno rc = aaa_avpair_find_index(place, nullptr, nullptr, &value, nullptr, nullptr, list_);
            rc != AAA_OK) {
            return why(rc);
        }
        return attribute(static_cast<const avpair_t *>(value) - 1);
    }

    /** Whether there is an attribute of a type. */
    bool contains(std::uint32_t type) const noexcept { return find(type).has_value(); }

    /**
     * The value of an attribute as a type of C++; texts and bytes refer to the list.
     * @param[in] type     its number
     * @param[in] instance how many of that type to pass over
     * @return the value; errc::avpair_not_found, errc::invalid_avpair for a value that does not fit the type
     */
    template <readable T>
    result<T> get(std::uint32_t type, std::uint32_t instance = 0) const noexcept {
        const result<attribute> found = find(type, instance);
        if (!found) [[unlikely]] {
            return failure(found.code());
        }
        return found->get<T>();
    }

    /** The value of an attribute, of the type that the dictionary tells. */
    template <aaa_attr Type>
    result<value_for<Type>> get(std::uint32_t instance = 0) const noexcept {
        return get<value_for<Type>>(Type, instance);
    }

    /**
     * Copies the bytes of a value.
     * @param[in]  type     number of the attribute
     * @param[out] room     where the bytes go
     * @param[in]  instance how many of that type to pass over
     * @return the bytes in the room; errc::buffer_too_small, errc::avpair_not_found
     */
    result<std::span<std::byte>> copy_value(std::uint32_t type, std::span<std::byte> room,
                                            std::uint32_t instance = 0) const noexcept {
        std::uint32_t length = 0;
        if (const cerrno rc =
                aaa_util_avlist_value_copy(list_, type, instance, room.data(), room.size(), &length);
            rc != AAA_OK) {
            return why(rc);
        }
        return room.first(length);
    }

    /** Copies the method values of AAA_METHODLIST_ATTR; as copy_value(), the room in values. */
    result<std::span<std::uint32_t>> copy_methods(std::span<std::uint32_t> room) const noexcept {
        const auto capacity = static_cast<std::uint32_t>(room.size() < UINT32_MAX ? room.size() : UINT32_MAX);
        std::uint32_t count = 0;
        if (const cerrno rc = aaa_util_avlist_methodlist_copy(list_, room.data(), capacity, &count);
            rc != AAA_OK) {
            return why(rc);
        }
        return room.first(count);
    }

    /** Writes the list as text, passwords masked, cut where the room ends; nothing for an unusable list. */
    std::string_view print(std::span<char> room, const char *prefix = "") const noexcept {
        if (room.empty() || list_ == nullptr) {
            return {};
        }
        const auto size = static_cast<std::uint32_t>(room.size() < UINT32_MAX ? room.size() : UINT32_MAX);
        return aaa_util_print_avlist(room.data(), size, prefix, list_);
    }

    /* ---- changing ---- */

    /**
     * Appends an attribute.
     * @param[in] type    its number; AAA_ATTR_MAX is refused
     * @param[in] value   see aaa/cpp/value.hpp; copied
     * @param[in] options tag and flags
     * @return errc::no_memory, errc::full_list, errc::invalid_argument, errc::text_with_nul
     */
    template <storable Value>
    [[gnu::always_inline]] result<void> add(std::uint32_t type, const Value &value,
                                            pair_options options = {}) noexcept {
        if (const cerrno refused = refusal(type); refused != AAA_OK) [[unlikely]] {
            return why(refused);
        }
        return detail::store_value(value, [&](const void *bytes, std::uint32_t length) {
            return outcome(aaa_avpair_add(type, options.flags, bytes, options.tag, length, list_));
        });
    }

    /** Appends the text in a buffer, up to its first NUL. */
    template <std::size_t N>
    result<void> add(std::uint32_t type, char (&buffer)[N], pair_options options = {}) noexcept {
        return add(type, detail::text_in(buffer), options);
    }

    /** Appends an attribute whose type the dictionary tells: another type of value does not compile. */
    template <aaa_attr Type, storable_as<Type> Value>
    [[gnu::always_inline]] result<void> add(const Value &value, pair_options options = {}) noexcept {
        static_assert(Type != AAA_ATTR_ENUM_END_, "this type marks deleted pairs");
        if constexpr (std::integral<value_for<Type>> && std::integral<Value>) {
            if (!std::in_range<value_for<Type>>(value)) {
                return errc::invalid_argument;
            }
        }
        if constexpr (number<value_for<Type>>) {
            return add(Type, static_cast<value_for<Type>>(value), options);
        } else {
            return add(Type, value, options);
        }
    }
    /** Appends the text in a buffer, up to its first NUL. */
    template <aaa_attr Type, std::size_t N>
    requires storable_as<std::string_view, Type> result<void> add(char (&buffer)[N],
                                                                  pair_options options = {})
    noexcept { return add<Type>(detail::text_in(buffer), options); }

    /**
     * Changes an attribute, or appends it where there are not that many of the type.
     *
     * With another length the pair moves to the end of the list. Flags are added to those of the pair.
     * @param[in] type     its number
     * @param[in] value    see aaa/cpp/value.hpp; copied
     * @param[in] options  tag and flags
     * @param[in] instance how many of that type to pass over
     * @return as add(); after errc::no_memory the old attribute may be gone
     */
    template <storable Value>
    result<void> update(std::uint32_t type, const Value &value, pair_options options = {},
                        std::uint32_t instance = 0) noexcept {
        return detail::store_value(value, [&](const void *bytes, std::uint32_t length) -> result<void> {
            const cerrno refused = refusal(type);
            /* A full list has room for a new value of a pair that it has. */
            if (refused != AAA_OK &&
                !(refused == static_cast<cerrno>(errc::full_list) && find(type, instance))) [[unlikely]] {
                return why(refused);
            }
            return outcome(aaa_avpair_update(type, options.flags, const_cast<void *>(bytes), options.tag,
                                             length, instance, list_));
        });
    }
    /** Changes or appends the text in a buffer, up to its first NUL. */
    template <std::size_t N>
    result<void> update(std::uint32_t type, char (&buffer)[N], pair_options options = {},
                        std::uint32_t instance = 0) noexcept {
        return update(type, detail::text_in(buffer), options, instance);
    }

    /**
     * Changes the attribute at a position; as update(). The position is spent.
     * @return as update(); errc::invalid_argument for an end, a position in another list, or a deleted pair
     */
    template <storable Value>
    result<void> update(iterator position, const Value &value, pair_options options = {}) noexcept {
        if (!holds(position.at_)) {
            return why(AAA_ERR_INVALID_ARG);
        }
        return detail::store_value(value, [&](const void *bytes, std::uint32_t length) -> result<void> {
            return outcome(aaa_avpair_update_by_iterator(&position.at_, options.flags, bytes, options.tag,
                                                         length, list_));
        });
    }

    /** The same with the text in a buffer, up to its first NUL. */
    template <std::size_t N>
    result<void> update(iterator position, char (&buffer)[N], pair_options options = {}) noexcept {
        return update(position, detail::text_in(buffer), options);
    }

    /** Deletes an attribute. */
    result<void> erase(std::uint32_t type, std::uint32_t instance = 0) noexcept {
        return outcome(aaa_avpair_delete_by_type_instance(type, instance, list_, nullptr));
    }

    /** Deletes the first attribute that has this type and value. */
    template <storable Value>
    result<void> erase_value(std::uint32_t type, const Value &value) noexcept {
        return detail::store_value(value, [&](const void *bytes, std::uint32_t length) -> result<void> {
            return type == AAA_ATTR_MAX ? why(AAA_ERR_INVALID_ARG)
                                        : outcome(aaa_avpair_delete_by_type_value(
                                              type, const_cast<void *>(bytes), length, list_, nullptr));
        });
    }

    /** The same with the text in a buffer, up to its first NUL. */
    template <std::size_t N>
    result<void> erase_value(std::uint32_t type, char (&buffer)[N]) noexcept {
        return erase_value(type, detail::text_in(buffer));
    }

    /**
     * Deletes the attribute at a position, which is spent like every other one.
     * @return errc::invalid_argument for an end, a position in another list, or a deleted pair
     */
    result<void> erase(iterator position) noexcept {
        if (!holds(position.at_)) {
            return why(AAA_ERR_INVALID_ARG);
        }
        return outcome(aaa_avpair_delete_by_iterator(&position.at_, list_));
    }

    /**
     * Deletes the attributes for which a function says so, in the time that copying the others takes.
     * @return how many; after errc::no_memory the list is as it was
     */
    template <typename Predicate>
    result<std::size_t> erase_if(Predicate gone) {
        if (list_ == nullptr) {
            return why(AAA_ERR_INVALID_ARG);
        }
        result<list> rest = create(name());
        if (!rest) {
            return failure(rest.code());
        }
        std::size_t count = 0;
        for (const attribute pair : *this) {
            if (gone(pair)) {
                count++;
            } else if (const result<void> kept =
                           rest->add(pair.type(), pair.value(), {pair.tag(), pair.flags()});
                       !kept) {
                return failure(kept.code());
            }
        }
        if (count != 0) {
            rest->list_->marker = list_->marker;
            (void)aaa_avpair_switch(list_, rest->list_);
        }
        return count;
    }

    /** Deletes everything; the name stays. A spent list can be used again. */
    result<void> clear() noexcept {
        if (spent_ != nullptr) {
            list_ = std::exchange(spent_, nullptr);
        }
        if (list_ == nullptr) {
            return errc::empty_handle;
        }
        aaa_avpair_clear(list_);
        return {};
    }

    /* ---- two lists ----
     *
     * Each may be given this list itself: it reads the pairs that the list has at the call. The ones
     * that add pairs fail with errc::full_list, and change nothing, where not all of them fit. */

    /** Appends all attributes of another list; those before a failure stay. */
    result<void> append(const list &other) noexcept {
        return with(
            other, [&] { return other.size(); }, [&] { return aaa_avpair_list_concat(list_, other.list_); });
    }
    /** Appends the attributes that have one of the flags. */
    result<void> append_flagged(const list &other, std::uint32_t flags) noexcept {
        return with(
            other, [&] { return other.flagged(flags); },
            [&] { return aaa_avpair_add_from_list_by_flags(other.list_, list_, flags); });
    }
    /**
     * Changes the first attribute of each type, or appends it, with every attribute of another list.
     * With this list itself, the result is that of a merge with a copy of it. Each attribute is
     * looked for in this list: the time grows with the product of both lengths, unlike that of
     * append().
     */
    result<void> merge(const list &other) noexcept {
        if (other.list_ == list_ && list_ != nullptr) {
            return with_copy([&](const list &copy) { return merge(copy); });
        }
        return with(
            other, [&] { return added_by_merge(other, every_flag); },
            [&] { return aaa_avpair_list_concat_with_replace(list_, other.list_); });
    }
    /** Merges the attributes that have one of the flags into a list that is not empty. */
    result<void> merge_flagged(const list &other, std::uint32_t flags) noexcept {
        if (list_ != nullptr && empty()) {
            return errc::invalid_argument;
        }
        if (other.list_ == list_ && list_ != nullptr) {
            return with_copy([&](const list &copy) { return merge_flagged(copy, flags); });
        }
        return with(
            other, [&] { return added_by_merge(other, flags); },
            [&] { return aaa_avpair_update_list_from_list_by_flags(other.list_, list_, flags); });
    }
    /** Rebuilds a list that is not empty with lengths, tags and flags of another one; see the C function. */
    result<void> reshape(const list &other) noexcept {
        if (list_ != nullptr && empty()) {
            return errc::invalid_argument;
        }
        return with(
            other, [&] { return size() > full_count ? SIZE_MAX : 0; },
            [&] { return aaa_avpair_update_list_from_list(other.list_, list_); });
    }

    /* ---- packing ---- */

    /** The bytes that packing needs; 0 when the list cannot be used. */
    std::size_t packed_size() const noexcept {
        return list_ != nullptr ? sizeof(avlist) + usage().used_mem : 0;
    }

    /**
     * Packs the list into room of the caller's. The list is spent afterwards, also when the room was
     * too small.
     * @return the number of bytes; errc::no_memory when the room is too small
     */
    result<std::size_t> pack_into(std::span<std::byte> room) noexcept {
        auto length = static_cast<std::uint32_t>(room.size() < INT32_MAX ? room.size() : INT32_MAX);
        char none = 0; /* no room has no address, which the function takes for a mistake of the caller */
        char *const begin = room.empty() ? &none : reinterpret_cast<char *>(room.data());
        const cerrno rc = aaa_avpair_pack_msg_to_buf(list_, begin, &length);
        if (rc != AAA_ERR_INVALID_ARG) [[likely]] {
            spent_ = std::exchange(list_, nullptr);
        }
        if (rc != AAA_OK) [[unlikely]] {
            return why_packed(rc);
        }
        return length;
    }

    /** Packs the list; it is spent afterwards, unless there was no memory for the bytes. */
    result<buffer> pack() noexcept {
        if (list_ == nullptr) {
            return why(AAA_ERR_INVALID_ARG);
        }
        result<buffer> bytes = buffer::make(packed_size());
        if (bytes) {
            if (const result<std::size_t> packed = pack_into(bytes->span()); !packed) {
                return failure(packed.code());
            }
        }
        return bytes;
    }

    /**
     * Fills an io-vector with the parts of the list, in host order, for a peer of the same memory layout.
     * @param[out] room at least usage().buf_cnt + 1 elements
     * @return the filled elements, which refer to the list; errc::buffer_too_small
     */
    result<std::span<iov_t>> gather(std::span<iov_t> room) const noexcept {
        auto count = static_cast<std::uint32_t>(room.size() < UINT32_MAX ? room.size() : UINT32_MAX);
        if (count == 0) {
            return why(AAA_ERR_BUFFER_TOO_SMALL);
        }
        if (const cerrno rc = aaa_avpair_pack_msg(list_, room.data(), &count); rc != AAA_OK) {
            return why(rc);
        }
        return room.first(count);
    }

    /* ---- for functions that call the C interface with native() ---- */

    /** The failure that a code means: of a null list, what is the matter with this one. */
    failure why(cerrno rc) const noexcept {
        if (list_ != nullptr) {
            return failure(rc);
        }
        return spent_ != nullptr ? errc::spent_list : errc::empty_handle;
    }
    /** A code as a result. */
    result<void> outcome(cerrno rc) const noexcept {
        if (rc == AAA_OK) [[likely]] {
            return {};
        }
        return why(rc);
    }
    /** Declares the list packed, for functions that pack it themselves. */
    void mark_spent() noexcept {
        if (list_ != nullptr) {
            spent_ = std::exchange(list_, nullptr);
        }
    }

  private:
    /* The pair that wraps the count ends the process. The count of a list that was unpacked is in
     * the sender's byte order, but grows and wraps like any other. */
    static constexpr std::uint16_t full_count = UINT16_MAX;
    static constexpr std::uint64_t every_flag = UINT64_MAX;

    explicit list(avlist *mine) noexcept : list_(mine) {}

    avlist *owned() const noexcept { return list_ != nullptr ? list_ : spent_; }

    /* Why a pair must not be added. */
    cerrno refusal(std::uint32_t type) const noexcept {
        if (list_ == nullptr || type == AAA_ATTR_MAX) [[unlikely]] {
            return AAA_ERR_INVALID_ARG;
        }
        if (list_->av_cnt == full_count) [[unlikely]] {
            return static_cast<cerrno>(errc::full_list);
        }
        return AAA_OK;
    }

    /* Whether a position is at a live pair of this list. The C functions do not look: they would count the
     * pair, and unlink its buffer, in the wrong list. Of the position's buffer only the address is used
     * until it is found among those of the list, as a spent position may be in memory that was freed. */
    bool holds(const aaa_avpair_iterator_t &at) const noexcept {
        if (list_ == nullptr) {
            return false;
        }
        const avpair_buffer_t *buf = list_->avpair_first_buf;
        while (buf != nullptr && buf != at.curr_buf) {
            buf = buf != list_->avpair_last_buf ? buf->hdr.next : nullptr;
        }
        if (buf == nullptr) {
            return false;
        }
        const auto pair = reinterpret_cast<std::uintptr_t>(at.curr_avp);
        const auto first = reinterpret_cast<std::uintptr_t>(buf) + sizeof *buf;
        const auto end = reinterpret_cast<std::uintptr_t>(buf->hdr.free_mem);
        return first <= pair && pair < end && end - pair >= sizeof(avpair_t) &&
               at.curr_avp->av_type != AAA_ATTR_MAX;
    }

    failure why_packed(cerrno rc) const noexcept { return rc == AAA_ERR_INVALID_ARG ? why(rc) : failure(rc); }

    /* How many pairs have one of the flags. */
    std::size_t flagged(std::uint32_t flags) const noexcept {
        std::size_t count = 0;
        for (const attribute pair : *this) {
            count += (pair.flags() & flags) != 0 ? 1u : 0u;
        }
        return count;
    }

    /* How many pairs a merge with another list adds: the types of it that this one does not have. Counted
     * only where the pairs of the other one might not fit, because it takes as long as the merge. */
    std::size_t added_by_merge(const list &other, std::uint64_t flags) const noexcept {
        const auto taken = [flags](attribute pair) {
            return flags == every_flag || (pair.flags() & flags) != 0;
        };
        if (other.size() <= pairs_left()) {
            return 0;
        }
        std::size_t count = 0;
        for (iterator at = other.begin(); at != other.end() && count <= pairs_left(); ++at) {
            if (!taken(*at) || contains(at->type())) {
                continue;
            }
            iterator first = other.begin(); /* of the same type */
            while (first != at && !(first->type() == at->type() && taken(*first))) {
                ++first;
            }
            count += first == at ? 1u : 0u;
        }
        return count;
    }

    template <typename Operation>
    result<void> with_copy(Operation operation) const noexcept {
        const result<list> copy = clone();
        return copy ? operation(*copy) : failure(copy.code());
    }

    template <typename Added, typename Operation>
    result<void> with(const list &other, Added added, Operation operation) noexcept {
        if (list_ == nullptr) {
            return why(AAA_ERR_INVALID_ARG);
        }
        if (other.list_ == nullptr) {
            return other.why(AAA_ERR_INVALID_ARG);
        }
        if (added() > pairs_left()) {
            return errc::full_list;
        }
        return outcome(operation());
    }

    avlist *list_ = nullptr;
    avlist *spent_ = nullptr; /* the list once it is packed */
};

}  // namespace aaa

#endif /* AAA_CPP_LIST_HPP */
