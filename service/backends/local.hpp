// SPDX-License-Identifier: Apache-2.0
//
// The methods that ask no server: local users and the host's accounts, the secrets of lines
// and of "enable", none, if-authenticated, and the system log.
#pragma once

#include <memory>

#include "backends/backend.hpp"
#include "backends/workers.hpp"

namespace service {

// "local": the users' file, and the host's accounts where the settings say so. An unknown
// user costs the same time as a wrong password and gets the same answer.
std::shared_ptr<Backend> make_local_backend(net::Loop &loop, Workers &workers);
// "line" and "enable": a secret instead of a user's password.
std::shared_ptr<Backend> make_line_backend(net::Loop &loop, Workers &workers);
std::shared_ptr<Backend> make_enable_backend(net::Loop &loop, Workers &workers);
// "none": everything is accepted.
std::shared_ptr<Backend> make_none_backend(net::Loop &loop);
// Accepts the requests of users who have authenticated.
std::shared_ptr<Backend> make_if_authenticated_backend(net::Loop &loop);
// "syslog": accounting records as log lines.
std::shared_ptr<Backend> make_syslog_backend(net::Loop &loop);

// All of them.
void add_local_backends(Backends &backends, net::Loop &loop, Workers &workers);

}  // namespace service
