// SPDX-License-Identifier: Apache-2.0
//
// What the history stores in the system database, where every member of the database's group can write. The
// input is a byte that chooses the reader, and the bytes that are read:
//
//   0   the record of a commit
//   1   the head
//   2   a state as it is stored
//   3   the bytes that a stored state has after its checksum, which is made right
//   4   the plain form of a state
//
// What is read is written and read again without a difference. A record's numbers can be calculated
// with. A state has no more items than its bytes can hold, and each path of it fits a database.

#include <zlib.h>

#include <string>

#include "fuzz_input.hpp"
#include "store/deadline.hpp"
#include "store/record.hpp"
#include "store/snapshot.hpp"

namespace {

using namespace history;

constexpr std::size_t kLongestPath = 1024;

void read_commit(const std::string &text) {
    const std::optional<Commit> commit = commit_from(text);
    if (!commit) {
        return;
    }
    REQUIRE(commit->number != 0);
    REQUIRE(commit_from(text_of(*commit)) == commit);
    REQUIRE(word_of(commit->kind) != nullptr && word_of(commit->ending) != nullptr);
    // As the head is made again from commits.
    const Deadline deadline{"", "", 0, commit->time + std::int64_t{commit->minutes} * 60, commit->minutes};
    REQUIRE(left(deadline, {"", "boot", 0, 0}).has_value());
}

void read_head(const std::string &text) {
    const std::optional<Head> head = head_from(text);
    if (!head) {
        return;
    }
    REQUIRE(head_from(text_of(*head)) == head);
    if (head->waiting) {
        const Deadline &deadline = head->waiting->deadline;
        const Now same{deadline.machine, deadline.boot, 1, 1};
        REQUIRE(left(deadline, same).has_value());
        const std::string other_boot = deadline.boot + "2";
        REQUIRE(left(deadline, {deadline.machine, other_boot, 1, INT64_C(1) << 40}).has_value());
        // May be told from another machine's: only that the largest times can be calculated with.
        left(deadline, {deadline.machine, other_boot, INT64_C(1) << 50, INT64_C(1) << 40});
        REQUIRE(!left(deadline, {deadline.machine + "2", deadline.boot, 1, 1}).has_value());
    }
}

void read_plain(const std::string &plain) {
    Items items;
    try {
        items = from_plain_form(plain);
    } catch (const Error &error) {
        REQUIRE(error.why() == Error::Why::damaged);
        return;
    }
    REQUIRE(items.size() <= plain.size() / 4);
    for (const auto &[path, item] : items) {
        REQUIRE(path.size() <= kLongestPath);
    }
    REQUIRE(from_plain_form(plain_form(items)) == items);
}

void read_stored(const std::string &stored) {
    std::string plain;
    try {
        plain = decompressed(stored);
    } catch (const Error &error) {
        REQUIRE(error.why() == Error::Why::damaged);
        return;
    }
    REQUIRE(plain.size() <= stored.size() * 1032);
    REQUIRE(decompressed(compressed(plain)) == plain);
    read_plain(plain);
}

std::string with_checksum(const std::string &rest) {
    const auto checksum =
        crc32(0, reinterpret_cast<const Bytef *>(rest.data()), static_cast<uInt>(rest.size()));
    std::string stored = "AHS1";
    for (unsigned i = 0; i < 4; ++i) {
        stored.push_back(static_cast<char>(checksum >> (8 * i)));
    }
    return stored + rest;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    fuzz::Input input(data, size);
    const unsigned reader = input.byte() % 5;
    const std::string bytes = input.rest();
    switch (reader) {
        case 0:
            read_commit(bytes);
            break;
        case 1:
            read_head(bytes);
            break;
        case 2:
            read_stored(bytes);
            break;
        case 3:
            read_stored(with_checksum(bytes));
            break;
        default:
            read_plain(bytes);
            break;
    }
    return 0;
}
