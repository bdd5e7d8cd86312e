// SPDX-License-Identifier: Apache-2.0
//
// A question whose only purpose is to learn whether a server answers.
#pragma once

#include <functional>
#include <memory>

#include "backends/backend.hpp"
#include "groups/server_client.hpp"

namespace service {

// Whether there is such a question for a server and a use: Status-Server where the server is said to
// know it (RFC 5997), else the login of a user who need not exist.
bool can_probe(const ServerClient &server, Use use);

// Asks it, for as long as a login would be. `done` is called later, once, unless the attempt is
// destroyed before: whether anything was answered, whatever it was.
std::unique_ptr<Attempt> probe_server(net::Loop &loop, const ServerClientPtr &server, Use use,
                                      std::function<void(bool)> done);

}  // namespace service
