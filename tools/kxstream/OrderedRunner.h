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
// memory only for the window. The calling thread is one of the workers: while the item it
// must publish next is not done, it works on the next unclaimed one. With one worker
// everything runs on the calling thread.
template <class Item>
class OrderedRunner {
 public:
  using Work = std::function<void(Item&)>;

  OrderedRunner(size_t workers, Work work) : mWork(std::move(work)) {
    if (workers <= 1) {
      return;
    }
    mWindow = workers * kItemsPerWorker;
    mThreads.reserve(workers - 1);
    try {
      for (size_t index = 1; index < workers; ++index) {
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
    size_t pending = 0;  // only this thread adds and removes items
    std::vector<Item> batch;
    for (;;) {
      // Refilled by half a window at a time under one lock, so that the workers and this
      // thread meet on the lock (and a worker runs dry) once per half window, not per item.
      if (!sourceDone && pending <= mWindow / 2) {
        for (Item item; pending + batch.size() < mWindow; item = Item()) {
          if (!next(item)) {
            sourceDone = true;
            break;
          }
          batch.push_back(std::move(item));
        }
        pending += batch.size();
        enqueue(batch);
      }
      if (pending == 0) {
        return;
      }
      Item done;
      takeFirstDone(done);
      --pending;
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

  // Wakes are sent only to threads that wait: most items are queued and finished while every
  // thread is busy, and a futex call per item would cost more than small files take to digest.
  void enqueue(std::vector<Item>& batch) {
    const std::lock_guard<std::mutex> hold(mLock);
    for (Item& item : batch) {
      mSlots.push_back(Slot{std::move(item), false});
    }
    batch.clear();
    if (mIdleWorkers > 0) {
      mWorkReady.notify_all();
    }
  }

  void takeFirstDone(Item& done) {
    std::unique_lock<std::mutex> hold(mLock);
    while (!mSlots.front().done) {
      if (mClaimed < mSlots.size()) {
        workOnNext(hold);
      } else {
        mCallerWaits = true;
        mItemDone.wait(hold);
        mCallerWaits = false;
      }
    }
    done = std::move(mSlots.front().item);
    mSlots.pop_front();
    --mClaimed;
  }

  // Slots are never moved while they are in the deque, and only the calling thread pops a
  // slot, after its work is done.
  void workOnNext(std::unique_lock<std::mutex>& hold) {
    Slot& slot = mSlots[mClaimed++];
    hold.unlock();
    mWork(slot.item);
    hold.lock();
    slot.done = true;
    if (mCallerWaits && &slot == &mSlots.front()) {
      mItemDone.notify_one();
    }
  }

  void serve() {
    std::unique_lock<std::mutex> hold(mLock);
    for (;;) {
      ++mIdleWorkers;
      mWorkReady.wait(hold, [&] { return mStopping || mClaimed < mSlots.size(); });
      --mIdleWorkers;
      if (mStopping) {
        return;
      }
      workOnNext(hold);
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
  size_t mIdleWorkers = 0;
  bool mCallerWaits = false;
  bool mStopping = false;
};

}  // namespace kxstream

#endif
