#ifndef KXSTREAM_ORDERED_RUNNER_H
#define KXSTREAM_ORDERED_RUNNER_H

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace kxstream {

// Runs work() on worker threads over items that a source hands out one at a time, and
// publish() on the calling thread in the order the source gave them. At most a bounded window
// of items is held at once, so a source of any length (a tree walk, a long check list) needs
// memory only for the window. With one worker everything runs on the calling thread.
template <class Item>
class OrderedRunner {
 public:
  using Work = std::function<void(Item&)>;

  OrderedRunner(size_t workers, Work work) : mWork(std::move(work)) {
    if (workers <= 1) {
      return;
    }
    mWindow = workers * kItemsPerWorker;
    mThreads.reserve(workers);
    try {
      for (size_t index = 0; index < workers; ++index) {
        mThreads.emplace_back([this] { serve(); });
      }
    } catch (...) {
      stop();
      throw;
    }
  }

  ~OrderedRunner() { stop(); }

  OrderedRunner(const OrderedRunner&) = delete;
  OrderedRunner& operator=(const OrderedRunner&) = delete;

  // Takes items from next() until it returns false; returns once every item is published.
  void run(const std::function<bool(Item&)>& next, const std::function<void(Item&)>& publish) {
    if (mThreads.empty()) {
      for (Item item; next(item); item = Item()) {
        mWork(item);
        publish(item);
      }
      return;
    }
    bool sourceDone = false;
    for (;;) {
      while (!sourceDone && pending() < mWindow) {
        Item item;
        sourceDone = !next(item);
        if (!sourceDone) {
          enqueue(std::move(item));
        }
      }
      Item done;
      if (!takeFirstDone(done)) {
        return;
      }
      publish(done);
    }
  }

 private:
  // Enough queued items to keep every worker busy while the calling thread publishes.
  static constexpr size_t kItemsPerWorker = 8;

  struct Slot {
    Item item;
    bool done = false;
  };

  size_t pending() {
    const std::lock_guard<std::mutex> hold(mLock);
    return mSlots.size();
  }

  void enqueue(Item item) {
    {
      const std::lock_guard<std::mutex> hold(mLock);
      mSlots.push_back(Slot{std::move(item), false});
    }
    mWorkReady.notify_one();
  }

  bool takeFirstDone(Item& done) {
    std::unique_lock<std::mutex> hold(mLock);
    if (mSlots.empty()) {
      return false;
    }
    mItemDone.wait(hold, [&] { return mSlots.front().done; });
    done = std::move(mSlots.front().item);
    mSlots.pop_front();
    --mClaimed;
    return true;
  }

  void serve() {
    std::unique_lock<std::mutex> hold(mLock);
    for (;;) {
      mWorkReady.wait(hold, [&] { return mStopping || mClaimed < mSlots.size(); });
      if (mStopping) {
        return;
      }
      // Slots are never moved while they are in the deque, and only the calling thread pops
      // a slot, after its work is done.
      Slot& slot = mSlots[mClaimed++];
      hold.unlock();
      mWork(slot.item);
      hold.lock();
      slot.done = true;
      mItemDone.notify_one();
    }
  }

  void stop() {
    {
      const std::lock_guard<std::mutex> hold(mLock);
      mStopping = true;
    }
    mWorkReady.notify_all();
    for (std::thread& thread : mThreads) {
      if (thread.joinable()) {
        thread.join();
      }
    }
  }

  Work mWork;
  size_t mWindow = 0;
  std::vector<std::thread> mThreads;
  std::mutex mLock;
  std::condition_variable mWorkReady;
  std::condition_variable mItemDone;
  std::deque<Slot> mSlots;
  size_t mClaimed = 0;  // slots at the front that a worker has taken
  bool mStopping = false;
};

}  // namespace kxstream

#endif
