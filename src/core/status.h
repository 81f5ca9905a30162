// What a long run says about itself while it goes on.
//
// The mathematics gets a StatusNode, opens a StatusFrame for a stage and sets its progress; it neither knows
// nor cares whether a console, a silent caller or a parallel section stands behind it. None of print,
// push_frame, pop_frame, set_progress, set_line and show_count allocates; push_node, make_iteration and
// get_tree do and are for drivers.
//
//   StatusFrame stage(status, "Reciprocal");
//   status.set_progress(0.5);
//
// Threads  a linear node belongs to one thread. Parallel nodes may be used by several. silent_status() drops
//          everything and may be shared by all: pass it to parallel branches.
#pragma once

#include <atomic>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/types.h"
#include "core/uncopied.h"

namespace orl {

/// Names a frame of a node from its push to its pop. 0 stands for a frame that found no room and is not
/// shown.
using StatusFrameId = u32;

/// One open stage. The text is cut to 31 bytes.
struct StatusRecord {
  char text[32];
  StatusFrameId id;
  float progress;  ///< 0 to 1; below 0: nothing to show
};
static_assert(sizeof(StatusRecord) == 40);

/// A reading of a node and all below it.
struct StatusTree {
  std::string text;
  u64 completed = 0;
  u64 total = 0;  ///< 0: not a counted stage
  std::vector<StatusRecord> frames;
  std::vector<StatusTree> nodes;
};

class StatusIteration;

class StatusNode : Uncopied {
 public:
  virtual ~StatusNode() = default;

  /// Adds a sub-node, which must be gone before this one.
  virtual std::unique_ptr<StatusNode> push_node(std::string_view text) = 0;
  virtual StatusTree get_tree() const = 0;
  /// Opens a stage of `total` counted steps; it closes when the object goes.
  virtual std::unique_ptr<StatusIteration> make_iteration(std::string_view text, u64 total) = 0;
  /// Steps completed.
  virtual u64 get_completed() const = 0;
  /// Closes frames, the innermost first. Throws InvalidParametersException at the first one that is not there
  /// (in a linear node: that is not the innermost); those before it are closed.
  virtual void pop_frame(std::span<const StatusFrameId> frames) = 0;

  /// Opens a frame; StatusFrame does it by scope.
  virtual StatusFrameId push_frame(std::string_view text) = 0;
  /// Fraction done of the innermost frame, 0 to 1.
  virtual void set_progress(double fraction) = 0;
  /// The fraction that the innermost frame will state next, so that time alone can carry a reading of the run up to it.
  /// Dropped by nodes that count no time.
  virtual void set_goal(double /*fraction*/) {}
  /// Changes the innermost frame's text, such as "Series: A  3", and its fraction.
  virtual void set_line(std::string_view text, double fraction) = 0;
  /// Shows "label count unit" in place of the frames until the innermost frame changes, such as
  /// ("Writing...    ", n, "  digits written").
  virtual void show_count(std::string_view label, u64 count, std::string_view unit) = 0;
  /// Permanent text, as it stands; bring the line feed. A silent node drops it.
  virtual void print(std::string_view text, char colour = 'w') = 0;
  /// print() with a line feed behind the text.
  void println(std::string_view text, char colour = 'w') {
    print(text, colour);
    print("\n", ' ');
  }
};

/// A counted stage. It is a node as well, so that it can be handed down.
class StatusIteration : public StatusNode {
 public:
  /// Counts `steps` more as done.
  virtual void advance(u64 steps = 1) = 0;
};

/// A stage by scope.
class StatusFrame : Uncopied {
 public:
  /// Opens a frame with this text on the node; the end of the scope closes it.
  StatusFrame(StatusNode& node, std::string_view text) : node_(node), id_(node.push_frame(text)) {}
  ~StatusFrame() { node_.pop_frame({&id_, 1}); }

 private:
  StatusNode& node_;
  StatusFrameId id_;
};

/// Drops everything; stateless, shared by any number of threads.
StatusNode& silent_status();

/// Frames deeper than this are counted and popped, but not shown.
inline constexpr u32 kMaxStatusFrames = 32;

/// What linear nodes have in common: a chain of frames without branches.
class LinearNode : public StatusNode {
 public:
  /// Throws InvalidParametersException "Attempted to fork a linear status chain."
  std::unique_ptr<StatusNode> push_node(std::string_view text) override;
  std::unique_ptr<StatusIteration> make_iteration(std::string_view text, u64 total) override;
  void pop_frame(std::span<const StatusFrameId> frames) override;
  StatusFrameId push_frame(std::string_view text) override;
  void set_progress(double fraction) override;
  void set_goal(double fraction) override;
  void set_line(std::string_view text, double fraction) override;
  void show_count(std::string_view label, u64 count, std::string_view unit) override;
  u64 get_completed() const override { return completed_; }

 protected:
  friend class LinearConsoleIteration;

  /// The line in three pieces, of which the middle one is a value to stand out. NUL-terminated.
  struct Line {
    char label[256];
    char value[32];
    char tail[32];
  };

  /// `class_name` begins the function names of its exceptions.
  explicit LinearNode(const char* class_name) : class_name_(class_name) {}
  /// Something that is shown has changed; `structure`: a frame came or went.
  virtual void changed(bool structure) = 0;
  /// What there is to show, outermost frame first, cut to `width` characters, at most 255.
  void compose(Line& line, u32 width) const;
  u32 depth() const { return depth_; }
  /// There is something to show: a frame or a count.
  bool has_line() const { return depth_ != 0 || count_.shown; }
  /// The innermost frame has changed what it shows: no count stands in its place any more.
  void hide_count() { count_.shown = false; }
  /// The outermost frame; null without one.
  const StatusRecord* outermost() const { return depth_ != 0 ? frames_ : nullptr; }
  /// What a frame says of itself.
  struct Stated {
    double fraction = -1;  ///< below 0: nothing
    double goal = 0;       ///< the fraction that it will state next; not above `fraction`: not known
  };
  /// Of the outermost frame, or of the one below it that states a goal too: what others say is of themselves alone.
  Stated stated() const;
  StatusTree tree() const;
  [[noreturn]] void refuse(const char* operation, const char* message) const;

 private:
  struct Count {
    char label[32];
    char unit[32];
    u64 count;
    bool shown;
  };

  void set_frame_progress(StatusFrameId frame, double fraction);

  const char* class_name_;
  StatusRecord frames_[kMaxStatusFrames];
  double goal_ = 0;               ///< of the frame below
  StatusFrameId goal_frame_ = 0;  ///< the last one that stated a goal
  u32 depth_ = 0;                 ///< open frames, those without room included
  StatusFrameId next_id_ = 1;
  Count count_{};
  u64 completed_ = 0;
};

/// Takes what a linear node would show to somewhere else than the console.
class StatusTransport {
 public:
  virtual ~StatusTransport() = default;
  /// The line changed. Called at every change; must not allocate if the mathematics is to keep that promise.
  virtual void line(std::string_view text) = 0;
  virtual void permanent(std::string_view text, char colour) = 0;
};

/// A linear node for a status that does not go to the console.
class LinearNetworkNode final : public LinearNode {
 public:
  /// `width`: characters of a line.
  LinearNetworkNode(StatusTransport& transport, u32 width);

  StatusTree get_tree() const override;
  void print(std::string_view text, char colour = 'w') override;

 private:
  void changed(bool structure) override;

  StatusTransport& transport_;
  u32 width_;
};

/// A counted stage of a linear node: one frame of it, whose progress is the share of steps done.
class LinearConsoleIteration final : public StatusIteration {
 public:
  /// Opens a frame on `node` for `total` steps.
  LinearConsoleIteration(LinearNode& node, std::string_view text, u64 total);
  ~LinearConsoleIteration() override;

  void advance(u64 steps) override;

  std::unique_ptr<StatusNode> push_node(std::string_view text) override;
  StatusTree get_tree() const override;
  std::unique_ptr<StatusIteration> make_iteration(std::string_view text, u64 total) override;
  u64 get_completed() const override;
  void pop_frame(std::span<const StatusFrameId> frames) override;
  StatusFrameId push_frame(std::string_view text) override;
  void set_progress(double fraction) override;
  void set_line(std::string_view text, double fraction) override;
  void show_count(std::string_view label, u64 count, std::string_view unit) override;
  void print(std::string_view text, char colour) override;

 private:
  LinearNode& node_;
  StatusFrameId frame_;
  u64 total_;
  u64 completed_ = 0;
};

/// Held for a few instructions; taken by compare-and-swap.
class SpinLock {
 public:
  /// As std::mutex, for std::lock_guard.
  void lock() noexcept;
  void unlock() noexcept { taken_.store(false, std::memory_order_release); }

 private:
  std::atomic<bool> taken_{false};
};

/// What the nodes of a tree share: frames, children and a step count, all under one spin lock.
class ParallelNodeState {
 public:
  /// `class_name` is the one that a failure names. `total`: steps, 0 for a node without. `parent` may be
  /// null.
  ParallelNodeState(const char* class_name, std::string_view text, u64 total, ParallelNodeState* parent);
  /// Ends the program if sub-nodes are still there.
  ~ParallelNodeState();

  /// What the nodes forward here; each takes the lock.
  StatusFrameId push_frame(std::string_view text);
  void pop_frame(std::span<const StatusFrameId> frames);
  void set_line(const std::string_view* text, double fraction);
  void set_count(std::string_view label, u64 count);
  void advance(u64 steps);
  /// Own steps and those of all nodes below, closed ones included.
  u64 completed() const;
  StatusTree tree() const;

 private:
  bool remove_frame(StatusFrameId frame);
  void attach(ParallelNodeState* child);
  void detach(ParallelNodeState* child, u64 completed);

  const char* class_name_;
  std::string text_;
  u64 total_;
  ParallelNodeState* parent_;
  mutable SpinLock lock_;
  std::vector<StatusRecord> frames_;  ///< never grows beyond what the constructor reserved
  u64 hidden_frames_ = 0;
  StatusFrameId next_id_ = 1;
  std::vector<ParallelNodeState*> children_;
  u64 completed_ = 0;
};

/// Base of the two parallel classes: everything but the counted part. Text that it is given to print is
/// dropped: a branch reports through the tree.
template <class Interface>
class ParallelNodeBase : public Interface {
 public:
  std::unique_ptr<StatusNode> push_node(std::string_view text) override;
  StatusTree get_tree() const override { return state_.tree(); }
  std::unique_ptr<StatusIteration> make_iteration(std::string_view text, u64 total) override;
  u64 get_completed() const override { return state_.completed(); }
  void pop_frame(std::span<const StatusFrameId> frames) override { state_.pop_frame(frames); }
  StatusFrameId push_frame(std::string_view text) override { return state_.push_frame(text); }
  void set_progress(double fraction) override { state_.set_line(nullptr, fraction); }
  void set_line(std::string_view text, double fraction) override { state_.set_line(&text, fraction); }
  void show_count(std::string_view label, u64 count, std::string_view) override {
    state_.set_count(label, count);
  }
  void print(std::string_view, char) override {}

 protected:
  ParallelNodeBase(const char* class_name, std::string_view text, u64 total, ParallelNodeState* parent)
      : state_(class_name, text, total, parent) {}

  ParallelNodeState state_;
};

/// A node that can have sub-nodes, for parallel sections.
class ParallelLocalNode final : public ParallelNodeBase<StatusNode> {
 public:
  /// A root of its own when `parent` is null.
  explicit ParallelLocalNode(std::string_view text, ParallelNodeState* parent = nullptr)
      : ParallelNodeBase("ParallelLocalNode", text, 0, parent) {}
};

/// A counted stage of a parallel node.
class ParallelLocalIteration final : public ParallelNodeBase<StatusIteration> {
 public:
  /// `total`: steps.
  ParallelLocalIteration(std::string_view text, u64 total, ParallelNodeState* parent)
      : ParallelNodeBase("ParallelLocalIteration", text, total, parent) {}
  void advance(u64 steps) override { state_.advance(steps); }
};

}  // namespace orl
