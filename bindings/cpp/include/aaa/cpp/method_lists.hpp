/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_CPP_METHOD_LISTS_HPP
#define AAA_CPP_METHOD_LISTS_HPP

/**
 * @file
 * @brief Method lists: lookup, verification, notification of changes.
 */

#include <array>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>

#include "aaa/cpp/names.hpp"
#include "aaa/method_lists.h"

namespace aaa {

/** The methods of a list, in order, server groups as their numbers. */
class methods {
  public:
    /** No methods. */
    methods() noexcept = default;
    /** Copies the AAA_METHODS_WORDS words of lookup_methods(). */
    explicit methods(const std::uint32_t *words) noexcept {
        while (count_ < places_.size() && words[count_] != AAA_METHOD_NOTSET) {
            places_[count_] = static_cast<method_id>(words[count_]);
            count_++;
        }
    }
    /** The first method. */
    const method_id *begin() const noexcept { return places_.data(); }
    /** The end. */
    const method_id *end() const noexcept { return places_.data() + count_; }
    /** How many there are. */
    std::size_t size() const noexcept { return count_; }
    /** Whether there are none. */
    bool empty() const noexcept { return count_ == 0; }

  private:
    std::array<method_id, AAA_METHODS_WORDS> places_{};
    std::size_t count_ = 0;
};

/** Reads the methods of a list at a path such as "authentication/login/default". */
inline result<methods> get_methods(std::string_view path) noexcept {
    result<detail::texts<1>> texts = detail::texts<1>::copy({path});
    if (!texts) {
        return failure(texts.code());
    }
    std::uint32_t *words = nullptr;
    if (const cerrno rc = lookup_methods((*texts)[0], &words); rc != AAA_OK) {
        return failure(rc);
    }
    const detail::malloc_ptr<std::uint32_t> owner(words);
    return methods(words);
}

/** Succeeds when a method list exists; otherwise errc::not_found or why it cannot be told. */
inline result<void> find_method_list(function_kind function, std::string_view service_word,
                                     std::string_view name) noexcept {
    result<detail::texts<2>> texts = detail::texts<2>::copy({service_word, name});
    if (!texts) {
        return failure(texts.code());
    }
    const std::string_view function_word = name_of(function); /* a literal, with its NUL */
    if (const cerrno rc = aaa_util_lookup_methodlist(function_word.data(), (*texts)[0], (*texts)[1]);
        rc != AAA_OK) {
        return failure(rc);
    }
    return {};
}

/** Succeeds when a method list exists and suits a service. */
inline result<void> verify_method_list(function_kind function, service_kind service,
                                       std::string_view name) noexcept {
    result<detail::texts<1>> texts = detail::texts<1>::copy({name});
    if (!texts) {
        return failure(texts.code());
    }
    if (const cerrno rc =
            aaa_util_verify_methodlist(static_cast<int>(function), static_cast<int>(service), (*texts)[0]);
        rc != AAA_OK) {
        return failure(rc);
    }
    return {};
}

/** Whether a method list may have this name. */
inline bool is_method_list_name(std::string_view name) noexcept {
    result<detail::texts<1>> texts = detail::texts<1>::copy({name});
    return texts && aaa_is_name_valid((*texts)[0]) != 0;
}

/**
 * A registration for changes of a method list, which ends with the object.
 *
 * The function is called on the thread that dispatches the events of the platform. It must not
 * throw.
 */
class method_list_watch {
  public:
    /** Watches nothing. */
    method_list_watch() noexcept = default;
    method_list_watch(method_list_watch &&other) noexcept : record_(std::exchange(other.record_, {})) {}
    method_list_watch &operator=(method_list_watch &&other) noexcept {
        method_list_watch taken(std::move(other));
        std::swap(record_, taken.record_);
        return *this;
    }
    ~method_list_watch() { (void)stop(); }

    /**
     * Begins to watch a list.
     * @param[in] function of the list
     * @param[in] service  of the list
     * @param[in] name     of the list
     * @param[in] on_change any object that can be called without arguments; borrowed as long as the
     *                      registration exists
     */
    template <typename OnChange>
    static result<method_list_watch> start(function_kind function, service_kind service,
                                           std::string_view name, OnChange &on_change) noexcept {
        result<detail::texts<1>> texts = detail::texts<1>::copy({name});
        if (!texts) {
            return failure(texts.code());
        }
        method_list_watch made;
        const aaa_notify_cb_t call = [](const void *, void *argument, void *) -> std::int32_t {
            (*static_cast<OnChange *>(argument))();
            return 0;
        };
        if (const cerrno rc =
                aaa_mlist_change_register(number_of(function), number_of(service), (*texts)[0], call,
                                          std::addressof(on_change), nullptr, &made.record_);
            rc != AAA_OK) {
            return failure(rc); /* what was registered by then ends with the object */
        }
        return made;
    }

    /** Ends the registration. */
    result<void> stop() noexcept {
        if (record_.connection == 0) {
            return {};
        }
        const cerrno rc = aaa_mlist_change_unregister(&record_);
        record_ = {};
        if (rc != AAA_OK) {
            return failure(rc);
        }
        return {};
    }

  private:
    aaa_mlist_reg_t record_{};
};

}  // namespace aaa

#endif /* AAA_CPP_METHOD_LISTS_HPP */
