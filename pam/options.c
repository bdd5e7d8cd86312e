/* SPDX-License-Identifier: Apache-2.0 */
#include "options.h"

#include <security/pam_ext.h>
#include <stddef.h>
#include <string.h>
#include <syslog.h>

#include "settings.h"
#include "visible.h"

#define MOST_ROUNDS 64u

/* ---- options without a value --------------------------------------------------- */

static const struct {
    const char *name;
    size_t field;
} flags[] = {
    {"debug", offsetof(options_t, debug)},
    {"try_first_pass", offsetof(options_t, try_first)},
    {"use_first_pass", offsetof(options_t, use_first)},
    {"use_authtok", offsetof(options_t, use_authtok)},
    {"skip_passwd", offsetof(options_t, ask_later)},
    {"log_unknown_names", offsetof(options_t, unknown_names)},
    {"ruser", offsetof(options_t, caller)},
    {"use_ruser", offsetof(options_t, caller)},
    {"privilege_level", offsetof(options_t, level)},
    {"nodelay", offsetof(options_t, no_delay)},
};

static int set_flag(options_t *options, const char *option) {
    for (size_t i = 0; i < sizeof flags / sizeof flags[0]; i++) {
        if (strcmp(option, flags[i].name) == 0) {
            *(int *)(void *)((char *)options + flags[i].field) = 1;
            return 1;
        }
    }
    return 0;
}

/* ---- options of other modules, which have no equivalent here --------------------- */

static const struct {
    const char *name;
    const char *instead;
} foreign[] = {
    {"conf", "the service has the servers; see aaactl(1)"},
    {"server", "the service has the servers; see aaactl(1)"},
    {"secret", "the service has the servers' keys; see aaactl(1)"},
    {"source_ip", "the service connects to the servers"},
    {"client_id", "the service names this node"},
    {"retry", "the service repeats requests to servers"},
    {"protocol", "the service chooses it by the kind of session"},
    {"acct_all", "the service decides where records go"},
    {"accounting_bug", "the service makes the packets"},
    {"prompt_attribute", "challenges are always shown"},
    {"localifdown", "use the control [success=done authinfo_unavail=ignore default=die]"},
    {"require_message_authenticator", "the service checks answers"},
};

static const char *instead_of(const char *option) {
    for (size_t i = 0; i < sizeof foreign / sizeof foreign[0]; i++) {
        if (strcmp(option, foreign[i].name) == 0 || settings_value(option, foreign[i].name) != NULL) {
            return foreign[i].instead;
        }
    }
    return NULL;
}

/* ---- options with a value ---------------------------------------------------------- */

static int set_service(options_t *options, const char *value) {
    static const struct {
        const char *name;
        int32_t number;
    } services[] = {
        {"login", AAA_SVC_LOGIN},     {"exec", AAA_SVC_EXEC},
        {"shell", AAA_SVC_EXEC},      {"admin_exec", AAA_SVC_ADMIN_EXEC},
        {"ksh", AAA_SVC_KSH},         {"ppp", AAA_SVC_PPP},
        {"http", AAA_SVC_HTTP},       {"api", AAA_SVC_API},
        {"netconf", AAA_SVC_NETCONF},
    };
    for (size_t i = 0; i < sizeof services / sizeof services[0]; i++) {
        if (strcmp(value, services[i].name) == 0) {
            options->service = services[i].number;
            return 1;
        }
    }
    return 0;
}

static int set_login(options_t *options, const char *value) {
    if (strcmp(value, "login") == 0 || strcmp(value, "ascii") == 0) {
        options->authen_option = AAA_AO_ASCII_LOGIN;
        return 1;
    }
    if (strcmp(value, "pap") == 0) {
        options->authen_option = AAA_AO_IB_PAP_V1;
        return 1;
    }
    return 0; /* chap among them: the service would need the password, not a response to it */
}

/* 1: set; 0: the value is not possible; -1: another option. */
static int set_value(options_t *options, const char *option) {
    const char *value = NULL;
    if ((value = settings_value(option, "max_challenge")) != NULL) {
        return settings_number(&options->rounds, value, MOST_ROUNDS);
    }
    if ((value = settings_value(option, "prompt")) != NULL) {
        return settings_text(&options->prompt, value);
    }
    if ((value = settings_value(option, "service")) != NULL) {
        return set_service(options, value);
    }
    if ((value = settings_value(option, "login")) != NULL) {
        return set_login(options, value);
    }
    return settings_read(&options->settings, option);
}

static void read_option(options_t *options, pam_handle_t *pamh, const char *option) {
    char shown[128];
    visible_copy(shown, sizeof shown, option, strlen(option), 0);
    if (set_flag(options, option)) {
        return;
    }
    if (strcmp(option, "force_prompt") == 0) {
        options->try_first = options->use_first = options->ask_later = 0;
        return;
    }
    const int set = set_value(options, option);
    const char *instead = instead_of(option);
    if (set == 0) {
        pam_syslog(pamh, LOG_ERR, "option %s is ignored: the value is not possible; see pam_aaa(8)", shown);
    } else if (set < 0 && instead != NULL) {
        pam_syslog(pamh, LOG_WARNING, "option %.*s has no equivalent and is ignored: %s",
                   (int)strcspn(shown, "="), shown, instead);
    } else if (set < 0) {
        pam_syslog(pamh, LOG_ERR, "option %s is unknown and is ignored; see pam_aaa(8)", shown);
    }
}

void options_read(options_t *options, pam_handle_t *pamh, int argc, const char **argv) {
    *options = (options_t){.settings = settings_default(),
                           .prompt = "Password: ",
                           .service = AAA_SVC_EXEC,
                           .authen_option = AAA_AO_ASCII_LOGIN,
                           .rounds = 16};
    for (int i = 0; i < argc; i++) {
        read_option(options, pamh, argv[i]);
    }
}
