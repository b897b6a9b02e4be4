// Costs of the framework's hot paths, with the usual alternatives measured
// side by side: setters, delivery to machines against a std::function list and
// Boost.Signals2, collections, counted pointers, tracing and the timer wheel.
#include <benchmark/benchmark.h>

#include <boost/signals2/signal.hpp>
#include <functional>
#include <memory>
#include <vector>

#include "Brim/TimerWheel.h"
#include "Kiv/Reactor.h"
#include "Kiv/Trace.h"

namespace {

Kiv::Tracer trace{"FrameworkBench"};

class Cell : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { key, value };
   };
   explicit Cell(int key = 0) : key_(key) {}
   int value() const { return value_; }
   void valueIs(int v) { set(value_, v, F::value); }

  private:
   int key_;
   int value_ = 0;
};

class Table : public Kiv::Entity {
  public:
   struct F {
      enum : Kiv::FieldId { cell };
   };
   Kiv::Collection<int, Cell> cell{this, F::cell, "cell"};
};

// A machine watching one cell; its handler adds the new value to its own sum.
class SumSm : public Kiv::Reactor {
  public:
   SumSm(Pondo::Ptr<const Cell> cell, long* sum)
       : cell_(this, std::move(cell), Kiv::onAny<&SumSm::on_cell>), sum_(sum) {}

  private:
   void on_cell(const Kiv::Change& c) {
      if (c.field == Cell::F::value) *sum_ += c.newAs<int>();
   }
   Kiv::Input<const Cell> cell_;
   long* sum_;
};

void BM_SetterUnchanged(benchmark::State& state) {
   auto cell = Kiv::make<Cell>();
   long sum = 0;
   auto sm = Kiv::make<SumSm>(cell, &sum);
   int v = 0;
   for (auto _ : state) {
      benchmark::DoNotOptimize(v);
      cell->valueIs(v);
   }
   benchmark::DoNotOptimize(sum);
}
BENCHMARK(BM_SetterUnchanged);

// The same loop with a bare comparison, for scale.
void BM_ComparisonOnly(benchmark::State& state) {
   int stored = 0, v = 0;
   for (auto _ : state) {
      benchmark::DoNotOptimize(v);
      if (stored != v) stored = v;
      benchmark::DoNotOptimize(stored);
   }
}
BENCHMARK(BM_ComparisonOnly);

// Every receiver of the delivery benchmarks adds into a slot of its own, so
// that they measure delivery rather than a chain of additions to one memory
// word.
using Sums = std::vector<long>;

// A changing value delivered to N machines.
void BM_SetterToMachines(benchmark::State& state) {
   auto cell = Kiv::make<Cell>();
   Sums sums(std::size_t(state.range(0)));
   std::vector<Pondo::Ptr<SumSm>> machines;
   for (long& sum : sums) machines.push_back(Kiv::make<SumSm>(cell, &sum));
   int v = 0;
   for (auto _ : state) {
      cell->valueIs(v ^= 1);
      benchmark::ClobberMemory();
   }
   benchmark::DoNotOptimize(sums.data());
}
BENCHMARK(BM_SetterToMachines)->Arg(0)->Arg(1)->Arg(8);

// A changing value delivered to N bare subscribers.
struct SumSubscriber : Pondo::Subscriber {
   void onChange(const Kiv::Change& c) override { *sum += c.newAs<int>(); }
   long* sum;
};
void BM_SetterToSubscribers(benchmark::State& state) {
   auto cell = Kiv::make<Cell>();
   Sums sums(std::size_t(state.range(0)));
   std::vector<SumSubscriber> subs(sums.size());
   for (std::size_t i = 0; i < subs.size(); ++i) {
      subs[i].sum = &sums[i];
      cell->subscriberAdd(&subs[i]);
   }
   int v = 0;
   for (auto _ : state) {
      cell->valueIs(v ^= 1);
      benchmark::ClobberMemory();
   }
   for (auto& s : subs) cell->subscriberRemove(&s);
   benchmark::DoNotOptimize(sums.data());
}
BENCHMARK(BM_SetterToSubscribers)->Arg(1)->Arg(8);

// The same work through a plain list of callbacks: compare, store, call each.
void BM_SetterToCallbackList(benchmark::State& state) {
   int stored = 0;
   Sums sums(std::size_t(state.range(0)));
   std::vector<std::function<void(const int&, const int&)>> callbacks;
   for (long& sum : sums) callbacks.emplace_back([&sum](const int&, const int& now) { sum += now; });
   int v = 0;
   for (auto _ : state) {
      v ^= 1;
      if (stored != v) {
         const int old = stored;
         stored = v;
         for (auto& f : callbacks) f(old, stored);
      }
      benchmark::ClobberMemory();
   }
   benchmark::DoNotOptimize(sums.data());
}
BENCHMARK(BM_SetterToCallbackList)->Arg(0)->Arg(1)->Arg(8);

// The same work through a Boost.Signals2 signal.
void BM_SetterToSignals2(benchmark::State& state) {
   int stored = 0;
   Sums sums(std::size_t(state.range(0)));
   boost::signals2::signal<void(const int&, const int&)> changed;
   for (long& sum : sums) changed.connect([&sum](const int&, const int& now) { sum += now; });
   int v = 0;
   for (auto _ : state) {
      v ^= 1;
      if (stored != v) {
         const int old = stored;
         stored = v;
         changed(old, stored);
      }
      benchmark::ClobberMemory();
   }
   benchmark::DoNotOptimize(sums.data());
}
BENCHMARK(BM_SetterToSignals2)->Arg(0)->Arg(1)->Arg(8);

// Creating and deleting one member of a collection of 1000.
void BM_CollectionIsDel(benchmark::State& state) {
   auto table = Kiv::make<Table>();
   for (int k = 0; k < 1000; ++k) table->cell.is(2 * k);
   int j = 0;
   for (auto _ : state) {
      const int k = 2 * (j = (j + 1) % 1000) + 1;  // between two present keys
      benchmark::DoNotOptimize(table->cell.is(k));
      table->cell.del(k);
   }
}
BENCHMARK(BM_CollectionIsDel);

// Looking up a present member.
void BM_CollectionFind(benchmark::State& state) {
   auto table = Kiv::make<Table>();
   for (int k = 0; k < 1000; ++k) table->cell.is(k);
   int k = 0;
   for (auto _ : state) benchmark::DoNotOptimize(table->cell.find(k = (k + 7) % 1000));
}
BENCHMARK(BM_CollectionFind);

// Copying and dropping a counted pointer, with plain (0) or locked (1) counts.
void BM_PtrCopy(benchmark::State& state) {
   Pondo::multiThreadedIs(state.range(0) != 0);
   auto cell = Kiv::make<Cell>();
   for (auto _ : state) {
      Pondo::Ptr<Cell> copy = cell;
      benchmark::DoNotOptimize(copy);
   }
   Pondo::multiThreadedIs(false);
}
BENCHMARK(BM_PtrCopy)->ArgName("locked")->Arg(0)->Arg(1);

// A loop of work with a disabled trace against the same loop without it.
void BM_TraceDisabled(benchmark::State& state) {
   trace.maskIs(0);
   long x = 0;
   for (auto _ : state) {
      benchmark::DoNotOptimize(x += 3);
      trace(8, "handleValue for key {} value {}", x, x * 2);
   }
}
BENCHMARK(BM_TraceDisabled);

void BM_NoTrace(benchmark::State& state) {
   long x = 0;
   for (auto _ : state) benchmark::DoNotOptimize(x += 3);
}
BENCHMARK(BM_NoTrace);

// Setting a timer on a wheel of 1 ms ticks and cancelling it.
void BM_TimerWheelSetCancel(benchmark::State& state) {
   Kiv::activityManager().virtualTimeIs(0, 0);
   auto wheel = Brim::TimerWheelIs(Kiv::activityManager().clock(), 1, 4096, true, 8);
   Brim::TimerWheel::Timer timer(wheel, [] {});
   int i = 0;
   for (auto _ : state) {
      timer.timeMinIs(0.001 * (1 + (i = (i + 37) % 1000)));
      timer.timeMinIs(Kiv::kNever);
   }
}
BENCHMARK(BM_TimerWheelSetCancel);

// 1000 periodic timers of 100 ms spread over the ticks of a 1 ms wheel; each
// iteration runs the loop one tick on, expiring and re-arming ten timers.
void BM_TimerWheelExpiry(benchmark::State& state) {
   Kiv::ActivityManager& loop = Kiv::activityManager();
   loop.virtualTimeIs(0, 0);
   auto wheel = Brim::TimerWheelIs(loop.clock(), 1, 4096, true, 16);
   std::vector<std::unique_ptr<Brim::TimerWheel::Timer>> timers;
   timers.reserve(1000);  // callbacks hold the address of their slot
   long fired = 0;
   for (int i = 0; i < 1000; ++i) {
      auto* slot = &timers.emplace_back();
      *slot = std::make_unique<Brim::TimerWheel::Timer>(wheel, [slot, &fired] {
         ++fired;
         (*slot)->timeMinIs(Kiv::currentTime() + 0.1);
      });
      (*slot)->timeMinIs(0.001 * (1 + i % 100));
   }
   for (auto _ : state) loop.runFor(0.001);
   state.SetItemsProcessed(fired);
}
BENCHMARK(BM_TimerWheelExpiry);

}  // namespace
