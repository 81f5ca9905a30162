// A frame that keeps what every stage leaves alive, so that another run can resume behind any of them.
#pragma once

#include <algorithm>
#include <utility>
#include <vector>

#include "numbers/ram_store.h"

namespace orl::test {

/// The saves of one run, and the one that the next run resumes from.
struct Recording {
  using Path = std::vector<u64>;  ///< of a stage: its places in the frames around it, outermost first
  struct Number {
    std::vector<u64> words;
    s64 exp;
    u8 sign;
  };
  struct Save {
    Path path;
    std::vector<Number> alive;
  };

  std::vector<Save> saves;
  const Save* resume = nullptr;  ///< null: run every stage and save
  bool loading = false;          ///< `resume` is still to come
  u64 open_stages = 0;

  void start(const Save* from) {
    resume = from;
    loading = from != nullptr;
  }
};

class RecordingFrame {
 public:
  explicit RecordingFrame(Recording& recording) : recording_(&recording) {}

  RecordingFrame enter(const char*) {
    RecordingFrame inner = *this;
    inner.path_.push_back(next_++);
    inner.next_ = 0;
    return inner;
  }
  template <class T>
  void assert_sL(const char*, const T&) {}

  template <class Body, class... Live>
  void stage(Body&& body, Live&... live) {
    Recording& r = *recording_;
    path_.push_back(next_);
    if (!r.loading) {
      run(body);
      if (r.resume == nullptr) r.saves.push_back({path_, {keep(live)...}});
    } else if (path_ == r.resume->path) {
      restore_all(*r.resume, live...);
      r.loading = false;
    } else if (is_just_before(r.resume->path)) {
      for (const Recording::Save& save : r.saves)
        if (save.path == path_) restore_all(save, live...);
    } else if (path_.size() < r.resume->path.size() &&
               std::equal(path_.begin(), path_.end(), r.resume->path.begin())) {
      run(body);
    }
    next_ = path_.back() + 1;
    path_.pop_back();
  }

 private:
  /// True for the stage before the one that is open on the way to `path`: what it left alive is an operand there.
  bool is_just_before(const Recording::Path& path) const {
    const u64 depth = path_.size() - 1;
    return path.size() > depth && path_.back() + 1 == path[depth] &&
           std::equal(path_.begin(), path_.end() - 1, path.begin());
  }
  template <class... Live>
  static void restore_all(const Recording::Save& save, Live&... live) {
    u64 i = 0;
    (restore(live, save.alive.at(i++)), ...);
  }
  template <class Body>
  void run(Body&& body) {
    next_ = 0;
    ++recording_->open_stages;
    body();
    --recording_->open_stages;
  }
  template <class W>
  static Recording::Number keep(const BigFloat<W>& x) {
    return {{x.T, x.T + x.L}, x.exp, x.sign};
  }
  static Recording::Number keep(u64 hash) { return {{hash}, 0, 1}; }
  static void restore(u64& hash, const Recording::Number& kept) { hash = kept.words.at(0); }
  template <class W>
  static void restore(BigFloat<W>& x, const Recording::Number& kept) {
    if (x.size < kept.words.size()) throw BufferTooSmallException("restore()", x.size, kept.words.size());
    x.T = x.base;
    x.L = kept.words.size();
    std::copy(kept.words.begin(), kept.words.end(), x.T);
    x.exp = kept.exp;
    x.sign = kept.sign;
  }

  Recording* recording_;
  Recording::Path path_;
  u64 next_ = 0;
};

template <class W>
struct RecordingStore : RamStore<W> {
  using Frame = RecordingFrame;
};

}  // namespace orl::test
