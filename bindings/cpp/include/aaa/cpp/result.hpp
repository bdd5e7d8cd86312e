/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_CPP_RESULT_HPP
#define AAA_CPP_RESULT_HPP

/**
 * @file
 * @brief Result codes as std::error_code, and a value or the code of its failure.
 */

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <system_error>
#include <type_traits>
#include <utility>

#include "aaa/result_codes.h"
#include "platform/cerr.h"

namespace aaa {

/**
 * The result codes of the library, and those of this binding: the last four, which the
 * library never returns. A function may also fail with a code of the platform, which has
 * no enumerator.
 */
enum class errc : std::uint32_t {
    no_memory = AAA_ERR_NOMEM,
    invalid_argument = AAA_ERR_INVALID_ARG,
    invalid_type = AAA_ERR_INVALID_TYPE,
    invalid_privilege = AAA_ERR_INVALID_PRIV,
    avpair_processing = AAA_ERR_AVPAIR_PROCESSING,
    no_methods_specified = AAA_ERR_NO_METHODS_SPECIFIED,
    no_methods_available = AAA_ERR_NO_METHODS_AVAILABLE,
    server_connect_failed = AAA_ERR_SERVER_CONNECT_FAILED,
    no_destination = AAA_ERR_NO_DESTINATION,
    cannot_redirect = AAA_ERR_CANNOT_REDIRECT,
    authorization_failed = AAA_ERR_AUTHOR_FAILED,
    no_channels = AAA_ERR_NO_CHANNELS,
    invalid_line_type = AAA_ERR_INVALID_LINE_TYPE,
    not_found = AAA_ERR_NOT_FOUND,
    accounting_service = AAA_ERR_ACCT_SERVICE,
    accounting_not_defined = AAA_ERR_ACCT_NOT_DEFINED,
    init_failed = AAA_ERR_INIT_FAILED,
    interrupted = AAA_ERR_INTERRUPTED,
    receive_response = AAA_ERR_RECEIVE_RESPONSE,
    invalid_message_type = AAA_ERR_INVALID_MSG_TYPE,
    internal = AAA_ERR_INTERNAL,
    no_accounting_state = AAA_ERR_NO_ACCT_STATE,
    invalid_message_size = AAA_ERR_INVALID_MSG_SIZE,
    not_supported = AAA_ERR_NOT_SUPPORTED,
    buffer_too_small = AAA_ERR_BUFFER_TOO_SMALL,
    not_connected = AAA_ERR_NOT_CONNECTED,
    unexpected_reply = AAA_ERR_UNEXPECTED_REPLY,
    lock = AAA_ERR_LOCK,
    not_empty = AAA_ERR_NOT_EMPTY,
    unsupported_version = AAA_ERR_UNSUPPORTED_VERSION,
    os = AAA_ERR_OS,
    lwm_send = AAA_ERR_LWM_SEND,
    unknown_taskid = AAA_ERR_UNKNOWN_TASKID,
    timeout = AAA_ERR_TIMEOUT,
    invalid_avpair = AAA_ERR_INVALID_AVPAIR,
    avpair_not_found = AAA_ERR_AVPAIR_NOT_FOUND,
    authentication_failed = AAA_ERR_AUTHEN_FAILED,
    invalid_client_data = AAA_ERR_INVALID_CLIENT_DATA,
    not_configured = AAA_ERR_NOT_CONFIGURED,
    reserved_taskid = AAA_ERR_RESERVED_TASKID,
    locald_timeout = AAA_ERR_LOCALD_TIMEOUT,
    invalid_method = AAA_ERR_INVALID_METHOD,
    group_in_use = AAA_ERR_SG_IN_USE,
    group_mapping = AAA_ERR_SG_MAPPING,
    index_in_use = AAA_ERR_INDEX_IN_USE,
    group_name_of_other_protocol = AAA_ERR_SG_NAME_OTHER_PROTOCOL,
    failover = AAA_ERR_FAILOVER,
    end_of_list = AAA_ERR_END_OF_LIST,
    end_of_list_status = AAA_STATUS_END_OF_LIST,
    bad_encrypted_key = AAA_ERR_BAD_ENCRYPTED_KEY,

    spent_list = 0xffffff01u,   /**< the list was packed; it can be cleared or destroyed, nothing else */
    empty_handle = 0xffffff02u, /**< the object was moved from, or never made */
    full_list = 0xffffff03u,    /**< one more pair would wrap the count of the list, which ends the process */
    text_with_nul = 0xffffff04u /**< the text contains a NUL, at which readers would take it to end */
};

namespace detail {

inline const char *own_text(std::uint32_t code) noexcept {
    switch (static_cast<errc>(code)) {
        case errc::spent_list:
            return "The list was packed: clear it or make another one";
        case errc::empty_handle:
            return "The object was moved from, or never made";
        case errc::full_list:
            return "The list holds as many pairs as it can";
        case errc::text_with_nul:
            return "The text contains a NUL character";
        default:
            return nullptr;
    }
}

class category_type final : public std::error_category {
  public:
    constexpr category_type() noexcept = default;
    const char *name() const noexcept override { return "aaa"; }

    std::string message(int value) const override {
        const auto code = static_cast<std::uint32_t>(value);
        const char *const text = own_text(code);
        return text != nullptr ? text : cerr_strerror(code);
    }

    std::error_condition default_error_condition(int value) const noexcept override {
        constexpr int last_errno = 4095;
        if (value > 0 && value <= last_errno) {  // small codes are errno values
            return {value, std::generic_category()};
        }
        switch (static_cast<errc>(static_cast<std::uint32_t>(value))) {
            case errc::no_memory:
                return std::errc::not_enough_memory;
            case errc::invalid_argument:
            case errc::text_with_nul:
            case errc::spent_list:
            case errc::empty_handle:
                return std::errc::invalid_argument;
            case errc::timeout:
                return std::errc::timed_out;
            case errc::not_connected:
                return std::errc::not_connected;
            case errc::not_supported:
                return std::errc::not_supported;
            case errc::interrupted:
                return std::errc::interrupted;
            case errc::buffer_too_small:
                return std::errc::no_buffer_space;
            case errc::invalid_message_size:
            case errc::invalid_message_type:
                return std::errc::bad_message;
            default:
                return {value, *this};
        }
    }
};

/* Never destroyed, so that functions that run at the end of the process can name errors. */
union category_holder {
    constexpr category_holder() noexcept : category() {}
    ~category_holder() {}
    category_type category;
};
inline constinit category_holder the_category;

}  // namespace detail

/** The category of all errors of this binding. Its values are the library's 32-bit codes. */
inline const std::error_category &category() noexcept {
    return detail::the_category.category;
}

/** Lets an enumerator be compared with and converted to a std::error_code. */
inline std::error_code make_error_code(errc code) noexcept {
    return {static_cast<int>(static_cast<std::uint32_t>(code)), category()};
}

/** A code on its way into a result. A result takes AAA_OK, which is not a failure, as errc::internal. */
struct failure {
    cerrno code; /**< what a function of the library returned */
    /** For a code that a function of the library returned. */
    constexpr explicit failure(cerrno rc) noexcept : code(rc) {}
    /** For a code with a name. */
    constexpr failure(errc rc) noexcept : code(static_cast<cerrno>(rc)) {}
};

namespace detail {

/* A result without a value must not pass for one that has a value. */
constexpr cerrno failed(failure why) noexcept {
    return why.code != AAA_OK ? why.code : AAA_ERR_INTERNAL;
}

}  // namespace detail

/**
 * A value, or the code of the failure to get it.
 *
 * Like std::optional, access without a value is undefined for * and ->; value() ends the
 * process with an exception, or without exceptions by std::abort().
 */
template <typename T>
class [[nodiscard]] result {
    static_assert(!std::is_reference_v<T>, "a result holds a value");

  public:
    /** The type of the value. */
    using value_type = T;

    /** A success. @{ */
    constexpr result(T &&value) noexcept(std::is_nothrow_move_constructible_v<T>)
        : value_(std::move(value)), code_(AAA_OK) {}
    constexpr result(const T &value) : value_(value), code_(AAA_OK) {}
    /** @} */
    /** A failure. */
    constexpr result(failure why) noexcept : code_(detail::failed(why)) {}
    /** A failure with a name. */
    constexpr result(errc why) noexcept : result(failure(why)) {}

    /** Whether there is a value. */
    constexpr bool has_value() const noexcept { return code_ == AAA_OK; }
    /** Whether there is a value. */
    constexpr explicit operator bool() const noexcept { return has_value(); }
    /** The code as functions of the library return it; AAA_OK with a value. */
    constexpr cerrno code() const noexcept { return code_; }
    /** Why there is no value; "no error" when there is one. */
    std::error_code error() const noexcept { return {static_cast<int>(code_), category()}; }

    /** The value. @{ */
    constexpr T &operator*() &noexcept { return *value_; }
    constexpr const T &operator*() const &noexcept { return *value_; }
    constexpr T &&operator*() &&noexcept { return *std::move(value_); }
    constexpr T *operator->() noexcept { return &*value_; }
    constexpr const T *operator->() const noexcept { return &*value_; }
    /** @} */

    /** The value; without one, std::system_error is thrown, or the process is ended. @{ */
    T &value() & { return checked(), *value_; }
    const T &value() const & { return checked(), *value_; }
    T &&value() && { return checked(), *std::move(value_); }
    /** @} */

    /** The value, or another one. @{ */
    template <typename U>
    constexpr T value_or(U &&other) const & {
        return has_value() ? *value_ : static_cast<T>(std::forward<U>(other));
    }
    template <typename U>
    constexpr T value_or(U &&other) && {
        return has_value() ? *std::move(value_) : static_cast<T>(std::forward<U>(other));
    }
    /** @} */

    /** Goes on with a function that takes the value and returns a result. @{ */
    template <typename F>
    constexpr auto and_then(F &&next) && -> std::invoke_result_t<F, T &&> {
        if (!has_value()) {
            return failure(code_);
        }
        return std::forward<F>(next)(*std::move(value_));
    }
    template <typename F>
    constexpr auto and_then(F &&next) const & -> std::invoke_result_t<F, const T &> {
        if (!has_value()) {
            return failure(code_);
        }
        return std::forward<F>(next)(*value_);
    }
    /** @} */

    /** Turns the value into another one. */
    template <typename F>
    constexpr auto transform(F &&change) && -> result<std::invoke_result_t<F, T &&>> {
        if (!has_value()) {
            return failure(code_);
        }
        return std::forward<F>(change)(*std::move(value_));
    }

  private:
    void checked() const {
        if (!has_value()) [[unlikely]] {
#if defined(__cpp_exceptions)
            throw std::system_error(error());
#else
            std::abort();
#endif
        }
    }

    std::optional<T> value_;
    cerrno code_;
};

/** The result of a function that returns nothing else. */
template <>
class [[nodiscard]] result<void> {
  public:
    /** The type of the value. */
    using value_type = void;

    /** A success. */
    constexpr result() noexcept = default;
    /** A failure. */
    constexpr result(failure why) noexcept : code_(detail::failed(why)) {}
    /** A failure with a name. */
    constexpr result(errc why) noexcept : result(failure(why)) {}

    /** Whether it succeeded. */
    constexpr bool has_value() const noexcept { return code_ == AAA_OK; }
    /** Whether it succeeded. */
    constexpr explicit operator bool() const noexcept { return has_value(); }
    /** The code as functions of the library return it; AAA_OK after a success. */
    constexpr cerrno code() const noexcept { return code_; }
    /** Why it failed; "no error" when it did not. */
    std::error_code error() const noexcept { return {static_cast<int>(code_), category()}; }

    /** Throws std::system_error, or ends the process, when it failed. */
    void value() const {
        if (!has_value()) [[unlikely]] {
#if defined(__cpp_exceptions)
            throw std::system_error(error());
#else
            std::abort();
#endif
        }
    }

    /** Goes on with a function that returns a result. */
    template <typename F>
    constexpr auto and_then(F &&next) const -> std::invoke_result_t<F> {
        if (!has_value()) {
            return failure(code_);
        }
        return std::forward<F>(next)();
    }

  private:
    cerrno code_ = AAA_OK;
};

}  // namespace aaa

/* Makes aaa::errc comparable with std::error_code. Doxygen 1.9 cannot read it. */
/** @cond */
template <>
struct std::is_error_code_enum<aaa::errc> : std::true_type {};
/** @endcond */

#endif /* AAA_CPP_RESULT_HPP */
