/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_CPP_CREDENTIALS_HPP
#define AAA_CPP_CREDENTIALS_HPP

/**
 * @file
 * @brief A user's credentials and the service attributes of a request.
 */

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

#include "aaa/cpp/accessors.hpp"
#include "aaa/credentials.h"

namespace aaa {

/**
 * A user's credentials. Move-only; the password is overwritten when it is replaced and when
 * the record goes.
 */
class credentials {
  public:
    /** An empty handle. */
    credentials() noexcept = default;

    /** Makes a record without credentials. */
    static result<credentials> create() noexcept {
        credentials made;
        made.record_.reset(static_cast<aaa_usercred_t *>(std::calloc(1, sizeof(aaa_usercred_t))));
        if (!made.record_) {
            return errc::no_memory;
        }
        return made;
    }

    /** Makes a record with what a login with a password needs. */
    static result<credentials> create(std::string_view username, std::string_view password) noexcept {
        result<credentials> made = create();
        if (made) {
            result<void> stored = made->set_username(username);
            if (stored) {
                stored = made->set_password(password);
            }
            if (!stored) {
                return failure(stored.code());
            }
        }
        return made;
    }

    /** Whether there is a record. */
    explicit operator bool() const noexcept { return record_ != nullptr; }

    /* ---- texts, copied ---- */

    /** The user name; the requests leave out one of more than 253 characters, so it is refused here. */
    result<void> set_username(std::string_view name) noexcept {
        constexpr std::size_t most = 253;
        return name.size() > most ? errc::invalid_argument : replace(&aaa_usercred_t::username, name);
    }
    /** The password. */
    result<void> set_password(std::string_view password) noexcept {
        return replace(&aaa_usercred_t::password, password);
    }
    /** The name of the terminal, of which 31 characters are sent. */
    result<void> set_terminal(std::string_view name) noexcept {
        return replace(&aaa_usercred_t::ttyname, name);
    }
    /** The address that the user comes from, of which 255 characters are sent. */
    result<void> set_remote_address(std::string_view address) noexcept {
        return replace(&aaa_usercred_t::remote_addr, address);
    }
    /** The mnemonic of the terminal, of which 31 characters are sent. */
    result<void> set_terminal_mnemonic(std::string_view name) noexcept {
        return replace(&aaa_usercred_t::tty_mnemonic, name);
    }
    /** The texts that were set; a request may fill in the remote address. Empty where none was. @{ */
    std::string_view username() const noexcept { return text(&aaa_usercred_t::username); }
    std::string_view password() const noexcept { return text(&aaa_usercred_t::password); }
    std::string_view terminal() const noexcept { return text(&aaa_usercred_t::ttyname); }
    std::string_view remote_address() const noexcept { return text(&aaa_usercred_t::remote_addr); }
    std::string_view terminal_mnemonic() const noexcept { return text(&aaa_usercred_t::tty_mnemonic); }
    /** @} */

    /* ---- numbers ---- */

    /** The handle of the interface. */
    result<void> set_interface(std::uint32_t handle) noexcept { return store(&aaa_usercred_t::ifh, handle); }
    /** The address of the user's peer. */
    result<void> set_address(ipv4 address) noexcept { return store(&aaa_usercred_t::ipaddr, address.number); }
    /** How the user has been authenticated. */
    result<void> set_authentication_method(method_id method) noexcept {
        return store(&aaa_usercred_t::authen_method, number_of(method));
    }
    /** The identifier that requests of the service plexa carry. */
    result<void> set_unique_id(std::uint32_t id) noexcept { return store(&aaa_usercred_t::unique_id, id); }
    /** The flag of the user database. */
    result<void> set_user_db_flag(std::uint32_t flag) noexcept {
        return store(&aaa_usercred_t::user_db_flag, flag);
    }

    /* ---- more ---- */

    /** CHAP data for requests of the service ppp. The bytes are copied. */
    result<void> set_chap_data(const chap_data &chap) noexcept {
        if (!record_) {
            return errc::empty_handle;
        }
        if (chap.data.size() > UINT32_MAX || chap.response.size() > UINT32_MAX) {
            return errc::invalid_argument;
        }
        result<buffer> bytes = buffer::make(chap.data.size() + chap.response.size());
        if (!bytes) {
            return failure(bytes.code());
        }
        if (!chap_) {
            chap_.reset(static_cast<aaa_chap_data_t *>(std::calloc(1, sizeof(aaa_chap_data_t))));
        }
        if (!chap_) {
            return errc::no_memory;
        }
        copy(bytes->span(), chap.data);
        copy(bytes->span().subspan(chap.data.size()), chap.response);
        chap_bytes_ = *std::move(bytes);
        *chap_ = detail::chap_record({chap.id, chap_bytes_.span().first(chap.data.size()),
                                      chap_bytes_.span().subspan(chap.data.size())});
        record_->chap_data = chap_.get();
        return {};
    }

    /**
     * Attributes that every request but accounting carries too. Handed over.
     * @param[in] attributes an empty handle takes them away again
     */
    result<void> set_state(list attributes) noexcept {
        if (!record_) {
            return errc::empty_handle;
        }
        if (attributes.is_spent()) {
            return errc::spent_list;
        }
        state_ = std::move(attributes);
        record_->state_args = state_.native();
        return {};
    }

    /** Attributes that requests of the service plexa carry too; as set_state(). */
    result<void> set_plexa_attributes(list attributes) noexcept {
        if (!record_) {
            return errc::empty_handle;
        }
        if (attributes.is_spent()) {
            return errc::spent_list;
        }
        plexa_ = std::move(attributes);
        record_->in_attr_list = plexa_.native();
        return {};
    }

    /** Appends the credentials to a list, as a request of this service and option has them. */
    result<void> add_to(list &target, service_kind service, authen_option option) noexcept {
        return add_to(target, service, number_of(option));
    }
    /** Appends the credentials to a list, as an accounting request of this service and option has them. */
    result<void> add_to(list &target, service_kind service, acct_option option) noexcept {
        return add_to(target, service, number_of(option));
    }
    /** Appends the terminal mnemonic and the flag of the user database to a list. */
    result<void> add_terminal_to(list &target, bool accounting = false) noexcept {
        if (!record_) {
            return errc::empty_handle;
        }
        return detail::change(
            target,
            [&] {
                return aaa_lib_update_mnemonic_and_flags(record_.get(), target.native(), accounting ? 0 : 1);
            },
            2);
    }

    /** How many attributes requests carry too, by set_state() and set_plexa_attributes(). */
    std::size_t further_attributes() const noexcept { return state_.size() + plexa_.size(); }
    /** The record for functions of the C interface; null for an empty handle. */
    aaa_usercred_t *native() noexcept { return record_.get(); }

  private:
    struct release {
        void operator()(aaa_usercred_t *record) const noexcept {
            std::free(record->tty_mnemonic); /* a copy of a record shares it, so the C function does not */
            record->tty_mnemonic = nullptr;
            record->chap_data = nullptr; /* belongs to the object */
            (void)aaa_util_free_usercred(record, AAA_SVC_LOGIN, 0);
        }
    };

    static void copy(std::span<std::byte> to, std::span<const std::byte> from) noexcept {
        if (!from.empty()) {
            std::memcpy(to.data(), from.data(), from.size());
        }
    }

    result<void> add_to(list &target, service_kind service, std::uint32_t option) noexcept {
        if (!record_) {
            return errc::empty_handle;
        }
        constexpr std::size_t own = 16;
        return detail::change(
            target,
            [&] {
                return aaa_util_add_usercred_in_avlist(record_.get(), target.native(),
                                                       static_cast<std::int32_t>(service), 0, option);
            },
            own + state_.size() + plexa_.size());
    }

    result<void> replace(char *aaa_usercred_t::*field, std::string_view value) noexcept {
        if (!record_) {
            return errc::empty_handle;
        }
        if (value.find('\0') != std::string_view::npos) {
            return errc::text_with_nul;
        }
        auto *copied = static_cast<char *>(std::calloc(value.size() + 1, 1));
        if (copied == nullptr) {
            return errc::no_memory;
        }
        if (!value.empty()) {
            std::memcpy(copied, value.data(), value.size());
        }
        char *const before = std::exchange(record_.get()->*field, copied);
        detail::wipe(before, before != nullptr ? std::strlen(before) : 0);
        std::free(before);
        return {};
    }

    result<void> store(std::uint32_t aaa_usercred_t::*field, std::uint32_t value) noexcept {
        if (!record_) {
            return errc::empty_handle;
        }
        record_.get()->*field = value;
        return {};
    }

    std::string_view text(char *aaa_usercred_t::*field) const noexcept {
        return record_ && record_.get()->*field != nullptr ? record_.get()->*field : std::string_view{};
    }

    std::unique_ptr<aaa_usercred_t, release> record_;
    list state_;
    list plexa_;
    buffer chap_bytes_;
    detail::malloc_ptr<aaa_chap_data_t> chap_;
};

/**
 * The service attributes of a request: which of them are sent depends on its service, as
 * aaa_util_add_svc_attrs_in_avlist() says. The texts are borrowed until the request is encoded.
 */
struct service_attributes {
    std::string_view command{};             /**< a password in an FTP address in it is not sent */
    std::string_view application_session{}; /**< session of the application */
    std::string_view message_id{};          /**< of the application */
    std::string_view procedure{};           /**< name of the procedure called */
    std::string_view commit_start{};        /**< time at which a commit began */
    std::string_view commit_end{};          /**< time at which it ended */
    std::string_view xpath1{};              /**< first path of the call */
    std::string_view xpath2{};              /**< second path */
    std::string_view xpath3{};              /**< third path */
    std::string_view xpath4{};              /**< fourth path */
    std::string_view commit_id{};           /**< of the configuration */
    std::uint64_t task_map = 0;             /**< of the services cmd, rcmd and api */
    list *ike = nullptr;                    /**< attributes of the service ike */
};

namespace detail {

/* The record of the C interface with texts of its own: masking changes the command in place. */
class service_record {
  public:
    static result<service_record> make(service_kind service, const service_attributes &from) noexcept {
        service_record made;
        if (service == service_kind::ike) {
            if (from.ike == nullptr) {
                return errc::invalid_argument;
            }
            if (from.ike->native() == nullptr) {
                return from.ike->why(AAA_ERR_INVALID_ARG);
            }
            made.record_.cmd = reinterpret_cast<char *>(from.ike->native()); /* kept: it holds a list then */
            return made;
        }
        const bool commands =
            service == service_kind::cmd || service == service_kind::rcmd || service == service_kind::api;
        /* These need a command, which may be empty. */
        const std::string_view command =
            commands && from.command.data() == nullptr ? std::string_view("") : from.command;
        result<texts<11>> copied = texts<11>::copy(
            {command, from.application_session, from.message_id, from.procedure, from.commit_start,
             from.commit_end, from.xpath1, from.xpath2, from.xpath3, from.xpath4, from.commit_id});
        if (!copied) {
            return failure(copied.code());
        }
        made.texts_ = *std::move(copied);
        char **const fields[] = {&made.record_.cmd,
                                 &made.record_.app_sessid,
                                 &made.record_.rpc_msgid,
                                 &made.record_.rpc_name,
                                 &made.record_.commit_start_time,
                                 &made.record_.commit_end_time,
                                 &made.record_.xpath1,
                                 &made.record_.xpath2,
                                 &made.record_.xpath3,
                                 &made.record_.xpath4,
                                 &made.record_.commit_id};
        for (std::size_t i = 0; i < std::size(fields); ++i) {
            *fields[i] = made.texts_[i];
        }
        if (commands) { /* kept: the pointer's own bytes are the task map then */
            static_assert(sizeof made.record_.app_sessid == sizeof from.task_map);
            std::memcpy(&made.record_.app_sessid, &from.task_map, sizeof from.task_map);
        }
        return made;
    }

    aaa_svc_attrs_t *native() noexcept { return &record_; }

  private:
    aaa_svc_attrs_t record_{};
    texts<11> texts_;
};

}  // namespace detail

/** Appends service attributes to a list, as a request of this service has them. */
inline result<void> add_service_attributes(list &target, service_kind service,
                                           const service_attributes &attributes) noexcept {
    result<detail::service_record> record = detail::service_record::make(service, attributes);
    if (!record) {
        return failure(record.code());
    }
    constexpr std::size_t own = 12;
    return detail::change(
        target,
        [&] {
            return aaa_util_add_svc_attrs_in_avlist(static_cast<std::int32_t>(service), target.native(),
                                                    record->native());
        },
        own + (attributes.ike != nullptr ? attributes.ike->size() : 0));
}

}  // namespace aaa

#endif /* AAA_CPP_CREDENTIALS_HPP */
