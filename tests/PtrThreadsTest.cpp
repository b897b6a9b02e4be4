// Counted pointers shared between threads: with locked counts, uses taken and
// dropped concurrently balance, and the object goes exactly once, on whichever
// thread drops the last use.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "Pondo/Ptr.h"

namespace {

struct Thing : Pondo::Object {
   explicit Thing(std::atomic<int>* gone) : gone_(gone) {}
   ~Thing() override { gone_->fetch_add(1); }
   std::atomic<int>* gone_;
};

class PtrThreads : public ::testing::Test {
  protected:
   void SetUp() override { Pondo::multiThreadedIs(true); }
   void TearDown() override { Pondo::multiThreadedIs(false); }
};

// Four threads that take and drop uses of `shared`, started (the caller
// joins them).
std::vector<std::thread> copying(const Pondo::Ptr<Thing>& shared) {
   std::vector<std::thread> threads;
   for (int t = 0; t < 4; ++t) {
      threads.emplace_back([shared] {
         for (int i = 0; i < 20000; ++i) {
            Pondo::Ptr<Thing> copy = shared;
            Pondo::Ptr<Thing> other = copy;
         }
      });
   }
   return threads;
}

TEST_F(PtrThreads, ConcurrentCopiesBalance) {
   std::atomic<int> gone{0};
   Pondo::Ptr<Thing> shared(new Thing(&gone));
   for (auto& t : copying(shared)) t.join();
   EXPECT_EQ(shared->references(), 1u);
   EXPECT_EQ(gone.load(), 0);
   shared = nullptr;
   EXPECT_EQ(gone.load(), 1);
}

TEST_F(PtrThreads, LastUseDroppedOnAnotherThreadDestroysOnce) {
   for (int round = 0; round < 200; ++round) {
      std::atomic<int> gone{0};
      Pondo::Ptr<Thing> a(new Thing(&gone));
      Pondo::Ptr<Thing> b = a;
      std::thread t([p = std::move(b)]() mutable { p = nullptr; });
      a = nullptr;
      t.join();
      ASSERT_EQ(gone.load(), 1);
   }
}

// Unasked: once a second thread exists, counts are locked all the same.
TEST(PtrThreadsUnasked, CountsLockOnceASecondThreadExists) {
   std::atomic<int> gone{0};
   Pondo::Ptr<Thing> shared(new Thing(&gone));
   std::vector<std::thread> threads = copying(shared);
   EXPECT_TRUE(Pondo::multiThreaded());
   for (auto& t : threads) t.join();
   EXPECT_EQ(shared->references(), 1u);
   shared = nullptr;
   EXPECT_EQ(gone.load(), 1);
}

}  // namespace
