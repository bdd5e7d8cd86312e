// SPDX-License-Identifier: Apache-2.0
//
// The fields of a datagram for the journal, read as the journal reads them.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

using JournalFields = std::vector<std::pair<std::string, std::string>>;

// In the order of the datagram. A field is "NAME=value\n", or the name, a line feed, eight
// bytes of length, the value and a line feed.
inline JournalFields journal_fields(const std::string &datagram) {
    JournalFields fields;
    for (size_t at = 0; at < datagram.size();) {
        const size_t end = datagram.find('\n', at);
        if (end == std::string::npos) {
            ADD_FAILURE() << "a field without its end: " << datagram.substr(at);
            break;
        }
        const std::string line = datagram.substr(at, end - at);
        at = end + 1;
        if (const size_t equals = line.find('='); equals != std::string::npos) {
            fields.emplace_back(line.substr(0, equals), line.substr(equals + 1));
            continue;
        }
        uint64_t length = 0;
        for (size_t i = 8; i > 0 && datagram.size() - at >= 8; --i) {
            length = length << 8 | static_cast<unsigned char>(datagram[at + i - 1]);
        }
        at += 8;
        if (at > datagram.size() || length >= datagram.size() - at || datagram[at + length] != '\n') {
            ADD_FAILURE() << "the field " << line << " has a wrong length";
            break;
        }
        fields.emplace_back(line, datagram.substr(at, length));
        at += length + 1;
    }
    return fields;
}
