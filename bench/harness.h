// What a participant provides, and how its cases get into a run.
#pragma once

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "bench/workloads.h"

namespace nox::bench {

/// Looks at a value as cheaply as a program can that uses it: its length and both ends.
class Touch {
public:
  void operator()(int value) { sum_ += static_cast<unsigned int>(value); }
  void operator()(std::string_view value) {
    sum_ += value.size();
    if (value.empty()) return;
    sum_ += static_cast<unsigned char>(value.front());
    sum_ += static_cast<unsigned char>(value.back());
  }
  std::uint64_t sum() const { return sum_; }

private:
  std::uint64_t sum_ = 0;
};

/// Looks at every byte; with it a participant proves before the run that it carries all values.
class Digest {
public:
  void operator()(int value) { (*this)(std::to_string(value)); }
  void operator()(std::string_view value) {
    for (const char byte : value) mix(static_cast<unsigned char>(byte));
    mix(256 + value.size());
  }
  std::uint64_t sum() const { return sum_; }

private:
  void mix(std::uint64_t value) { sum_ = (sum_ ^ value) * 1099511628211U; }

  std::uint64_t sum_ = 14695981039346656037U;
};

/// One participant at one workload in one direction.
struct Case {
  std::string workload;
  std::string operation;  // "encode" or "decode"
  std::string participant;
  std::size_t messageSize;        // encoded bytes
  std::function<void()> prepare;  // what one message needs before it, not counted; may be empty
  std::function<void()> once;
  std::function<void(benchmark::State&)> loop;

  std::string name() const { return workload + "/" + operation + "/" + participant; }
};

template <class Codec, class = void>
constexpr bool kPrepares = false;
template <class Codec>
constexpr bool kPrepares<Codec, std::void_t<decltype(&Codec::prepare)>> = true;

/// Collects the cases of all participants.
///
/// A participant brings one codec per kind of object:
///
///     explicit Codec(const Object& source);  // prepares the participant's own object
///     std::size_t encode();                  // that object into a buffer that is kept; its bytes
///     template <class Visitor>
///     void decode(Visitor& visit);           // those bytes into a new owning object, every value
///                                            // visited, the object destroyed
///     void prepare();                        // optional: before each encode, not counted
///
/// A decoded object is always a new one on the heap, since that is what a reader of messages hands
/// to a program; what else lives as long as a connection (buffers, streams, writers) is kept.
class Suite {
public:
  explicit Suite(const Workloads& data) : data_(data) {}

  template <class Read, class Write, class Keys, class Rows>
  void addAll(const std::string& participant) {
    add<Read>("W1", participant, data_.w1);
    add<Write>("W2", participant, data_.w2);
    add<Write>("W2b", participant, data_.w2b);
    add<Rows>("W3", participant, data_.w3);
    add<Rows>("W3x", participant, data_.w3x);
    add<Keys>("W4", participant, data_.w4);
  }

  template <class Codec, class Object>
  void add(const std::string& workload, const std::string& participant, const Object& source) {
    const auto codec = std::make_shared<Codec>(source);
    Digest expected;
    visitAll(source, expected);
    std::size_t size = 0;
    for (int i = 0; i < 2; ++i) {  // the second message uses what the first one left behind
      prepareIfNeeded(*codec);
      size = codec->encode();
      Digest found;
      codec->decode(found);
      if (found.sum() != expected.sum()) {
        std::cerr << participant << " does not give back what it was given in " << workload << "\n";
        std::exit(1);
      }
    }

    const auto encode = [codec] { benchmark::DoNotOptimize(codec->encode()); };
    const auto decode = [codec] {
      Touch touch;
      codec->decode(touch);
      benchmark::DoNotOptimize(touch.sum());
    };
    const auto time = [](const auto& body) {
      return [body](benchmark::State& state) {
        for (auto _ : state) {
          body();
          benchmark::ClobberMemory();
        }
      };
    };
    if constexpr (kPrepares<Codec>) {
      const auto timeEncode = [codec, encode](benchmark::State& state) {
        for (auto _ : state) {
          state.PauseTiming();
          codec->prepare();
          state.ResumeTiming();
          encode();
          benchmark::ClobberMemory();
        }
      };
      const auto prepareOne = [codec] { codec->prepare(); };
      cases_.push_back({workload, "encode", participant, size, prepareOne, encode, timeEncode});
    } else {
      cases_.push_back({workload, "encode", participant, size, {}, encode, time(encode)});
    }
    cases_.push_back({workload, "decode", participant, size, {}, decode, time(decode)});
  }

  const Workloads& data() const { return data_; }
  const std::vector<Case>& cases() const { return cases_; }

private:
  template <class Codec>
  static void prepareIfNeeded(Codec& codec) {
    if constexpr (kPrepares<Codec>) codec.prepare();
  }

  const Workloads& data_;
  std::vector<Case> cases_;
};

// The participants, each in a file of its own.
void addLimit(Suite& suite);
void addNox(Suite& suite);
void addProtobuf(Suite& suite);
void addCereal(Suite& suite);
void addBoost(Suite& suite);
void addMsgpack(Suite& suite);
void addCapnproto(Suite& suite);
void addFlatbuffers(Suite& suite);
void addThrift(Suite& suite);

/// Every participant's cases. The workloads outlive the suite.
Suite makeSuite(const Workloads& data);

}  // namespace nox::bench
