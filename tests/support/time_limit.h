/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Ends a process of a test that hangs, with a text: what a fault makes wait for ever must be
 * a failure of the test that shows the fault. The time is many times that of any test.
 */
#ifndef TESTS_SUPPORT_TIME_LIMIT_H
#define TESTS_SUPPORT_TIME_LIMIT_H

#include <signal.h>
#include <string.h>
#include <sys/time.h>
#include <unistd.h>

#ifdef __cplusplus
extern "C" {
#endif

#define TIME_LIMIT_SECONDS 100
#define TIME_LIMIT_STATUS  98

static const char *volatile time_limit_what = "";

static inline int time_limit_show(int fd) {
    static const char kText[] = ": has not ended within its time limit\n";
    const char *const what = time_limit_what;
    return write(fd, what, strlen(what)) >= 0 && write(fd, kText, sizeof kText - 1) >= 0;
}

/* GoogleTest may keep standard error in a file that no one reads any more. */
static inline void time_limit_report(int signal_number) {
    (void)signal_number;
    const int in_log = time_limit_show(STDERR_FILENO);
    const int in_output = time_limit_show(STDOUT_FILENO);
    _exit(in_log || in_output ? TIME_LIMIT_STATUS : TIME_LIMIT_STATUS + 1);
}

/* Not alarm(), which tests of the library replace. */
static inline void time_limit_start(long seconds) {
    struct itimerval timer;
    memset(&timer, 0, sizeof timer);
    timer.it_value.tv_sec = seconds;
    setitimer(ITIMER_REAL, &timer, NULL);
}

/* For this process, until lift_time_limit(); not for those that it forks. */
static inline void set_time_limit(const char *what) {
    time_limit_what = what;
    signal(SIGALRM, time_limit_report);
    time_limit_start(TIME_LIMIT_SECONDS);
}

static inline void lift_time_limit(void) {
    time_limit_start(0);
}

#ifdef __cplusplus
}
#endif

#endif /* TESTS_SUPPORT_TIME_LIMIT_H */
