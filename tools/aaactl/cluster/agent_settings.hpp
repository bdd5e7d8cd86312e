// SPDX-License-Identifier: Apache-2.0
//
// Changing the agent's settings, agent.conf(5): what the administrator has written there stays.

#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace aaactl {

// A key with its values: the lines of the key become these.
using Setting = std::pair<std::string, std::vector<std::string>>;

// The text with the settings, where lines of the same key are, or at the end. Comments stay.
std::string with_settings(std::string_view text, const std::vector<Setting> &settings);
// The values of a key.
std::vector<std::string> values_of(std::string_view text, std::string_view key);

// Of these servers, those that traffic goes to in the clear, over a network.
std::vector<std::string> servers_in_clear(const std::vector<std::string> &servers);

// New settings next to the old ones, until they are put in their place. Removed otherwise.
class NewSettings {
  public:
    // Failure when they cannot be written.
    explicit NewSettings(std::string file);
    ~NewSettings();
    NewSettings(const NewSettings &) = delete;
    NewSettings &operator=(const NewSettings &) = delete;

    // Of the present file; "" when there is none.
    const std::string &before() const { return before_; }
    void write(const std::string &text);
    const std::string &path() const { return path_; }
    // Safe from a loss of power.
    void put_in_place();

  private:
    std::string file_;
    std::string path_;
    std::string before_;
    bool exists_ = false;
    bool written_ = false;
};

// The user that the unit of the agent runs as; false where it is not installed.
bool find_agents_user(unsigned &user, unsigned &group);
// Why the unit's user may not read a file, with what to do; "" when it may, or is not there.
std::string unreadable_for_agent(const std::string &file);

}  // namespace aaactl
