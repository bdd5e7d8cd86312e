// SPDX-License-Identifier: Apache-2.0
//
// Requests when memory runs out. What a program without memory does with PAM is its own
// affair, so the functions of the modules are called directly.

#include "pam/service.hpp"
#include "support/fail_alloc.hpp"
#include "support/machine.hpp"
#include "support/temp_dir.hpp"

extern "C" {
#include "client.h"
}

using namespace pam_test;

namespace {

class ClientMemory : public testing::Test {
  protected:
    void SetUp() override {
        SKIP_WITHOUT_ROOT("a service that does not run as root is refused: run the tests as root");
    }

    // A request that lost its name or its password on the way must not be answered with success.
    static Action answer_to(const Request &request) {
        if (request.type == AAA_REQ_ACCT) {
            EXPECT_EQ(request.user, "alice");
            EXPECT_EQ(request.data, "exit status 1");
            return accounted();
        }
        EXPECT_EQ(request.user, "alice");
        EXPECT_EQ(request.password, "s3cret");
        return answer([](avlist *list) {
            replies::status(AAA_STAT_GETDATA)(list);
            replies::add_text(list, AAA_PROMPT_ATTR, "Code: ");
            replies::add_text(list, AAA_RADIUS_STATE_ATTR, "state");
        });
    }

    static aaa_usercred_t credentials() {
        static char name[] = "alice";
        static char password[] = "s3cret";
        static char none[] = "";
        aaa_usercred_t cred{};
        cred.username = name;
        cred.password = password;
        cred.ttyname = cred.tty_mnemonic = cred.remote_addr = none;
        return cred;
    }

    TempDir dir_;
    Service service_{dir_.path("aaad.sock"), answer_to};
    const std::string path_ = dir_.path("aaad.sock");
    const client_settings_t settings_{path_.c_str(), "default", 30};
};

TEST_F(ClientMemory, ARequestIsWholeOrNotSent) {
    fake::sweep_allocations([&](fake::FailAlloc &fail) {
        aaa_usercred_t cred = credentials();
        client_answer_t answer{};
        const uint32_t status = fail.run([&] {
            client_t *client = client_create(&settings_);
            if (client == nullptr) {
                return static_cast<uint32_t>(AAA_STAT_ERROR);
            }
            client_authenticate(client, AAA_AO_ASCII_LOGIN, &cred, &answer);
            client_free(client);
            return answer.status;
        });
        EXPECT_TRUE(status == AAA_STAT_GETDATA || (fail.fired() && status == AAA_STAT_ERROR)) << status;
        EXPECT_TRUE(fail.fired() || answer.state != nullptr);
        client_answer_clear(&answer);
    });
}

TEST_F(ClientMemory, ARecordIsWholeOrNotSent) {
    fake::sweep_allocations([&](fake::FailAlloc &fail) {
        aaa_usercred_t cred = credentials();
        char command[] = "/bin/false";
        const int recorded = fail.run([&] {
            client_t *client = client_create(&settings_);
            const int done = client != nullptr && client_account(client, AAA_ACCT_STOP_OPT, AAA_SVC_CMD,
                                                                 &cred, command, 7, "exit status 1");
            client_free(client);
            return done;
        });
        EXPECT_TRUE(fail.fired() || recorded);
    });
}

}  // namespace
