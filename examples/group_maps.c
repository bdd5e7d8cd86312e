/* SPDX-License-Identifier: Apache-2.0 */
#define _GNU_SOURCE
#include "group_maps.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "aaa/aaautil.h"
#include "platform/cerr.h"
#include "platform/sysdb.h"
#include "visible_text.h"

static sysdb_conn_t config; /* "/cfg/gl/aaa/", private: the server dispatches its notifications */
static sysdb_conn_t maps;   /* "/oper/aaa/gl/group-server/" */
static uint64_t notification;

static void publish_group(const char *protocol_name, uint32_t protocol, const char *name) {
    aaa_cfg_event_t event = {.operation = AAA_CFG_OP_CREATE};
    uint32_t verdict = 0;
    uint32_t number = 0;
    char *reason = NULL;
    cerrno rc = aaa_util_svr_grp_verify(&event, &reason, &verdict, name, protocol);
    if (rc == AAA_OK && verdict == AAA_VERDICT_ACCEPTED) {
        rc = aaa_util_svr_grp_apply(maps, &event, protocol_name, name, &number);
    }
    if (rc != AAA_OK) {
        fprintf(stderr, "aaa_server: server group ");
        visible_print(stderr, name);
        fprintf(stderr, " is not published: ");
        visible_print(stderr, reason != NULL ? reason : cerr_strerror(rc));
        fputc('\n', stderr);
    }
    free(reason);
}

/* Calls publish_group for every entry of group-server/PROTOCOL/. */
static void publish_protocol(uint32_t protocol) {
    const char *protocol_name = aaa_util_get_sg_defined_name(protocol);
    char path[64];
    uint32_t count = 0;
    sysdb_list_t list = NULL;
    snprintf(path, sizeof path, "group-server/%s/", protocol_name);
    if (sysdb_list(config, path, "", &count, &list, 0) != AAA_OK || sysdb_list_start(list) != AAA_OK) {
        count = 0; /* no group of this protocol */
    }
    for (uint32_t i = 0; i < count; i++) {
        char *entry = NULL;
        uint32_t type = 0;
        if (sysdb_list_next(list, &entry, &type, 0) != AAA_OK || entry == NULL) {
            break;
        }
        char *name = strdup(entry);
        if (name != NULL) {
            name[strcspn(name, "/")] = '\0'; /* directories are listed with a trailing slash */
            publish_group(protocol_name, protocol, name);
            free(name);
        }
    }
    if (list != NULL) {
        sysdb_list_free(list);
    }
}

static void publish_all(void) {
    publish_protocol(1);
    publish_protocol(2);
    publish_protocol(17);
}

static int32_t on_change(const void *event, void *callback_arg, void *user_ctx) {
    (void)event;
    (void)callback_arg;
    (void)user_ctx;
    publish_all();
    return 0;
}

cerrno group_maps_start(int *channel) {
    int32_t coid = -1;
    *channel = -1;
    cerrno rc = _sysdb_bind(&config, "/cfg/gl/aaa/", SYSDB_BIND_PRIVATE);
    if (rc == AAA_OK) {
        rc = _sysdb_bind(&maps, "/oper/aaa/gl/group-server/", SYSDB_BIND_PRIVATE);
    }
    if (rc == AAA_OK) {
        rc = _sysdb_register_notification(config, "group-server/", SYSDB_EVENT_SET | SYSDB_EVENT_DELETE,
                                          SYSDB_NOTIFY_CHANGES, on_change, NULL, 0, NULL, 0, &notification);
    }
    if (rc == AAA_OK) {
        rc = sysdb_conn_to_coid(config, &coid);
    }
    if (rc != AAA_OK) {
        group_maps_stop();
        return rc;
    }
    publish_all();
    *channel = coid;
    return AAA_OK;
}

void group_maps_dispatch(void) {
    sysdb_dispatch(config);
}

void group_maps_stop(void) {
    if (notification != 0) {
        sysdb_notification_unregister(config, notification);
    }
    _sysdb_unbind(maps);
    _sysdb_unbind(config);
    notification = 0;
    maps = 0;
    config = 0;
}
