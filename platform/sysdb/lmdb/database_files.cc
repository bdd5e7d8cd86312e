// SPDX-License-Identifier: Apache-2.0
//
// Preparing an environment's files, and what LMDB's system calls ask about them.

#include "database_files.hpp"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "head_check.hpp"
#include "host.hpp"
#include "settings.hpp"

namespace sysdb_lmdb {
namespace {

constexpr long kBriefWaitMs = 200;
constexpr mode_t kGroupReads = 0040;
constexpr mode_t kGroupUses = 0060;
constexpr mode_t kOthersRead = 0004;
constexpr mode_t kOthersUse = 0006;

// Two files, and one more of each while the old one is closed.
constinit std::array<std::atomic<DatabaseFiles *>, 16> g_all{};

template <typename Matches>
DatabaseFiles *find(Matches matches) {
    for (const auto &place : g_all) {
        DatabaseFiles *files = place.load(std::memory_order_acquire);
        if (files != nullptr && matches(*files)) {
            return files;
        }
    }
    return nullptr;
}

// Every process that may read the data must be able to enter itself into the table of
// readers, and may use the mark.
FileRights lock_rights(const CheckedFile &data) {
    mode_t mode = 0600;
    mode |= (data.mode & kGroupReads) != 0 ? kGroupUses : 0;
    mode |= (data.mode & kOthersRead) != 0 ? kOthersUse : 0;
    return {mode, data.group};
}

}  // namespace

DatabaseFiles::DatabaseFiles(std::string path, long wait_ms)
    : path_(std::move(path)), name_(name_of(path_)), wait_ms_(wait_ms) {
    for (auto &place : g_all) {
        DatabaseFiles *expected = nullptr;
        if (place.compare_exchange_strong(expected, this)) {
            return;
        }
    }
}

DatabaseFiles::~DatabaseFiles() {
    forget();
}

void DatabaseFiles::forget() {
    for (auto &place : g_all) {
        DatabaseFiles *expected = this;
        place.compare_exchange_strong(expected, nullptr);
    }
}

// LMDB's calls would otherwise be the plain ones.
bool DatabaseFiles::is_registered() const {
    return find([this](const DatabaseFiles &files) { return &files == this; }) != nullptr;
}

cerrno DatabaseFiles::prepare() {
    cerrno rc = is_registered() ? Directory::open(parent_of(path_), directory_) : SYSDB_ERR_NOMEM;
    rc = rc == 0 ? prepare_data() : rc;
    rc = rc == 0 ? prepare_lock() : rc;
    if (rc == 0) {
        mark_.open(directory_, mark_name(), {data_.mode & 0666, data_.group});
    }
    return rc;
}

// A file without a transaction is one that a package made, or a process that was killed
// before it could set the rights. Other rights are an administrator's and are kept.
cerrno DatabaseFiles::prepare_data() {
    cerrno rc = check_file(directory_, name_, data_);
    if (rc == SYSDB_ERR_NOT_FOUND) {
        CleanMark::remove(directory_, mark_name());
        return make_file(directory_, name_, rights_in(directory_), data_);
    }
    if (rc == 0 && has_no_transaction()) {
        repair_rights(directory_, name_, rights_in(directory_), data_);
    }
    return rc;
}

cerrno DatabaseFiles::prepare_lock() {
    const std::string name = name_ + "-lock";
    cerrno rc = check_file(directory_, name, lock_);
    if (rc == SYSDB_ERR_NOT_FOUND && directory_.is_read_only()) {
        lock_ = {};
        return 0;  // LMDB reads without it
    }
    if (rc == SYSDB_ERR_NOT_FOUND) {
        rc = make_file(directory_, name, lock_rights(data_), lock_);
    }
    if (rc == 0) {
        FileRights rights = lock_rights(data_);
        rights.mode |= lock_.mode;  // an administrator may have given more
        repair_rights(directory_, name, rights, lock_);
    }
    return rc;
}

bool DatabaseFiles::has_no_transaction() const {
    if (data_.size == 0) {
        return true;
    }
    const Descriptor file = open_to_read();
    const FileHead head = file ? inspect_head(file.get()) : FileHead{};
    return file && head.fault == nullptr && head.txnid == 0;
}

// The mark first: who makes the file writes contents, then the mark.
bool DatabaseFiles::has_lost_contents(int fd) const {
    struct stat status;
    return mark_.tells_of_contents() && fstat(fd, &status) == 0 && status.st_size == 0;
}

Descriptor DatabaseFiles::open_to_read() const {
    return open_checked(directory_, name_, data_.identity, O_RDONLY);
}

void DatabaseFiles::clear_descriptors() {
    data_fd_ = head_fd_ = lock_fd_ = -1;
    map_ = 0;
    map_bytes_ = 0;
}

void DatabaseFiles::begin_opening() {
    clear_descriptors();
    opening_ = true;
}

// LMDB has closed what it opened in vain: the numbers may become other files. Until here no
// other thread asks for them, because the database opens one file at a time.
void DatabaseFiles::end_opening(bool is_open) {
    opening_ = false;
    if (!is_open) {
        clear_descriptors();
    }
}

void DatabaseFiles::begin_closing() {
    clear_descriptors();
}

// ---- the mark

bool DatabaseFiles::current_state(std::uint64_t txnid, FileState &state) const {
    return state_of(data_fd_, txnid, state);
}

bool DatabaseFiles::is_marked(std::uint64_t txnid) const {
    FileState state;
    return current_state(txnid, state) && mark_.holds(state);
}

void DatabaseFiles::mark(std::uint64_t txnid) {
    mark_.write(directory_, data_fd_, txnid);
}

void DatabaseFiles::begin_transaction(std::uint64_t based_on) {
    chain_ = Chain::kUnknown;
    based_on_ = based_on;
}

void DatabaseFiles::before_write() {
    if (chain_ != Chain::kUnknown) {
        return;
    }
    chain_ = is_marked(based_on_) ? Chain::kHolds : Chain::kBroken;
    rlimit limit{};
    size_limited_ = getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY;
}

void DatabaseFiles::after_head(std::uint64_t txnid) {
    if (chain_ == Chain::kHolds) {
        mark(txnid);
    }
    chain_ = Chain::kIdle;
}

// The pages that were written belong to no head.
void DatabaseFiles::after_failure() {
    after_head(based_on_);
}

// ---- LMDB's system calls

DatabaseFiles *DatabaseFiles::of_path(const char *path) {
    return find([path](const DatabaseFiles &files) {
        return files.opening_ && (path == files.path_ || path == files.lock_path());
    });
}

DatabaseFiles *DatabaseFiles::of_descriptor(int fd) {
    return find([fd](const DatabaseFiles &files) {
        return fd >= 0 && (fd == files.data_fd_ || fd == files.head_fd_ || fd == files.lock_fd_);
    });
}

DatabaseFiles *DatabaseFiles::of_mutex(const void *mutex) {
    const auto address = reinterpret_cast<std::uintptr_t>(mutex);
    return find([address](const DatabaseFiles &files) {
        return address >= files.map_ && address - files.map_ < files.map_bytes_;
    });
}

// prepare() has made the files: one that is missing now was removed meanwhile.
int DatabaseFiles::open(const char *path, int flags) {
    const bool lock = path != path_;
    if (lock && lock_.identity == FileIdentity{}) {
        errno = EROFS;
        return -1;
    }
    const int how = flags & ~(O_CREAT | O_EXCL | O_TRUNC);
    const int fd =
        open_checked(directory_, lock ? name_ + "-lock" : name_, lock ? lock_.identity : data_.identity, how)
            .release();
    if (lock) {
        lock_fd_ = fd;
    } else if ((how & O_ACCMODE) == O_WRONLY) {
        head_fd_ = fd;
    } else {
        data_fd_ = fd;
    }
    return fd;
}

void DatabaseFiles::set_map(const void *address, std::size_t bytes) {
    map_ = reinterpret_cast<std::uintptr_t>(address);
    map_bytes_ = bytes;
}

long DatabaseFiles::wait_ms() const {
    return brief_ ? std::min(kBriefWaitMs, wait_ms_) : wait_ms_;
}

void DatabaseFiles::report_holder(pid_t holder, Witness witness) const {
    if (!brief_) {
        log_holder(path_, lock_.identity, holder, witness, wait_ms_);
    }
}

}  // namespace sysdb_lmdb
