#include "core/status.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <new>

#include "core/exceptions.h"

namespace orl {

namespace {

constexpr const char* kNoSuchNode = "Attempted to pop a non-existent node.";
constexpr const char* kNoPolling = "Polling is not supported.";
constexpr const char* kForked = "Attempted to fork a linear status chain.";
constexpr u32 kMaxWidth = 255;

template <u64 N>
void copy_text(char (&target)[N], std::string_view text) {
  const u64 length = std::min<u64>(text.size(), N - 1);
  std::memcpy(target, text.data(), length);
  target[length] = '\0';
}

StatusRecord make_record(std::string_view text, StatusFrameId id) {
  StatusRecord record;
  copy_text(record.text, text);
  record.id = id;
  record.progress = -1;
  return record;
}

float clamped(double fraction) { return static_cast<float>(std::clamp(fraction, 0.0, 1.0)); }

/// Text in a fixed room; what does not fit is cut.
class LineBuilder {
 public:
  LineBuilder(char* line, u64 width) : line_(line), width_(width) {}
  void add(std::string_view text) {
    const u64 count = std::min<u64>(text.size(), width_ - length_);
    std::memcpy(line_ + length_, text.data(), count);
    length_ += count;
  }
  u64 finish() {
    line_[length_] = '\0';
    return length_;
  }

 private:
  char* line_;
  u64 width_;
  u64 length_ = 0;
};

/// " 12.3%": three digits.
void add_percent(LineBuilder& line, double fraction) {
  const double percent = 100 * fraction;
  const int decimals = percent < 9.995 ? 2 : percent < 99.95 ? 1 : 0;
  char text[16];
  std::snprintf(text, sizeof text, " %.*f%%", decimals, percent);
  line.add(text);
}

/// With thousands separators; `text` has room for 27 bytes. format_with_commas() would allocate.
std::string_view format_count(char (&text)[32], u64 count) {
  char digits[24];
  const u64 length = static_cast<u64>(std::to_chars(digits, digits + sizeof digits, count).ptr - digits);
  u64 at = 0;
  for (u64 i = 0; i < length; i++) {
    if (i != 0 && (length - i) % 3 == 0) text[at++] = ',';
    text[at++] = digits[i];
  }
  return {text, at};
}

/// A node or an iteration that drops everything.
template <class Interface>
class Silent : public Interface {
 public:
  std::unique_ptr<StatusNode> push_node(std::string_view) override;
  StatusTree get_tree() const override { return {}; }
  std::unique_ptr<StatusIteration> make_iteration(std::string_view, u64) override;
  u64 get_completed() const override { return 0; }
  void pop_frame(std::span<const StatusFrameId>) override {}
  StatusFrameId push_frame(std::string_view) override { return 0; }
  void set_progress(double) override {}
  void set_line(std::string_view, double) override {}
  void show_count(std::string_view, u64, std::string_view) override {}
  void print(std::string_view, char) override {}
};

using SilentNode = Silent<StatusNode>;

class SilentIteration final : public Silent<StatusIteration> {
 public:
  void advance(u64) override {}
};

template <class Interface>
std::unique_ptr<StatusNode> Silent<Interface>::push_node(std::string_view) {
  return std::make_unique<SilentNode>();
}

template <class Interface>
std::unique_ptr<StatusIteration> Silent<Interface>::make_iteration(std::string_view, u64) {
  return std::make_unique<SilentIteration>();
}

}  // namespace

StatusNode& silent_status() {
  // Never destroyed, since branches may hold it while the process ends, and never allocated.
  alignas(SilentNode) static char room[sizeof(SilentNode)];
  static SilentNode* const node = new (room) SilentNode;
  return *node;
}

void LinearNode::refuse(const char* operation, const char* message) const {
  throw InvalidParametersException(std::string(class_name_) + "::" + operation + "()", message);
}

std::unique_ptr<StatusNode> LinearNode::push_node(std::string_view) { refuse("push_node", kForked); }

std::unique_ptr<StatusIteration> LinearNode::make_iteration(std::string_view text, u64 total) {
  return std::make_unique<LinearConsoleIteration>(*this, text, total);
}

StatusFrameId LinearNode::push_frame(std::string_view text) {
  const StatusFrameId id = depth_ < kMaxStatusFrames ? next_id_++ : 0;
  if (next_id_ == 0) next_id_ = 1;
  if (id != 0) frames_[depth_] = make_record(text, id);
  depth_++;
  count_.shown = false;
  changed(true);
  return id;
}

void LinearNode::pop_frame(std::span<const StatusFrameId> frames) {
  for (const StatusFrameId frame : frames) {
    const StatusFrameId top = depth_ == 0 || depth_ > kMaxStatusFrames ? 0 : frames_[depth_ - 1].id;
    if (depth_ == 0 || frame != top) refuse("pop_frame", kNoSuchNode);
    depth_--;
    count_.shown = false;
  }
  changed(true);
}

void LinearNode::set_progress(double fraction) {
  if (depth_ == 0 || depth_ > kMaxStatusFrames) return;
  frames_[depth_ - 1].progress = clamped(fraction);
  changed(false);
}

void LinearNode::set_goal(double fraction) {
  if (depth_ == 0 || depth_ > kMaxStatusFrames) return;
  goal_ = fraction;
  goal_frame_ = frames_[depth_ - 1].id;
  changed(false);
}

void LinearNode::set_line(std::string_view text, double fraction) {
  if (depth_ == 0 || depth_ > kMaxStatusFrames) return;
  copy_text(frames_[depth_ - 1].text, text);
  frames_[depth_ - 1].progress = clamped(fraction);
  changed(false);
}

void LinearNode::show_count(std::string_view label, u64 count, std::string_view unit) {
  copy_text(count_.label, label);
  copy_text(count_.unit, unit);
  count_.count = count;
  count_.shown = true;
  changed(false);
}

void LinearNode::set_frame_progress(StatusFrameId frame, double fraction) {
  for (u32 i = std::min(depth_, kMaxStatusFrames); i-- > 0;) {
    if (frames_[i].id == frame) frames_[i].progress = clamped(fraction);
  }
  changed(false);
}

void LinearNode::compose(Line& line, u32 width) const {
  LineBuilder label(line.label, std::min(width, kMaxWidth));
  line.value[0] = line.tail[0] = '\0';
  if (count_.shown) {
    label.add(count_.label);
    line.value[format_count(line.value, count_.count).size()] = '\0';
    copy_text(line.tail, count_.unit);
  } else {
    for (u32 i = 0; i < std::min(depth_, kMaxStatusFrames); i++) {
      if (i != 0) label.add("  ");
      label.add(frames_[i].text);
      if (frames_[i].progress >= 0) add_percent(label, frames_[i].progress);
    }
  }
  label.finish();
}

LinearNode::Stated LinearNode::stated() const {
  for (u32 i = 0; i < std::min(depth_, kMaxStatusFrames); i++) {
    if (frames_[i].progress < 0) continue;
    if (frames_[i].id == goal_frame_) return {frames_[i].progress, goal_};
    if (i == 0) return {frames_[i].progress, 0};
  }
  return {};
}

StatusTree LinearNode::tree() const {
  StatusTree tree;
  tree.completed = completed_;
  tree.frames.assign(frames_, frames_ + std::min(depth_, kMaxStatusFrames));
  return tree;
}

LinearNetworkNode::LinearNetworkNode(StatusTransport& transport, u32 width)
    : LinearNode("LinearNetworkNode"), transport_(transport), width_(width) {}

StatusTree LinearNetworkNode::get_tree() const { return tree(); }

void LinearNetworkNode::print(std::string_view text, char colour) { transport_.permanent(text, colour); }

void LinearNetworkNode::changed(bool) {
  Line line;
  compose(line, width_);
  char text[kMaxWidth + 1];
  LineBuilder builder(text, std::min(width_, kMaxWidth));
  builder.add(line.label);
  builder.add(line.value);
  builder.add(line.tail);
  transport_.line({text, builder.finish()});
}

LinearConsoleIteration::LinearConsoleIteration(LinearNode& node, std::string_view text, u64 total)
    : node_(node), frame_(node.push_frame(text)), total_(total) {}

LinearConsoleIteration::~LinearConsoleIteration() { node_.pop_frame({&frame_, 1}); }

void LinearConsoleIteration::advance(u64 steps) {
  completed_ += steps;
  node_.completed_ += steps;
  if (total_ == 0) return;
  node_.set_frame_progress(frame_, static_cast<double>(completed_) / static_cast<double>(total_));
}

std::unique_ptr<StatusNode> LinearConsoleIteration::push_node(std::string_view) {
  throw InvalidParametersException("LinearConsoleIteration::push_node()",
                                   "Attempted to extend a linear status chain.");
}

StatusTree LinearConsoleIteration::get_tree() const {
  throw InvalidParametersException("LinearConsoleIteration::get_tree()", kNoPolling);
}

std::unique_ptr<StatusIteration> LinearConsoleIteration::make_iteration(std::string_view, u64) {
  throw InvalidParametersException("LinearConsoleIteration::make_iteration()",
                                   "Iteration stacking is not supported.");
}

u64 LinearConsoleIteration::get_completed() const {
  throw InvalidParametersException("LinearConsoleIteration::get_completed()", kNoPolling);
}

void LinearConsoleIteration::pop_frame(std::span<const StatusFrameId> frames) { node_.pop_frame(frames); }
StatusFrameId LinearConsoleIteration::push_frame(std::string_view text) { return node_.push_frame(text); }
void LinearConsoleIteration::set_progress(double fraction) { node_.set_progress(fraction); }
void LinearConsoleIteration::set_line(std::string_view text, double fraction) {
  node_.set_line(text, fraction);
}
void LinearConsoleIteration::show_count(std::string_view label, u64 count, std::string_view unit) {
  node_.show_count(label, count, unit);
}
void LinearConsoleIteration::print(std::string_view text, char colour) { node_.print(text, colour); }

void SpinLock::lock() noexcept {
  for (;;) {
    bool expected = false;
    if (taken_.compare_exchange_weak(expected, true, std::memory_order_acquire)) return;
    while (taken_.load(std::memory_order_relaxed)) __builtin_ia32_pause();
  }
}

ParallelNodeState::ParallelNodeState(const char* class_name, std::string_view text, u64 total,
                                     ParallelNodeState* parent)
    : class_name_(class_name), text_(text), total_(total), parent_(parent) {
  frames_.reserve(kMaxStatusFrames);
  if (parent_) parent_->attach(this);
}

ParallelNodeState::~ParallelNodeState() {
  if (!children_.empty()) {
    fatal_error(std::string(class_name_) + ": Attempted to destroy a node with subnodes.");
  }
  if (parent_) parent_->detach(this, completed_);
}

StatusFrameId ParallelNodeState::push_frame(std::string_view text) {
  const std::lock_guard guard(lock_);
  if (frames_.size() == kMaxStatusFrames) {
    hidden_frames_++;
    return 0;
  }
  const StatusFrameId id = next_id_++;
  if (next_id_ == 0) next_id_ = 1;
  frames_.push_back(make_record(text, id));
  return id;
}

bool ParallelNodeState::remove_frame(StatusFrameId frame) {
  if (frame == 0) {
    if (hidden_frames_ == 0) return false;
    hidden_frames_--;
    return true;
  }
  const auto found = std::find_if(frames_.begin(), frames_.end(),
                                  [&](const StatusRecord& record) { return record.id == frame; });
  if (found == frames_.end()) return false;
  frames_.erase(found);
  return true;
}

void ParallelNodeState::pop_frame(std::span<const StatusFrameId> frames) {
  bool all_found = true;
  {
    const std::lock_guard guard(lock_);
    for (u64 i = 0; i < frames.size() && all_found; i++) all_found = remove_frame(frames[i]);
  }
  if (!all_found) throw InvalidParametersException(std::string(class_name_) + "::pop_frame()", kNoSuchNode);
}

void ParallelNodeState::set_line(const std::string_view* text, double fraction) {
  const std::lock_guard guard(lock_);
  if (frames_.empty()) return;
  if (text) copy_text(frames_.back().text, *text);
  frames_.back().progress = clamped(fraction);
}

void ParallelNodeState::set_count(std::string_view label, u64 count) {
  char digits[32];
  const std::string_view number = format_count(digits, count);
  const std::lock_guard guard(lock_);
  if (frames_.empty()) return;
  LineBuilder text(frames_.back().text, sizeof frames_.back().text - 1);
  text.add(label);
  text.add(number);
  text.finish();
}

void ParallelNodeState::advance(u64 steps) {
  const std::lock_guard guard(lock_);
  completed_ += steps;
}

u64 ParallelNodeState::completed() const {
  const std::lock_guard guard(lock_);
  u64 sum = completed_;
  for (const ParallelNodeState* child : children_) sum += child->completed();
  return sum;
}

StatusTree ParallelNodeState::tree() const {
  const std::lock_guard guard(lock_);
  StatusTree tree{text_, completed_, total_, frames_, {}};
  for (const ParallelNodeState* child : children_) {
    tree.nodes.push_back(child->tree());
    tree.completed += tree.nodes.back().completed;
  }
  return tree;
}

void ParallelNodeState::attach(ParallelNodeState* child) {
  const std::lock_guard guard(lock_);
  children_.push_back(child);
}

void ParallelNodeState::detach(ParallelNodeState* child, u64 completed) {
  const std::lock_guard guard(lock_);
  children_.erase(std::find(children_.begin(), children_.end(), child));
  completed_ += completed;
}

template <class Interface>
std::unique_ptr<StatusNode> ParallelNodeBase<Interface>::push_node(std::string_view text) {
  return std::make_unique<ParallelLocalNode>(text, &state_);
}

template <class Interface>
std::unique_ptr<StatusIteration> ParallelNodeBase<Interface>::make_iteration(std::string_view text,
                                                                             u64 total) {
  return std::make_unique<ParallelLocalIteration>(text, total, &state_);
}

template class ParallelNodeBase<StatusNode>;
template class ParallelNodeBase<StatusIteration>;

}  // namespace orl
