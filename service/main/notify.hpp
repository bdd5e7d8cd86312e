// SPDX-License-Identifier: Apache-2.0
//
// Tells the service manager the state of the service, through the socket that it names in
// NOTIFY_SOCKET. Without one nothing happens.
#pragma once

#include <string>

namespace service {

class Notify {
  public:
    // Reads the variable, and removes it from the environment.
    Notify();

    void ready() const;
    void reloading() const;
    void stopping() const;

  private:
    void send(const std::string &state) const;

    std::string path_;
};

}  // namespace service
