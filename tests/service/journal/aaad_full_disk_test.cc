// SPDX-License-Identifier: Apache-2.0
//
// The journal of aaad on a small file system, which other files fill, and at its own limit.

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include "service/journal/journal_fixture.hpp"
#include "support/machine.hpp"

namespace journal_test {
namespace {

constexpr char kFullMark[] = "cannot be kept on disk: no room";

class AaadFullDisk : public JournalTest {
  protected:
    // The servers are away, so that the journal keeps what it gets.
    void start_without_servers(const std::string &settings) {
        add_radius(server_, 100);
        server_.close();
        accounting_list({"corp", AAA_METHOD_SYSLOG});
        aaad_.settings(settings);
        aaad_.start();
    }
    // Sends records until the log has a text.
    void send_until(const std::string &text) {
        Client client = aaad_.client();
        const size_t before = aaad_.log().size();
        for (uint32_t number = 1; number % 100 != 0 || aaad_.log().find(text, before) == std::string::npos;
             ++number) {
            const Ask ask = start_of(number, std::string(200, 'a'));
            ASSERT_EQ(client.account(ask).result, AAA_OK) << "every record is kept somewhere";
        }
    }
    // A file that takes what is left of the file system. The program's mounts are its own.
    std::string filler() const {
        return "/proc/" + std::to_string(aaad_.pid()) + "/root" + journal() + "/filler";
    }
    void fill_the_disk() const {
        const int file = open(filler().c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        ASSERT_GE(file, 0);
        const std::string block(4096, 'x');
        while (write(file, block.data(), block.size()) == static_cast<ssize_t>(block.size())) {
        }
        EXPECT_EQ(errno, ENOSPC);
        close(file);
    }

    UdpServer server_{loop_};
};

TEST_F(AaadFullDisk, ItsLimitRefusesRecordsForTheNextMethod) {
    start_without_servers("journal-limit 1\njournal-alarm 50\n");
    send_until(kFullMark);
    EXPECT_TRUE(aaad_.wait_for_log("is a server group unavailable?")) << "the alarm comes first";
    EXPECT_TRUE(aaad_.wait_for_log("have reached their limit"));
    EXPECT_TRUE(aaad_.wait_for_log("written to the log"));
    aaad_.settings("journal-limit 64\n");
    aaad_.reload();
    EXPECT_TRUE(aaad_.wait_for_log("accounting records are accepted again"));
    const size_t before = aaad_.log().size();
    EXPECT_EQ(account(start_of(1)), AAA_OK);
    EXPECT_NE(aaad_.log().find("on disk, for corp", before), std::string::npos);
}

TEST_F(AaadFullDisk, TheOldestRecordsGoIfSoSet) {
    start_without_servers("journal-limit 1\njournal-when-full drop-oldest\n");
    send_until("are dropped, because");
    EXPECT_EQ(aaad_.log().find(kFullMark), std::string::npos);
}

TEST_F(AaadFullDisk, AFullFileSystemRefusesUntilThereIsRoom) {
    SKIP_WITHOUT("mounts",
                 geteuid() == 0 && access("/proc/self/ns/mnt", F_OK) == 0 && system("unshare -m true") == 0,
                 "needs root and mount namespaces");
    ASSERT_EQ(mkdir(journal().c_str(), 0700), 0);
    aaad_.before_exec([path = journal()] {
        if (unshare(CLONE_NEWNS) != 0 || mount("", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("tmpfs", path.c_str(), "tmpfs", 0, "size=2m,mode=0700") != 0) {
            _exit(126);
        }
    });
    start_without_servers("");
    ASSERT_EQ(account(start_of(1)), AAA_OK);
    fill_the_disk();
    send_until(kFullMark);
    EXPECT_TRUE(aaad_.wait_for_log("there is no room on the disk"));
    EXPECT_TRUE(aaad_.wait_for_log("written to the log"));
    EXPECT_EQ(aaad_.login().status, uint32_t{AAA_STAT_PASS}) << "logins go on";
    ASSERT_EQ(unlink(filler().c_str()), 0);
    const size_t before = aaad_.log().size();
    EXPECT_EQ(account(start_of(2)), AAA_OK);
    EXPECT_NE(aaad_.log().find("on disk, for corp", before), std::string::npos) << aaad_.log();
    EXPECT_TRUE(aaad_.wait_for_log("accounting records are accepted again"));
}

}  // namespace
}  // namespace journal_test
