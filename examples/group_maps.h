/* SPDX-License-Identifier: Apache-2.0 */
#ifndef EXAMPLES_GROUP_MAPS_H
#define EXAMPLES_GROUP_MAPS_H

#include "aaa/types.h"

/*
 * Publishes the maps of server groups: every group under
 * "/cfg/gl/aaa/group-server/" gets a number. Name and number are written under
 * "/oper/aaa/gl/group-server/", where every process looks them up.
 */

/* Publishes all groups and starts to watch the configuration. *channel
 * receives a descriptor that is readable when groups have changed, or -1. */
cerrno group_maps_start(int *channel);

/* Publishes changed groups; call it when the channel is readable. */
void group_maps_dispatch(void);

void group_maps_stop(void);

#endif /* EXAMPLES_GROUP_MAPS_H */
