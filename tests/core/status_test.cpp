#include "core/status.h"

#include <gtest/gtest.h>

#include <thread>

#include "core/event_log.h"
#include "core/settings.h"
#include "support/allocation_counter.h"
#include "support/child.h"
#include "support/thrown.h"

namespace orl::test {
namespace {

/// Keeps the last line without allocating.
class Recorder final : public StatusTransport {
 public:
  void line(std::string_view text) override {
    length_ = text.copy(last_, sizeof last_);
    lines++;
  }
  void permanent(std::string_view text, char) override { printed += text; }
  std::string_view last() const { return {last_, length_}; }

  u64 lines = 0;
  std::string printed;

 private:
  char last_[300];
  u64 length_ = 0;
};

TEST(LinearStatus, ShowsTheChainOfFramesAndCutsItToTheWidth) {
  Recorder recorder;
  LinearNetworkNode node(recorder, 40);
  {
    StatusFrame series(node, "Series: A ( 3 )");
    node.set_progress(0.1234);
    EXPECT_EQ(recorder.last(), "Series: A ( 3 ) 12.3%");
    StatusFrame inner(node, "Merge");
    EXPECT_EQ(recorder.last(), "Series: A ( 3 ) 12.3%  Merge");
    node.set_line("A text far longer than thirty-one bytes", 0.99999);
    EXPECT_EQ(recorder.last(), "Series: A ( 3 ) 12.3%  A text far longer");
  }
  EXPECT_EQ(recorder.last(), "");
}

TEST(LinearStatus, CountStandsUntilTheFrameChanges) {
  Recorder recorder;
  LinearNetworkNode node(recorder, 79);
  const StatusFrameId frame = node.push_frame("Decimal");
  node.show_count("Writing...    ", 18446744073709551615u, "  digits written");
  EXPECT_EQ(recorder.last(), "Writing...    18,446,744,073,709,551,615  digits written");
  node.show_count("Writing...    ", 999, "  digits written");
  EXPECT_EQ(recorder.last(), "Writing...    999  digits written");
  node.pop_frame({&frame, 1});
  EXPECT_EQ(recorder.last(), "");
}

TEST(LinearStatus, PopsOnlyTheInnermostFrames) {
  Recorder recorder;
  LinearNetworkNode node(recorder, 79);
  const StatusFrameId outer = node.push_frame("outer"), inner = node.push_frame("inner");
  const std::string refused = "LinearNetworkNode::pop_frame() Attempted to pop a non-existent node.";
  EXPECT_EQ(refusal([&] { node.pop_frame({&outer, 1}); }), refused);
  const StatusFrameId both[] = {inner, outer, 99};
  EXPECT_EQ(refusal([&] { node.pop_frame(both); }), refused);  // after closing the two that are there
  EXPECT_EQ(refusal([&] { node.pop_frame({&outer, 1}); }), refused);
}

TEST(LinearStatus, FramesBeyondTheRoomAreCountedAndPopInOrder) {
  Recorder recorder;
  LinearNetworkNode node(recorder, 79);
  std::vector<StatusFrameId> frames;
  for (u32 i = 0; i < kMaxStatusFrames + 10; i++) frames.push_back(node.push_frame("f"));
  node.set_progress(0.5);  // of a frame that is not shown
  EXPECT_EQ(node.get_tree().frames.size(), kMaxStatusFrames);
  for (u64 i = frames.size(); i-- > 0;) node.pop_frame({&frames[i], 1});
  EXPECT_EQ(recorder.last(), "");
  EXPECT_NE(refusal([&] { node.pop_frame({&frames.back(), 1}); }), "accepted");
}

TEST(LinearStatus, RefusesWhatOnlyATreeCanDo) {
  Recorder recorder;
  LinearNetworkNode node(recorder, 79);
  const std::unique_ptr<StatusIteration> iteration = node.make_iteration("steps", 4);
  EXPECT_EQ(refusal([&] { node.push_node("x"); }),
            "LinearNetworkNode::push_node() Attempted to fork a linear status chain.");
  EXPECT_EQ(refusal([&] { iteration->get_completed(); }),
            "LinearConsoleIteration::get_completed() Polling is not supported.");
  EXPECT_EQ(refusal([&] { iteration->make_iteration("x", 1); }),
            "LinearConsoleIteration::make_iteration() Iteration stacking is not supported.");
  EXPECT_EQ(refusal([&] { iteration->push_node("x"); }),
            "LinearConsoleIteration::push_node() Attempted to extend a linear status chain.");
}

TEST(LinearStatus, IterationShowsItsShareUnderInnerFrames) {
  Recorder recorder;
  LinearNetworkNode node(recorder, 79);
  {
    const std::unique_ptr<StatusIteration> iteration = node.make_iteration("steps", 8);
    StatusFrame inner(*iteration, "inner");
    iteration->advance(2);
    EXPECT_EQ(recorder.last(), "steps 25.0%  inner");
    EXPECT_EQ(node.get_completed(), 2u);
  }
  EXPECT_EQ(recorder.last(), "");
}

template <class Node>
void use_like_mathematics(Node& node) {
  StatusFrame stage(node, "a stage with a text longer than its record");
  for (int i = 0; i < 100; i++) {
    StatusFrame inner(node, "inner");
    node.set_progress(0.01 * i);
    node.set_line("Series: A", 0.5);
    node.show_count("Writing...  ", 123456789, "  digits");
    node.print("", ' ');
  }
}

TEST(Status, WhatTheMathematicsUsesDoesNotAllocate) {
  Recorder recorder;
  LinearNetworkNode network_node(recorder, 79);
  ParallelLocalNode parallel_node("section");
  use_like_mathematics(network_node);  // what the C library sets up at first use
  const AllocationWatch watch;
  use_like_mathematics(network_node);
  use_like_mathematics(parallel_node);
  use_like_mathematics(silent_status());
  EXPECT_EQ(watch.calls(), 0u);
}

TEST(ParallelStatus, SumsTheStepsOfOpenAndClosedNodesOverAllThreads) {
  ParallelLocalNode root("root");
  const std::unique_ptr<StatusIteration> total = root.make_iteration("total", 4000);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; t++) {
    threads.emplace_back([&] {
      for (int i = 0; i < 10; i++) {
        const std::unique_ptr<StatusNode> node = total->push_node("branch");
        StatusFrame frame(*node, "work");
        const std::unique_ptr<StatusIteration> steps = node->make_iteration("steps", 100);
        for (int k = 0; k < 100; k++) steps->advance();
      }
    });
  }
  u64 last = 0;
  while (last < 4000) {
    const u64 now = root.get_tree().completed;
    ASSERT_GE(now, last);
    last = now;
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(total->get_completed(), 4000u);
  EXPECT_EQ(root.get_completed(), 4000u);
  const std::unique_ptr<StatusNode> open = total->push_node("open");
  StatusFrame frame(*open, "half");
  open->set_progress(0.5);
  const StatusTree tree = root.get_tree();
  ASSERT_EQ(tree.nodes.size(), 1u);
  EXPECT_EQ(tree.nodes[0].total, 4000u);
  ASSERT_EQ(tree.nodes[0].nodes.size(), 1u);
  EXPECT_STREQ(tree.nodes[0].nodes[0].frames.at(0).text, "half");
  EXPECT_EQ(tree.nodes[0].nodes[0].frames.at(0).progress, 0.5f);
}

TEST(ParallelStatus, PopsAnyFrameThatIsThere) {
  ParallelLocalNode node("section");
  const StatusFrameId first = node.push_frame("first"), second = node.push_frame("second");
  node.pop_frame({&first, 1});
  EXPECT_EQ(refusal([&] {
              node.pop_frame({&first, 1});
            }),
            "ParallelLocalNode::pop_frame() Attempted to pop a non-existent node.");
  EXPECT_STREQ(node.get_tree().frames.at(0).text, "second");
  node.pop_frame({&second, 1});
  const std::unique_ptr<StatusIteration> iteration = node.make_iteration("steps", 1);
  EXPECT_EQ(refusal([&] {
              iteration->pop_frame({&second, 1});
            }),
            "ParallelLocalIteration::pop_frame() Attempted to pop a non-existent node.");
}

TEST(ParallelStatus, DestroyingANodeWithSubnodesEndsTheProgram) {
  const auto destroy = [](bool counted) {
    return run_child("", [=] {
      settings().pause_on_fatal = false;
      ParallelLocalNode root("root");
      std::unique_ptr<StatusNode> middle;
      if (counted) {
        middle = root.make_iteration("m", 1);
      } else {
        middle = root.push_node("m");
      }
      const std::unique_ptr<StatusNode> leaf = middle->push_node("leaf");
      middle.reset();
      return 0;
    });
  };
  EXPECT_EQ(destroy(false).status, 1);
  EXPECT_EQ(destroy(false).output, "ParallelLocalNode: Attempted to destroy a node with subnodes.\n");
  EXPECT_EQ(destroy(true).output, "ParallelLocalIteration: Attempted to destroy a node with subnodes.\n");
}

TEST(EventLog, KeepsStagesAndTheirLinesInOrder) {
  EventLog log;
  log.add("Working Memory");
  log.add_line("Working Memory: ", "1,024 ( 1.00 KiB)");
  log.add("Begin Computation");
  const std::string& text = log.text();
  const u64 first = text.find("    Working Memory\r\n"),
            line = text.find("Working Memory: 1,024 ( 1.00 KiB)\r\n"),
            last = text.find("    Begin Computation\r\n");
  EXPECT_LT(first, line);
  EXPECT_LT(line, last);
  EXPECT_EQ(last + 23, text.size());
}

}  // namespace
}  // namespace orl::test
