// SPDX-License-Identifier: Apache-2.0
//
// A credential record with every field filled in. Its texts, its CHAP data and
// its lists are the object's; a test gives the lists what it needs in them.
#pragma once

#include <utility>

#include "aaa/credentials.h"
#include "support/messages.hpp"

namespace messages {

class FullCredentials {
  public:
    FullCredentials(List state_args, List supplied_pairs, List further_pairs)
        : state(std::move(state_args)),
          supplied(std::move(supplied_pairs)),
          further(std::move(further_pairs)) {
        record_.username = username;
        record_.password = password;
        record_.text3 = text3;
        record_.ttyname = ttyname;
        record_.remote_addr = remote;
        record_.ifh = 0x11223344;
        record_.ipaddr = 0xC0000207;
        record_.chap_data = &chap;
        record_.authen_method = 3;
        record_.state_args = state.get();
        record_.attr_list = further.get();
        record_.in_attr_list = supplied.get();
        record_.unique_id = 77;
        record_.tty_mnemonic = mnemonic;
        record_.user_db_flag = 9;
    }
    FullCredentials(const FullCredentials &) = delete;
    FullCredentials &operator=(const FullCredentials &) = delete;
    aaa_usercred_t *get() { return &record_; }
    aaa_usercred_t *operator->() { return &record_; }

    char username[6] = "alice", password[7] = "secret", text3[6] = "third", ttyname[5] = "vty0",
         remote[10] = "192.0.2.9", mnemonic[5] = "con0";
    uint8_t data[3] = {'d', 'a', 't'}, response[16] = {'r', 'e', 's', 'p', 'o', 'n', 's', 'e'};
    aaa_chap_data_t chap = {0x5A, data, sizeof data, response, sizeof response};
    List state, supplied, further;

  private:
    aaa_usercred_t record_{};
};

}  // namespace messages
