// SPDX-License-Identifier: Apache-2.0
//
// The thread that waits for the disk, so that the loop never does. It owns all files of the
// journal. What it is told to do has no order with appended records: these go first, many
// of them with one fdatasync().
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "accounting/positions.hpp"
#include "accounting/refused.hpp"
#include "accounting/session_file.hpp"
#include "net/loop.hpp"
#include "records/directory.hpp"
#include "records/segments.hpp"

namespace accounting {

struct DiskSettings {
    std::string directory;
    std::uint64_t segment_bytes = 8 << 20;
    std::uint64_t refused_bytes = 16 << 20;
};

// The files. One thread uses them at a time.
struct Disk {
    Disk(Files &files, const DiskSettings &settings, const Log &log)
        : directory(files),
          segments(directory, settings.segment_bytes, log),
          positions(directory, log),
          refused(directory, settings.refused_bytes, log),
          sessions(directory, log) {}

    Directory directory;
    Segments segments;
    PositionFiles positions;
    RefusedFile refused;
    SessionFile sessions;
};

class DiskThread {
  public:
    using Job = std::function<void(Disk &)>;
    // Called by the loop.
    using Written = std::function<void(const Segments::Appended &)>;

    // `disk` must not be used by others while this exists. `written` is called for what was
    // appended, in order.
    DiskThread(net::Loop &loop, Disk &disk, Written written);
    // Does first what it was told to do. Calls nothing afterwards.
    ~DiskThread();
    DiskThread(const DiskThread &) = delete;
    DiskThread &operator=(const DiskThread &) = delete;

    // False: the system gives no thread.
    bool start();

    void append(Unwritten record);
    void run(Job job);
    // Has `call` called by the loop unless this has been destroyed by then. In any thread.
    void tell_loop(std::function<void()> call);

  private:
    void work();

    net::Loop &loop_;
    Disk &disk_;
    Written written_;
    std::shared_ptr<int> alive_ = std::make_shared<int>(0);  // the loop's thread looks at it
    std::weak_ptr<int> watch_ = alive_;

    std::mutex mutex_;
    std::condition_variable changed_;
    bool stopping_ = false;
    std::vector<Unwritten> appended_;
    std::deque<Job> jobs_;
    std::thread thread_;
};

}  // namespace accounting
