#include "console/console_status.h"

#include <gtest/gtest.h>

#include "console/console.h"
#include "support/allocation_counter.h"
#include "support/child.h"
#include "support/thrown.h"

namespace orl::test {
namespace {

TEST(ConsoleStatus, RefusesWhatOnlyATreeCanDo) {
  LinearConsoleNode node;
  EXPECT_EQ(refusal([&] { node.push_node("x"); }),
            "LinearConsoleNode::push_node() Attempted to fork a linear status chain.");
  EXPECT_EQ(refusal([&] { node.get_tree(); }), "LinearConsoleNode::get_tree() Polling is not supported.");
  const StatusFrameId frame = node.push_frame("outer") + 1;
  EXPECT_EQ(refusal([&] {
              node.pop_frame({&frame, 1});
            }),
            "LinearConsoleNode::pop_frame() Attempted to pop a non-existent node.");
}

TEST(ConsoleStatus, WhatTheMathematicsUsesDoesNotAllocate) {
  LinearConsoleNode node(79, 0.0);
  const auto use = [&] {
    StatusFrame stage(node, "a stage with a text longer than its record");
    node.set_line("Series: A", 0.5);
    node.show_count("Writing...  ", 123456789, "  digits");
    node.print("", ' ');
  };
  use();  // what the C library sets up at first use
  const AllocationWatch watch;
  use();
  EXPECT_EQ(watch.calls(), 0u);
}

TEST(ConsoleStatus, OnlyPermanentTextLeavesTheProgramWithoutATerminal) {
  const ChildResult result = run_child("", [] {
    LinearConsoleNode node(79, 0.0);
    StatusFrame stage(node, "Reciprocal");
    node.set_progress(0.5);
    node.println("Base Converting:", 'G');
    return 0;
  });
  EXPECT_EQ(result.output, "Base Converting:\n");
}

TEST(ConsoleStatus, LiveLineGivesWayToPermanentTextAndGoesAtTheEnd) {
  const ChildResult result = run_child(
      "",
      [] {
        LinearConsoleNode node(79, 0.0);
        console::newline();
        StatusFrame stage(node, "Root");
        node.println("Done");
        node.set_progress(0.5);
        return 0;
      },
      ChildOutput::kTerminal);
  EXPECT_EQ(result.output, "\n\rRoot\r    \rDone\n\rRoot 50.0%\r          \r");
}

TEST(ConsoleStatus, NumbersThatMoveAreShownOncePerInterval) {
  const ChildResult result = run_child(
      "",
      [] {
        LinearConsoleNode node(79, 3600.0);
        console::newline();
        StatusFrame stage(node, "Root");
        for (int i = 0; i < 1000; i++) node.set_progress(0.001 * i);
        return 0;
      },
      ChildOutput::kTerminal);
  EXPECT_EQ(result.output, "\n\rRoot\r    \r");
}

}  // namespace
}  // namespace orl::test
