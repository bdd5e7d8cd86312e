// SPDX-License-Identifier: Apache-2.0
//
// The file of open sessions.
#include "accounting/session_file.hpp"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "records/segment.hpp"

namespace accounting {

namespace {

constexpr char kName[] = "sessions";
constexpr char kNewName[] = "sessions.new";

}  // namespace

bool SessionFile::load(const std::function<void(const Record &)> &visit, std::uint64_t &through,
                       std::string &error) {
    through = 0;
    const net::Descriptor file = directory_.open_file(kName, O_RDONLY);
    if (!file && errno == ENOENT) {
        return true;
    }
    struct stat status;
    std::string bytes;
    if (!file || fstat(file.get(), &status) != 0 ||
        !directory_.files().read_up_to(file.get(), static_cast<std::size_t>(status.st_size), 0, bytes)) {
        error = "cannot read " + directory_.path() + "/" + kName + ": " + std::strerror(errno) +
                "; without it, sessions that are open get no interim and closing records";
        return false;
    }
    const auto head = decode_head(bytes);
    if (!head) {
        log_(directory_.path() + "/" + kName + " is damaged; sessions that are open may get no interim and " +
             "closing records");
        return true;
    }
    through = head->first;
    SegmentReader reader(std::string_view(bytes).substr(kSegmentHead), head->mark, true, 0);
    for (SegmentReader::Item item = reader.next(); item.found != SegmentReader::Found::kEnd;
         item = reader.next()) {
        if (item.found == SegmentReader::Found::kRecord) {
            visit(item.record);
        } else {
            log_(directory_.path() + "/" + kName + ": " + std::to_string(item.size) +
                 " bytes are damaged; the sessions in them get no interim and closing records");
        }
    }
    return true;
}

bool SessionFile::save(std::uint64_t through, const std::vector<RecordPointer> &sessions) {
    SegmentName name;
    name.first = through;
    if (getrandom(&name.mark, sizeof name.mark, 0) != static_cast<ssize_t>(sizeof name.mark)) {
        return false;
    }
    std::string bytes = encode_head(name);
    std::string body;
    for (const RecordPointer &record : sessions) {
        body.clear();
        encode_body(*record, body);
        encode_frame(name.mark, record->sequence, body, bytes);
    }
    Files &files = directory_.files();
    const net::Descriptor file = directory_.open_file(kNewName, O_WRONLY | O_CREAT | O_TRUNC);
    const bool saved = file && files.write_all(file.get(), bytes, 0) && files.sync(file.get()) == 0 &&
                       directory_.rename(kNewName, kName) && directory_.sync();
    if (!saved && file) {
        const int error = errno;
        directory_.remove(kNewName);
        errno = error;
    }
    return saved;
}

}  // namespace accounting
