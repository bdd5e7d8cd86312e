// SPDX-License-Identifier: Apache-2.0
//
// Runs a program whose time of day is another one, also if it is linked statically:
//
//   other_clock FILE PROGRAM [ARGUMENT...]
//
// FILE begins with a number of 8 bytes, host order: seconds that are added to the time of day. Another one
// that is written there counts from then on. Clocks that only run forward, CLOCK_MONOTONIC and the like, are
// those of the machine.
//
// Programs ask for the time by way of the vDSO, where nothing can answer instead. So a second process removes
// the vDSO from what the kernel tells the program when it is executed; then the program makes system calls. A
// filter passes those for the time of day on to the second process, which answers them. It ends with the
// program. Exit status 77: the machine does not allow this.

#include <elf.h>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace {

[[noreturn]] void give_up(const char *what) {
    std::fprintf(stderr, "other_clock: %s: %s\n", what, std::strerror(errno));
    std::_Exit(77);
}

volatile const std::int64_t *map_offset(const char *file) {
    const int fd = open(file, O_RDONLY | O_CLOEXEC);
    struct stat status {};
    if (fd < 0 || fstat(fd, &status) != 0 || status.st_size < 8) {
        give_up(file);
    }
    void *memory = mmap(nullptr, sizeof(std::int64_t), PROT_READ, MAP_SHARED, fd, 0);
    if (memory == MAP_FAILED) {
        give_up("mmap");
    }
    close(fd);
    return static_cast<volatile const std::int64_t *>(memory);
}

// ---- the program, before it is executed

int install_filter() {
    const auto call_at = static_cast<std::uint32_t>(offsetof(seccomp_data, nr));
    const auto argument_at = static_cast<std::uint32_t>(offsetof(seccomp_data, args));
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, call_at),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_gettimeofday, 5, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_time, 4, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_clock_gettime, 0, 4),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, argument_at),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, CLOCK_REALTIME, 1, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, CLOCK_REALTIME_COARSE, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program = {sizeof filter / sizeof *filter, filter};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
        give_up("PR_SET_NO_NEW_PRIVS");
    }
    return static_cast<int>(
        syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &program));
}

// One byte, with room for a descriptor.
struct Message {
    Message() {
        head.msg_iov = &data;
        head.msg_iovlen = 1;
        head.msg_control = control;
        head.msg_controllen = sizeof control;
    }
    Message(const Message &) = delete;
    Message &operator=(const Message &) = delete;

    char byte = '.';
    iovec data = {&byte, 1};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr head = {};
};

bool send_descriptor(int socket, int fd) {
    Message message;
    cmsghdr *head = CMSG_FIRSTHDR(&message.head);
    head->cmsg_level = SOL_SOCKET;
    head->cmsg_type = SCM_RIGHTS;
    head->cmsg_len = CMSG_LEN(sizeof fd);
    std::memcpy(CMSG_DATA(head), &fd, sizeof fd);
    return sendmsg(socket, &message.head, 0) == 1;
}

int receive_descriptor(int socket) {
    Message message;
    if (recvmsg(socket, &message.head, MSG_CMSG_CLOEXEC) != 1) {
        return -1;
    }
    int fd = -1;
    const cmsghdr *head = CMSG_FIRSTHDR(&message.head);
    if (head != nullptr && head->cmsg_type == SCM_RIGHTS) {
        std::memcpy(&fd, CMSG_DATA(head), sizeof fd);
    }
    return fd;
}

// ---- the second process

// The program stops when it has been executed, before its first instruction. Its stack then holds the
// number of arguments, the arguments, the variables, and what the kernel tells: pairs of words.
void remove_vdso(pid_t program) {
    user_regs_struct registers{};
    if (ptrace(PTRACE_GETREGS, program, nullptr, &registers) != 0) {
        give_up("reading the program's registers");
    }
    const auto word_at = [program](std::uint64_t address) {
        std::uint64_t word = 0;
        iovec here = {&word, sizeof word};
        iovec there = {reinterpret_cast<void *>(address), sizeof word};
        if (process_vm_readv(program, &here, 1, &there, 1, 0) != sizeof word) {
            give_up("reading the program's stack");
        }
        return word;
    };
    std::uint64_t at = registers.rsp + 8 * (word_at(registers.rsp) + 2);
    while (word_at(at) != 0) {  // variables
        at += 8;
    }
    for (at += 8; word_at(at) != AT_NULL; at += 16) {
        if (word_at(at) == AT_SYSINFO_EHDR) {
            std::uint64_t ignored = AT_IGNORE;
            iovec here = {&ignored, sizeof ignored};
            iovec there = {reinterpret_cast<void *>(at), sizeof ignored};
            if (process_vm_writev(program, &here, 1, &there, 1, 0) != sizeof ignored) {
                give_up("writing the program's stack");
            }
        }
    }
}

void wait_for_execution(pid_t program) {
    for (;;) {
        int status = 0;
        if (waitpid(program, &status, __WALL) != program || !WIFSTOPPED(status)) {
            std::_Exit(0);  // it could not be executed
        }
        if (status >> 16 == PTRACE_EVENT_EXEC) {
            remove_vdso(program);
            ptrace(PTRACE_DETACH, program, nullptr, nullptr);
            return;
        }
        ptrace(PTRACE_CONT, program, nullptr, WSTOPSIG(status) == SIGTRAP ? 0 : WSTOPSIG(status));
    }
}

std::int64_t answer(const seccomp_notif &call, std::int64_t offset) {
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    time.tv_sec += offset;
    const timeval coarse = {time.tv_sec, time.tv_nsec / 1000};
    iovec here = {&time, sizeof time};
    std::uint64_t to = call.data.args[1];
    if (call.data.nr == SYS_time) {
        here = {&time.tv_sec, sizeof time.tv_sec};
        to = call.data.args[0];
    } else if (call.data.nr == SYS_gettimeofday) {
        here = {const_cast<timeval *>(&coarse), sizeof coarse};
        to = call.data.args[0];
    }
    const iovec there = {reinterpret_cast<void *>(to), here.iov_len};
    if (to != 0) {
        process_vm_writev(static_cast<pid_t>(call.pid), &here, 1, &there, 1, 0);
    }
    return call.data.nr == SYS_time ? time.tv_sec : 0;
}

[[noreturn]] void serve(int listener, volatile const std::int64_t *offset) {
    for (;;) {
        pollfd ready = {listener, POLLIN, 0};
        if (poll(&ready, 1, -1) < 0 && errno != EINTR) {
            std::_Exit(1);
        }
        if ((ready.revents & POLLHUP) != 0) {
            std::_Exit(0);  // the program and its children have ended
        }
        seccomp_notif call{};
        if (ioctl(listener, SECCOMP_IOCTL_NOTIF_RECV, &call) != 0) {
            continue;  // the thread was interrupted, and asks again
        }
        seccomp_notif_resp response{};
        response.id = call.id;
        response.val = answer(call, *offset);
        ioctl(listener, SECCOMP_IOCTL_NOTIF_SEND, &response);
    }
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: other_clock FILE PROGRAM [ARGUMENT...]\n");
        return 2;
    }
    volatile const std::int64_t *offset = map_offset(argv[1]);
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        give_up("socketpair");
    }
    const pid_t program = getpid();
    const pid_t other = fork();
    if (other < 0) {
        give_up("fork");
    }
    if (other == 0) {
        close(ends[0]);
        setsid();  // signals of a terminal are for the program
        if (ptrace(PTRACE_SEIZE, program, nullptr, PTRACE_O_TRACEEXEC) != 0) {
            give_up("ptrace");
        }
        char byte = '.';
        if (write(ends[1], &byte, 1) != 1) {
            std::_Exit(1);
        }
        const int listener = receive_descriptor(ends[1]);
        if (listener < 0) {
            std::_Exit(1);
        }
        close(ends[1]);
        wait_for_execution(program);
        serve(listener, offset);
    }
    close(ends[1]);
    char byte = 0;
    if (read(ends[0], &byte, 1) != 1) {
        return 77;
    }
    const int listener = install_filter();
    if (listener < 0) {
        give_up("seccomp");
    }
    if (!send_descriptor(ends[0], listener)) {
        give_up("sendmsg");
    }
    close(listener);
    execvp(argv[2], argv + 2);
    give_up(argv[2]);
}
