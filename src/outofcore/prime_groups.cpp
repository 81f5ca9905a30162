#include "outofcore/prime_groups.h"

#include <algorithm>
#include <memory>
#include <numeric>

#include "core/exceptions.h"
#include "core/fault_point.h"
#include "core/round_up.h"
#include "files/raw_io_buffer.h"
#include "words/words.h"

namespace orl {
namespace {

constexpr u64 kBlockQuantum = 64;            // points; a FarBlock's ends
constexpr u64 kLeastBlock = 512;             // points: below, calls cost more than the work
constexpr u64 kRowsOfSection = 8;            // a section that has so many rows of the array begins at one
constexpr u64 kRingBlock = 512;              // 64-bit words that the end of a ring is shown at a time
constexpr u64 kRounding = 3 * kIoAlignment;  // of areas within the staging
constexpr u64 kScratchShare = 16;  // of the memory, which scratch takes at most where tasks can be fewer
constexpr u32 kMostChannels = 16;
constexpr double kBareHandicap = 1.5;  // what moving without overlap costs, in bytes moved beside work

// The channels of a group, in order.
struct Group {
  u32 begin, end;
  u32 count() const { return end - begin; }
};

// What a product by groups consists of. Index 2 is the product.
struct Parts {
  Parts(const FarFamily& family, const SwapPlan& plan)
      : channels(family.channels(plan.shape)),
        width(plan.groups.group_channels),
        point(family.point_bytes(plan.shape)),
        packed(family.packed_bytes(plan.shape)),
        node(round_up(family.node_bytes(plan.shape, 0), kIoAlignment)) {
    const auto points_of = [&](u64 words) {
      return std::min(round_up((words * sizeof(u32) + point - 1) / point, kBlockQuantum),
                      plan.shape.points());
    };
    points[0] = points_of(plan.request.a_words);
    points[1] = points_of(plan.request.b_words);
    points[2] = points_of(plan.made_words());
  }

  u32 groups() const { return (channels + width - 1) / width; }
  // The first group and the last one stay in memory, so that what is left over goes to the second.
  Group group(u32 index) const {
    const auto begin = [&](u32 i) { return i < 2 ? i * width : channels - (groups() - i) * width; };
    return {begin(index), begin(index + 1)};
  }
  u32 behind_first() const { return channels - width; }
  u32 before_last() const { return group(groups() - 1).begin; }

  u32 channels, width;
  u64 point, packed, node;
  u64 points[3];
};

// Points of a block of `per_point` bytes each in `bytes` bytes; 0 when there are too few. Packed, blocks fill rows of the
// array, or whole sectors, where they are long enough.
u64 block_points(u64 bytes, u64 per_point, u64 all, u64 packed, u64 row_bytes) {
  const u64 most = (bytes - std::min(bytes, kRounding)) / per_point;
  if (most >= all) return all;
  for (const u64 unit : {row_bytes, kIoAlignment}) {
    const u64 quantum = std::lcm(unit / std::gcd(unit, packed), kBlockQuantum);
    if (most >= quantum) return most / quantum * quantum;
  }
  return most >= kLeastBlock ? most / kBlockQuantum * kBlockQuantum : 0;
}

// Bytes per point while an operand is split: two blocks of words, and two of residues.
u64 split_bytes(const Parts& parts) { return 2 * (parts.point + parts.behind_first() * parts.packed); }
// While the product is joined: two blocks of residues, one of words.
u64 join_bytes(const Parts& parts) { return 2 * parts.before_last() * parts.packed + parts.point; }
// While a group is moved by blocks.
u64 move_bytes(const Parts& parts) { return 2 * parts.width * parts.packed; }

// Packed residues of a group of an operand, as staging holds them.
u64 staged_bytes(const Parts& parts, u32 operand) {
  return round_up(parts.width * parts.packed * parts.points[operand], kIoAlignment);
}

// The staging takes what the memory has left, up to what all points take at once.
std::optional<SwapPlan> with_areas(const FarFamily& family, SwapPlan plan, const SwapBudget& budget) {
  const Parts parts(family, plan);
  PrimeGroupCut& cut = plan.groups;
  const bool square = plan.request.square();
  const u64 most_points = *std::max_element(parts.points, parts.points + 3);
  cut.back_bytes = !square ? parts.width * parts.node : cut.overlapped ? staged_bytes(parts, 2) : 0;
  const u64 fixed = NumberSink::bytes(plan.sink_bytes) + parts.width * parts.node + cut.back_bytes +
                    LinearHeapBuffer::cut_bytes<u8>(family.table_bytes(plan.shape)) +
                    LinearHeapBuffer::cut_bytes<u8>(family.node_scratch_bytes(plan.shape, 0, plan.tds));
  if (fixed >= budget.memory_bytes) return std::nullopt;
  const u64 left = (budget.memory_bytes - fixed) / kIoAlignment * kIoAlignment;
  const u64 staged = cut.overlapped ? staged_bytes(parts, 0) + (square ? 0 : staged_bytes(parts, 1)) : 0;
  const u64 useful =
      kRounding + round_up(most_points * std::max({split_bytes(parts), join_bytes(parts), move_bytes(parts)}),
                           kIoAlignment);
  cut.staging_bytes = std::min(left, std::max(useful, staged));
  if (cut.staging_bytes < staged) return std::nullopt;

  const auto points = [&](u64 bytes, u64 per_point, u64 all) {
    return block_points(bytes, per_point, all, parts.packed, budget.row_bytes);
  };
  cut.split_points =
      points(cut.staging_bytes, split_bytes(parts), std::max(parts.points[0], parts.points[1]));
  cut.join_points = points(cut.back_bytes + cut.staging_bytes, join_bytes(parts), parts.points[2]);
  cut.move_points = cut.overlapped ? most_points : points(cut.staging_bytes, move_bytes(parts), most_points);
  if (cut.split_points == 0 || cut.join_points == 0 || cut.move_points == 0) return std::nullopt;
  plan.memory_bytes = fixed + cut.staging_bytes;

  // The first file has the residues of the operand, then those of the product.
  const u64 packed[2] = {std::max(parts.points[0], parts.points[2]) * parts.packed,
                         parts.points[1] * parts.packed};
  for (u32 i = 0; i < 2; i++)
    cut.section_bytes[i] =
        round_up(packed[i], packed[i] >= kRowsOfSection * budget.row_bytes ? budget.row_bytes : kIoAlignment);
  plan.disk_bytes =
      parts.channels * cut.section_bytes[0] + (square ? 0 : parts.behind_first() * cut.section_bytes[1]);
  const u64 operands = parts.behind_first() * parts.packed * (parts.points[0] + parts.points[1]);
  const u64 product = parts.before_last() * parts.packed * parts.points[2];
  plan.bytes_read = sizeof(u32) * (plan.request.a_words + plan.request.b_words) + operands + product;
  plan.bytes_written = sizeof(u32) * plan.wanted_words() + operands + product;
  return plan;
}

// As many tasks as are asked for, or fewer: their scratch is a small part of the memory.
u64 tasks_of(const FarFamily& family, const FarShape& shape, const SwapBudget& budget) {
  u64 tasks = std::max<u64>(budget.tds, 1);
  while (tasks > 1 && family.node_scratch_bytes(shape, 0, tasks) > budget.memory_bytes / kScratchShare)
    tasks = (tasks + 1) / 2;
  return tasks;
}

// Bytes to move, weighed: 2 % of them count less than the work.
bool better(const SwapPlan& plan, const SwapPlan& than) {
  const auto weight = [](const SwapPlan& p) {
    return static_cast<double>(p.traffic()) * (p.groups.overlapped ? 1 : kBareHandicap);
  };
  const double own = weight(plan), other = weight(than);
  return own < 0.98 * other || (own < 1.02 * other && plan.cost < than.cost);
}

class PrimeGroupProduct {
 public:
  explicit PrimeGroupProduct(const SwapWork& work);
  bool run();

 private:
  u8* node(u8* nodes, const Group& group, u32 channel) const {
    return nodes + (channel - group.begin) * parts_.node;
  }
  const SwapNumber& operand(u32 index) const { return index == 0 ? work_.operands.a : *work_.operands.b; }
  // Where a channel's section of a file begins; the second file has no section for the first group.
  u64 section(u32 file, u32 channel) const {
    return (file == 0 ? channel : channel - parts_.width) * cut_.section_bytes[file];
  }
  void clear(u8* nodes);
  void split(u32 index, u8* nodes);
  void start_load(u32 index, u32 group, u64 begin);
  void load(u32 index, u32 group, u8* nodes);
  void store(u32 group);
  void transform(const Group& group, u8* nodes, bool forward);
  void multiply(const Group& group, OperandState state);
  void compute(u32 group);
  bool join();
  void step() { work_.run.status.set_progress(++steps_ / (parts_.groups() + 2.0)); }

  const SwapWork& work_;
  const PrimeGroupCut& cut_;
  Parts parts_;
  bool square_;
  LinearHeapBuffer heap_;
  u8 *nodes_, *back_, *staging_;
  std::unique_ptr<FarTransform> transform_;
  FarWork far_;
  std::unique_ptr<PersistentMemory> file_[2];
  u8* buffer_[2][2];  ///< of an operand: where blocks of packed residues are loaded to
  u32 current_[2] = {};
  bool loading_started_[2] = {};
  FarTransfer loading_[2], storing_;
  StatusFrame frame_;
  double steps_ = 0;
};

PrimeGroupProduct::PrimeGroupProduct(const SwapWork& work)
    : work_(work),
      cut_(work.plan.groups),
      parts_(*work.family, work.plan),
      square_(work.operands.square()),
      heap_(work.run.memory),
      nodes_(heap_.cut<u8>(parts_.width * parts_.node)),
      back_(heap_.cut<u8>(cut_.back_bytes + cut_.staging_bytes)),
      staging_(back_ + cut_.back_bytes),
      far_{{}, work.run.parallel.with_tds(work.plan.tds)},
      frame_(work.run.status, "VST Streaming: ") {
  LinearHeapBuffer tables = heap_.cut_buffer(work.family->table_bytes(work.plan.shape));
  transform_ = work.family->make(work.plan.shape, work.plan.request.ring, tables);
  far_.scratch = heap_.cut_buffer(work.family->node_scratch_bytes(work.plan.shape, 0, work.plan.tds));
  file_[0] = work.run.disk.allocate(parts_.channels * cut_.section_bytes[0], work.names.file[0]);
  if (!square_)
    file_[1] = work.run.disk.allocate(parts_.behind_first() * cut_.section_bytes[1], work.names.file[1]);
  const u64 half = parts_.width * parts_.packed * cut_.move_points;
  for (u32 i = 0; i < 2; i++) {
    u8* const begin = cut_.overlapped && i == 1 ? staging_ + staged_bytes(parts_, 0) : staging_;
    buffer_[i][0] = begin;
    buffer_[i][1] = cut_.overlapped ? begin : begin + half;
  }
}

// Points that an operand does not have are zero.
void PrimeGroupProduct::clear(u8* nodes) {
  bp_fill<u64>(reinterpret_cast<u64*>(nodes), parts_.width * parts_.node / sizeof(u64), 0, far_.parallel);
}

void PrimeGroupProduct::split(u32 index, u8* nodes) {
  const Group first = parts_.group(0);
  const u32 out = parts_.behind_first();
  const u64 block = std::min(cut_.split_points, parts_.points[index]);
  LinearHeapBuffer staging(staging_, cut_.staging_bytes);
  const auto cut_packed = [&] { return staging.cut<u8>(out * parts_.packed * block); };
  u8* const packed[2] = {cut_packed(), cut_packed()};
  WordReader reader(operand(index), block * parts_.point / sizeof(u32), staging, work_.proof.function(),
                    work_.proof.ring());
  clear(nodes);
  FarPlace to[kMostChannels];
  for (u32 i = 0;; i ^= 1) {
    const Words<u32> words = reader.next(far_.parallel);
    if (words.count == 0) break;
    const u64 begin = reader.at() * sizeof(u32) / parts_.point;
    const FarBlock points{begin, std::min(begin + block, parts_.points[index])};
    const u64 bytes = points.points() * parts_.packed;
    for (u32 c = 0; c < parts_.channels; c++)
      to[c] = c < first.end ? FarPlace{node(nodes, first, c), nullptr}
                            : FarPlace{nullptr, packed[i] + (c - first.end) * bytes};
    transform_->split(points, words, {to, parts_.channels}, far_);
    storing_ = file_[index]->start_scatter(packed[i], section(index, first.end) + begin * parts_.packed,
                                           bytes, cut_.section_bytes[index], out);
  }
  storing_.wait();
  work_.proof.end_read(index, reader.sums(), operand(index));
}

// A block of all channels of a group, from point `begin` on.
void PrimeGroupProduct::start_load(u32 index, u32 group, u64 begin) {
  const Group channels = parts_.group(group);
  const u64 points = std::min(cut_.move_points, parts_.points[index] - begin);
  loading_[index] = file_[index]->start_gather(
      buffer_[index][current_[index]], section(index, channels.begin) + begin * parts_.packed,
      points * parts_.packed, cut_.section_bytes[index], channels.count());
  loading_started_[index] = true;
}

void PrimeGroupProduct::load(u32 index, u32 group, u8* nodes) {
  const Group channels = parts_.group(group);
  if (!loading_started_[index]) start_load(index, group, 0);
  clear(nodes);
  for (u64 begin = 0, end; begin < parts_.points[index]; begin = end) {
    end = std::min(begin + cut_.move_points, parts_.points[index]);
    u8* const packed = buffer_[index][current_[index]];
    const u64 bytes = (end - begin) * parts_.packed;
    current_[index] ^= 1;
    loading_[index].wait();
    if (end < parts_.points[index]) start_load(index, group, end);
    fault_point("swap residues", packed, bytes * channels.count());
    for (u32 c = channels.begin; c < channels.end; c++)
      transform_->unpack(c, {}, node(nodes, channels, c), {begin, end}, packed + (c - channels.begin) * bytes,
                         far_.parallel);
  }
  loading_started_[index] = false;
}

// The product's residues of a group, from where the transforms are to the first file.
void PrimeGroupProduct::store(u32 group) {
  const Group channels = parts_.group(group);
  const u64 block = parts_.width * parts_.packed * cut_.move_points;
  for (u64 begin = 0, end, i = 0; begin < parts_.points[2]; begin = end, i ^= 1) {
    end = std::min(begin + cut_.move_points, parts_.points[2]);
    u8* const packed = cut_.overlapped ? back_ : staging_ + i * block;
    const u64 bytes = (end - begin) * parts_.packed;
    for (u32 c = channels.begin; c < channels.end; c++)
      transform_->pack(c, {}, node(nodes_, channels, c), {begin, end}, packed + (c - channels.begin) * bytes,
                       far_.parallel);
    storing_ = file_[0]->start_scatter(packed, section(0, channels.begin) + begin * parts_.packed, bytes,
                                       cut_.section_bytes[0], channels.count());
  }
  // Blocks share the staging with the loads that come.
  if (!cut_.overlapped) storing_.wait();
}

void PrimeGroupProduct::transform(const Group& group, u8* nodes, bool forward) {
  for (u32 c = group.begin; c < group.end; c++) {
    transform_->start(c, {}, node(nodes, group, c), far_);
    if (forward) transform_->forward(c, {}, node(nodes, group, c), far_);
  }
}

void PrimeGroupProduct::multiply(const Group& group, OperandState state) {
  for (u32 c = group.begin; c < group.end; c++) {
    u8* const F = node(nodes_, group, c);
    u8* const G = square_ ? F : node(back_, group, c);
    fault_point("swap transform", F, parts_.node);
    transform_->multiply(c, {}, F, G, state, far_);
    transform_->finish(c, {}, F, far_);
  }
}

void PrimeGroupProduct::compute(u32 group) {
  const Group channels = parts_.group(group);
  const bool ahead = cut_.overlapped && group + 1 < parts_.groups();
  // The first operand goes all the way down while the residues of the last group's product leave back_. Otherwise both
  // go down, and back, together, while they are in cache.
  const bool apart = cut_.overlapped && !square_ && group != 0;
  if (group != 0) load(0, group, nodes_);
  if (ahead) start_load(0, group + 1, 0);
  transform(channels, nodes_, apart);
  if (square_) {
    multiply(channels, OperandState::kStarted);
    storing_.wait();
    return;
  }
  storing_.wait();
  if (group != 0) load(1, group, back_);
  if (ahead) start_load(1, group + 1, 0);
  transform(channels, back_, apart);
  multiply(channels, apart ? OperandState::kTransformed : OperandState::kStarted);
}

bool PrimeGroupProduct::join() {
  const Group last = parts_.group(parts_.groups() - 1);
  const u64 block = cut_.join_points, made = work_.plan.made_words();
  LinearHeapBuffer staging(back_, cut_.back_bytes + cut_.staging_bytes);
  const auto cut_packed = [&] { return staging.cut<u8>(last.begin * parts_.packed * block); };
  u8* const packed[2] = {cut_packed(), cut_packed()};
  u64* const words = staging.cut<u64>(block * parts_.point / sizeof(u64));
  const auto start = [&](u64 begin, u8* to) {
    const u64 points = std::min(block, parts_.points[2] - begin);
    return file_[0]->start_gather(to, section(0, 0) + begin * parts_.packed, points * parts_.packed,
                                  cut_.section_bytes[0], last.begin);
  };
  FarPlace from[kMostChannels];
  FarCarry carry;
  FarTransfer loading = start(0, packed[0]);
  for (u64 begin = 0, end, i = 0; begin < parts_.points[2]; begin = end, i ^= 1) {
    end = std::min(begin + block, parts_.points[2]);
    const u64 bytes = (end - begin) * parts_.packed;
    loading.wait();
    if (end < parts_.points[2]) loading = start(end, packed[i ^ 1]);
    fault_point("swap residues", packed[i], bytes * last.begin);
    for (u32 c = 0; c < parts_.channels; c++)
      from[c] = c < last.begin ? FarPlace{nullptr, packed[i] + c * bytes}
                               : FarPlace{node(nodes_, last, c), nullptr};
    transform_->join({begin, end}, {from, parts_.channels}, words, carry, far_);
    const u64 at = begin * parts_.point / sizeof(u32);
    if (at >= made) break;
    const Words<u32> product{reinterpret_cast<u32*>(words),
                             std::min((end - begin) * parts_.point / sizeof(u32), made - at)};
    fault_point("swap product", words, product.count * sizeof(u32));
    work_.proof.add_product(at, product, far_.parallel);
    work_.sink.take(product, far_.parallel);
  }
  bool top = false;
  if (work_.plan.ring_words != 0) {
    work_.proof.add_above(carry, far_.parallel);
    top = close_ring(
        work_.plan.request.ring, made / 2, kRingBlock, carry,
        [&](u64 at, u64 count) {
          work_.sink.load(2 * at, reinterpret_cast<u32*>(words), 2 * count);
          return words;
        },
        [&](u64 at, u64 count) {
          work_.sink.store(2 * at, {reinterpret_cast<const u32*>(words), 2 * count}, far_.parallel);
        });
  }
  work_.sink.finish();
  work_.proof.check();
  return top;
}

bool PrimeGroupProduct::run() {
  split(0, nodes_);
  if (!square_) split(1, back_);
  step();
  for (u32 group = 0; group < parts_.groups(); group++) {
    compute(group);
    if (group + 1 < parts_.groups()) store(group);
    step();
  }
  storing_.wait();
  return join();
}

}  // namespace

std::optional<SwapPlan> plan_prime_groups(const FarFamily& family, const SwapRequest& request,
                                          const SwapBudget& budget) {
  std::optional<SwapPlan> best;
  for (u32 P = family.least_primes(); P <= family.most_primes(); P++) {
    for (const u32 k : {1, 3, 5, 7}) {
      const std::optional<FarShape> shape = least_far_shape(family, request, P, k);
      if (!shape) continue;
      const u32 channels = family.channels(*shape);
      if (channels > kMostChannels) continue;
      for (u32 width = 1; width < channels; width++) {
        for (const bool overlapped : {true, false}) {
          SwapPlan plan;
          plan.scheme = SwapScheme::kPrimeGroups;
          plan.request = request;
          plan.shape = *shape;
          plan.tds = tasks_of(family, *shape, budget);
          plan.cost = family.cost(*shape);
          if (request.ring != ProductRing::kPlain)
            plan.ring_words = family.product_bytes(*shape) / sizeof(u32);
          plan.groups.group_channels = width;
          plan.groups.overlapped = overlapped;
          plan.sink_bytes = swap_sink_bytes(budget, plan.wanted_words());
          const std::optional<SwapPlan> candidate = with_areas(family, plan, budget);
          if (candidate && (!best || better(*candidate, *best))) best = candidate;
        }
      }
    }
  }
  return best;
}

bool run_prime_groups(const SwapWork& work) { return PrimeGroupProduct(work).run(); }

}  // namespace orl
