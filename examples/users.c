/* SPDX-License-Identifier: Apache-2.0 */
#define _GNU_SOURCE
#include "users.h"

#include <crypt.h>
#include <ctype.h>
#include <fnmatch.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* Removes blanks at both ends, in place. */
static char *trim(char *text) {
    while (isspace((unsigned char)*text)) {
        text++;
    }
    size_t len = strlen(text);
    while (len > 0 && isspace((unsigned char)text[len - 1])) {
        text[--len] = '\0';
    }
    return text;
}

static int parse_level(const char *text, uint32_t *level) {
    char *end = NULL;
    unsigned long value = strtoul(text, &end, 10);
    if (*text == '\0' || *end != '\0' || value > 15) {
        return 0;
    }
    *level = (uint32_t)value;
    return 1;
}

/* Parses a line into a user; null when the line is invalid. */
static user_t *parse_user(char *line) {
    char *field[4] = {NULL, NULL, NULL, NULL};
    char *rest = line;
    for (int i = 0; i < 4; i++) {
        char *part = i < 3 ? strsep(&rest, ":") : rest;
        if (part == NULL) {
            return NULL;
        }
        field[i] = trim(part);
    }
    uint32_t level = 0;
    if (*field[0] == '\0' || *field[1] == '\0' || !parse_level(field[2], &level)) {
        return NULL;
    }
    user_t *user = calloc(1, sizeof *user);
    if (user != NULL) {
        user->name = strdup(field[0]);
        user->hash = strdup(field[1]);
        user->commands = strdup(field[3]);
        user->level = level;
        if (user->name == NULL || user->hash == NULL || user->commands == NULL) {
            users_free(user);
            user = NULL;
        }
    }
    return user;
}

user_t *users_load(const char *path) {
    FILE *file = fopen(path, "re");
    if (file == NULL) {
        perror(path);
        return NULL;
    }
    user_t *users = NULL;
    char *line = NULL;
    size_t room = 0;
    for (unsigned number = 1; getline(&line, &room, file) >= 0; number++) {
        char *text = trim(line);
        if (*text == '\0' || *text == '#') {
            continue;
        }
        user_t *user = parse_user(text);
        if (user == NULL) {
            fprintf(stderr, "%s:%u: expected name : hash : level 0-15 : commands; line skipped\n", path,
                    number);
            continue;
        }
        user->next = users;
        users = user;
    }
    free(line);
    fclose(file);
    return users;
}

void users_free(user_t *users) {
    while (users != NULL) {
        user_t *next = users->next;
        free(users->name);
        free(users->hash);
        free(users->commands);
        free(users);
        users = next;
    }
}

const user_t *users_find(const user_t *users, const char *name) {
    while (users != NULL && strcmp(users->name, name) != 0) {
        users = users->next;
    }
    return users;
}

int users_check_password(const user_t *user, const char *password) {
    static const char salt[] = "$6$nobody.nobody$"; /* an unknown user takes as long as a known one */
    struct crypt_data data = {0};
    const char *setting = user != NULL ? user->hash : salt;
    const char *computed = crypt_r(password, setting, &data);
    int same = user != NULL && computed != NULL && *computed != '*' && strcmp(computed, user->hash) == 0;
    explicit_bzero(&data, sizeof data);
    return same;
}

int users_may_run(const user_t *user, const char *command) {
    char *patterns = strdup(user->commands);
    char *rest = patterns;
    int allowed = 0;
    for (char *pattern = strsep(&rest, ","); pattern != NULL && !allowed; pattern = strsep(&rest, ",")) {
        pattern = trim(pattern);
        allowed = *pattern != '\0' && fnmatch(pattern, command, 0) == 0;
    }
    free(patterns);
    return allowed;
}
