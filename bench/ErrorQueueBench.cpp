// The reference for the egress poll path: software transmit timestamps taken
// from the kernel's error queue of a UDP socket on loopback (SO_TIMESTAMPING
// with OPT_ID and OPT_TSONLY). Only the fetching is timed, not the sends:
// one poll and one recvmsg(MSG_ERRQUEUE) per timestamp, or one poll per batch
// of 64 and a recvmsg each.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <linux/errqueue.h>
#include <linux/net_tstamp.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#include "SameRun.h"

namespace {

constexpr int kBatch = 64;

// A sender whose datagrams go to a receiver on loopback.
struct Loopback {
   int tx = -1, rx = -1;
   bool ok = false;

   Loopback() {
      tx = ::socket(AF_INET, SOCK_DGRAM, 0);
      rx = ::socket(AF_INET, SOCK_DGRAM, 0);
      sockaddr_in a{};
      a.sin_family = AF_INET;
      a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
      socklen_t len = sizeof a;
      const unsigned flags = SOF_TIMESTAMPING_TX_SOFTWARE | SOF_TIMESTAMPING_SOFTWARE | SOF_TIMESTAMPING_OPT_ID |
                             SOF_TIMESTAMPING_OPT_TSONLY;
      ok = tx >= 0 && rx >= 0 && ::bind(rx, reinterpret_cast<sockaddr*>(&a), len) == 0 &&
           ::getsockname(rx, reinterpret_cast<sockaddr*>(&a), &len) == 0 &&
           ::connect(tx, reinterpret_cast<sockaddr*>(&a), len) == 0 &&
           ::setsockopt(tx, SOL_SOCKET, SO_TIMESTAMPING, &flags, sizeof flags) == 0;
   }
   ~Loopback() {
      ::close(tx);
      ::close(rx);
   }

   // Sends a batch and empties the receiver, so that only the timestamps wait.
   void sendBatch() {
      char byte = 0;
      for (int i = 0; i < kBatch; ++i) ::send(tx, &byte, 1, 0);
      while (::recv(rx, &byte, 1, MSG_DONTWAIT) > 0) {
      }
   }
   // One timestamp from the error queue; false when none came.
   bool fetch() {
      char control[256];
      msghdr m{};
      m.msg_control = control;
      m.msg_controllen = sizeof control;
      if (::recvmsg(tx, &m, MSG_ERRQUEUE) < 0) return false;
      for (cmsghdr* c = CMSG_FIRSTHDR(&m); c; c = CMSG_NXTHDR(&m, c)) {
         if (c->cmsg_level == SOL_SOCKET && c->cmsg_type == SO_TIMESTAMPING) {
            scm_timestamping ts;
            std::memcpy(&ts, CMSG_DATA(c), sizeof ts);
            benchmark::DoNotOptimize(ts.ts[0].tv_nsec);
            return true;
         }
      }
      return false;
   }
   bool ready() {
      pollfd p{tx, POLLERR, 0};
      return ::poll(&p, 1, 1000) == 1;
   }
};

void errorQueue(benchmark::State& state, bool batched, const char* name) {
   Loopback l;
   if (!l.ok) {
      state.SkipWithError("no loopback socket with software transmit timestamps");
      return;
   }
   std::int64_t fetched = 0;
   double spent = 0;
   for (auto _ : state) {
      state.PauseTiming();
      l.sendBatch();
      state.ResumeTiming();
      const double start = cpuNs();
      for (int i = 0; i < kBatch; ++i) {
         if ((!batched || i == 0) && !l.ready()) break;
         fetched += l.fetch();
      }
      spent += cpuNs() - start;
   }
   if (fetched != state.iterations() * kBatch) state.SkipWithError("timestamps went missing");
   // Measured around the fetches alone: pausing the timer is not free.
   state.counters["ns_per_ts"] = spent / double(fetched);
   perTimestampNs()[name] = spent / double(fetched);
}

void BM_ErrorQueueSingleFetch(benchmark::State& state) { errorQueue(state, false, "error queue, single fetch"); }
BENCHMARK(BM_ErrorQueueSingleFetch);
void BM_ErrorQueueBatched(benchmark::State& state) { errorQueue(state, true, "error queue, batched"); }
BENCHMARK(BM_ErrorQueueBatched);

}  // namespace
